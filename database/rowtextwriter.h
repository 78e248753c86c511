#ifndef DATABASE_ROWTEXTWRITER_H
#define DATABASE_ROWTEXTWRITER_H

#include <database/database_global.h>
#include <database/rowblockreader.h>

#include <QString>
#include <QStringList>

#include <memory>

class QIODevice;

namespace Database {

/// Writes rows as UTF-8 text to a device as they come, for a terminal, a pipe or a file: CSV
/// (RFC 4180) at once, or columns aligned once the first 1,000 rows have fixed their widths
/// (a later, wider cell pushes the rest of its row to the right). Writes are buffered; the
/// destructor writes what is still held.
/// @code
/// Database::RowTextWriter writer(&file, Database::RowTextWriter::Csv, reader.fieldNames());
/// reader.readText(0, rows, columns, [&](qint64, const Database::RowBlockReader::TextCell *cells) {
///     writer.addRow(cells, columns.size());
///     return true;
/// });
/// if (!writer.finish())
///     qWarning() << writer.errorString();
/// @endcode
class ZQDATABASE_EXPORT RowTextWriter
{
public:
    /// How rows are written.
    enum Format {
        Aligned, ///< columns padded to the widest cell, for a terminal
        Csv      ///< comma-separated, quoted where a field needs it
    };

    /// Writes to @p device, which must stay open while the writer lives; the CSV header at
    /// once, the aligned one with the first rows.
    RowTextWriter(QIODevice *device, Format format, const QStringList &header);
    ~RowTextWriter();
    RowTextWriter(const RowTextWriter &) = delete;
    RowTextWriter &operator=(const RowTextWriter &) = delete;

    /// One row of cells, one per header column.
    void addRow(const QStringList &cells);
    /// Cells given as UTF-8, written as they are: CSV only, the one format that takes them.
    void addRow(const RowBlockReader::TextCell *cells, int count);
    /// Writes what is still held back; false once the device refused a write.
    bool finish();
    /// Why the device refused a write (the system's reason).
    QString errorString() const;

    /// Terminal cells a text takes: East Asian wide and full-width characters take two.
    static int displayWidth(const QString &text);

private:
    struct Private;
    std::unique_ptr<Private> d;
};

} // namespace Database

#endif // DATABASE_ROWTEXTWRITER_H
