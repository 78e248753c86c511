#ifndef TESTSUPPORT_H
#define TESTSUPPORT_H

#include <core/settings.h>
#include <database/databasemanager.h>

#include <QDir>
#include <QProcess>
#include <QStandardPaths>
#include <QTemporaryDir>

namespace TestSupport {

// A temporary system and user database directory, installed into Core::Settings together
// with the "*.db" filter for the lifetime of the object. Standard paths go to test mode.
class TempCatalogue
{
public:
    TempCatalogue()
    {
        QStandardPaths::setTestModeEnabled(true);
        QDir().mkpath(sysDir());
        QDir().mkpath(userDir());
        Core::Settings::instance().setDbSysDirPath(sysDir());
        Core::Settings::instance().setDbUsrDirPath(userDir());
        Core::Settings::instance().setDbFileSuffixWithFilter(QStringLiteral("*.db"));
    }
    bool isValid() const { return m_dir.isValid(); }
    QString root() const { return m_dir.path(); }
    QString sysDir() const { return m_dir.filePath(QStringLiteral("system")); }
    QString userDir() const { return m_dir.filePath(QStringLiteral("user")); }
    // Path of a file in the temporary root (not in either catalogue directory).
    QString filePath(const QString &fileName) const { return m_dir.filePath(fileName); }
    QString file(const QString &name) const { return sysDir() + "/" + name + ".db"; }
    // A new catalogued database made by the sqlite3 shell; its name is never reused, since Qt
    // keeps a connection per name and reopens its last file. Empty on failure.
    QString add(const QString &sql);

private:
    QTemporaryDir m_dir;
    int m_databases = 0;
};

// Writes raw bytes to a file, creating parent directories; false on any failure.
inline bool writeFile(const QString &path, const QByteArray &bytes)
{
    QDir().mkpath(QFileInfo(path).absolutePath());
    QFile file(path);
    return file.open(QIODevice::WriteOnly) && file.write(bytes) == bytes.size();
}

inline QByteArray readFile(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

// Runs a program on the given input; true when it exits with 0 and writes no error.
inline bool runProgram(const QString &program, const QStringList &arguments,
                       const QByteArray &input, QByteArray *output)
{
    QProcess process;
    process.start(program, arguments);
    process.write(input);
    process.closeWriteChannel();
    const bool finished = process.waitForFinished(120000);
    *output = process.readAllStandardOutput();
    return finished && process.exitStatus() == QProcess::NormalExit && process.exitCode() == 0
            && process.readAllStandardError().isEmpty();
}

// Runs SQL through the sqlite3 shell on a database file, independently of Qt's driver.
// Returns false when the shell fails; the shell's standard output goes to *output.
inline bool sqlite(const QString &databaseFile, const QString &sql, QString *output = nullptr)
{
    QByteArray bytes;
    const bool ok = runProgram("sqlite3", {"-batch", databaseFile}, sql.toUtf8() + '\n', &bytes);
    if (output)
        *output = QString::fromUtf8(bytes);
    return ok;
}

// The shell's output of one query, one row per line, fields joined by '|', trailing newline
// removed. Empty on failure.
inline QString sqliteQuery(const QString &databaseFile, const QString &sql)
{
    QString out;
    return sqlite(databaseFile, sql, &out) ? out.left(out.size() - out.endsWith('\n')) : QString();
}

inline QString TempCatalogue::add(const QString &sql)
{
    const QString name = QStringLiteral("db%1").arg(++m_databases);
    if (!sqlite(file(name), sql))
        return QString();
    Database::DatabaseManager::instance()->reload();
    return name;
}

// Encodes text with iconv (an encoder independent of Qt's codecs), e.g. "GB2312", "GBK".
inline QByteArray iconvEncode(const QString &text, const char *encoding)
{
    QByteArray bytes;
    runProgram("iconv", {"-f", "UTF-8", "-t", encoding}, text.toUtf8(), &bytes);
    return bytes;
}

} // namespace TestSupport

#define QVERIFY_SQL(q, stmt) QVERIFY2((q).stmt, qPrintable((q).lastError().text()))

#endif // TESTSUPPORT_H
