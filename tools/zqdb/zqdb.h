#ifndef ZQDB_ZQDB_H
#define ZQDB_ZQDB_H

#include <database/csvimporter.h>
#include <database/databasefilesurvey.h>
#include <database/importsource.h>

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QList>
#include <QString>
#include <QStringList>

class QTextStream;

// What zqdb's commands share: messages, the commands, and how they speak of files.
namespace Zqdb {

// zqdb's messages share one translation context.
inline QString tr(const char *text, const char *disambiguation = nullptr, int n = -1)
{
    return QCoreApplication::translate("zqdb", text, disambiguation, n);
}

// A path as the user's shell would show it.
inline QString shown(const QString &path)
{
    return QDir::toNativeSeparators(path);
}

enum ExitCode { Success = 0, Failure = 1, Usage = 2 };

struct CatOptions
{
    qint64 from = 0;
    qint64 count = 20;
    QStringList columns;
    bool csv = false;
    QString output = QStringLiteral("-"); // "-": standard output
};

// Writes "zqdb COMMAND: message" as a line to err; returns code.
int fail(QTextStream &err, const char *command, const QString &message, int code = Failure);

// Each command writes its data to out and everything else (status, warnings, complaints) to
// err, and returns an ExitCode.
int listDatabases(QTextStream &out, QTextStream &err);
int showInfo(const QString &database, QTextStream &out, QTextStream &err);
int catRows(const QString &database, const CatOptions &options, QTextStream &out, QTextStream &err);
int exportCsv(const QString &database, const QString &csvFile, QTextStream &out, QTextStream &err);
// The warning for a text source that looks like UTF-8 but is read as GB2312; source is shown.
QString utf8Warning(const QString &command, const QString &source);
int walkMemoryTable(const QString &linesFile, bool utf8, bool encodingSet, QTextStream &out,
                    QTextStream &err);

// How messages speak of database files and of files about to be written; what the files hold
// is the library's DatabaseFileSurvey.
using Table = Database::DatabaseFileSurvey::Table;
// "table1  50000 row(s)", one line per table.
QStringList describeTables(const QList<Table> &tables);
// "table1, table2, table3, ..., table30": the names, shortened when there are many.
QString nameList(const QStringList &names);
// "cannot write 'path': why." when path cannot be written or is the database being read
// (when given); an empty string when nothing stands in the way.
QString cannotWrite(const QString &path, bool inDirectory, const QString &database = QString());

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
    // The file to import (standard input is staged in input first); false once reported.
    bool openSource(const QString &source, Database::ImportSource &input);
    bool checkTarget(const QString &target);
    void adviseOnText(const QString &path, const QString &shownName);
    // Warns when the line rule drops empty fields or splits quoted ones, which --csv keeps.
    void warnOfLineRuleChanges(const QString &path);
    void explainFailure(const QString &log, const QString &source, const QString &sourcePath,
                        const QString &target);
    bool checkColumns(const QString &source, bool spreadsheet, const QString &target);

    Options m_options;
    QTextStream &m_err;
    QStringList m_tablesBefore;
};


// Draws one self-updating line on standard error while an import or export reports progress,
// and turns Ctrl-C into a cancel request that the operation sees at its next report.
class ProgressBar
{
public:
    enum Unit { Bytes, Rows };

    // The bar is drawn only when standard error is a terminal; cancelling works either way.
    ProgressBar(const QString &label, Unit unit);
    ~ProgressBar();

    // The ProgressScope callback: draws (done, total) and returns false once Ctrl-C was pressed.
    bool update(qint64 done, qint64 total);
    // Clears the bar's line so that the next message starts on a clean line.
    void clear();

    // Until a bar exists, Ctrl-C deletes the files registered below and ends the process; from
    // then on the first Ctrl-C asks the running operation to stop and a second one does that.
    // Install it before the first temporary file is made.
    static void installInterruptHandler();
    // Registers a file (at most 8) that Ctrl-C deletes before it ends the process.
    static void removeOnInterrupt(const QString &path);
    static bool interrupted();

private:
    QString amount(double value) const;

    QString m_label;
    Unit m_unit;
    bool m_draw;
    bool m_drawn = false;
    QElapsedTimer m_clock;
    qint64 m_lastDrawMs = -1000;
};

} // namespace Zqdb

#endif // ZQDB_ZQDB_H
