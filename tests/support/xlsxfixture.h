#ifndef XLSXFIXTURE_H
#define XLSXFIXTURE_H

#include <QJsonArray>
#include <QJsonObject>
#include <QList>
#include <QPair>
#include <QVariant>

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

} // namespace TestSupport

#endif // XLSXFIXTURE_H
