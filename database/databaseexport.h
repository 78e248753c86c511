#ifndef DATABASE_DATABASEEXPORT_H
#define DATABASE_DATABASEEXPORT_H

#include <database/database_global.h>

#include <QString>

namespace Database {

// Writes the first table of an SQLite database file to a GBK-encoded CSV file.
class ZQDATABASE_EXPORT DatabaseExport
{
public:
    DatabaseExport();
    DatabaseExport &operator=(const DatabaseExport &other);
    ~DatabaseExport();

    static bool toCSV(QString dbFilePath, QString csvFilePath);
};

} // namespace Database

#endif // DATABASE_DATABASEEXPORT_H
