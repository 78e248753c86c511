#include "settings.h"

#include <QDir>
#include <QStandardPaths>

namespace Core {

namespace {

QString fromEnvironment(const char *name, const QString &fallback)
{
    const QString value = qEnvironmentVariable(name);
    return value.isEmpty() ? fallback : value;
}

QString defaultDatabaseDir(const QString &leaf)
{
    const QString base = QStandardPaths::writableLocation(QStandardPaths::AppDataLocation);
    return QDir(base).filePath(QStringLiteral("databases/") + leaf);
}

} // namespace

// Initial values come from the environment so that hosts and tests can point the
// catalogue somewhere else without code.
Settings::Settings()
    : m_dbSysDirPath(
            fromEnvironment("ZQDATABASE_SYS_DIR", defaultDatabaseDir(QStringLiteral("system"))))
    , m_dbUsrDirPath(
              fromEnvironment("ZQDATABASE_USR_DIR", defaultDatabaseDir(QStringLiteral("user"))))
    , m_dbFileSuffixWithFilter(fromEnvironment("ZQDATABASE_FILE_FILTER", QStringLiteral("*.db")))
{ }

Settings &Settings::instance()
{
    static Settings settings;
    return settings;
}

QString Settings::dbSysDirPath() const
{
    return m_dbSysDirPath;
}

QString Settings::dbUsrDirPath() const
{
    return m_dbUsrDirPath;
}

QString Settings::dbFileSuffixWithFilter() const
{
    return m_dbFileSuffixWithFilter;
}

void Settings::setDbSysDirPath(const QString &path)
{
    m_dbSysDirPath = path;
}

void Settings::setDbUsrDirPath(const QString &path)
{
    m_dbUsrDirPath = path;
}

void Settings::setDbFileSuffixWithFilter(const QString &filter)
{
    m_dbFileSuffixWithFilter = filter;
}

bool Settings::hasRunValue(const QString &key) const
{
    return m_runValues.contains(key);
}

// Returns the value stored under key, or an invalid QVariant.
QVariant Settings::runValue(const QString &key)
{
    return m_runValues.value(key);
}

void Settings::setRunValue(const QString &key, const QVariant &value)
{
    m_runValues.insert(key, value);
}

void Settings::removeRunValue(const QString &key)
{
    m_runValues.remove(key);
}

} // namespace Core
