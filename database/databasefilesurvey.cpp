#include "databasefilesurvey.h"

#include <QAtomicInt>
#include <QFile>
#include <QLoggingCategory>
#include <QSqlDatabase>
#include <QSqlError>
#include <QSqlQuery>
#include <QVariant>

#include <functional>

namespace Database {

namespace {

Q_LOGGING_CATEGORY(lcFileSurvey, "zq.database.filesurvey")

// Runs work on a read-only connection to path that is gone again afterwards. Each call gets
// a name of its own, so that surveys on several threads do not share a connection.
void withConnection(const QString &path, const std::function<void(QSqlDatabase &)> &work)
{
    static QAtomicInt serial;
    const QString name = QStringLiteral("zq-filesurvey-%1").arg(serial.fetchAndAddRelaxed(1));
    {
        QSqlDatabase db = QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"), name);
        db.setDatabaseName(path);
        db.setConnectOptions(QStringLiteral("QSQLITE_OPEN_READONLY"));
        if (db.open())
            work(db);
        else
            qCDebug(lcFileSurvey) << "cannot open" << path << db.lastError().text();
        db.close();
    }
    QSqlDatabase::removeDatabase(name);
}

qint64 countRows(QSqlDatabase &db, const QString &table)
{
    QSqlQuery query(db);
    if (query.exec(QStringLiteral("SELECT COUNT(*) FROM \"%1\"").arg(table)) && query.next())
        return query.value(0).toLongLong();
    return -1;
}

} // namespace

bool DatabaseFileSurvey::looksLikeSqlite(const QString &path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return false;
    const QByteArray header = file.read(16);
    return header.isEmpty() || header == QByteArray("SQLite format 3", 16);
}

QList<DatabaseFileSurvey::Table> DatabaseFileSurvey::tables(const QString &path)
{
    QList<Table> result;
    withConnection(path, [&](QSqlDatabase &db) {
        for (const QString &name : db.tables(QSql::Tables)) {
            if (name != QLatin1String("sqlite_sequence"))
                result << Table{name, countRows(db, name)};
        }
    });
    return result;
}

QStringList DatabaseFileSurvey::declaredTypes(const QString &path, const QString &table)
{
    QStringList types;
    withConnection(path, [&](QSqlDatabase &db) {
        QSqlQuery query(db);
        if (query.exec(QStringLiteral("PRAGMA table_info(\"%1\")").arg(table)))
            while (query.next())
                types << query.value(QStringLiteral("type")).toString();
    });
    return types;
}

DatabaseFileSurvey::ExportedTable DatabaseFileSurvey::exportedTable(const QString &path)
{
    ExportedTable exported;
    withConnection(path, [&](QSqlDatabase &db) {
        QStringList names = db.tables(QSql::Tables);
        names.removeOne(QStringLiteral("DATABASE_SQLITE_DEFAULTDB"));
        if (names.isEmpty())
            return;
        exported.name = names.first();
        exported.rows = countRows(db, exported.name);
        names.removeAll(QStringLiteral("sqlite_sequence"));
        exported.tableCount = names.size();
    });
    return exported;
}

} // namespace Database
