#include "xlsxparts.h"
#include "testsupport.h"

#include <core/xlsxreader.h>

#include <quazip.h>
#include <quazipfile.h>

#include <QRegularExpression>

namespace TestSupport {

namespace {
const QByteArray Ns = "http://schemas.openxmlformats.org/";
} // namespace

// Relationships of the given types and targets, with ids rId0, rId2, rId4, ...
QByteArray rels(const QList<QByteArray> &typeAndTarget)
{
    QByteArray xml = "<Relationships xmlns='" + Ns + "package/2006/relationships'>";
    for (int i = 0; i < typeAndTarget.size(); i += 2)
        xml += "<Relationship Id='rId" + QByteArray::number(i) + "' Type='" + Ns
                + "officeDocument/2006/relationships/" + typeAndTarget.at(i) + "' Target='"
                + typeAndTarget.at(i + 1) + "'/>";
    return xml + "</Relationships>";
}

// A workbook of one sheet with shared strings (<si> items) and styles; workbook is the content
// of <workbook> before <sheets>. In rows, {attributes:value} is <c attributes><v>value</v></c>
// and {attributes"text"} an inline string cell.
Parts package(const QByteArray &rows, const QByteArray &sharedStrings,
              const QByteArray &styles, const QByteArray &workbook)
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
                    "relationships'>" + workbook + "<sheets><sheet r:id='rId0'/></sheets>"
                    "</workbook>"},
            {sheetPart(), "<worksheet" + main + "><sheetData>" + cells.toUtf8()
                    + "</sheetData></worksheet>"},
            {"xl/sharedStrings.xml", "<sst" + main + ">" + sharedStrings + "</sst>"},
            {"xl/styles.xml", "<styleSheet" + main + ">" + styles + "</styleSheet>"}};
}

// parts with one part replaced; null content removes it.
Parts with(Parts parts, const QString &name, const QByteArray &content)
{
    content.isNull() ? void(parts.remove(name)) : void(parts.insert(name, content));
    return parts;
}

bool writeParts(const QString &path, const Parts &parts)
{
    if (parts.contains(QString()))
        return TestSupport::writeFile(path, parts.value(QString()));
    QuaZip zip(path);
    bool ok = zip.open(QuaZip::mdCreate);
    for (auto it = parts.cbegin(); ok && it != parts.cend(); ++it) {
        QuaZipFile file(&zip);
        // Stored, not deflated: a damaged byte is then for the checksum alone to find.
        ok = file.open(QIODevice::WriteOnly, QuaZipNewInfo(it.key()), nullptr, 0, 0)
                && file.write(*it) == it->size();
    }
    zip.close();
    return ok && zip.getZipError() == UNZ_OK;
}

QString readerText(const Core::XlsxReader &reader, bool numbered)
{
    QStringList lines;
    for (int row = 0; row < reader.rowCount(); ++row) {
        lines << (numbered ? QString::number(row + 1) + '|' : QString());
        for (int column = 0; column < reader.columnCount(); ++column)
            lines.last() += (column > 0 ? "|" : "") + reader.textAt(row, column);
    }
    return lines.join('\n');
}

} // namespace TestSupport
