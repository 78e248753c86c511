// Writes an .xlsx file with libxlsxwriter from a JSON script on standard input.
//
// It runs as its own process because libquazip exports a modified minizip under the same
// symbol names as the system minizip that libxlsxwriter calls: in one process one of the two
// libraries would call the other's functions.

#include <QByteArray>
#include <QFile>
#include <QHash>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QVector>

#include <xlsxwriter.h>

#include <cstdio>

namespace {

class Writer
{
public:
    explicit Writer(lxw_workbook *workbook) : m_workbook(workbook) { }

    lxw_format *format(const QString &numberFormat)
    {
        if (numberFormat.isEmpty())
            return nullptr;
        lxw_format *&format = m_formats[numberFormat];
        if (!format) {
            format = workbook_add_format(m_workbook);
            bool builtin = false;
            const int index = numberFormat.toInt(&builtin);
            if (builtin)
                format_set_num_format_index(format, uint8_t(index));
            else
                format_set_num_format(format, numberFormat.toUtf8().constData());
        }
        return format;
    }

    lxw_format *bold()
    {
        if (!m_bold) {
            m_bold = workbook_add_format(m_workbook);
            format_set_bold(m_bold);
        }
        return m_bold;
    }

    lxw_error cell(lxw_worksheet *sheet, const QJsonObject &op)
    {
        const lxw_row_t row = lxw_row_t(op.value(QStringLiteral("row")).toInt());
        const lxw_col_t column = lxw_col_t(op.value(QStringLiteral("column")).toInt());
        const QString type = op.value(QStringLiteral("type")).toString();
        const QJsonValue value = op.value(QStringLiteral("value"));
        lxw_format *cellFormat = format(op.value(QStringLiteral("format")).toString());
        const QByteArray text = value.toString().toUtf8();
        if (type == QLatin1String("string"))
            return worksheet_write_string(sheet, row, column, text.constData(), cellFormat);
        if (type == QLatin1String("number"))
            return worksheet_write_number(sheet, row, column, value.toDouble(), cellFormat);
        if (type == QLatin1String("bool"))
            return worksheet_write_boolean(sheet, row, column, value.toBool(), cellFormat);
        if (type == QLatin1String("blank"))
            return worksheet_write_blank(sheet, row, column, cellFormat);
        if (type == QLatin1String("datetime")) {
            const QJsonArray p = value.toArray();
            lxw_datetime datetime = {p.at(0).toInt(), p.at(1).toInt(), p.at(2).toInt(),
                                     p.at(3).toInt(), p.at(4).toInt(), p.at(5).toDouble()};
            return worksheet_write_datetime(sheet, row, column, &datetime, cellFormat);
        }
        const QByteArray formula = op.value(QStringLiteral("formula")).toString().toUtf8();
        if (type == QLatin1String("formulaNumber"))
            return worksheet_write_formula_num(sheet, row, column, formula.constData(), cellFormat,
                                               value.toDouble());
        if (type == QLatin1String("formulaString"))
            return worksheet_write_formula_str(sheet, row, column, formula.constData(), cellFormat,
                                               text.constData());
        if (type == QLatin1String("rich")) {
            // Alternate plain and bold runs so the writer cannot merge them.
            const QJsonArray runs = value.toArray();
            QVector<QByteArray> texts;
            for (const QJsonValue &run : runs)
                texts.append(run.toString().toUtf8());
            QVector<lxw_rich_string_tuple> tuples;
            for (int i = 0; i < texts.size(); ++i)
                tuples.append({i % 2 ? bold() : nullptr, const_cast<char *>(texts[i].constData())});
            QVector<lxw_rich_string_tuple *> pointers;
            for (lxw_rich_string_tuple &tuple : tuples)
                pointers.append(&tuple);
            pointers.append(nullptr);
            return worksheet_write_rich_string(sheet, row, column, pointers.data(), cellFormat);
        }
        if (type == QLatin1String("grid")) {
            // rows x columns cells "r<row>c<column>", counted from 1; or numbers when asked.
            const int rows = op.value(QStringLiteral("rows")).toInt();
            const int columns = op.value(QStringLiteral("columns")).toInt();
            const bool numbers = value.toString() == QLatin1String("numbers");
            for (int r = 0; r < rows; ++r) {
                for (int c = 0; c < columns; ++c) {
                    lxw_error error;
                    if (numbers) {
                        error = worksheet_write_number(sheet, row + r, column + c,
                                                       r * 10.0 + c + (c % 2 ? 0.25 : 0), nullptr);
                    } else {
                        char buffer[32];
                        std::snprintf(buffer, sizeof buffer, "r%dc%d", r + 1, c + 1);
                        error = worksheet_write_string(sheet, row + r, column + c, buffer, nullptr);
                    }
                    if (error != LXW_NO_ERROR)
                        return error;
                }
            }
            return LXW_NO_ERROR;
        }
        return LXW_ERROR_PARAMETER_VALIDATION;
    }

private:
    lxw_workbook *m_workbook;
    QHash<QString, lxw_format *> m_formats;
    lxw_format *m_bold = nullptr;
};

} // namespace

int main()
{
    QFile input;
    if (!input.open(stdin, QIODevice::ReadOnly))
        return 2;
    const QJsonObject script = QJsonDocument::fromJson(input.readAll()).object();
    const QByteArray path = script.value(QStringLiteral("path")).toString().toLocal8Bit();
    lxw_workbook_options options = {};
    options.constant_memory = script.value(QStringLiteral("constantMemory")).toBool();
    lxw_workbook *workbook = workbook_new_opt(path.constData(), &options);
    if (!workbook)
        return 1;
    Writer writer(workbook);
    bool ok = true;
    const QJsonArray sheets = script.value(QStringLiteral("sheets")).toArray();
    for (const QJsonValue &sheetValue : sheets) {
        const QJsonObject sheetScript = sheetValue.toObject();
        lxw_worksheet *sheet = workbook_add_worksheet(
                workbook, sheetScript.value(QStringLiteral("name")).toString().toUtf8().constData());
        if (!sheet) {
            ok = false;
            continue;
        }
        const QJsonArray cells = sheetScript.value(QStringLiteral("cells")).toArray();
        for (const QJsonValue &cell : cells)
            ok = writer.cell(sheet, cell.toObject()) == LXW_NO_ERROR && ok;
    }
    ok = workbook_close(workbook) == LXW_NO_ERROR && ok;
    return ok ? 0 : 1;
}
