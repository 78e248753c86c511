#include "databasemanager.h"

#include "databasechangelistener.h"

#include <core/settings.h>

#include <QDir>
#include <QFileInfo>
#include <QVariant>

namespace Database {

namespace {

const QString GlobalsKey = QStringLiteral("Database/globals");

// Lists a catalogue directory exactly as QDir does with its own defaults: every entry
// matching the pattern (subdirectories too), sorted by name with case ignored.
QFileInfoList listDatabaseDir(const QString &dirPath, const QString &pattern)
{
    QDir dir(dirPath);
    return dir.entryInfoList(QStringList(pattern), QDir::Filters(QDir::NoFilter),
                             QDir::SortFlags(QDir::NoSort));
}

int globalsTypeId()
{
    return qRegisterMetaType<QList<Core::DatabaseQueryData>>();
}

} // namespace

DatabaseManager *DatabaseManager::m_pInstance = nullptr;

// Creates a new catalogue on every call; an earlier one is left as it is.
void DatabaseManager::init()
{
    DatabaseManager *manager = new DatabaseManager;
    m_pInstance = manager;
}

DatabaseManager *DatabaseManager::instance()
{
    return m_pInstance;
}

void DatabaseManager::destruct()
{
    delete m_pInstance;
    m_pInstance = nullptr;
}

DatabaseManager::DatabaseManager()
{
    loadFiles();
}

DatabaseManager::DatabaseManager(const DatabaseManager &other) = default;
DatabaseManager &DatabaseManager::operator=(const DatabaseManager &other) = default;
DatabaseManager::~DatabaseManager() = default;

// Returns every name in map order, with the default database moved to the front.
QStringList DatabaseManager::names() const
{
    QStringList result = m_dbFileMap.keys();
    const int index = result.indexOf(m_defaultDbName);
    if (index > 0)
        result.move(index, 0);
    return result;
}

QString DatabaseManager::path(const QString &name)
{
    return m_dbFileMap.value(name);
}

bool DatabaseManager::exists(const QString &name)
{
    return m_dbFileMap.contains(name);
}

QString DatabaseManager::getDefaultDbName() const
{
    return m_defaultDbName;
}

// Adds an existing file under its base name; false when it is missing or the name is taken.
bool DatabaseManager::addDatabaseFile(const QString &filePath)
{
    const QFileInfo info(filePath);
    if (!info.exists())
        return false;
    const QString name = info.baseName();
    if (m_dbFileMap.contains(name))
        return false;
    m_dbFileMap.insert(name, info.absoluteFilePath());
    return true;
}

// False only for an empty list: the result does not say whether anything was added.
bool DatabaseManager::addDatabaseFiles(const QStringList &filePaths)
{
    if (filePaths.isEmpty())
        return false;
    for (const QString &filePath : filePaths)
        addDatabaseFile(filePath);
    return true;
}

bool DatabaseManager::removeDatabase(const QString &name)
{
    return m_dbFileMap.remove(name) > 0;
}

// Forgets the entry named after an existing file; the file itself is left alone.
bool DatabaseManager::removeDatabaseFile(const QString &filePath)
{
    const QFileInfo info(filePath);
    if (!info.exists())
        return false;
    return m_dbFileMap.remove(info.baseName()) > 0;
}

void DatabaseManager::reload()
{
    loadFiles();
}

void DatabaseManager::updateFileList()
{
    loadFiles();
}

void DatabaseManager::clear()
{
    m_dbFileMap.clear();
}

// Replaces the first stored record of the same name, or appends; unnamed records are ignored.
void DatabaseManager::appendGlobalQueryData(const Core::DatabaseQueryData &data)
{
    if (data.name().isEmpty())
        return;
    QList<Core::DatabaseQueryData> list = globalQueryDatas();
    bool replaced = false;
    for (int i = 0; i < list.size(); ++i) {
        if (list.at(i).name() == data.name()) {
            list[i] = data;
            replaced = true;
            break;
        }
    }
    if (!replaced)
        list.append(data);
    if (!list.isEmpty())
        Core::Settings::instance().setRunValue(GlobalsKey, QVariant::fromValue(list));
}

Core::DatabaseQueryData DatabaseManager::globalQueryData(const QString &name)
{
    if (name.isEmpty())
        return Core::DatabaseQueryData();
    const QList<Core::DatabaseQueryData> list = globalQueryDatas();
    for (const Core::DatabaseQueryData &data : list) {
        if (data.name() == name)
            return data;
    }
    return Core::DatabaseQueryData();
}

// Reads the stored list; a value of any other, unconvertible type reads as empty.
QList<Core::DatabaseQueryData> DatabaseManager::globalQueryDatas() const
{
    QList<Core::DatabaseQueryData> result;
    Core::Settings &settings = Core::Settings::instance();
    if (!settings.hasRunValue(GlobalsKey))
        return result;
    QVariant value = settings.runValue(GlobalsKey);
    const int typeId = globalsTypeId();
    if (value.userType() == typeId)
        result = value.value<QList<Core::DatabaseQueryData>>();
#if QT_VERSION >= QT_VERSION_CHECK(6, 0, 0)
    else if (value.convert(QMetaType(typeId)))
#else
    else if (value.convert(typeId))
#endif
        result = value.value<QList<Core::DatabaseQueryData>>();
    return result;
}

void DatabaseManager::addDBChangeListener(DatabaseChangeListener *listener)
{
    if (!listener || m_dbChangeListeners.contains(listener))
        return;
    m_dbChangeListeners.append(listener);
}

void DatabaseManager::removeDBChangeListener(DatabaseChangeListener *listener)
{
    m_dbChangeListeners.removeAll(listener);
}

// Walks the live list by index, so listeners may add or remove listeners while called.
void DatabaseManager::notifyDBChangeListener()
{
    for (int i = 0; i < m_dbChangeListeners.size(); ++i)
        m_dbChangeListeners.at(i)->onDBChanged();
}

// Rebuilds the map from the system directory, then the user directory; later entries win.
// The default is the first system entry by name, taken before the user entries come in.
void DatabaseManager::loadFiles()
{
    clear();
    Core::Settings &settings = Core::Settings::instance();
    QFileInfoList entries
            = listDatabaseDir(settings.dbSysDirPath(), settings.dbFileSuffixWithFilter());
    m_defaultDbName = entries.isEmpty() ? QString() : entries.first().baseName();
    entries += listDatabaseDir(settings.dbUsrDirPath(), settings.dbFileSuffixWithFilter());
    for (const QFileInfo &entry : qAsConst(entries))
        m_dbFileMap.insert(entry.baseName(), entry.absoluteFilePath());
}

} // namespace Database
