#ifndef ZQDB_ROWSTREAM_H
#define ZQDB_ROWSTREAM_H

#include <QByteArray>
#include <QList>
#include <QString>
#include <QStringList>

#include <functional>

struct sqlite3;
struct sqlite3_stmt;

namespace Zqdb {

// Reads a range of a database's rows as the shared handler addresses them (50,000 rows per
// table, the tables in the driver's order, the first table's fields), but with one forward-only
// statement per table instead of one statement per cell, on a read-only connection of its own.
// Each cell is the UTF-8 text of what DatabaseHandler::recordValue(row, column, 50000) gives:
// empty where the handler's read fails.
class RowStream
{
public:
    // The rows the library writes to each of table1, table2, ...
    static constexpr qint64 RowsPerTable = 50000;

    struct Cell
    {
        const char *data;
        int size;
    };
    // The cells of one row, one per column asked for, valid during the call; false stops.
    using Sink = std::function<bool(qint64 row, const Cell *cells)>;

    RowStream(const QString &databaseFile, const QStringList &tables, const QStringList &fields);
    ~RowStream();
    RowStream(const RowStream &) = delete;
    RowStream &operator=(const RowStream &) = delete;

    bool isOpen() const { return m_db != nullptr; }
    QString errorString() const { return m_error; }

    // Hands rows from..end-1 to sink in order, the cells of the given field indexes.
    void read(qint64 from, qint64 end, const QList<int> &columns, const Sink &sink);

private:
    bool readTable(const QString &table, qint64 firstRow, qint64 offset, qint64 count,
                   const QList<int> &columns, const Sink &sink);
    bool readColumns(const QString &table, qint64 firstRow, qint64 offset, qint64 count,
                     const QList<int> &columns, const Sink &sink);
    bool hasIndex(const QString &table);
    sqlite3_stmt *prepare(const QStringList &names, const QString &table, qint64 offset,
                          qint64 count);
    Cell cell(sqlite3_stmt *statement, int column, QByteArray *scratch);

    sqlite3 *m_db = nullptr;
    QString m_error;
    QStringList m_tables;
    QStringList m_fields;
};

} // namespace Zqdb

#endif // ZQDB_ROWSTREAM_H
