#ifndef DATABASE_DATABASEFILESURVEY_H
#define DATABASE_DATABASEFILESURVEY_H

#include <database/database_global.h>

#include <QList>
#include <QString>
#include <QStringList>

namespace Database {

/// What a database file holds, read on a read-only connection of its own that is gone again
/// when the call returns: for telling the user what is there before and after an import or
/// export works on the file.
class ZQDATABASE_EXPORT DatabaseFileSurvey
{
public:
    /// One table and its row count.
    struct Table
    {
        QString name; ///< as the file spells it
        qint64 rows;  ///< -1 when the table cannot be read
    };

    /// The table DatabaseExport::toCSV writes.
    struct ExportedTable
    {
        QString name;       ///< empty when the file holds no table to export
        int tableCount = 0; ///< the tables of the file besides "sqlite_sequence"
        qint64 rows = -1;   ///< the rows of the table; -1 when they cannot be counted
    };

    /// True when the file starts with SQLite's header, or is empty (SQLite starts a database
    /// in it). SQLite opens any file lazily, so this is the way to tell before a query fails.
    static bool looksLikeSqlite(const QString &path);

    /// The tables in the driver's order, without "sqlite_sequence", with their row counts.
    static QList<Table> tables(const QString &path);

    /// The declared SQL type of each column of @p table, in column order (the importers'
    /// hidden "id" column first). Empty when there is no such table.
    static QStringList declaredTypes(const QString &path, const QString &table);

    /// The exporter's own choice: the first table listed, never "DATABASE_SQLITE_DEFAULTDB".
    static ExportedTable exportedTable(const QString &path);
};

} // namespace Database

#endif // DATABASE_DATABASEFILESURVEY_H
