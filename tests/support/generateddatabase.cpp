#include "generateddatabase.h"

#include "testsupport.h"

#include <database/databasemanager.h>

#include <QDir>

#include <QStringList>

namespace TestSupport {

bool writeGeneratedDatabase(const QString &path, const QList<int> &rowCounts, int columns)
{
    QString sql = QStringLiteral("BEGIN;\n");
    for (int t = 1; t <= rowCounts.size(); ++t) {
        QStringList definitions{QStringLiteral("id INTEGER PRIMARY KEY AUTOINCREMENT")};
        QStringList names;
        QStringList cells;
        for (int c = 1; c <= columns; ++c) {
            definitions << QStringLiteral("column%1 TEXT ").arg(c);
            names << QStringLiteral("column%1").arg(c);
            cells << QStringLiteral("'t%1r' || i || 'c%2'").arg(t).arg(c);
        }
        sql += QStringLiteral("CREATE TABLE table%1 (%2);\n").arg(t).arg(definitions.join(", "));
        const int rows = rowCounts.at(t - 1);
        if (rows > 0)
            sql += QStringLiteral("WITH RECURSIVE r(i) AS (SELECT 0 UNION ALL SELECT i + 1 FROM r "
                                  "WHERE i < %1) INSERT INTO table%2 (%3) SELECT %4 FROM r;\n")
                           .arg(rows - 1)
                           .arg(t)
                           .arg(names.join(", "), cells.join(", "));
    }
    sql += QStringLiteral("COMMIT;");
    return sqlite(path, sql);
}

QString generatedCell(int table, int row, int column)
{
    return QStringLiteral("t%1r%2c%3").arg(table).arg(row).arg(column);
}

QString uniqueDatabaseName(const QString &stem)
{
    static int counter = 0;
    return stem + QStringLiteral("_") + QString::number(++counter);
}

QString systemDatabaseFile(const TempCatalogue &catalogue, const QString &name)
{
    return QDir(catalogue.sysDir()).filePath(name + QStringLiteral(".db"));
}

QString addGeneratedDatabase(const TempCatalogue &catalogue, const QList<int> &rowCounts,
                             int columns)
{
    const QString name = uniqueDatabaseName(QStringLiteral("db"));
    if (!writeGeneratedDatabase(systemDatabaseFile(catalogue, name), rowCounts, columns))
        return QString();
    Database::DatabaseManager::instance()->reload();
    return name;
}

} // namespace TestSupport
