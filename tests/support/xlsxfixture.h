#ifndef XLSXFIXTURE_H
#define XLSXFIXTURE_H

#include <QMap>
#include <QMetaType>
#include <QVariant>

namespace Core {
class XlsxReader;
}

namespace TestSupport {

// A sheet of rows from A1 written with libxlsxwriter, a writer the reader shares no code with,
// in the helper zqxlsxwrite beside the test (it cannot share a process with QuaZip). Values:
// QString, bool, a number, a QDate, or invalid for a formatted blank. False when it fails.
bool writeXlsx(const QString &path, const QList<QVariantList> &rows);
// rows x columns texts "r<row>c<column>" counted from 1.
bool writeXlsxGrid(const QString &path, int rows, int columns);

// Hand-made packages, for what no writer produces.
namespace Xlsx {

// Part name -> content; a part without a name is the whole file.
using Parts = QMap<QString, QByteArray>;

// A workbook of one sheet with shared strings (<si> items) and styles; workbook is the content
// of <workbook> before <sheets>. In rows, {attributes:value} is <c attributes><v>value</v></c>
// and {attributes"text"} an inline string cell.
Parts package(const QByteArray &rows, const QByteArray &sharedStrings = QByteArray(),
              const QByteArray &styles = QByteArray(), const QByteArray &workbook = QByteArray());
// Relationships of the given types and targets, with ids rId0, rId2, rId4, ...
QByteArray rels(const QList<QByteArray> &typeAndTarget);
// The reader's data area: cells joined by '|', rows by '\n'.
QString dump(const Core::XlsxReader &reader);

} // namespace Xlsx

} // namespace TestSupport

Q_DECLARE_METATYPE(TestSupport::Xlsx::Parts)

#endif // XLSXFIXTURE_H
