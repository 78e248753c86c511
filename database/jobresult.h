#ifndef DATABASE_JOBRESULT_H
#define DATABASE_JOBRESULT_H

#include <database/database_global.h>

#include <QMetaType>
#include <QString>

namespace Database {

// What an import or export job ended with: the synchronous call's result, log and code.
struct JobResult
{
    bool ok = false;
    bool cancelled = false;
    QString log;
    int code = 0;
    int errorLine = 0;
};

} // namespace Database

Q_DECLARE_METATYPE(Database::JobResult)

#endif // DATABASE_JOBRESULT_H
