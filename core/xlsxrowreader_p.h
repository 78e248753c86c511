#ifndef CORE_XLSXROWREADER_P_H
#define CORE_XLSXROWREADER_P_H

#include <core/zqcore_global.h>

#include <QByteArray>
#include <QHash>
#include <QString>
#include <QVector>

#include <functional>
#include <memory>

namespace Core {

class XlsxRowReaderPrivate;

// One row of a sheet's data area. Field i is bytes[ends[i], ends[i + 1]) as UTF-8; a text that
// UTF-8 cannot carry (an escaped lone surrogate) is empty there and kept in inexact instead.
struct XlsxRow
{
    int index = 0;
    QByteArray bytes;
    QVector<int> ends;
    QHash<int, QString> inexact;
};

// Reads the first worksheet of a workbook of any size row by row, with the texts XlsxReader
// gives: open() reads its part once, checking all of it and bounding the data area, and keeps
// the rows in a temporary file rather than in memory; readRows() hands them on in order. A
// sheet whose cells are out of order is held whole, as XlsxReader holds it.
class ZQCORE_EXPORT XlsxRowReader
{
public:
    XlsxRowReader();
    ~XlsxRowReader();

    bool open(const QString &path, bool keepRows = true);
    QString errorString() const;
    bool isEmpty() const;
    int rowCount() const;
    int columnCount() const;
    bool readRows(const std::function<bool(const XlsxRow &)> &rowRead);

private:
    Q_DISABLE_COPY(XlsxRowReader)
    std::unique_ptr<XlsxRowReaderPrivate> d;
};

} // namespace Core

#endif // CORE_XLSXROWREADER_P_H
