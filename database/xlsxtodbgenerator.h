#ifndef DATABASE_XLSXTODBGENERATOR_H
#define DATABASE_XLSXTODBGENERATOR_H

#include <database/database_global.h>

#include <QList>
#include <QString>
#include <QStringList>

class QSqlDatabase;

namespace Database {

// Imports the first worksheet of a spreadsheet into tables table1, table2, ... of an SQLite file.
class ZQDATABASE_EXPORT XlsxToDBGenerator
{
public:
    XlsxToDBGenerator();
    XlsxToDBGenerator(const XlsxToDBGenerator &other);
    XlsxToDBGenerator &operator=(const XlsxToDBGenerator &other);
    ~XlsxToDBGenerator();

    bool importOriginalFile(const QString &sourceFile, const QString &databaseFile);
    QString getLog() const;

private:
    bool parserFromFile(const QString &sourceFile, const QString &databaseFile, qint64,
                        int batchRows);
    bool generateDatabase(const QString &databaseFile, const QString &tableName);
    bool makeDatabase(QSqlDatabase &database, const QString &tableName, const int &columnCount);

    QString m_log;
    int m_columnCount;
    QList<QStringList> m_values;
};

} // namespace Database

#endif // DATABASE_XLSXTODBGENERATOR_H
