#ifndef XLSXFIXTURE_H
#define XLSXFIXTURE_H

#include <QVariant>

namespace TestSupport {

// A sheet of rows from A1 written with libxlsxwriter, a writer the reader shares no code with,
// by the helper zqxlsxwrite beside the test (it cannot share a process with QuaZip). Values:
// QString, bool, a number, a QDate, or invalid for a formatted blank. False when it fails.
bool writeXlsx(const QString &path, const QList<QVariantList> &rows);
// rows x columns texts "r<row>c<column>" counted from 1.
bool writeXlsxGrid(const QString &path, int rows, int columns);

} // namespace TestSupport

#endif // XLSXFIXTURE_H
