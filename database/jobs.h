#ifndef DATABASE_JOBS_H
#define DATABASE_JOBS_H

#include <database/csvimporter.h>
#include <database/database_global.h>
#include <database/jobresult.h>

#include <QFuture>
#include <QString>

namespace Database {
namespace Jobs {

ZQDATABASE_EXPORT QFuture<JobResult> importText(const QString &sourceFile,
                                                const QString &databaseFile,
                                                const QString &separator = QStringLiteral(","));
ZQDATABASE_EXPORT QFuture<JobResult> importCsv(const QString &sourceFile,
                                               const QString &databaseFile,
                                               const CsvImporter::Options &options);
ZQDATABASE_EXPORT QFuture<JobResult> importSpreadsheet(const QString &sourceFile,
                                                       const QString &databaseFile);
ZQDATABASE_EXPORT QFuture<JobResult> exportCsv(const QString &databaseFile,
                                               const QString &csvFile);

ZQDATABASE_EXPORT JobResult resultOf(const QFuture<JobResult> &job);
ZQDATABASE_EXPORT void cancelAll();

} // namespace Jobs
} // namespace Database

#endif // DATABASE_JOBS_H
