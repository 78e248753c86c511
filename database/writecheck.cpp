#include "writecheck.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QObject>

#include <cerrno>
#include <cstring>
#include <unistd.h>

namespace Database {

namespace {

QString systemReason()
{
    return QString::fromLocal8Bit(std::strerror(errno));
}

} // namespace

QString WriteCheck::problem(const QString &path, bool newFileBeside)
{
    const QFileInfo info(path);
    if (info.isDir())
        return QObject::tr("it is a directory");
    const QFileInfo directory(info.absolutePath());
    const QString shownDirectory = QDir::toNativeSeparators(directory.filePath());
    if (!directory.exists())
        return QObject::tr("the directory '%1' does not exist").arg(shownDirectory);
    if (!directory.isDir())
        return QObject::tr("'%1' is not a directory").arg(shownDirectory);
    // access() asks as the process's real user would be let in, which is what a write meets.
    if (info.exists() && ::access(QFile::encodeName(path).constData(), W_OK) != 0)
        return systemReason();
    if ((newFileBeside || !info.exists())
        && ::access(QFile::encodeName(directory.filePath()).constData(), W_OK) != 0)
        return QObject::tr("no file can be created in '%1': %2").arg(shownDirectory, systemReason());
    return QString();
}

bool WriteCheck::sameFile(const QString &path, const QString &other)
{
    const QString canonical = QFileInfo(path).canonicalFilePath();
    return !other.isEmpty() && !canonical.isEmpty()
            && canonical == QFileInfo(other).canonicalFilePath();
}

} // namespace Database
