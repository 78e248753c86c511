#ifndef DATABASE_DATABASEMANAGER_H
#define DATABASE_DATABASEMANAGER_H

#include <database/database_global.h>

#include <core/databasequerydata.h>

#include <QList>
#include <QMap>
#include <QString>
#include <QStringList>

namespace Database {

class DatabaseChangeListener;

class ZQDATABASE_EXPORT DatabaseManager
{
public:
    static void init();
    static DatabaseManager *instance();
    static void destruct();

    DatabaseManager();
    DatabaseManager(const DatabaseManager &other);
    DatabaseManager &operator=(const DatabaseManager &other);
    ~DatabaseManager();

    QStringList names() const;
    QString path(const QString &name);
    bool exists(const QString &name);
    QString getDefaultDbName() const;

    bool addDatabaseFile(const QString &filePath);
    bool addDatabaseFiles(const QStringList &filePaths);
    bool removeDatabase(const QString &name);
    bool removeDatabaseFile(const QString &filePath);

    void reload();
    void updateFileList();
    void clear();

    void appendGlobalQueryData(const Core::DatabaseQueryData &data);
    Core::DatabaseQueryData globalQueryData(const QString &name);
    QList<Core::DatabaseQueryData> globalQueryDatas() const;

    void addDBChangeListener(DatabaseChangeListener *listener);
    void removeDBChangeListener(DatabaseChangeListener *listener);
    void notifyDBChangeListener();

private:
    void loadFiles();

    QMap<QString, QString> m_dbFileMap;
    QString m_defaultDbName;
    QList<DatabaseChangeListener *> m_dbChangeListeners;

    static DatabaseManager *m_pInstance;
};

} // namespace Database

#endif // DATABASE_DATABASEMANAGER_H
