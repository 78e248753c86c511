#ifndef DATABASE_SQLITEHANDLE_P_H
#define DATABASE_SQLITEHANDLE_P_H

#include <QByteArray>

class QSqlDatabase;
class QSqlDriver;
struct sqlite3;

namespace Database {

// The SQLite handle behind a QSQLITE connection, or null when the driver offers none or runs
// on another SQLite than the one this library calls: a handle is never passed across libraries.
sqlite3 *sqliteHandle(const QSqlDatabase &database);

// The file of the loaded module that holds the driver's code; empty when unknown.
QByteArray driverModuleFile(const QSqlDriver *driver);

// Whether the loaded module moduleFile resolves SQLite's functions to the very ones this
// library calls (a plug-in linked to the system SQLite does; one bundling its own does not).
bool moduleSharesSqlite(const QByteArray &moduleFile);

} // namespace Database

#endif // DATABASE_SQLITEHANDLE_P_H
