// Writes an .xlsx file with libxlsxwriter from a JSON script on standard input (see
// xlsxfixture.h). A process of its own: libquazip exports a modified minizip under the names
// of the system minizip that libxlsxwriter calls, so the two cannot share a process.

#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <xlsxwriter.h>

int main()
{
    QFile input;
    if (!input.open(stdin, QIODevice::ReadOnly))
        return 2;
    const QJsonObject script = QJsonDocument::fromJson(input.readAll()).object();
    lxw_workbook *book = workbook_new(script.value("path").toString().toLocal8Bit());
    lxw_worksheet *sheet = book ? workbook_add_worksheet(book, nullptr) : nullptr;
    if (!sheet)
        return 1;
    lxw_format *date = workbook_add_format(book);
    format_set_num_format(date, "yyyy-mm-dd");
    int errors = 0;
    const QJsonArray rows = script.value("rows").toArray();
    for (int r = 0; r < rows.size(); ++r) {
        const QJsonArray row = rows.at(r).toArray();
        for (int c = 0; c < row.size(); ++c) {
            const QJsonValue v = row.at(c); // a date is {"date": serial}, null a formatted blank
            const QByteArray text = v.toString().toUtf8();
            errors += v.isString() ? worksheet_write_string(sheet, r, c, text, nullptr)
                    : v.isBool()   ? worksheet_write_boolean(sheet, r, c, v.toBool(), nullptr)
                    : v.isDouble() ? worksheet_write_number(sheet, r, c, v.toDouble(), nullptr)
                    : v.isObject() ? worksheet_write_number(sheet, r, c, v["date"].toDouble(), date)
                                   : worksheet_write_blank(sheet, r, c, date);
        }
    }
    return workbook_close(book) == LXW_NO_ERROR && errors == 0 ? 0 : 1;
}
