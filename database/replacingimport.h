#ifndef DATABASE_REPLACINGIMPORT_H
#define DATABASE_REPLACINGIMPORT_H

#include <database/database_global.h>

#include <QString>

#include <memory>

namespace Database {

/// A new database file made beside a target and put in its place only when complete, so that
/// a failed or cancelled import leaves the target as it was, or absent.
///
/// Import into workFile() with any importer, then call commit() if the import succeeded; the
/// work file is removed otherwise, at the latest by the destructor.
/// @code
/// Database::ReplacingImport replacing(target);
/// Database::DatabaseGenerator generator;
/// if (!replacing.begin() || !generator.importOriginalFile(source, replacing.workFile())
///     || !replacing.commit())
///     qWarning() << replacing.errorString() << generator.getLog();
/// @endcode
class ZQDATABASE_EXPORT ReplacingImport
{
public:
    /// Prepares to replace @p targetFile; nothing is created before begin().
    explicit ReplacingImport(const QString &targetFile);
    /// Removes the work file unless it was committed.
    ~ReplacingImport();
    ReplacingImport(const ReplacingImport &) = delete;
    ReplacingImport &operator=(const ReplacingImport &) = delete;

    /// Creates an empty hidden work file in the target's directory, with the target's
    /// permissions when it exists. False, with errorString(), when it cannot be created.
    bool begin();
    /// The path to import into; empty before begin().
    QString workFile() const;
    /// Renames the work file over the target in one step. False, with errorString() and the
    /// work file removed, when that fails or begin() did not succeed.
    bool commit();
    /// Removes the work file and its journal; the target is left as it is.
    void discard();
    /// Why the last begin() or commit() failed, as the system says it.
    QString errorString() const;

private:
    struct Private;
    std::unique_ptr<Private> d;
};

} // namespace Database

#endif // DATABASE_REPLACINGIMPORT_H
