#include "xlsxrowreader_p.h"

#include "xlsxpackage_p.h"
#include "xlsxreader.h"
#include "xlsxsheet_p.h"
#include "xlsxworkbook_p.h"

#include <QObject>

namespace Core {

using namespace Xlsx;

class XlsxRowReaderPrivate
{
public:
    bool fail(const QString &reason)
    {
        error = reason;
        return false;
    }
    // Starts the row with the given index; the fields follow.
    void beginRow(int index)
    {
        row.index = index;
        row.bytes.reserve(row.bytes.capacity()); // keeps the buffer through resize(0)
        row.bytes.resize(0);
        row.ends.resize(1);
        row.inexact.clear();
    }
    void endField() { row.ends.append(row.bytes.size()); }
    void appendText(int column, const QString &text)
    {
        if (text.isValidUtf16())
            row.bytes.append(text.toUtf8());
        else
            row.inexact.insert(column, text);
        endField();
    }
    bool blankRowsUntil(int index, const std::function<bool(const XlsxRow &)> &rowRead);

    QString path;
    QString sheetPart;
    QString error;
    SheetData sheet; // the shared strings and cell formats
    std::unique_ptr<XlsxReader> held; // a sheet out of order
    XlsxRow row{0, QByteArray(), QVector<int>{0}, {}};
    int nextRow = 0;
};

// Hands on the blank rows before index.
bool XlsxRowReaderPrivate::blankRowsUntil(int index,
                                          const std::function<bool(const XlsxRow &)> &rowRead)
{
    for (; nextRow < index; ++nextRow) {
        beginRow(nextRow);
        for (int column = 0; column < sheet.columns(); ++column)
            endField();
        if (!rowRead(row))
            return false;
    }
    return true;
}

XlsxRowReader::XlsxRowReader() : d(new XlsxRowReaderPrivate) { }

XlsxRowReader::~XlsxRowReader() = default;

// Reads the workbook and checks the whole first worksheet; false, with the reason and an empty
// sheet, when the file is no readable workbook.
bool XlsxRowReader::open(const QString &path)
{
    d.reset(new XlsxRowReaderPrivate);
    d->path = path;
    XlsxPackage package(path);
    bool ok = package.open() || d->fail(package.errorString());
    ok = ok && readWorkbook(package, d->sheet, &d->sheetPart, &d->error);
    d->sheet.setMode(SheetData::Mode::Scan);
    ok = ok && readSheet(package, d->sheetPart, d->sheet, &d->error);
    if (ok && !d->sheet.isOrdered()) {
        d->held.reset(new XlsxReader);
        ok = d->held->open(path) || d->fail(d->held->errorString());
    }
    if (!ok) {
        const QString error = d->error;
        d.reset(new XlsxRowReaderPrivate);
        d->error = error;
    }
    return ok;
}

QString XlsxRowReader::errorString() const
{
    return d->error;
}

bool XlsxRowReader::isEmpty() const
{
    return d->held ? d->held->isEmpty() : d->sheet.isEmpty();
}

int XlsxRowReader::rowCount() const
{
    return d->held ? d->held->rowCount() : d->sheet.rows();
}

int XlsxRowReader::columnCount() const
{
    return d->held ? d->held->columnCount() : d->sheet.columns();
}

// Hands every row of the data area, blank ones included, to rowRead in order; false when
// rowRead returns false or the part can no longer be read as open() read it.
bool XlsxRowReader::readRows(const std::function<bool(const XlsxRow &)> &rowRead)
{
    const int rows = rowCount();
    const int columns = columnCount();
    if (d->held) {
        for (int index = 0; index < rows; ++index) {
            d->beginRow(index);
            for (int column = 0; column < columns; ++column)
                d->appendText(column, d->held->textAt(index, column));
            if (!rowRead(d->row))
                return false;
        }
        return true;
    }
    XlsxPackage package(d->path);
    if (!package.open())
        return d->fail(package.errorString());
    d->nextRow = 0;
    d->sheet.setMode(SheetData::Mode::Stream, [&](int index, const Cell *cells, size_t count) {
        if (index >= rows || !d->blankRowsUntil(index, rowRead))
            return false;
        d->beginRow(index);
        size_t next = 0;
        for (int column = 0; column < columns; ++column) {
            if (next < count && cells[next].column == column) {
                if (!d->sheet.appendCellUtf8(cells[next], &d->row.bytes))
                    d->row.inexact.insert(column, d->sheet.cellText(cells[next]));
                ++next;
            }
            d->endField();
        }
        ++d->nextRow;
        return rowRead(d->row);
    });
    QString error;
    const bool read = readSheet(package, d->sheetPart, d->sheet, &error);
    d->sheet.setMode(SheetData::Mode::Scan);
    return read && d->nextRow == rows;
}

} // namespace Core
