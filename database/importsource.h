#ifndef DATABASE_IMPORTSOURCE_H
#define DATABASE_IMPORTSOURCE_H

#include <database/database_global.h>

#include <QString>

#include <memory>

class QIODevice;

namespace Database {

/// A text file or spreadsheet about to be imported, and what the importers will make of it.
/// A stream such as standard input is staged in a temporary file first, as the importers read
/// files by name.
/// @code
/// Database::ImportSource source;
/// QFile in;
/// if (source.createStage(QDir::tempPath() + "/host-stdin-XXXXXX") && in.open(stdin, QIODevice::ReadOnly)
///     && source.stage(in))
///     importer.importOriginalFile(source.path(), target);
/// @endcode
class ZQDATABASE_EXPORT ImportSource
{
public:
    /// The file at @p path: a spreadsheet when its name ends in .xlsx or .xlsm, in any case.
    explicit ImportSource(const QString &path = QString());
    /// Removes the staged file, if any.
    ~ImportSource();
    ImportSource(const ImportSource &) = delete;
    ImportSource &operator=(const ImportSource &) = delete;

    /// Creates the empty file stage() fills, named after @p fileTemplate as QTemporaryFile
    /// takes it. False, with errorString(), when it cannot be created.
    bool createStage(const QString &fileTemplate);
    /// The staged file's name once createStage() succeeded; empty before.
    QString stageFile() const;
    /// Copies all that @p input gives into the staged file, which becomes the source: a
    /// spreadsheet when it starts as a zip archive does. False, with errorString(), when
    /// createStage() did not succeed or a write failed.
    bool stage(QIODevice &input);

    /// The file to hand the importer.
    QString path() const;
    /// Whether the source goes to XlsxToDBGenerator rather than a text importer.
    bool isSpreadsheet() const;
    /// Why the last createStage() or stage() failed.
    QString errorString() const;

    /// The columns the importer will make: a spreadsheet's width, or the fields of the first
    /// line of a text file's head at @p separator. 0 when that cannot be told.
    static int columnCount(const QString &path, bool spreadsheet, const QString &separator);
    /// The rows the importer will make; 0 from a spreadsheet that cannot be read.
    static qint64 rowCount(const QString &path, bool spreadsheet, const QString &separator);
    /// The first of tab, comma, semicolon and bar (@p separator left out) at which every line
    /// of a text file's head splits into the same number of fields, that number in @p fields.
    /// Empty when none does.
    static QString suggestedSeparator(const QString &path, const QString &separator,
                                      int *fields);

private:
    struct Private;
    std::unique_ptr<Private> d;
};

} // namespace Database

#endif // DATABASE_IMPORTSOURCE_H
