#include "xlsxfixture.h"

#include <core/xlsxreader.h>

#include <QCoreApplication>
#include <QDateTime>
#include <QJsonDocument>
#include <QProcess>
#include <QRegularExpression>

namespace TestSupport {

QJsonObject xlsxCell(int row, int column, const QVariant &value, const QString &format)
{
    QJsonObject cell{{"r", row}, {"c", column}, {"f", format}};
    if (value.userType() == QMetaType::QDate || value.userType() == QMetaType::QDateTime) {
        const QDateTime t = value.toDateTime();
        cell["v"] = QJsonArray{t.date().year(), t.date().month(), t.date().day(), t.time().hour(),
                               t.time().minute(), t.time().second() + t.time().msec() / 1000.0};
        cell["f"] = format.isEmpty() ? QStringLiteral("yyyy-mm-dd hh:mm:ss") : format;
    } else {
        cell["v"] = QJsonValue::fromVariant(value);
        // The writer leaves out blank cells that carry no format.
        if (!value.isValid() && format.isEmpty())
            cell["f"] = QStringLiteral("0.00");
    }
    return cell;
}

static bool runWriter(const QJsonObject &script)
{
    QProcess writer;
    writer.start(QCoreApplication::applicationDirPath() + QStringLiteral("/zqxlsxwrite"),
                 QStringList());
    writer.write(QJsonDocument(script).toJson(QJsonDocument::Compact));
    writer.closeWriteChannel();
    return writer.waitForFinished(300000) && writer.exitStatus() == QProcess::NormalExit
            && writer.exitCode() == 0;
}

bool writeXlsxSheets(const QString &path, const QList<QPair<QString, QJsonArray>> &sheets,
                     bool constantMemory)
{
    QJsonArray list;
    for (const auto &sheet : sheets)
        list.append(QJsonObject{{"name", sheet.first}, {"cells", sheet.second}});
    return runWriter({{"path", path}, {"constantMemory", constantMemory}, {"sheets", list}});
}

bool writeXlsx(const QString &path, const QList<QVariantList> &rows)
{
    QJsonArray cells;
    for (int row = 0; row < rows.size(); ++row) {
        for (int column = 0; column < rows.at(row).size(); ++column)
            cells.append(xlsxCell(row, column, rows.at(row).at(column)));
    }
    return writeXlsxSheets(path, {{QStringLiteral("Sheet1"), cells}});
}

bool writeXlsxGrid(const QString &path, int rows, int columns)
{
    const QJsonObject sheet{{"name", "Sheet1"}, {"grid", QJsonArray{rows, columns}}};
    return runWriter({{"path", path}, {"constantMemory", true}, {"sheets", QJsonArray{sheet}}});
}

namespace Xlsx {

static const QByteArray MainNs = "http://schemas.openxmlformats.org/spreadsheetml/2006/main";
static const QByteArray RelNs =
        "http://schemas.openxmlformats.org/officeDocument/2006/relationships";

QByteArray rel(const QByteArray &id, const QByteArray &type, const QByteArray &target)
{
    return "<Relationship Id='" + id + "' Type='" + RelNs + "/" + type + "' Target='" + target
            + "'/>";
}

QByteArray rels(const QByteArray &body)
{
    return "<?xml version='1.0' encoding='UTF-8'?><Relationships xmlns='http://schemas."
           "openxmlformats.org/package/2006/relationships'>" + body + "</Relationships>";
}

QByteArray worksheet(const QByteArray &body)
{
    QString xml = QString::fromUtf8(body);
    xml.replace(QRegularExpression("\\{([^:\"{}]*):([^{}]*)\\}"), "<c \\1><v>\\2</v></c>")
            .replace(QRegularExpression("\\{([^:\"{}]*)\"([^\"]*)\"\\}"),
                     "<c \\1 t='inlineStr'><is><t>\\2</t></is></c>")
            .replace("<c >", "<c>").replace("<c  ", "<c ");
    return "<?xml version='1.0' encoding='UTF-8' standalone='yes'?><worksheet xmlns='" + MainNs
            + "'>" + xml.toUtf8() + "</worksheet>";
}

QByteArray sheet(const QByteArray &rows)
{
    return worksheet("<sheetData>" + rows + "</sheetData>");
}

QByteArray workbook(const QByteArray &body)
{
    return "<workbook xmlns='" + MainNs + "' xmlns:r='" + RelNs + "'>" + body + "</workbook>";
}

Parts with(Parts parts, const Parts &changes)
{
    for (auto it = changes.cbegin(); it != changes.cend(); ++it)
        it->isNull() ? void(parts.remove(it.key())) : void(parts.insert(it.key(), *it));
    return parts;
}

Parts package(const QByteArray &rows, const QByteArray &sharedStrings, const QByteArray &styles,
              const QByteArray &workbookPr)
{
    QByteArray bookRels = rel("rId1", "worksheet", "worksheets/sheet1.xml");
    Parts parts{{"_rels/.rels", rels(rel("rId1", "officeDocument", "xl/workbook.xml"))},
                {"xl/workbook.xml", workbook("<workbookPr " + workbookPr + "/><sheets><sheet "
                                             "name='S' sheetId='1' r:id='rId1'/></sheets>")},
                {SheetPart, sheet(rows)}};
    if (!sharedStrings.isNull()) {
        bookRels += rel("rId2", "sharedStrings", "sharedStrings.xml");
        parts["xl/sharedStrings.xml"] = "<sst xmlns='" + MainNs + "'>" + sharedStrings + "</sst>";
    }
    if (!styles.isNull()) {
        bookRels += rel("rId3", "styles", "styles.xml");
        parts["xl/styles.xml"] = "<styleSheet xmlns='" + MainNs + "'>" + styles + "</styleSheet>";
    }
    parts[BookRels] = rels(bookRels);
    return parts;
}

Parts strict(Parts parts)
{
    for (auto it = parts.begin(); it != parts.end(); ++it) {
        QString xml = QString::fromUtf8(it->replace(MainNs, "http://purl.oclc.org/ooxml/"
                "spreadsheetml/main").replace(RelNs, "http://purl.oclc.org/ooxml/officeDocument/"
                "relationships").replace("r:id", "rel:id").replace(":r=", ":rel="));
        if (!it.key().contains(QLatin1String("_rels")))
            xml.replace("xmlns=", "xmlns:x=")
                    .replace(QRegularExpression("<(/?)(?=\\w)"), QStringLiteral("<\\1x:"));
        *it = xml.toUtf8();
    }
    return parts;
}

Parts withDoctype(Parts parts)
{
    for (auto &part : parts) {
        if (part.startsWith("<?xml"))
            part.insert(part.indexOf("?>") + 2, "<!DOCTYPE x>");
        else if (part.startsWith("<"))
            part.prepend("<!DOCTYPE x>");
    }
    return parts;
}

QString dump(const Core::XlsxReader &reader)
{
    QStringList lines;
    for (int row = 0; row < reader.rowCount(); ++row) {
        QStringList cells;
        for (int column = 0; column < reader.columnCount(); ++column)
            cells << reader.textAt(row, column);
        lines << cells.join(QLatin1Char('|'));
    }
    return lines.join(QLatin1Char('\n'));
}

} // namespace Xlsx

} // namespace TestSupport
