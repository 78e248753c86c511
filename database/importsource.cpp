#include "importsource.h"
#include "textfilesurvey.h"

#include <core/xlsxrowreader_p.h>

#include <QFileInfo>
#include <QObject>
#include <QScopedPointer>
#include <QTemporaryFile>

namespace Database {

struct ImportSource::Private
{
    QString path;
    bool spreadsheet = false;
    QScopedPointer<QTemporaryFile> stage;
    QString error;
};

ImportSource::ImportSource(const QString &path)
    : d(new Private)
{
    const QString suffix = QFileInfo(path).suffix().toLower();
    d->path = path;
    d->spreadsheet = suffix == QLatin1String("xlsx") || suffix == QLatin1String("xlsm");
}

ImportSource::~ImportSource() = default;

bool ImportSource::createStage(const QString &fileTemplate)
{
    d->stage.reset(new QTemporaryFile(fileTemplate));
    if (d->stage->open())
        return true;
    d->error = d->stage->errorString();
    return false;
}

QString ImportSource::stageFile() const
{
    return d->stage ? d->stage->fileName() : QString();
}

bool ImportSource::stage(QIODevice &input)
{
    if (!d->stage || !d->stage->isOpen()) {
        d->error = d->stage ? d->stage->errorString() : QObject::tr("No file to stage the input in.");
        return false;
    }
    if (!TextFileSurvey::copy(input, *d->stage, &d->error))
        return false;
    d->path = d->stage->fileName();
    d->stage->seek(0);
    d->spreadsheet = d->stage->read(4) == QByteArray("PK\x03\x04", 4); // a zip archive
    return true;
}

QString ImportSource::path() const
{
    return d->path;
}

bool ImportSource::isSpreadsheet() const
{
    return d->spreadsheet;
}

QString ImportSource::errorString() const
{
    return d->error;
}

int ImportSource::columnCount(const QString &path, bool spreadsheet, const QString &separator)
{
    if (spreadsheet) {
        // Checked as the importer reads it, holding no cells: any size of sheet.
        Core::XlsxRowReader reader;
        return reader.open(path, false) ? reader.columnCount() : 0;
    }
    const QList<TextFileSurvey::HeadLine> head = TextFileSurvey::head(path, separator);
    return head.isEmpty() ? 0 : head.first().fields;
}

qint64 ImportSource::rowCount(const QString &path, bool spreadsheet, const QString &separator)
{
    if (!spreadsheet)
        return TextFileSurvey::countRows(path, separator);
    Core::XlsxRowReader reader;
    return reader.open(path, false) && !reader.isEmpty() ? reader.rowCount() : 0;
}

QString ImportSource::suggestedSeparator(const QString &path, const QString &separator,
                                         int *fields)
{
    for (const QString &candidate :
         {QStringLiteral("\t"), QStringLiteral(","), QStringLiteral(";"), QStringLiteral("|")}) {
        if (candidate == separator)
            continue;
        const QList<TextFileSurvey::HeadLine> head = TextFileSurvey::head(path, candidate);
        bool everywhere = !head.isEmpty();
        for (const TextFileSurvey::HeadLine &line : head)
            everywhere = everywhere && line.hasSeparator && line.fields == head.first().fields;
        if (everywhere) {
            *fields = head.first().fields;
            return candidate;
        }
    }
    return QString();
}

} // namespace Database
