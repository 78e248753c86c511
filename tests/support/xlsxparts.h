#ifndef XLSXPARTS_H
#define XLSXPARTS_H

#include <QByteArray>
#include <QList>
#include <QMap>
#include <QString>

namespace Core {
class XlsxReader;
}

// Part name -> content of a hand-made package; a part without a name is the whole file.
using Parts = QMap<QString, QByteArray>;

namespace TestSupport {

inline QString sheetPart()
{
    return QStringLiteral("xl/worksheets/sheet1.xml");
}

// Relationships of the given types and targets, with ids rId0, rId2, rId4, ...
QByteArray rels(const QList<QByteArray> &typeAndTarget);
// A workbook of one sheet with shared strings (<si> items) and styles; workbook is the content
// of <workbook> before <sheets>. In rows, {attributes:value} is <c attributes><v>value</v></c>
// and {attributes"text"} an inline string cell.
Parts package(const QByteArray &rows, const QByteArray &sharedStrings = {},
              const QByteArray &styles = {}, const QByteArray &workbook = {});
// parts with one part replaced; null content removes it.
Parts with(Parts parts, const QString &name, const QByteArray &content);
// Writes the parts as a zip archive, stored rather than deflated.
bool writeParts(const QString &path, const Parts &parts);
// The reader's data area: cells joined by '|', rows by '\n'; each row after its number from 1
// and a '|' when numbered, as the importers store it.
QString readerText(const Core::XlsxReader &reader, bool numbered = false);

} // namespace TestSupport

#endif // XLSXPARTS_H
