#include "databasehandlerfactory.h"

#include "databasehandler.h"
#include "databasemanager.h"

namespace Database {

namespace {

// The catalogue's path for a name; empty when the name or the catalogue is unknown.
QString cataloguePath(const QString &name)
{
    DatabaseManager *catalogue = DatabaseManager::instance();
    return catalogue ? catalogue->path(name) : QString();
}

} // namespace

DatabaseHandlerFactory *DatabaseHandlerFactory::m_pInstance = nullptr;

// Creates a new factory on every call; an earlier one and its handlers are left alive.
void DatabaseHandlerFactory::init()
{
    m_pInstance = new DatabaseHandlerFactory;
}

DatabaseHandlerFactory *DatabaseHandlerFactory::instance()
{
    return m_pInstance;
}

void DatabaseHandlerFactory::destruct()
{
    delete m_pInstance;
    m_pInstance = nullptr;
}

DatabaseHandlerFactory::DatabaseHandlerFactory() = default;

// A copy refers to the same handlers as the original.
DatabaseHandlerFactory::DatabaseHandlerFactory(const DatabaseHandlerFactory &other) = default;
DatabaseHandlerFactory &
DatabaseHandlerFactory::operator=(const DatabaseHandlerFactory &other) = default;

DatabaseHandlerFactory::~DatabaseHandlerFactory()
{
    clear();
}

// Registers the object for a database and returns the shared handler, null for a null
// object or an unknown name. The object leaves its previous database first, so an unknown
// name leaves it registered nowhere. A handler whose database did not open is still kept.
DatabaseHandler *DatabaseHandlerFactory::registSqlDatabase(DatabaseObject *object,
                                                           const QString &name)
{
    if (!object)
        return nullptr;

    const QString oldName = sqlDatabaseName(object);
    if (!oldName.isEmpty()) {
        DatabaseHandler *oldHandler = m_dbHandlerMap.value(oldName);
        if (oldName == name)
            return oldHandler;
        QList<DatabaseObject *> users = m_dbUserMap.value(oldName);
        users.removeAll(object);
        if (users.isEmpty()) {
            m_dbHandlerMap.remove(oldName);
            m_dbUserMap.remove(oldName);
            delete oldHandler;
        } else {
            m_dbUserMap.insert(oldName, users);
        }
    }

    if (cataloguePath(name).isEmpty())
        return nullptr;

    DatabaseHandler *handler = m_dbHandlerMap.value(name);
    if (!handler) {
        handler = new DatabaseHandler;
        handler->setCurrentDatabaseName(name);
        m_dbHandlerMap.insert(name, handler);
    }
    m_dbUserMap[name].append(object);
    return handler;
}

// Takes the object off its database; the handler goes with its last user.
void DatabaseHandlerFactory::unregistSqlDatabase(DatabaseObject *object)
{
    const QString name = sqlDatabaseName(object);
    if (name.isEmpty())
        return;
    QList<DatabaseObject *> users = m_dbUserMap.value(name);
    users.removeAll(object);
    if (users.isEmpty()) {
        m_dbUserMap.remove(name);
        delete m_dbHandlerMap.value(name);
        m_dbHandlerMap.remove(name);
    } else {
        m_dbUserMap.insert(name, users);
    }
}

QList<DatabaseObject *> DatabaseHandlerFactory::userList(const QString &name)
{
    return m_dbUserMap.value(name);
}

bool DatabaseHandlerFactory::isOccupied(const QString &name)
{
    return m_dbHandlerMap.contains(name);
}

DatabaseHandler *DatabaseHandlerFactory::databaseHandler(const QString &name)
{
    return m_dbHandlerMap.value(name);
}

// A new handler opened on the name that the caller owns; null for an unknown name.
DatabaseHandler *DatabaseHandlerFactory::createDatabaseHandler(const QString &name)
{
    if (cataloguePath(name).isEmpty())
        return nullptr;
    DatabaseHandler *handler = new DatabaseHandler;
    handler->setCurrentDatabaseName(name);
    return handler;
}

// The first database, in name order, whose users include the object; null if none.
QString DatabaseHandlerFactory::sqlDatabaseName(DatabaseObject *object)
{
    for (auto it = m_dbUserMap.cbegin(); it != m_dbUserMap.cend(); ++it) {
        if (it.value().contains(object))
            return it.key();
    }
    return QString();
}

void DatabaseHandlerFactory::clear()
{
    m_dbUserMap.clear();
    for (DatabaseHandler *handler : qAsConst(m_dbHandlerMap))
        delete handler;
    m_dbHandlerMap.clear();
}

} // namespace Database
