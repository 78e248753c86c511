#include "databasefile.h"
#include "translate.h"

#include <QFile>
#include <QFileInfo>
#include <QSqlDatabase>
#include <QSqlQuery>
#include <QVariant>

#include <cerrno>
#include <cstring>
#include <functional>
#include <unistd.h>

namespace Zqdb {

namespace {

const QString PeekConnection = QStringLiteral("zqdb-peek");

// Runs work on a read-only connection to path that is gone again afterwards.
void withConnection(const QString &path, const std::function<void(QSqlDatabase &)> &work)
{
    {
        QSqlDatabase db = QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"), PeekConnection);
        db.setDatabaseName(path);
        db.setConnectOptions(QStringLiteral("QSQLITE_OPEN_READONLY"));
        if (db.open())
            work(db);
        db.close();
    }
    QSqlDatabase::removeDatabase(PeekConnection);
}

qint64 countRows(QSqlDatabase &db, const QString &table)
{
    QSqlQuery query(db);
    if (query.exec(QStringLiteral("SELECT COUNT(*) FROM \"%1\"").arg(table)) && query.next())
        return query.value(0).toLongLong();
    return -1;
}

} // namespace

bool DatabaseFile::looksLikeSqlite(const QString &path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return false;
    const QByteArray header = file.read(16);
    return header.isEmpty() || header == QByteArray("SQLite format 3", 16);
}

QList<DatabaseFile::Table> DatabaseFile::tables(const QString &path)
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

QStringList DatabaseFile::describe(const QList<Table> &tables)
{
    // Runs of three or more tables with the same row count take one line.
    QStringList lines;
    qint64 total = 0;
    for (int i = 0; i < tables.size();) {
        int last = i;
        while (last + 1 < tables.size() && tables.at(last + 1).rows == tables.at(i).rows)
            ++last;
        if (last - i < 2)
            last = i;
        const qint64 rows = tables.at(i).rows;
        const QString count = rows < 0 ? tr("unreadable") : tr("%n row(s)", nullptr, int(rows));
        if (last == i)
            lines << QStringLiteral("%1  %2").arg(tables.at(i).name, count);
        else
            lines << tr("%1 to %2  %3 each").arg(tables.at(i).name, tables.at(last).name, count);
        total += qMax<qint64>(rows, 0) * (last - i + 1);
        i = last + 1;
    }
    if (tables.size() > 1)
        lines << tr("%1 rows in %2 tables").arg(total).arg(tables.size());
    return lines;
}

QString DatabaseFile::nameList(const QStringList &names)
{
    if (names.size() <= 6)
        return names.join(QLatin1String(", "));
    return names.mid(0, 3).join(QLatin1String(", ")) + QLatin1String(", ..., ") + names.last();
}

QStringList DatabaseFile::declaredTypes(const QString &path, const QString &table)
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

QString DatabaseFile::exportedTable(const QString &path, int *tableCount, qint64 *rows)
{
    QString first;
    *tableCount = 0;
    *rows = -1;
    withConnection(path, [&](QSqlDatabase &db) {
        // The exporter's own choice: the first table listed, never "DATABASE_SQLITE_DEFAULTDB".
        QStringList names = db.tables(QSql::Tables);
        names.removeOne(QStringLiteral("DATABASE_SQLITE_DEFAULTDB"));
        if (names.isEmpty())
            return;
        first = names.first();
        *rows = countRows(db, first);
        names.removeAll(QStringLiteral("sqlite_sequence"));
        *tableCount = names.size();
    });
    return first;
}

QString DatabaseFile::writeProblem(const QString &path, bool inDirectory)
{
    const QFileInfo info(path);
    if (info.isDir())
        return tr("it is a directory");
    const QFileInfo directory(info.absolutePath());
    if (!directory.exists())
        return tr("the directory '%1' does not exist").arg(shown(directory.filePath()));
    if (!directory.isDir())
        return tr("'%1' is not a directory").arg(shown(directory.filePath()));
    if (info.exists() && ::access(QFile::encodeName(path).constData(), W_OK) != 0)
        return QString::fromLocal8Bit(std::strerror(errno));
    if ((inDirectory || !info.exists())
        && ::access(QFile::encodeName(directory.filePath()).constData(), W_OK) != 0)
        return tr("no file can be created in '%1': %2")
                .arg(shown(directory.filePath()), QString::fromLocal8Bit(std::strerror(errno)));
    return QString();
}

QString DatabaseFile::cannotWrite(const QString &path, bool inDirectory, const QString &database)
{
    const QString canonical = QFileInfo(path).canonicalFilePath();
    QString problem = !database.isEmpty() && !canonical.isEmpty()
                    && canonical == QFileInfo(database).canonicalFilePath()
            ? tr("it is the database being read")
            : writeProblem(path, inDirectory);
    if (problem.isEmpty())
        return problem;
    return tr("cannot write '%1': %2.").arg(shown(path), problem);
}

} // namespace Zqdb
