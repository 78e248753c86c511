#ifndef DATABASE_DATABASEHANDLERFACTORY_H
#define DATABASE_DATABASEHANDLERFACTORY_H

#include <database/database_global.h>

#include <QList>
#include <QMap>
#include <QString>

namespace Database {

class DatabaseHandler;

class ZQDATABASE_EXPORT DatabaseHandlerFactory
{
public:
    static void init();
    static DatabaseHandlerFactory *instance();
    static void destruct();

    DatabaseHandlerFactory(const DatabaseHandlerFactory &other);
    DatabaseHandlerFactory &operator=(const DatabaseHandlerFactory &other);
    ~DatabaseHandlerFactory();

    DatabaseHandler *registSqlDatabase(DatabaseObject *object, const QString &name);
    void unregistSqlDatabase(DatabaseObject *object);
    QList<DatabaseObject *> userList(const QString &name);
    bool isOccupied(const QString &name);
    DatabaseHandler *databaseHandler(const QString &name);
    DatabaseHandler *createDatabaseHandler(const QString &name);

protected:
    DatabaseHandlerFactory();

private:
    QString sqlDatabaseName(DatabaseObject *object);
    void clear();

    QMap<QString, QList<DatabaseObject *>> m_dbUserMap;
    QMap<QString, DatabaseHandler *> m_dbHandlerMap;

    static DatabaseHandlerFactory *m_pInstance;
};

} // namespace Database

#endif // DATABASE_DATABASEHANDLERFACTORY_H
