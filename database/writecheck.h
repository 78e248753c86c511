#ifndef DATABASE_WRITECHECK_H
#define DATABASE_WRITECHECK_H

#include <database/database_global.h>

#include <QString>

namespace Database {

/// Whether a file can be written, asked before an import or export starts, so that a host can
/// refuse at once rather than after the work; nothing is created or opened to find out.
class ZQDATABASE_EXPORT WriteCheck
{
public:
    /// Why @p path cannot be written or, with @p newFileBeside, why no new file can be created
    /// in its directory (as ReplacingImport needs), in the system's words; empty when nothing
    /// stands in the way.
    static QString problem(const QString &path, bool newFileBeside);

    /// Whether two paths name the same existing file, through links too.
    static bool sameFile(const QString &path, const QString &other);
};

} // namespace Database

#endif // DATABASE_WRITECHECK_H
