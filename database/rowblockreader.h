#ifndef DATABASE_ROWBLOCKREADER_H
#define DATABASE_ROWBLOCKREADER_H

#include <database/database_global.h>

#include <QList>
#include <QStringList>
#include <QVariant>

#include <functional>
#include <memory>
#include <vector>

namespace Database {

class DatabaseHandler;

/// Reads runs of a database's rows with a few statements per table, each cell exactly what
/// DatabaseHandler::recordValue(row, column, rowsPerTable) returns: same value, same type,
/// null and invalid where that is.
///
/// It reads on the handler's connection, so it belongs to the handler's thread and reads
/// nothing once that connection is closed. Tables, field names and the table length are taken
/// once, by setHandler().
class ZQDATABASE_EXPORT RowBlockReader
{
public:
    /// The table length of the importers' databases: row r is row r % 50000 of table r / 50000.
    static constexpr int ImporterRowsPerTable = 50000;

    /// One cell as UTF-8 text; the bytes stay valid until the sink returns.
    struct TextCell
    {
        const char *data; ///< the text, not terminated
        int size;         ///< its length in bytes
    };
    /// Takes the cells of one row, one per column asked for; returning false stops the read.
    using TextSink = std::function<bool(qint64 row, const TextCell *cells)>;

    /// A reader of nothing: every cell is invalid until setHandler().
    RowBlockReader();
    /// Ends the reads; the handler and its connection are left as they are.
    ~RowBlockReader();
    RowBlockReader(const RowBlockReader &) = delete;
    RowBlockReader &operator=(const RowBlockReader &) = delete;

    /// Reads @p handler's database as it stands: its tables (without "sqlite_sequence"), its
    /// field names and its connection. False, and a reader of nothing, when its connection is
    /// closed or the file does not read as a database.
    bool setHandler(DatabaseHandler &handler, int rowsPerTable = ImporterRowsPerTable);
    /// Forgets the handler; every cell is invalid afterwards.
    void clear();

    /// The field names taken by setHandler(), the hidden "id" column left out.
    QStringList fieldNames() const;
    /// The tables rows are addressed over, in order.
    QStringList tables() const;
    /// The rows each table is taken to hold.
    int rowsPerTable() const;

    /// Puts the cells of rows @p first to @p first + @p count - 1 into @p cells, row by row,
    /// one per entry of @p columns (field indexes). False, with every cell invalid, when the
    /// connection is closed: the answer then says nothing of the database.
    bool readValues(qint64 first, int count, const QList<int> &columns,
                    std::vector<QVariant> *cells) const;
    /// Hands rows @p from to @p end - 1 to @p sink in order, each cell as the UTF-8 text of
    /// recordValue's QVariant::toString() (empty where it is invalid). False when the
    /// connection is closed or the sink stopped.
    bool readText(qint64 from, qint64 end, const QList<int> &columns, const TextSink &sink) const;

private:
    struct Private;
    std::unique_ptr<Private> d;
};

} // namespace Database

#endif // DATABASE_ROWBLOCKREADER_H
