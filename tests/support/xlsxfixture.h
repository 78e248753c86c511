#ifndef XLSXFIXTURE_H
#define XLSXFIXTURE_H

#include <QJsonArray>
#include <QJsonObject>
#include <QList>
#include <QMap>
#include <QMetaType>
#include <QPair>
#include <QVariant>

namespace Core {
class XlsxReader;
}

// Spreadsheets written with libxlsxwriter, a writer the reader shares no code with. It runs in
// the helper zqxlsxwrite beside the test executable, as it cannot share a process with QuaZip.
namespace TestSupport {

// value: QString, bool, a number, QDate/QDateTime, or invalid for a formatted blank.
// format: a format code, a built-in format's number, or a formula ("=...") whose cached
// result is value.
QJsonObject xlsxCell(int row, int column, const QVariant &value, const QString &format = QString());
// Sheets as (name, cells); constantMemory writes inline strings instead of shared ones and
// needs the cells in row order. False when the writer fails.
bool writeXlsxSheets(const QString &path, const QList<QPair<QString, QJsonArray>> &sheets,
                     bool constantMemory = false);
// One sheet of rows from A1.
bool writeXlsx(const QString &path, const QList<QVariantList> &rows);
// rows x columns texts "r<row>c<column>" counted from 1.
bool writeXlsxGrid(const QString &path, int rows, int columns);

// Parts of hand-made packages, for what no writer produces.
namespace Xlsx {

// Part name -> content; null content leaves a part out.
using Parts = QMap<QString, QByteArray>;

const QString SheetPart = QStringLiteral("xl/worksheets/sheet1.xml");
const QString BookRels = QStringLiteral("xl/_rels/workbook.xml.rels");

QByteArray rel(const QByteArray &id, const QByteArray &type, const QByteArray &target);
QByteArray rels(const QByteArray &body);
// Cell shorthand in body: {attributes:value} is <c attributes><v>value</v></c>, and
// {attributes"text"} an inline string cell.
QByteArray worksheet(const QByteArray &body);
QByteArray sheet(const QByteArray &rows);
QByteArray workbook(const QByteArray &body);
// parts with changes applied: null contents remove.
Parts with(Parts parts, const Parts &changes);
// A workbook of one sheet of rows, with shared strings (<si> items) and styles when given.
Parts package(const QByteArray &rows, const QByteArray &sharedStrings = QByteArray(),
              const QByteArray &styles = QByteArray(), const QByteArray &workbookPr = QByteArray());
// The same package in the strict namespaces, its elements with a prefix.
Parts strict(Parts parts);
// The same package with a document type in every XML part.
Parts withDoctype(Parts parts);
// The reader's data area: cells joined by '|', rows by '\n'.
QString dump(const Core::XlsxReader &reader);

} // namespace Xlsx

} // namespace TestSupport

Q_DECLARE_METATYPE(TestSupport::Xlsx::Parts)

#endif // XLSXFIXTURE_H
