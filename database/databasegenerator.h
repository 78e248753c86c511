#ifndef DATABASE_DATABASEGENERATOR_H
#define DATABASE_DATABASEGENERATOR_H

#include <database/database_global.h>

#include <QList>
#include <QString>
#include <QStringList>

class QSqlDatabase;

namespace Database {

// Imports a delimited text file into tables table1, table2, ... of an SQLite file.
class ZQDATABASE_EXPORT DatabaseGenerator
{
public:
    enum ErrCode {
        NoError = 0,
        SeparatorEmpty = 1,
        SourceFileEmpty = 2,
        ContentError = 3,
        OpenFileFail = 4,
        DatabaseNotOpen = 5,
        TableNameEmpty = 6,
        CreateDatabaseError = 7,
        DatabaseNameEmpty = 8,
        OpenDatabaseFileFailed = 9,
        TransactionError = 10,
        CommitError = 11,
        ReadFileError = 12
    };

    DatabaseGenerator();
    DatabaseGenerator(const DatabaseGenerator &other);
    DatabaseGenerator &operator=(const DatabaseGenerator &other);
    ~DatabaseGenerator();

    void setSeparator(const QString &separator);
    QString getSeparator() const;
    QString getLog() const;

    bool importOriginalFile(const QString &sourceFile, const QString &databaseFile);

private:
    void init();
    QList<QStringList> getValues() const;
    ErrCode checkDefaultSeparator(const QString &sourceFile, const QString &separator);
    bool parserFromFile(const QString &sourceFile, const QString &databaseFile, qint64,
                        int batchRows);
    bool generateDatabase(const QString &databaseFile, const QString &tableName);
    bool makeDatabase(QSqlDatabase &database, const QString &tableName, const int &columnCount);

    QList<QStringList> m_values;
    QString m_separator;
    QString m_log;
    ErrCode m_errCode;
    int m_columnCount;
    QStringList m_separators;
};

} // namespace Database

#endif // DATABASE_DATABASEGENERATOR_H
