#include "testsupport.h"

#include <core/settings.h>

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QProcess>

namespace TestSupport {

TempCatalogue::TempCatalogue()
{
    QDir root(m_dir.path());
    root.mkpath(QStringLiteral("system"));
    root.mkpath(QStringLiteral("user"));
    Core::Settings &settings = Core::Settings::instance();
    settings.setDbSysDirPath(sysDir());
    settings.setDbUsrDirPath(userDir());
    settings.setDbFileSuffixWithFilter(QStringLiteral("*.db"));
}

bool TempCatalogue::isValid() const
{
    return m_dir.isValid();
}

QString TempCatalogue::root() const
{
    return m_dir.path();
}

QString TempCatalogue::sysDir() const
{
    return m_dir.filePath(QStringLiteral("system"));
}

QString TempCatalogue::userDir() const
{
    return m_dir.filePath(QStringLiteral("user"));
}

QString TempCatalogue::filePath(const QString &fileName) const
{
    return m_dir.filePath(fileName);
}

bool writeFile(const QString &path, const QByteArray &bytes)
{
    QDir().mkpath(QFileInfo(path).absolutePath());
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate))
        return false;
    return file.write(bytes) == bytes.size();
}

QByteArray readFile(const QString &path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return QByteArray();
    return file.readAll();
}

bool sqlite(const QString &databaseFile, const QString &sql, QString *output)
{
    QProcess shell;
    shell.start(QStringLiteral("sqlite3"), {QStringLiteral("-batch"), databaseFile});
    if (!shell.waitForStarted())
        return false;
    shell.write(sql.toUtf8());
    shell.write("\n");
    shell.closeWriteChannel();
    if (!shell.waitForFinished(120000))
        return false;
    if (output)
        *output = QString::fromUtf8(shell.readAllStandardOutput());
    return shell.exitStatus() == QProcess::NormalExit && shell.exitCode() == 0
            && shell.readAllStandardError().isEmpty();
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
    QProcess iconv;
    iconv.start(QStringLiteral("iconv"),
                {QStringLiteral("-f"), QStringLiteral("UTF-8"), QStringLiteral("-t"),
                 QString::fromLatin1(encoding)});
    if (!iconv.waitForStarted())
        return QByteArray();
    iconv.write(text.toUtf8());
    iconv.closeWriteChannel();
    iconv.waitForFinished();
    return iconv.readAllStandardOutput();
}

} // namespace TestSupport
