#include "generateddatabase.h"

#include <database/databasemanager.h>

#include <QDir>
#include <QStringList>

namespace TestSupport {

LoadedCatalogue::LoadedCatalogue()
{
    Database::DatabaseManager::init();
}

LoadedCatalogue::~LoadedCatalogue()
{
    Database::DatabaseManager::destruct();
}

QString LoadedCatalogue::file(const QString &name) const
{
    return QDir(sysDir()).filePath(name + QStringLiteral(".db"));
}

QString LoadedCatalogue::addWithSql(const QString &sql)
{
    const QString name = uniqueDatabaseName(QStringLiteral("db"));
    if (!sqlite(file(name), sql))
        return QString();
    Database::DatabaseManager::instance()->reload();
    return name;
}

QString LoadedCatalogue::addGenerated(const QList<int> &rowCounts, int columns)
{
    QString sql = QStringLiteral("BEGIN;\n");
    for (int t = 1; t <= rowCounts.size(); ++t) {
        QStringList definitions{QStringLiteral("id INTEGER PRIMARY KEY AUTOINCREMENT")};
        QStringList names;
        QStringList cells;
        for (int c = 1; c <= columns; ++c) {
            definitions << QStringLiteral("column%1 TEXT").arg(c);
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
    return addWithSql(sql + QStringLiteral("COMMIT;"));
}

QString uniqueDatabaseName(const QString &stem)
{
    static int counter = 0;
    return stem + QStringLiteral("_") + QString::number(++counter);
}

QString generatedCell(int table, int row, int column)
{
    return QStringLiteral("t%1r%2c%3").arg(table).arg(row).arg(column);
}

} // namespace TestSupport
