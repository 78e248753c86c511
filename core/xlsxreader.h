#ifndef CORE_XLSXREADER_H
#define CORE_XLSXREADER_H

#include <core/zqcore_global.h>

#include <QString>

namespace Core {

class XlsxReaderPrivate;

// Reads the cell texts of the first worksheet of an .xlsx/.xlsm workbook.
class ZQCORE_EXPORT XlsxReader
{
public:
    XlsxReader();
    ~XlsxReader();

    bool open(const QString &path);
    bool isEmpty() const;
    int rowCount() const;
    int columnCount() const;
    QString textAt(int row, int column) const;

    QString errorString() const;
    bool check(const QString &path);

private:
    Q_DISABLE_COPY(XlsxReader)
    XlsxReaderPrivate *d;
};

} // namespace Core

#endif // CORE_XLSXREADER_H
