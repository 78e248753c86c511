#ifndef DATABASE_CATALOGUESESSION_H
#define DATABASE_CATALOGUESESSION_H

#include <database/database_global.h>

#include <QString>

namespace Database {

class DatabaseHandler;
class DatabaseManager;

/// The catalogue and the handler factory, started for as long as the session lives, and one
/// reader's handler: for a host that works on one database at a time, such as a command-line
/// tool. The host must not start or end DatabaseManager or DatabaseHandlerFactory meanwhile.
class ZQDATABASE_EXPORT CatalogueSession
{
public:
    /// Starts the catalogue (reading the directories the settings name) and the factory.
    CatalogueSession();
    /// Leaves the handler, then ends the factory and the catalogue.
    ~CatalogueSession();
    CatalogueSession(const CatalogueSession &) = delete;
    CatalogueSession &operator=(const CatalogueSession &) = delete;

    /// The catalogue the session started.
    DatabaseManager *catalogue() const;

    /// A catalogued name as it is, or a database file given by path, which joins the catalogue
    /// under its base name (in place of a catalogued file of that name). Empty when it is
    /// neither.
    QString resolve(const QString &nameOrPath) const;

    /// The handler of a catalogued database, registered with the factory under the session's
    /// own identity; null when the factory gives none. One at a time: open it once. The
    /// handler takes getFieldTypes() from the application's default connection: with
    /// @p fieldTypes, that connection is opened on the database first.
    DatabaseHandler *open(const QString &name, bool fieldTypes = false);

private:
    DatabaseHandler *m_handler = nullptr;
};

} // namespace Database

#endif // DATABASE_CATALOGUESESSION_H
