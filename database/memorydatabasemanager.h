#ifndef DATABASE_MEMORYDATABASEMANAGER_H
#define DATABASE_MEMORYDATABASEMANAGER_H

#include <database/database_global.h>

#include <QList>
#include <QSqlDatabase>
#include <QSqlRecord>
#include <QString>
#include <QStringList>
#include <QVariant>

namespace Database {

// The process-wide in-memory table with its row cursor.
class ZQDATABASE_EXPORT MemoryDatabaseManager
{
public:
    static void init();
    static MemoryDatabaseManager *instance();
    static void destruct();

    MemoryDatabaseManager(const MemoryDatabaseManager &other);
    MemoryDatabaseManager &operator=(const MemoryDatabaseManager &other);
    ~MemoryDatabaseManager();

    bool generateDatabase(QString tableName, QList<QSqlRecord> records);
    bool generateDatabase(QString tableName, QStringList lines);
    int getTableRowsCount();
    int getTableColumnsCount();
    QString getLastError() const;

    void doGoTo(int row);
    void doNext();
    void finishMarking();
    void doPre();
    void doReset();
    bool isEnd();

    QVariant recordValue(int column);
    QVariant recordValue(int row, int column);
    QSqlDatabase memoryDatabase();

protected:
    MemoryDatabaseManager();

private:
    QSqlDatabase m_database;
    int m_currentRow;
    int m_columnCount;
    int m_rowCount;
    bool m_isEnd;
    QString m_lastError;

    static MemoryDatabaseManager *m_pInstance;
};

} // namespace Database

#endif // DATABASE_MEMORYDATABASEMANAGER_H
