#ifndef DATABASE_TABLEWRITER_P_H
#define DATABASE_TABLEWRITER_P_H

#include <QList>
#include <QSqlDatabase>
#include <QSqlQuery>
#include <QString>
#include <QStringList>

namespace Database {

// " column1 TEXT , column2 TEXT ": the value columns of generated tables and of the memory
// table; the blanks are part of the statement text.
QString columnDefinitions(int columnCount);

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

    static QString createStatement(const QString &tableName, int columnCount);
    static QString insertStatement(const QString &tableName, int columnCount);

    // The importers' shared connection set to databaseFile and opened. An existing connection
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
    Insert insert(const QList<QStringList> &rows);
    QStringList rowErrors() const { return m_rowErrors; }
    // False with the driver's text when the statement fails.
    bool commit(QString *error);
    bool rollback(QString *error);

private:
    enum class Direct { Unavailable, Inserted, Failed };
    Direct insertDirectly(const QList<QStringList> &rows, bool *written);
    bool insertRows(const QList<QStringList> &rows);
    bool exec(const QString &statement, QString *error);

    QSqlDatabase m_database;
    QString m_tableName;
    int m_columnCount;
    Rows m_policy;
    QSqlQuery m_query;
    QStringList m_rowErrors;
};

} // namespace Database

#endif // DATABASE_TABLEWRITER_P_H
