#ifndef ZQDB_IMPORTER_H
#define ZQDB_IMPORTER_H

#include <database/csvimporter.h>

#include <QString>
#include <QStringList>

class QTemporaryFile;
class QTextStream;

namespace Zqdb {

// The import command: checks the source and the target, then lets the library import, never
// mixing a new import into an existing database unless the user asked for it.
class Importer
{
public:
    enum Mode { NewOnly, Replace, InPlace };

    struct Options
    {
        bool csv = false; // RFC 4180 through CsvImporter
        QString separator = QStringLiteral(",");
        bool separatorSet = false;
        Database::CsvImporter::Encoding encoding = Database::CsvImporter::Encoding::PerLine;
        bool encodingSet = false;
        Mode mode = NewOnly;
    };

    Importer(const Options &options, QTextStream &err);

    // source may be "-" for standard input. Returns an ExitCode.
    int run(const QString &source, const QString &target);

private:
    int fail(const QString &message); // reports, returns Failure
    bool refuse(const QString &message) { return !fail(message); }
    // The file to import (standard input is copied to stdinCopy first); false once reported.
    bool openSource(const QString &source, QTemporaryFile &stdinCopy, QString *path,
                    bool *spreadsheet);
    bool checkTarget(const QString &target);
    void adviseOnText(const QString &path, const QString &shownName);
    // Warns when the line rule drops empty fields or splits quoted ones, which --csv keeps.
    void warnOfLineRuleChanges(const QString &path);
    void explainFailure(const QString &log, const QString &source, const QString &sourcePath,
                        const QString &target);
    bool checkColumns(const QString &source, bool spreadsheet, const QString &target);
    QStringList keptTables(const QString &source, bool spreadsheet) const;

    Options m_options;
    QTextStream &m_err;
    QStringList m_tablesBefore;
};

} // namespace Zqdb

#endif // ZQDB_IMPORTER_H
