// Writes a ROWS x WIDTH (default 10) sheet of mixed cells, the way a typical export looks:
// repeated and unique texts, integers, decimals and dates, with a header row. Columns past the
// tenth repeat the ten kinds, their texts drawn from a few thousand values, as the coded columns
// of a wide export are.
#include <xlsxwriter.h>

#include <cstdio>
#include <cstdlib>

int main(int argc, char **argv)
{
    if (argc < 3) {
        std::fprintf(stderr, "usage: %s FILE ROWS [WIDTH]\n", argv[0]);
        return 2;
    }
    const int rows = std::atoi(argv[2]);
    const int width = argc > 3 ? std::atoi(argv[3]) : 10;
    lxw_workbook *workbook = workbook_new(argv[1]);
    lxw_worksheet *sheet = workbook_add_worksheet(workbook, "Data");
    lxw_format *date = workbook_add_format(workbook);
    format_set_num_format(date, "yyyy-mm-dd");
    const char *headings[] = {"id",    "name", "city",   "amount", "price",
                              "count", "day",  "status", "ratio",  "note"};
    char text[64];
    for (int column = 0; column < width; ++column) {
        std::snprintf(text, sizeof text, "%s%.0d", headings[column % 10], column / 10);
        worksheet_write_string(sheet, 0, lxw_col_t(column), text, nullptr);
    }
    const char *cities[] = {"Beijing", "Shanghai", "Shenzhen", "Hangzhou", "Chengdu"};
    const char *statuses[] = {"open", "closed", "pending"};
    for (int i = 1; i < rows; ++i) {
        const lxw_row_t row = lxw_row_t(i);
        worksheet_write_number(sheet, row, 0, i, nullptr);
        std::snprintf(text, sizeof text, "customer %d", i);
        worksheet_write_string(sheet, row, 1, text, nullptr);
        worksheet_write_string(sheet, row, 2, cities[i % 5], nullptr);
        worksheet_write_number(sheet, row, 3, (i * 37) % 100000, nullptr);
        worksheet_write_number(sheet, row, 4, (i % 1000) / 8.0 + 0.01, nullptr);
        worksheet_write_number(sheet, row, 5, i % 97, nullptr);
        worksheet_write_number(sheet, row, 6, 43831 + i % 3000, date);
        worksheet_write_string(sheet, row, 7, statuses[i % 3], nullptr);
        worksheet_write_number(sheet, row, 8, 1.0 / (1 + i % 13), nullptr);
        std::snprintf(text, sizeof text, "note %x", i * 2654435761u);
        worksheet_write_string(sheet, row, 9, text, nullptr);
        for (int column = 10; column < width; ++column) {
            const lxw_col_t col = lxw_col_t(column);
            const int k = i + column;
            switch (column % 10) {
            case 1:
            case 9:
                std::snprintf(text, sizeof text, "code %d", k * 7919 % 4000);
                worksheet_write_string(sheet, row, col, text, nullptr);
                break;
            case 2:
                worksheet_write_string(sheet, row, col, cities[k % 5], nullptr);
                break;
            case 7:
                worksheet_write_string(sheet, row, col, statuses[k % 3], nullptr);
                break;
            case 4:
            case 8:
                worksheet_write_number(sheet, row, col, (k % 1000) / 8.0 + 0.01, nullptr);
                break;
            case 6:
                worksheet_write_number(sheet, row, col, 43831 + k % 3000, date);
                break;
            default:
                worksheet_write_number(sheet, row, col, (k * 37) % 100000, nullptr);
            }
        }
    }
    return workbook_close(workbook) == LXW_NO_ERROR ? 0 : 1;
}
