#ifndef ZQDB_ROWPRINTER_H
#define ZQDB_ROWPRINTER_H

#include <database/rowblockreader.h>

#include <QByteArray>
#include <QList>
#include <QString>
#include <QStringList>
#include <QVector>

class QIODevice;

namespace Zqdb {

// Writes rows as UTF-8 to a device as they come: CSV at once, aligned text once the first
// rows have fixed the column widths (later, wider cells push their row to the right).
class RowPrinter
{
public:
    enum Format { Aligned, Csv };

    RowPrinter(QIODevice *device, Format format, const QStringList &header);
    ~RowPrinter();

    void addRow(const QStringList &cells);
    // Cells given as UTF-8, written as they are in CSV, the only format that takes them.
    void addRow(const Database::RowBlockReader::TextCell *cells, int count);
    // Writes what is still held back; false when the device refused a write.
    bool finish();
    // Why the device refused a write (the system's reason).
    QString errorString() const { return m_error; }

    // Terminal cells a text takes: East Asian wide and full-width characters take two.
    static int displayWidth(const QString &text);

private:
    void flushRows();
    void writeAligned(const QStringList &cells);
    void writeCsv(const QStringList &cells);
    void writeCsv(const Database::RowBlockReader::TextCell *cells, int count);
    void writeCsvField(const char *data, int size);
    bool write(bool force);

    QIODevice *m_device;
    Format m_format;
    QStringList m_header;
    QVector<int> m_widths;
    QList<QStringList> m_heldBack;
    bool m_widthsFixed = false;
    bool m_failed = false;
    QString m_error;
    QByteArray m_buffer; // UTF-8 not yet written
};

} // namespace Zqdb

#endif // ZQDB_ROWPRINTER_H
