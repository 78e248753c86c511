#include "jobs.h"

#include "databaseexport.h"
#include "databasegenerator.h"
#include "jobqueue_p.h"
#include "xlsxtodbgenerator.h"

#include <QObject>

namespace Database {
namespace Jobs {

// Imports sourceFile by DatabaseGenerator's line rule, as importOriginalFile() does, on a
// library thread; the result's code is the generator's ErrCode.
QFuture<JobResult> importText(const QString &sourceFile, const QString &databaseFile,
                              const QString &separator)
{
    return JobQueue::instance().submit(databaseFile, [=] {
        DatabaseGenerator generator;
        generator.setSeparator(separator);
        JobResult result;
        result.ok = generator.importOriginalFile(sourceFile, databaseFile);
        result.log = generator.getLog();
        return result;
    });
}

// Imports sourceFile with CsvImporter's options on a library thread.
QFuture<JobResult> importCsv(const QString &sourceFile, const QString &databaseFile,
                             const CsvImporter::Options &options)
{
    return JobQueue::instance().submit(databaseFile, [=] {
        CsvImporter importer(options);
        JobResult result;
        result.ok = importer.importFile(sourceFile, databaseFile);
        result.log = importer.log();
        result.errorLine = importer.errorLine();
        return result;
    });
}

// Imports the first worksheet of sourceFile as XlsxToDBGenerator does, on a library thread.
QFuture<JobResult> importSpreadsheet(const QString &sourceFile, const QString &databaseFile)
{
    return JobQueue::instance().submit(databaseFile, [=] {
        XlsxToDBGenerator generator;
        JobResult result;
        result.ok = generator.importOriginalFile(sourceFile, databaseFile);
        result.log = generator.getLog();
        return result;
    });
}

// Writes the first table of databaseFile to csvFile as DatabaseExport::toCSV() does, on a
// library thread; a cancel leaves no file, or the one that was there.
QFuture<JobResult> exportCsv(const QString &databaseFile, const QString &csvFile)
{
    return JobQueue::instance().submit(databaseFile, [=] {
        JobResult result;
        result.ok = DatabaseExport::toCSV(databaseFile, csvFile);
        if (!result.ok)
            result.log = QObject::tr("Cannot export the first table of %1 to %2.")
                                 .arg(databaseFile, csvFile);
        return result;
    });
}

// Waits for job and returns its result; a job cancelled before it ended has none, and gives
// one with cancelled set.
JobResult resultOf(const QFuture<JobResult> &job)
{
    QFuture<JobResult> waited = job;
    waited.waitForFinished();
    if (waited.isResultReadyAt(0))
        return waited.resultAt(0);
    JobResult result;
    result.cancelled = true;
    result.log = QObject::tr("Cancelled");
    return result;
}

// Cancels every job and waits until none runs: committed tables stay whole.
void cancelAll()
{
    JobQueue::instance().cancelAll();
}

} // namespace Jobs
} // namespace Database
