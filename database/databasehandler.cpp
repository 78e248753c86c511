#include "databasehandler.h"

namespace Database {

// Returns the named connection, opened again if it was closed, or registers a new
// SQLite connection under that name. Connections are never removed.
QSqlDatabase DatabaseHandler::createSqlDatabase(const QString &connectionName)
{
    if (QSqlDatabase::contains(connectionName))
        return QSqlDatabase::database(connectionName, true);
    return QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"), connectionName);
}

} // namespace Database
