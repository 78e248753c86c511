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

    void addRow(const QString *cells, int count);
    // Cells given as UTF-8, written as they are in CSV, the only format that takes them.
    void addRow(const Database::RowBlockReader::TextCell *cells, int count);
    void addRow(const QVector<QString> &cells) { addRow(cells.constData(), int(cells.size())); }
#if QT_VERSION < QT_VERSION_CHECK(6, 0, 0) // Qt 6's QStringList is a QVector<QString>
    void addRow(const QStringList &cells) { addRow(cells.toVector()); }
#endif
    // Writes what is still held back; false when the device refused a write.
    bool finish();
    // Why the device refused a write (the system's reason).
    QString errorString() const { return m_error; }

    // Terminal cells a text takes: East Asian wide and full-width characters take two.
    static int displayWidth(const QString &text);

private:
    void flushRows();
    void writeAligned(const QVector<QString> &cells);
    void writeCsv(const QString *cells, int count);
    void writeCsv(const Database::RowBlockReader::TextCell *cells, int count);
    void writeCsvField(const char *data, int size);
    bool write(bool force);

    QIODevice *m_device;
    Format m_format;
    QVector<QString> m_header;
    QVector<int> m_widths;
    QList<QVector<QString>> m_heldBack;
    bool m_widthsFixed = false;
    bool m_failed = false;
    QString m_error;
    QByteArray m_buffer; // UTF-8 not yet written
};

} // namespace Zqdb

#endif // ZQDB_ROWPRINTER_H
