#include "xlsxfixture.h"

#include <core/xlsxreader.h>

#include <QCoreApplication>
#include <QDate>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QRegularExpression>

namespace TestSupport {

bool writeXlsx(const QString &path, const QList<QVariantList> &rows)
{
    QJsonArray sheet;
    for (const QVariantList &row : rows) {
        QJsonArray cells;
        for (const QVariant &v : row)
            cells.append(v.userType() != QMetaType::QDate ? QJsonValue::fromVariant(v)
                    : QJsonObject{{"date", QDate(1899, 12, 30).daysTo(v.toDate())}});
        sheet.append(cells);
    }
    QProcess writer;
    writer.start(QCoreApplication::applicationDirPath() + "/zqxlsxwrite", QStringList());
    writer.write(QJsonDocument(QJsonObject{{"path", path}, {"rows", sheet}}).toJson());
    writer.closeWriteChannel();
    return writer.waitForFinished(300000) && writer.exitStatus() == QProcess::NormalExit
            && writer.exitCode() == 0;
}

bool writeXlsxGrid(const QString &path, int rows, int columns)
{
    QList<QVariantList> grid;
    for (int r = 1; r <= rows; ++r) {
        grid.append(QVariantList());
        for (int c = 1; c <= columns; ++c)
            grid.last().append(QStringLiteral("r%1c%2").arg(r).arg(c));
    }
    return writeXlsx(path, grid);
}

namespace Xlsx {

static const QByteArray Ns = "http://schemas.openxmlformats.org/";

QByteArray rels(const QList<QByteArray> &typeAndTarget)
{
    QByteArray xml = "<Relationships xmlns='" + Ns + "package/2006/relationships'>";
    for (int i = 0; i < typeAndTarget.size(); i += 2)
        xml += "<Relationship Id='rId" + QByteArray::number(i) + "' Type='" + Ns
                + "officeDocument/2006/relationships/" + typeAndTarget.at(i) + "' Target='"
                + typeAndTarget.at(i + 1) + "'/>";
    return xml + "</Relationships>";
}

Parts package(const QByteArray &rows, const QByteArray &sharedStrings, const QByteArray &styles,
              const QByteArray &workbook)
{
    const QByteArray main = " xmlns='" + Ns + "spreadsheetml/2006/main'";
    const QString cells = QString::fromUtf8(rows)
            .replace(QRegularExpression("\\{([^:\"{}]*):([^{}]*)\\}"), "<c \\1><v>\\2</v></c>")
            .replace(QRegularExpression("\\{([^:\"{}]*)\"([^\"]*)\"\\}"),
                     "<c \\1 t='inlineStr'><is><t>\\2</t></is></c>");
    return {{"_rels/.rels", rels({"officeDocument", "xl/workbook.xml"})},
            {"xl/_rels/workbook.xml.rels", rels({"worksheet", "worksheets/sheet1.xml",
                    "sharedStrings", "sharedStrings.xml", "styles", "styles.xml"})},
            {"xl/workbook.xml", "<workbook" + main + " xmlns:r='" + Ns + "officeDocument/2006/"
                    "relationships'>" + workbook + "<sheets><sheet r:id='rId0'/></sheets></workbook>"},
            {"xl/worksheets/sheet1.xml",
             "<worksheet" + main + "><sheetData>" + cells.toUtf8() + "</sheetData></worksheet>"},
            {"xl/sharedStrings.xml", "<sst" + main + ">" + sharedStrings + "</sst>"},
            {"xl/styles.xml", "<styleSheet" + main + ">" + styles + "</styleSheet>"}};
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
