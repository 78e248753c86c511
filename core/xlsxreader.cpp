#include "xlsxreader.h"

#include "xlsxpackage_p.h"
#include "xlsxrowreader_p.h"
#include "xlsxsheet_p.h"
#include "xlsxworkbook_p.h"

#include <memory>

namespace Core {

using namespace Xlsx;

class XlsxReaderPrivate
{
public:
    bool load(const QString &path);
    bool fail(const QString &reason)
    {
        error = reason;
        return false;
    }

    std::unique_ptr<SheetData> sheet = std::make_unique<SheetData>();
    QString error;
};

bool XlsxReaderPrivate::load(const QString &path)
{
    XlsxPackage package(path);
    QString sheetPart;
    if (!package.open())
        return fail(package.errorString());
    return readWorkbook(package, *sheet, &sheetPart, &error)
            && readSheet(package, sheetPart, *sheet, &error);
}

XlsxReader::XlsxReader() : d(new XlsxReaderPrivate) { }

XlsxReader::~XlsxReader()
{
    delete d;
}

// Loads the first worksheet of the workbook; false, with an empty sheet, when the file is no
// readable workbook.
bool XlsxReader::open(const QString &path)
{
    d->sheet = std::make_unique<SheetData>();
    d->error.clear();
    if (d->load(path))
        return true;
    d->sheet = std::make_unique<SheetData>();
    return false;
}

bool XlsxReader::isEmpty() const
{
    return d->sheet->isEmpty();
}

int XlsxReader::rowCount() const
{
    return d->sheet->rows();
}

int XlsxReader::columnCount() const
{
    return d->sheet->columns();
}

QString XlsxReader::textAt(int row, int column) const
{
    return d->sheet->text(row, column);
}

// Checks the file as the importer reads it, all of its first worksheet but without holding its
// cells, so that a sheet of any size gets the reason it would be refused for; leaves the reader
// empty. False, with errorString(), when the file would be refused.
bool XlsxReader::check(const QString &path)
{
    d->sheet = std::make_unique<SheetData>();
    XlsxRowReader rows;
    const bool ok = rows.open(path, false);
    d->error = rows.errorString();
    return ok;
}

// Why the last open() or check() failed, in a sentence for the user; empty after a successful one.
QString XlsxReader::errorString() const
{
    return d->error;
}

} // namespace Core
