#include "replacingimport.h"

#include <QFile>
#include <QFileInfo>
#include <QTemporaryFile>

#include <cerrno>
#include <cstdio>
#include <cstring>

namespace Database {

struct ReplacingImport::Private
{
    QString target;
    std::unique_ptr<QTemporaryFile> work;
    QString error;
};

ReplacingImport::ReplacingImport(const QString &targetFile)
    : d(new Private)
{
    d->target = targetFile;
}

ReplacingImport::~ReplacingImport()
{
    discard();
}

// Beside the target, so that the rename never crosses file systems; hidden, so that a catalogue
// listing the directory does not take it for a database meanwhile.
bool ReplacingImport::begin()
{
    discard();
    const QFileInfo info(d->target);
    d->work.reset(new QTemporaryFile(info.absolutePath() + QLatin1String("/.") + info.fileName()
                                     + QLatin1String(".import-XXXXXX")));
    if (!d->work->open()) {
        d->error = d->work->errorString();
        d->work.reset();
        return false;
    }
    d->work->close();
    if (info.exists())
        d->work->setPermissions(QFile(d->target).permissions());
    d->error.clear();
    return true;
}

QString ReplacingImport::workFile() const
{
    return d->work ? d->work->fileName() : QString();
}

bool ReplacingImport::commit()
{
    if (!d->work) {
        d->error = QStringLiteral("no work file");
        return false;
    }
    if (std::rename(QFile::encodeName(d->work->fileName()).constData(),
                    QFile::encodeName(d->target).constData())
        != 0) {
        d->error = QString::fromLocal8Bit(std::strerror(errno));
        discard();
        return false;
    }
    d->work->setAutoRemove(false);
    d->work.reset();
    return true;
}

void ReplacingImport::discard()
{
    if (!d->work)
        return;
    QFile::remove(d->work->fileName() + QLatin1String("-journal"));
    d->work.reset(); // removes the file
}

QString ReplacingImport::errorString() const
{
    return d->error;
}

} // namespace Database
