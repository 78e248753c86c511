#ifndef DATABASE_INPLACEIMPORT_H
#define DATABASE_INPLACEIMPORT_H

#include <database/database_global.h>

#include <QString>
#include <QStringList>

namespace Database {

/// What an import into an existing database does to it. The importers empty and refill
/// table1, table2, ... (one table per 50,000 rows) and leave every other table as it was, so
/// rows of another width fail only after table1 was emptied, and old tables past the new last
/// one stay beside the new rows.
class ZQDATABASE_EXPORT InPlaceImport
{
public:
    /// The value columns of table1 (the hidden "id" column left out); -1 when the file has no
    /// readable table1.
    static int valueColumns(const QString &databaseFile);

    /// Of @p tablesBefore, the tables an import of @p importedRows rows does not refill: all
    /// but table1 to tableN for the N tables those rows fill, in the order given.
    static QStringList keptTables(const QStringList &tablesBefore, qint64 importedRows);
};

} // namespace Database

#endif // DATABASE_INPLACEIMPORT_H
