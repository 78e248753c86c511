#ifndef DATABASE_CSVIMPORTER_H
#define DATABASE_CSVIMPORTER_H

#include <database/database_global.h>

#include <QString>

namespace Database {

// Imports a delimited text file as CSV into the layout DatabaseGenerator writes: tables table1,
// table2, ... of 50,000 rows with an id and column1 .. columnN TEXT, short rows padded.
class ZQDATABASE_EXPORT CsvImporter
{
public:
    enum class Format {
        Rfc4180, // quotes, doubled quotes, separators and line breaks in quotes, empty fields kept
        LineRule // DatabaseGenerator's: each line trimmed, empty fields dropped, quotes plain text
    };
    enum class Encoding {
        Automatic, // a byte-order mark, else UTF-8 when the whole file is valid UTF-8, else GB18030
        Utf8,
        Gb18030,
        PerLine // DatabaseGenerator's: UTF after a byte-order mark on the line, else GB2312
    };
    struct Options
    {
        Format format = Format::Rfc4180;
        Encoding encoding = Encoding::Automatic;
        QString separator{QLatin1Char(',')};
    };

    CsvImporter();
    explicit CsvImporter(const Options &options);

    Options options() const;
    void setOptions(const Options &options);

    bool importFile(const QString &sourceFile, const QString &databaseFile);
    QString log() const;
    int errorLine() const;

private:
    Options m_options;
    QString m_log;
    int m_errorLine = 0;
};

} // namespace Database

#endif // DATABASE_CSVIMPORTER_H
