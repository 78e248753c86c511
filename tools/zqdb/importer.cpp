#include "zqdb.h"

#include <core/xlsxreader.h>
#include <database/databasegenerator.h>
#include <database/progressscope.h>
#include <database/replacingimport.h>
#include <database/inplaceimport.h>
#include <database/textfilesurvey.h>
#include <database/xlsxtodbgenerator.h>

#include <QFile>
#include <QFileInfo>
#include <QScopedPointer>
#include <QTemporaryFile>
#include <QTextStream>

#include <climits>
#include <cstdio>
#include <sys/resource.h>
#include <unistd.h>

namespace Zqdb {

namespace {

using Encoding = Database::CsvImporter::Encoding;
using Database::TextFileSurvey;

// The lines under a "'...' now holds:" heading, one per table.
void listTables(QTextStream &err, const QList<Table> &tables, const char *indent)
{
    for (const QString &line : describeTables(tables))
        err << indent << line << '\n';
}

QString shownSeparator(const QString &separator)
{
    return separator == QLatin1String("\t") ? QStringLiteral("\\t") : separator;
}

} // namespace

Importer::Importer(const Options &options, QTextStream &err)
    : m_options(options)
    , m_err(err)
{ }

int Importer::fail(const QString &message)
{
    return Zqdb::fail(m_err, "import", message);
}

int Importer::run(const QString &source, const QString &target)
{
    ProgressBar::installInterruptHandler(); // before any temporary file is made
    Database::ImportSource input(source == QLatin1String("-") ? QString() : source);
    if (!openSource(source, input))
        return Failure;
    const QString sourcePath = input.path();
    const bool spreadsheet = input.isSpreadsheet();
    // The source as messages name it: a quoted path, or standard input.
    const QString sourceName = source == QLatin1String("-")
            ? tr("standard input")
            : QStringLiteral("'%1'").arg(shown(source));
    if (spreadsheet && (m_options.separatorSet || m_options.encodingSet || m_options.csv)) {
        fail(tr("--csv, --separator and --encoding apply to text files, not to spreadsheets."));
        m_err << tr("Try 'zqdb import --help'.") << '\n';
        return Usage;
    }
    if (!checkTarget(target))
        return Failure;

    // CSV, and encodings beyond the library importer's own rule, go through CsvImporter; its
    // line rule splits as the library's importer does.
    const bool csvImporter = !spreadsheet
            && (m_options.csv || m_options.encoding == Encoding::Gb18030
                || m_options.encoding == Encoding::Automatic);
    // A text source in UTF-8 reaches the importer with a byte-order mark on every line.
    QTemporaryFile utf8Copy(QDir::tempPath() + QLatin1String("/zqdb-utf8-XXXXXX"));
    QString importPath = sourcePath;
    if (!spreadsheet && !csvImporter && m_options.encoding == Encoding::Utf8) {
        QString error;
        if (utf8Copy.open())
            ProgressBar::removeOnInterrupt(utf8Copy.fileName());
        if (!utf8Copy.isOpen()
            || !TextFileSurvey::writeUtf8Copy(sourcePath, utf8Copy.fileName(), &error))
            return fail(tr("cannot prepare a UTF-8 copy of %1 in '%2': %3.")
                                .arg(sourceName, shown(QDir::tempPath()),
                                     error.isEmpty() ? utf8Copy.errorString() : error));
        importPath = utf8Copy.fileName();
    }
    if (!spreadsheet && !csvImporter)
        adviseOnText(importPath, sourceName);
    if (!spreadsheet && !m_options.csv)
        warnOfLineRuleChanges(importPath);
    // The head of a CSV file tells nothing certain of its width: its rows may span lines.
    if (m_options.mode == InPlace && !csvImporter && !checkColumns(importPath, spreadsheet, target))
        return Failure;

    // --replace builds the new database beside the target and swaps it in only on success.
    const bool targetExisted = QFileInfo::exists(target);
    QScopedPointer<Database::ReplacingImport> replacement;
    QString workPath = target;
    if (m_options.mode == Replace) {
        replacement.reset(new Database::ReplacingImport(target));
        if (!replacement->begin())
            return fail(tr("cannot create a new file beside '%1': %2.")
                                .arg(shown(target), replacement->errorString()));
        workPath = replacement->workFile();
        ProgressBar::removeOnInterrupt(workPath);
        ProgressBar::removeOnInterrupt(workPath + QLatin1String("-journal"));
    }

    m_err.flush();
    bool ok = false;
    QString log;
    {
        ProgressBar bar(tr("importing"), spreadsheet ? ProgressBar::Rows : ProgressBar::Bytes);
        const Database::ProgressScope scope(
                [&bar](qint64 done, qint64 total) { return bar.update(done, total); });
        if (spreadsheet) {
            Database::XlsxToDBGenerator generator;
            ok = generator.importOriginalFile(importPath, workPath);
            log = generator.getLog();
            // The importer's log says only that the file was refused; the reader says why.
            Core::XlsxReader reader;
            if (!ok && log == QObject::tr("Cannot open file %1 for reading.").arg(importPath)
                && !reader.check(importPath))
                log += QLatin1Char('\n') + reader.errorString();
        } else if (csvImporter) {
            using Csv = Database::CsvImporter;
            Csv importer({m_options.csv ? Csv::Format::Rfc4180 : Csv::Format::LineRule,
                          m_options.encoding, m_options.separator});
            ok = importer.importFile(importPath, workPath);
            log = importer.log();
        } else {
            Database::DatabaseGenerator generator;
            generator.setSeparator(m_options.separator);
            ok = generator.importOriginalFile(importPath, workPath);
            log = generator.getLog();
        }
    }
    if (!ok && ProgressBar::interrupted()) {
        if (replacement)
            return fail(targetExisted
                                ? tr("cancelled; '%1' was left as it was.").arg(shown(target))
                                : tr("cancelled; no file '%1' was created.").arg(shown(target)));
        fail(tr("cancelled; the batch being written was rolled back. '%1' now holds:")
                     .arg(shown(target)));
        listTables(m_err, Database::DatabaseFileSurvey::tables(target), "  ");
        return Failure;
    }
    if (!ok) {
        explainFailure(log, sourceName, importPath, replacement ? QString() : target);
        if (replacement)
            m_err << (targetExisted ? tr("'%1' was left as it was.")
                                    : tr("No file '%1' was created."))
                             .arg(shown(target))
                  << '\n';
        return Failure;
    }
    if (replacement && !replacement->commit())
        return fail(tr("cannot put the new database in place of '%1': %2.")
                            .arg(shown(target), replacement->errorString()));

    if (ProgressBar::interrupted())
        fail(tr("Ctrl-C came too late to stop the import."));
    m_err << tr("Imported %1 into '%2', which now holds:").arg(sourceName, shown(target)) << '\n';
    listTables(m_err, Database::DatabaseFileSurvey::tables(target), "  ");
    if (m_options.mode == InPlace && !csvImporter) {
        const QStringList kept = Database::InPlaceImport::keptTables(
                m_tablesBefore,
                Database::ImportSource::rowCount(importPath, spreadsheet, m_options.separator));
        if (!kept.isEmpty())
            fail(tr("note: %n table(s) from before stay beside the new rows and count as records "
                    "of '%1': %2. --replace imports into a fresh file.",
                    nullptr, kept.size())
                         .arg(shown(target), nameList(kept)));
    }
    return Success;
}

bool Importer::openSource(const QString &source, Database::ImportSource &input)
{
    if (source == QLatin1String("-")) {
        if (::isatty(STDIN_FILENO) == 1) {
            m_err << tr("zqdb import: reading the lines to import from the terminal; end them "
                        "with Ctrl-D.")
                  << Qt::endl;
        }
        const bool staged
                = input.createStage(QDir::tempPath() + QLatin1String("/zqdb-stdin-XXXXXX"));
        if (staged)
            ProgressBar::removeOnInterrupt(input.stageFile());
        QFile in;
        const bool read = in.open(stdin, QIODevice::ReadOnly);
        if (!staged || !read || !input.stage(in))
            return refuse(tr("cannot keep standard input in '%1': %2.")
                                  .arg(shown(input.stageFile()),
                                       read ? input.errorString() : in.errorString()));
    } else {
        const QFileInfo info(source);
        QFile probe(source);
        if (!info.exists())
            return refuse(tr("cannot read '%1': no such file.").arg(shown(source)));
        if (info.isDir())
            return refuse(tr("'%1' is a directory; give the text file or spreadsheet to import.")
                                  .arg(shown(source)));
        if (!probe.open(QIODevice::ReadOnly))
            return refuse(tr("cannot read '%1': %2.").arg(shown(source), probe.errorString()));
    }
    return true;
}

bool Importer::checkTarget(const QString &target)
{
    const QFileInfo info(target);
    if (info.isDir())
        return refuse(tr("'%1' is a directory; give the path of the database file to write.")
                              .arg(shown(target)));
    const bool exists = info.exists();
    if (exists && !Database::DatabaseFileSurvey::looksLikeSqlite(target) && m_options.mode != Replace)
        return refuse(tr("'%1' exists and is not an SQLite database; give a new file name, or "
                         "--replace to overwrite it.")
                              .arg(shown(target)));
    if (exists && Database::DatabaseFileSurvey::looksLikeSqlite(target)) {
        const QList<Table> tables = Database::DatabaseFileSurvey::tables(target);
        qint64 rows = 0;
        for (const Table &table : tables) {
            m_tablesBefore << table.name;
            rows += qMax<qint64>(table.rows, 0);
        }
        if (!tables.isEmpty() && m_options.mode == NewOnly) {
            fail(tr("'%1' already holds %n table(s) (%2; %3 rows). Nothing was changed. Choose:",
                    nullptr, tables.size())
                         .arg(shown(target), nameList(m_tablesBefore))
                         .arg(rows));
            m_err << tr("  --replace   import into a new file that takes the place of '%1' only "
                        "when the import succeeds")
                             .arg(shown(target))
                  << '\n'
                  << tr("  --in-place  import into '%1' as it is: table1, table2, ... are emptied "
                        "and refilled, its other tables are kept")
                             .arg(shown(target))
                  << '\n';
            return false;
        }
    }
    const QString problem = cannotWrite(target, true);
    return problem.isEmpty() || refuse(problem);
}

void Importer::adviseOnText(const QString &path, const QString &shownName)
{
    if (!m_options.encodingSet && TextFileSurvey::looksLikeUtf8(path))
        m_err << utf8Warning(QStringLiteral("import"), shownName) << '\n';
    const QList<TextFileSurvey::HeadLine> head = TextFileSurvey::head(path, m_options.separator);
    for (const TextFileSurvey::HeadLine &line : head)
        if (line.hasSeparator)
            return;
    if (head.isEmpty())
        return;
    QString hint = tr("zqdb import: hint: the separator '%1' occurs in none of the first %n "
                      "line(s), so every line becomes one field.",
                      nullptr, head.size())
                           .arg(shownSeparator(m_options.separator));
    int fields = 0;
    const QString better
            = Database::ImportSource::suggestedSeparator(path, m_options.separator, &fields);
    if (!better.isEmpty())
        hint += QLatin1Char(' ')
                + tr("Its lines split into %1 fields at '%2': try --separator '%2'.")
                          .arg(fields)
                          .arg(shownSeparator(better));
    m_err << hint << '\n';
}

void Importer::warnOfLineRuleChanges(const QString &path)
{
    const TextFileSurvey::LineRuleChanges changes
            = TextFileSurvey::lineRuleChanges(path, m_options.separator, m_options.encoding);
    if (changes.lines == 0)
        return;
    m_err << tr("zqdb import: warning: the line rule changes the data of %n line(s), the first "
                "being line %1:",
                nullptr, int(qMin<qint64>(changes.lines, INT_MAX)))
                     .arg(changes.firstLine)
          << '\n';
    if (changes.droppedEmpty > 0)
        m_err << "  "
              << tr("%1 line(s) with empty fields, which are dropped: the values after them "
                    "move left.")
                         .arg(changes.droppedEmpty)
              << '\n';
    if (changes.splitQuoted > 0)
        m_err << "  "
              << tr("%1 line(s) with a quoted field holding '%2', which is split there.")
                         .arg(changes.splitQuoted)
                         .arg(shownSeparator(m_options.separator))
              << '\n';
    m_err << "  " << tr("--csv reads the file as CSV and keeps them.") << '\n';
}

void Importer::explainFailure(const QString &log, const QString &source, const QString &sourcePath,
                              const QString &target)
{
    fail(tr("importing %1 failed:").arg(source));
    const QStringList lines = log.split(QLatin1Char('\n'), Qt::SkipEmptyParts);
    for (const QString &line : lines)
        m_err << "  " << line << '\n';
    if (lines.isEmpty())
        m_err << "  "
              << tr("the importer kept no message: a batch of 50,000 rows failed and a later "
                    "batch went in, which clears the importer's log.")
              << '\n';
    if (log.contains(QLatin1String("Content error"))) {
        // The check compares the first six non-empty lines: show which of them differ.
        const QList<TextFileSurvey::HeadLine> head
                = TextFileSurvey::head(sourcePath, m_options.separator);
        QStringList counts;
        for (const TextFileSurvey::HeadLine &line : head)
            counts << tr("line %1: %n field(s)", nullptr, line.fields).arg(line.number);
        m_err << "  "
              << tr("The first %n non-empty line(s) must split into as many fields at '%1':",
                    nullptr, head.size())
                         .arg(shownSeparator(m_options.separator))
              << ' ' << counts.join(QLatin1String(", ")) << '.' << '\n';
    }
    rlimit limit;
    const bool writeFailed = log.contains(QLatin1String("I/O"), Qt::CaseInsensitive)
            || log.contains(QLatin1String("full"), Qt::CaseInsensitive);
    if (writeFailed && ::getrlimit(RLIMIT_FSIZE, &limit) == 0 && limit.rlim_cur != RLIM_INFINITY)
        m_err << "  "
              << tr("Files may not grow past %1 bytes here (ulimit -f).")
                         .arg(quint64(limit.rlim_cur))
              << '\n';
    // Batches written before the failure stay: say what the file holds now.
    const QList<Table> tables
            = target.isEmpty() ? QList<Table>() : Database::DatabaseFileSurvey::tables(target);
    if (!tables.isEmpty()) {
        m_err << "  " << tr("'%1' now holds:").arg(shown(target)) << '\n';
        listTables(m_err, tables, "    ");
    }
}

bool Importer::checkColumns(const QString &source, bool spreadsheet, const QString &target)
{
    // Rows go into an existing table1 only when it has as many columns as the source: otherwise
    // every insert fails after the table was emptied.
    if (!m_tablesBefore.contains(QStringLiteral("table1")))
        return true;
    const int existing = Database::InPlaceImport::valueColumns(target);
    const int incoming
            = Database::ImportSource::columnCount(source, spreadsheet, m_options.separator);
    return incoming <= 0 || existing == incoming
            || refuse(tr("table1 of '%1' has %2 value column(s) but the source has %3: an in-place "
                         "import "
                         "would empty table1 and then fail. Nothing was changed; use --replace to "
                         "start anew.")
                              .arg(shown(target))
                              .arg(existing)
                              .arg(incoming));
}

} // namespace Zqdb
