#ifndef DATABASE_TABLEWRITER_P_H
#define DATABASE_TABLEWRITER_P_H

#include <QList>
#include <QSqlDatabase>
#include <QSqlQuery>
#include <QString>
#include <QStringList>
#include <QVector>

struct sqlite3;

namespace Database {

// " column1 TEXT , column2 TEXT ": the value columns of generated tables and of the memory
// table; the blanks are part of the statement text.
QString columnDefinitions(int columnCount);
// "CREATE TABLE T (<first> column1 TEXT , column2 TEXT  )": generated tables put their id column
// first, the memory table nothing.
QString createStatement(const QString &tableName, const QString &first, int columnCount);

// The rows of one batch. Lines of ASCII bytes stay bytes, split in place, and decoded lines
// become UTF-8, so that the direct path binds them as they are; rows SQLite would convert in its
// own way keep their decoded fields.
class RowBatch
{
public:
    RowBatch() = default;
    explicit RowBatch(const QList<QStringList> &rows);

    int size() const { return m_rows.size(); }
    bool isEmpty() const { return m_rows.isEmpty(); }
    void clear();
    // Keeps the fields that QString::trimmed() and split(separator, Qt::SkipEmptyParts) give on
    // the decoded line; returns their number, 0 when there is none and nothing was kept.
    int appendAscii(const char *data, int size, const QByteArray &separator);
    // As appendAscii for a decoded line already trimmed and a separator that is not empty; -1
    // (nothing kept) when a value holds text that only its UTF-16 form binds exactly.
    int appendText(const QString &text, const QString &separator);
    void append(const QStringList &fields);
    // For readers that split records themselves: the UTF-8 fields appended after beginRow(),
    // empty ones kept, make one row at endRow(), which returns their number; dropRow() forgets
    // them.
    void beginRow() { m_rowStart = m_ends.size() - 1; }
    void appendField(const char *data, int size)
    {
        m_bytes.append(data, size);
        m_ends.append(m_bytes.size());
    }
    int endRow();
    void dropRow();

    int fieldCount(int row) const { return m_rows.at(row).count; }
    // The decoded fields, or null for a row of bytes.
    const QStringList *strings(int row) const;
    const char *bytes(int row, int column, int *size) const;
    QList<QStringList> toList() const;

private:
    struct Row
    {
        int first; // in m_ends for bytes, in m_strings otherwise
        int count;
        bool isBytes;
    };
    QVector<Row> m_rows;
    QByteArray m_bytes;
    QVector<int> m_ends{0}; // field i is m_bytes[m_ends[i], m_ends[i + 1])
    QList<QStringList> m_strings;
    int m_rowStart = 0;
};

// Writes one batch of rows into one generated table (id INTEGER PRIMARY KEY AUTOINCREMENT,
// column1 .. columnN TEXT) for both importers, which keep their own messages and codes.
class TableWriter
{
public:
    enum class Table { Created, Emptied, NotOpen, NoName, NoColumns, NotEmptied, NotCreated };
    // The text importer pads short rows and tries every row; the spreadsheet importer stops at
    // the first row that fails or has another size than the table.
    enum class Rows { PadAndTryEvery, StopAtFirst };
    enum class Insert { Inserted, RowsFailed, BeginFailed };

    // The importers' shared connection (a job's own inside a job) set to databaseFile and opened. An existing connection
    // is taken as it is: reopening it on the file of the last import would bring that file back.
    static bool openConnection(QSqlDatabase *database, const QString &databaseFile);

    // Leaves an empty table of the generated layout: an existing one is emptied and its id
    // sequence reset, never dropped or compared.
    static Table prepareTable(QSqlDatabase &database, const QString &tableName, int columnCount);
    // The importers' message for a table that is not ready; otherwise log as it stands.
    static QString message(Table table, const QString &log);

    TableWriter(const QSqlDatabase &database, const QString &tableName, int columnCount,
                Rows policy);

    bool begin();
    // Inserts the rows inside the open transaction; a failing row leaves the transaction to be
    // rolled back. rowErrors() then holds "Row = N; error" per failing row, numbered from 1.
    Insert insert(const RowBatch &rows);
    QStringList rowErrors() const { return m_rowErrors; }
    // False with the driver's text when the statement fails.
    bool commit(QString *error);
    bool rollback(QString *error);

private:
    enum class Direct { Unavailable, Inserted, Failed };
    Direct insertDirectly(const RowBatch &rows, bool *written);
    bool insertRows(const QList<QStringList> &rows);
    bool exec(const QString &statement, QString *error);

    QString m_tableName;
    int m_columnCount;
    Rows m_policy;
    QSqlQuery m_query;
    QStringList m_rowErrors;
    // Looked up once: it costs a dladdr, dlopen and dlsym.
    sqlite3 *m_connection;
};

} // namespace Database

#endif // DATABASE_TABLEWRITER_P_H
