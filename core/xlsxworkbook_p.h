#ifndef CORE_XLSXWORKBOOK_P_H
#define CORE_XLSXWORKBOOK_P_H

#include <QString>

namespace Core {
namespace Xlsx {

class SheetData;
class XlsxPackage;

// Reads the workbook of an open package: the date system, shared strings and cell formats into
// sheet, and the part name of the first worksheet. False, with the reason, when one of them
// cannot be read.
bool readWorkbook(XlsxPackage &package, SheetData &sheet, QString *sheetPart, QString *error);

// Reads the part of a worksheet into sheet as its mode says; false, with the reason, when the
// part is refused.
bool readSheet(XlsxPackage &package, const QString &sheetPart, SheetData &sheet, QString *error);

} // namespace Xlsx
} // namespace Core

#endif // CORE_XLSXWORKBOOK_P_H
