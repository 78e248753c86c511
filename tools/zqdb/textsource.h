#ifndef ZQDB_TEXTSOURCE_H
#define ZQDB_TEXTSOURCE_H

#include <QList>
#include <QString>
#include <QStringList>

namespace Zqdb {

// What zqdb needs to know about a delimited text file before and after the library imports it:
// how its head splits, whether it looks like UTF-8, and how many rows the importer takes from it.
class TextSource
{
public:
    enum Encoding { Gb2312, Utf8, Gb18030, Automatic };

    // Lines whose data the line rule changes where CSV would not: an empty field dropped with a
    // value after it (the value moves left), or a quoted field cut at a separator inside it.
    struct LineRuleChanges
    {
        qint64 droppedEmpty = 0;
        qint64 splitQuoted = 0;
        qint64 lines = 0; // lines with either change
        qint64 firstLine = 0; // 1-based, 0 when none
    };

    struct HeadLine
    {
        int number; // 1-based line number in the file
        int fields;
        bool hasSeparator;
    };

    // "gb2312" (the library's own rule), "utf-8", "gb18030" or "auto", in any case and with or
    // without the dash.
    static bool parseEncoding(const QString &name, Encoding *encoding);

    // True when the file starts with a UTF-8 byte-order mark or its head holds multi-byte UTF-8
    // and nothing that is not UTF-8.
    static bool looksLikeUtf8(const QString &path);

    // The lines the importer's separator check compares (the first six non-empty lines that
    // yield a field), with their field counts as the check computes them.
    static QList<HeadLine> head(const QString &path, const QString &separator);

    // Scans every line as the importer splits it, decoded line by line (a byte-order mark chooses
    // UTF, else the encoding).
    static LineRuleChanges lineRuleChanges(const QString &path, const QString &separator,
                                           Encoding encoding);

    // Writes a copy whose every non-empty line starts with a UTF-8 byte-order mark, which the
    // importer decodes as UTF-8 line by line.
    static bool writeUtf8Copy(const QString &source, const QString &target, QString *error);

    // The number of rows the importer makes from the file (lines that yield a field).
    static qint64 countRows(const QString &path, const QString &separator);

    // The lines of a file decoded as the importer decodes them (GB2312 unless a line carries a
    // byte-order mark), or as UTF-8; a missing final line end adds no empty line.
    static QStringList readLines(const QString &path, Encoding encoding, QString *error);
};

} // namespace Zqdb

#endif // ZQDB_TEXTSOURCE_H
