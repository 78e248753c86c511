#ifndef CORE_DATABASEQUERYDATA_H
#define CORE_DATABASEQUERYDATA_H

#include <core/zqcore_global.h>

#include <QMetaType>
#include <QString>

namespace Core {

// A named query that the application keeps independently of any one database.
class ZQCORE_EXPORT DatabaseQueryData
{
public:
    DatabaseQueryData();
    DatabaseQueryData(const QString &name, const QString &databaseName = QString(),
                      const QString &statement = QString());
    DatabaseQueryData(const DatabaseQueryData &other);
    DatabaseQueryData &operator=(const DatabaseQueryData &other);
    ~DatabaseQueryData();

    QString name() const;
    QString databaseName() const;
    QString statement() const;

private:
    QString m_name;
    QString m_databaseName;
    QString m_statement;
};

} // namespace Core

Q_DECLARE_METATYPE(Core::DatabaseQueryData)

#endif // CORE_DATABASEQUERYDATA_H
