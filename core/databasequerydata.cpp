#include "databasequerydata.h"

namespace Core {

DatabaseQueryData::DatabaseQueryData() = default;

DatabaseQueryData::DatabaseQueryData(const QString &name, const QString &databaseName,
                                     const QString &statement)
    : m_name(name)
    , m_databaseName(databaseName)
    , m_statement(statement)
{ }

DatabaseQueryData::DatabaseQueryData(const DatabaseQueryData &other) = default;
DatabaseQueryData &DatabaseQueryData::operator=(const DatabaseQueryData &other) = default;
DatabaseQueryData::~DatabaseQueryData() = default;

QString DatabaseQueryData::name() const
{
    return m_name;
}

QString DatabaseQueryData::databaseName() const
{
    return m_databaseName;
}

QString DatabaseQueryData::statement() const
{
    return m_statement;
}

} // namespace Core
