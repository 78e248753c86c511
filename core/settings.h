#ifndef CORE_SETTINGS_H
#define CORE_SETTINGS_H

#include <core/zqcore_global.h>

#include <QMap>
#include <QString>
#include <QVariant>

namespace Core {

class ZQCORE_EXPORT Settings
{
public:
    static Settings &instance();

    QString dbSysDirPath() const;
    QString dbUsrDirPath() const;
    QString dbFileSuffixWithFilter() const;
    void setDbSysDirPath(const QString &path);
    void setDbUsrDirPath(const QString &path);
    void setDbFileSuffixWithFilter(const QString &filter);

    bool hasRunValue(const QString &key) const;
    QVariant runValue(const QString &key);
    void setRunValue(const QString &key, const QVariant &value);
    void removeRunValue(const QString &key);

private:
    Settings();
    Settings(const Settings &) = delete;
    Settings &operator=(const Settings &) = delete;

    QString m_dbSysDirPath;
    QString m_dbUsrDirPath;
    QString m_dbFileSuffixWithFilter;
    QMap<QString, QVariant> m_runValues;
};

} // namespace Core

#endif // CORE_SETTINGS_H
