#include "cataloguesession.h"
#include "databasehandlerfactory.h"
#include "databasemanager.h"

#include <QFileInfo>
#include <QSqlDatabase>

namespace Database {

namespace {

// The factory knows readers only by a DatabaseObject pointer; the session's own address serves.
DatabaseObject *identity(const CatalogueSession *session)
{
    return reinterpret_cast<DatabaseObject *>(const_cast<CatalogueSession *>(session));
}

} // namespace

CatalogueSession::CatalogueSession()
{
    DatabaseManager::init();
    DatabaseHandlerFactory::init();
}

CatalogueSession::~CatalogueSession()
{
    if (m_handler)
        DatabaseHandlerFactory::instance()->unregistSqlDatabase(identity(this));
    DatabaseHandlerFactory::destruct();
    DatabaseManager::destruct();
}

DatabaseManager *CatalogueSession::catalogue() const
{
    return DatabaseManager::instance();
}

QString CatalogueSession::resolve(const QString &nameOrPath) const
{
    DatabaseManager *manager = catalogue();
    if (manager->exists(nameOrPath))
        return nameOrPath;
    const QFileInfo file(nameOrPath);
    if (!file.isFile())
        return QString();
    const QString name = file.baseName();
    if (manager->path(name) != file.absoluteFilePath()) {
        manager->removeDatabase(name);
        manager->addDatabaseFile(file.absoluteFilePath());
    }
    return name;
}

DatabaseHandler *CatalogueSession::open(const QString &name, bool fieldTypes)
{
    if (fieldTypes) {
        QSqlDatabase defaultConnection = QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"));
        defaultConnection.setDatabaseName(catalogue()->path(name));
        defaultConnection.open();
    }
    m_handler = DatabaseHandlerFactory::instance()->registSqlDatabase(identity(this), name);
    return m_handler;
}

} // namespace Database
