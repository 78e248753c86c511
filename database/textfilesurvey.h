#ifndef DATABASE_TEXTFILESURVEY_H
#define DATABASE_TEXTFILESURVEY_H

#include <database/csvimporter.h>
#include <database/database_global.h>

#include <QList>
#include <QString>
#include <QStringList>

class QIODevice;

namespace Database {

/// What the text importers will make of a delimited text file, told before or after they run:
/// how its head splits, whether it looks like UTF-8, where the line rule changes the data, and
/// how many rows it gives. Also the staging a host needs to hand the importers a file.
class ZQDATABASE_EXPORT TextFileSurvey
{
public:
    /// Lines whose data the line rule changes where CSV would not: an empty field dropped with a
    /// value after it (the value moves left), or a quoted field cut at a separator inside it.
    struct LineRuleChanges
    {
        qint64 droppedEmpty = 0; ///< lines with an empty field dropped before a value
        qint64 splitQuoted = 0;  ///< lines with a quoted field holding the separator
        qint64 lines = 0;        ///< lines with either change
        qint64 firstLine = 0;    ///< the first of them, 1-based; 0 when none
    };

    /// One line of the head that DatabaseGenerator's separator check compares.
    struct HeadLine
    {
        int number;        ///< 1-based line number in the file
        int fields;        ///< fields the line splits into, empty ones dropped
        bool hasSeparator; ///< whether the separator occurs in the line
    };

    /// True when the file starts with a UTF-8 byte-order mark, or its first 64 KiB hold
    /// multi-byte UTF-8 and nothing that is not well-formed UTF-8.
    static bool looksLikeUtf8(const QString &path);

    /// The lines DatabaseGenerator's separator check compares (the first six non-empty lines
    /// that yield a field), with their field counts as the check computes them.
    static QList<HeadLine> head(const QString &path, const QString &separator);

    /// Scans every line as the line rule splits it, each line decoded as @p encoding says
    /// (CsvImporter::Encoding::PerLine: UTF after a byte-order mark, else GB2312).
    static LineRuleChanges lineRuleChanges(const QString &path, const QString &separator,
                                           CsvImporter::Encoding encoding);

    /// The number of rows DatabaseGenerator makes from the file (lines that yield a field).
    static qint64 countRows(const QString &path, const QString &separator);

    /// The lines of a file decoded as DatabaseGenerator decodes them (GB2312 unless a line
    /// carries a byte-order mark), or, with @p utf8, as UTF-8; a missing final line end adds no
    /// empty line. Empty, with @p error set, when the file cannot be read.
    static QStringList readLines(const QString &path, bool utf8, QString *error);

    /// Writes a copy of a UTF-8 file whose every non-empty line starts with a byte-order mark,
    /// which DatabaseGenerator then decodes as UTF-8 line by line. False, with @p error set,
    /// when a file cannot be read or written.
    static bool writeUtf8Copy(const QString &source, const QString &target, QString *error);

    /// Copies everything @p source gives into @p target, as when standard input is kept in a
    /// file for an importer. False, with @p error set, on a read or write error.
    static bool copy(QIODevice &source, QIODevice &target, QString *error);
};

} // namespace Database

#endif // DATABASE_TEXTFILESURVEY_H
