// Writes an .xlsx file with libxlsxwriter from a JSON script on standard input (see
// xlsxfixture.h). A process of its own: libquazip exports a modified minizip under the names
// of the system minizip that libxlsxwriter calls, so the two cannot share a process.

#include <QFile>
#include <QHash>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <xlsxwriter.h>

#include <string>

namespace {

QHash<QString, lxw_format *> formats;

// A format code, or the number of a built-in format.
lxw_format *format(lxw_workbook *book, const QString &code)
{
    lxw_format *&f = formats[code];
    if (!code.isEmpty() && !f) {
        f = workbook_add_format(book);
        bool builtin = false;
        const int index = code.toInt(&builtin);
        builtin ? format_set_num_format_index(f, uint8_t(index))
                : format_set_num_format(f, code.toUtf8().constData());
    }
    return f;
}

lxw_error writeCell(lxw_workbook *book, lxw_worksheet *sheet, const QJsonObject &cell)
{
    const lxw_row_t row = lxw_row_t(cell["r"].toInt());
    const lxw_col_t col = lxw_col_t(cell["c"].toInt());
    const QJsonValue v = cell["v"];
    const QString code = cell["f"].toString();
    const std::string text = v.toString().toStdString(), formula = code.toStdString();
    if (code.startsWith(QLatin1Char('=')) && v.isString())
        return worksheet_write_formula_str(sheet, row, col, formula.c_str(), nullptr, text.c_str());
    if (code.startsWith(QLatin1Char('=')))
        return worksheet_write_formula_num(sheet, row, col, formula.c_str(), nullptr, v.toDouble());
    lxw_format *f = format(book, code);
    if (v.isArray()) {
        const QJsonArray parts = v.toArray();
        lxw_datetime dt = {parts[0].toInt(), parts[1].toInt(), parts[2].toInt(),
                           parts[3].toInt(), parts[4].toInt(), parts[5].toDouble()};
        return worksheet_write_datetime(sheet, row, col, &dt, f);
    }
    if (v.isString())
        return worksheet_write_string(sheet, row, col, text.c_str(), f);
    if (v.isBool())
        return worksheet_write_boolean(sheet, row, col, v.toBool(), f);
    return v.isDouble() ? worksheet_write_number(sheet, row, col, v.toDouble(), f)
                        : worksheet_write_blank(sheet, row, col, f);
}

} // namespace

int main()
{
    QFile input;
    if (!input.open(stdin, QIODevice::ReadOnly))
        return 2;
    const QJsonObject script = QJsonDocument::fromJson(input.readAll()).object();
    lxw_workbook_options options = {};
    options.constant_memory = script.value("constantMemory").toBool();
    lxw_workbook *book = workbook_new_opt(script.value("path").toString().toLocal8Bit(), &options);
    if (!book)
        return 1;
    bool ok = true;
    for (const QJsonValue &sheetScript : script.value("sheets").toArray()) {
        const QJsonObject s = sheetScript.toObject();
        lxw_worksheet *sheet = workbook_add_worksheet(book, s.value("name").toString().toUtf8());
        const QJsonArray grid = s.value("grid").toArray();
        // Texts "r<row>c<column>" counted from 1, too many to send one by one.
        for (int r = 0; sheet && r < grid.at(0).toInt(); ++r) {
            for (int c = 0; c < grid.at(1).toInt(); ++c) {
                const std::string text = "r" + std::to_string(r + 1) + "c" + std::to_string(c + 1);
                ok = worksheet_write_string(sheet, r, c, text.c_str(), nullptr) == LXW_NO_ERROR && ok;
            }
        }
        for (const QJsonValue &cell : s.value("cells").toArray())
            ok = sheet && writeCell(book, sheet, cell.toObject()) == LXW_NO_ERROR && ok;
    }
    return workbook_close(book) == LXW_NO_ERROR && ok ? 0 : 1;
}
