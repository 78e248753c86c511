#ifndef DATABASE_DATABASEHANDLER_H
#define DATABASE_DATABASEHANDLER_H

#include <database/database_global.h>

#include <QList>
#include <QSqlDatabase>
#include <QSqlRecord>
#include <QString>
#include <QStringList>
#include <QVariant>

namespace Database {

class ZQDATABASE_EXPORT DatabaseHandler
{
public:
    DatabaseHandler();
    DatabaseHandler(const DatabaseHandler &other);
    DatabaseHandler &operator=(const DatabaseHandler &other);
    ~DatabaseHandler();

    static QSqlDatabase createSqlDatabase(const QString &connectionName);

    bool setCurrentDatabaseName(const QString &name);
    QString currentDatabaseName() const;

    QStringList getTables();
    bool setFirstTable();
    bool setTableName(const QString &name);
    QString tableName() const;
    void updateTableInfo();

    QStringList getFieldNames() const;
    QT_WARNING_PUSH
    QT_WARNING_DISABLE_DEPRECATED // QVariant::Type is the interface's own; Qt 6 deprecates it
    QList<QVariant::Type> getFieldTypes() const;
    QT_WARNING_POP
    int getTableRecordCount();
    bool isDatabaseOpen();

    QVariant recordValue(int row, int column, int rowsPerTable);

private:
    bool openDatabase(const QString &filePath);
    void closeCurrentDatabase();
    void updateRecordCount();

    QSqlDatabase m_sqlDatabase;
    QString m_tableName;
    QSqlRecord m_record;
    QStringList m_fieldNames;
    QT_WARNING_PUSH
    QT_WARNING_DISABLE_DEPRECATED // as getFieldTypes()
    QList<QVariant::Type> m_fieldTypes;
    QT_WARNING_POP
    QStringList m_tables;
    int m_recordCount;
    bool m_isOpen;
    QString m_databaseName;
    bool m_hasIdField;
};

} // namespace Database

#endif // DATABASE_DATABASEHANDLER_H
