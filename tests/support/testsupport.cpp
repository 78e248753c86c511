#include "testsupport.h"

#include <core/settings.h>
#include <database/databasemanager.h>

#include <QDir>
#include <QFile>
#include <QProcess>
#include <QStandardPaths>
#include <QStringList>

namespace TestSupport {

TempCatalogue::TempCatalogue()
{
    QStandardPaths::setTestModeEnabled(true);
    QDir().mkpath(sysDir());
    QDir().mkpath(userDir());
    Core::Settings &settings = Core::Settings::instance();
    settings.setDbSysDirPath(sysDir());
    settings.setDbUsrDirPath(userDir());
    settings.setDbFileSuffixWithFilter(QStringLiteral("*.db"));
}

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
        QStringList definitions, names, cells;
        for (int c = 1; c <= columns; ++c) {
            definitions << QStringLiteral("column%1 TEXT").arg(c);
            names << QStringLiteral("column%1").arg(c);
            cells << QStringLiteral("'t%1r' || i || 'c%2'").arg(t).arg(c);
        }
        sql += QStringLiteral("CREATE TABLE table%1 (id INTEGER PRIMARY KEY AUTOINCREMENT, %2);\n"
                              "WITH RECURSIVE r(i) AS (SELECT 0 WHERE %3 >= 0 UNION ALL SELECT i + 1 "
                              "FROM r WHERE i < %3) INSERT INTO table%1 (%4) SELECT %5 FROM r;\n")
                       .arg(t)
                       .arg(definitions.join(", "))
                       .arg(rowCounts.at(t - 1) - 1)
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

bool writeFile(const QString &path, const QByteArray &bytes)
{
    QDir().mkpath(QFileInfo(path).absolutePath());
    QFile file(path);
    return file.open(QIODevice::WriteOnly | QIODevice::Truncate) && file.write(bytes) == bytes.size();
}

QByteArray readFile(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

// Runs a program with input on its standard input; false unless it exits 0 without errors.
static bool run(const QString &program, const QStringList &arguments, const QByteArray &input,
                QByteArray *output)
{
    QProcess process;
    process.start(program, arguments);
    if (!process.waitForStarted())
        return false;
    process.write(input);
    process.closeWriteChannel();
    const bool finished = process.waitForFinished(120000);
    *output = process.readAllStandardOutput();
    return finished && process.exitStatus() == QProcess::NormalExit && process.exitCode() == 0
            && process.readAllStandardError().isEmpty();
}

bool sqlite(const QString &databaseFile, const QString &sql, QString *output)
{
    QByteArray bytes;
    const bool ok = run(QStringLiteral("sqlite3"), {QStringLiteral("-batch"), databaseFile},
                        sql.toUtf8() + '\n', &bytes);
    if (output)
        *output = QString::fromUtf8(bytes);
    return ok;
}

QString sqliteQuery(const QString &databaseFile, const QString &sql)
{
    QString output;
    if (!sqlite(databaseFile, sql, &output))
        return QString();
    if (output.endsWith(QLatin1Char('\n')))
        output.chop(1);
    return output;
}

QByteArray iconvEncode(const QString &text, const char *encoding)
{
    QByteArray bytes;
    run(QStringLiteral("iconv"),
        {QStringLiteral("-f"), QStringLiteral("UTF-8"), QStringLiteral("-t"),
         QString::fromLatin1(encoding)},
        text.toUtf8(), &bytes);
    return bytes;
}

} // namespace TestSupport
