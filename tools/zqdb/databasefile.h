#ifndef ZQDB_DATABASEFILE_H
#define ZQDB_DATABASEFILE_H

#include <QList>
#include <QString>
#include <QStringList>

namespace Zqdb {

// Looks at a database file (or a file about to be written) through a connection of zqdb's own,
// so that messages can say what is there before and after the library works on it.
class DatabaseFile
{
public:
    struct Table
    {
        QString name;
        qint64 rows; // -1 when the table cannot be read
    };

    // SQLite opens any file lazily, so a file that is not a database must be recognised here.
    // An empty file counts as a database (SQLite starts one in it).
    static bool looksLikeSqlite(const QString &path);

    // The tables in the driver's order, without "sqlite_sequence".
    static QList<Table> tables(const QString &path);
    // "table1  50000 row(s)", one line per table.
    static QStringList describe(const QList<Table> &tables);
    // "table1, table2, table3, ..., table30": the names, shortened when there are many.
    static QString nameList(const QStringList &names);

    // The declared SQL type of each column of a table, in column order.
    static QStringList declaredTypes(const QString &path, const QString &table);

    // The table DatabaseExport::toCSV writes and how many tables the file holds besides
    // "sqlite_sequence"; an empty name when there is none.
    static QString exportedTable(const QString &path, int *tableCount, qint64 *rows);

    // Why path cannot be written (or, with inDirectory, why no file can be created beside it),
    // or an empty string when nothing stands in the way.
    static QString writeProblem(const QString &path, bool inDirectory);
    // "cannot write 'path': why." when path cannot be written or is the database being read
    // (when given); an empty string when nothing stands in the way.
    static QString cannotWrite(const QString &path, bool inDirectory,
                               const QString &database = QString());
};

} // namespace Zqdb

#endif // ZQDB_DATABASEFILE_H
