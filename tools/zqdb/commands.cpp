#include "zqdb.h"

#include <core/settings.h>
#include <database/cataloguesession.h>
#include <database/databaseexport.h>
#include <database/databasehandler.h>
#include <database/databasemanager.h>
#include <database/memorydatabasemanager.h>
#include <database/progressscope.h>
#include <database/rowblockreader.h>
#include <database/rowtextwriter.h>
#include <database/textfilesurvey.h>
#include <database/writecheck.h>

#include <QFile>
#include <QFileInfo>
#include <QTemporaryFile>
#include <QTextStream>

#include <cerrno>
#include <climits>
#include <cstring>

namespace Zqdb {

using Database::RowTextWriter;

namespace {

using Session = Database::CatalogueSession;

// The database file a catalogued name or, without a session, a path stands for; empty once err
// says why not.
QString checkedPath(Session *session, const char *command, const QString &database,
                    QTextStream &err, QString *name = nullptr)
{
    const QString resolved = session ? session->resolve(database) : database;
    if (name)
        *name = resolved;
    const QString path
            = session && !resolved.isEmpty() ? session->catalogue()->path(resolved) : resolved;
    if (resolved.isEmpty() && QFileInfo(database).isDir())
        fail(err, command, tr("'%1' is a directory, not a database file.").arg(shown(database)));
    else if (resolved.isEmpty())
        fail(err, command,
             tr("no database named '%1' in the catalogue, and no such file. Run 'zqdb list' to "
                "see the catalogue.")
                     .arg(database));
    else if (!Database::DatabaseFileSurvey::looksLikeSqlite(path))
        fail(err, command, tr("'%1' is not an SQLite database.").arg(shown(path)));
    else
        return path;
    return QString();
}

// Resolves a name or path to an open handler, or says why not. Returns the catalogue name.
QString openDatabase(Session &session, const char *command, const QString &database,
                     Database::DatabaseHandler **handler, QTextStream &err, bool fieldTypes = false)
{
    QString name;
    const QString path = checkedPath(&session, command, database, err, &name);
    if (path.isEmpty())
        return QString();
    *handler = session.open(name, fieldTypes);
    if (*handler && (*handler)->isDatabaseOpen())
        return name;
    fail(err, command, tr("cannot open '%1' as an SQLite database.").arg(shown(path)));
    return QString();
}

// Puts what was written as data out before a status line follows on standard error; false,
// with the reason on err, when standard output refused it.
bool flushData(const char *command, QTextStream &out, QTextStream &err)
{
    errno = 0;
    out.flush();
    auto *file = qobject_cast<QFileDevice *>(out.device());
    const bool flushed = !file || file->flush(); // even after a failed write: errno says why
    if (flushed && out.status() == QTextStream::Ok)
        return true;
    const QString reason = errno != 0 ? QString::fromLocal8Bit(std::strerror(errno))
            : file && file->error() != QFileDevice::NoError ? file->errorString()
                                                            : tr("the write failed");
    fail(err, command, tr("cannot write to standard output: %1.").arg(reason));
    return false;
}

// Writes what the printer holds back, then standard output's buffer; false once err says why not.
bool finishPrinting(RowTextWriter &printer, const char *command, QTextStream &out, QTextStream &err)
{
    if (printer.finish())
        return flushData(command, out, err);
    fail(err, command, tr("cannot write to standard output: %1.").arg(printer.errorString()));
    return false;
}

} // namespace

int fail(QTextStream &err, const char *command, const QString &message, int code)
{
    err << "zqdb " << command << ": " << message << '\n';
    return code;
}

int listDatabases(QTextStream &out, QTextStream &err)
{
    Session session;
    Database::DatabaseManager *manager = session.catalogue();
    const QStringList names = manager->names();
    if (names.isEmpty()) {
        const Core::Settings &settings = Core::Settings::instance();
        const auto where = [](const QString &path) {
            return QFileInfo(path).isDir() ? QStringLiteral("'%1'").arg(shown(path))
                                           : tr("'%1' (no such directory)").arg(shown(path));
        };
        err << tr("No databases matching '%1' in the system directory %2 or the user directory "
                  "%3 (set them with --sys-dir and --user-dir).")
                        .arg(settings.dbFileSuffixWithFilter(), where(settings.dbSysDirPath()),
                             where(settings.dbUsrDirPath()))
            << '\n';
        return Success;
    }
    int width = 0;
    for (const QString &name : names)
        width = qMax(width, RowTextWriter::displayWidth(name));
    for (const QString &name : names) {
        const char marker = name == manager->getDefaultDbName() ? '*' : ' ';
        out << marker << ' ' << name
            << QString(width - RowTextWriter::displayWidth(name), QLatin1Char(' ')) << "  "
            << shown(manager->path(name)) << '\n';
    }
    return flushData("list", out, err) ? Success : Failure;
}

int showInfo(const QString &database, QTextStream &out, QTextStream &err)
{
    Session session;
    Database::DatabaseHandler *handler = nullptr;
    const QString name = openDatabase(session, "info", database, &handler, err, true);
    if (name.isEmpty())
        return Failure;
    const QString path = session.catalogue()->path(name);
    QStringList tables = handler->getTables();
    tables.removeAll(QStringLiteral("sqlite_sequence"));
    out << tr("Database:") << ' ' << name << '\n';
    out << tr("File:") << "     " << shown(path) << '\n';
    out << tr("Tables:") << "   "
        << (tables.isEmpty() ? tr("none") : tables.join(QLatin1String(", "))) << '\n';
    out << tr("Records:") << "  " << handler->getTableRecordCount() << '\n';
    const QStringList fields = handler->getFieldNames();
    const auto types = handler->getFieldTypes();
    if (!fields.isEmpty()) {
        QStringList declared = Database::DatabaseFileSurvey::declaredTypes(path, handler->tableName());
        if (declared.size() == fields.size() + 1) // the hidden "id" column
            declared.removeFirst();
        out << tr("Fields of %1:").arg(handler->tableName()) << '\n';
        out.flush();
        RowTextWriter printer(out.device(), RowTextWriter::Aligned,
                           {tr("#"), tr("field"), tr("SQL type"), tr("Qt type")});
        for (int i = 0; i < fields.size(); ++i) {
            const int type = int(types.value(i)); // QVariant::Invalid (0) when unknown
            printer.addRow(QStringList{QString::number(i + 1), fields.at(i), declared.value(i),
                                       type == QMetaType::UnknownType
                                               ? tr("unknown")
                                               : QLatin1String(QMetaType(type).name())});
        }
        return finishPrinting(printer, "info", out, err) ? Success : Failure;
    }
    return flushData("info", out, err) ? Success : Failure;
}

int catRows(const QString &database, const CatOptions &options, QTextStream &out, QTextStream &err)
{
    Session session;
    Database::DatabaseHandler *handler = nullptr;
    const QString name = openDatabase(session, "cat", database, &handler, err);
    if (name.isEmpty())
        return Failure;
    const QStringList fields = handler->getFieldNames();
    if (fields.isEmpty())
        return fail(err, "cat", tr("'%1' has no table to read.").arg(name));
    QList<int> selected;
    for (const QString &column : options.columns) {
        bool isNumber = false;
        const int number = column.trimmed().toInt(&isNumber);
        const int index = isNumber ? number - 1 : fields.indexOf(column.trimmed());
        if (index < 0 || index >= fields.size())
            return fail(err, "cat",
                        tr("no field '%1' in %2; its fields are %3.")
                                .arg(column, name, fields.join(QLatin1String(", "))),
                        Usage);
        selected << index;
    }
    if (selected.isEmpty())
        for (int i = 0; i < fields.size(); ++i)
            selected << i;

    const QString databasePath = session.catalogue()->path(name);
    const bool toFile = options.output != QLatin1String("-");
    const QString problem
            = toFile ? cannotWrite(options.output, false, databasePath) : QString();
    if (!problem.isEmpty())
        return fail(err, "cat", problem);

    QStringList header;
    for (int index : qAsConst(selected))
        header << fields.at(index);
    if (!options.csv)
        header.prepend(tr("row"));
    const qint64 total = handler->getTableRecordCount();
    const qint64 end = options.from >= total
            ? options.from
            : options.from + qMin<qint64>(options.count, total - options.from);
    Database::RowBlockReader reader;
    if (!reader.setHandler(*handler))
        return fail(
                err, "cat",
                tr("cannot read '%1': %2.")
                        .arg(shown(databasePath), tr("it does not read as an SQLite database")));
    // The output file is truncated only once the rows can be read.
    QFile file(options.output);
    if (toFile && !file.open(QIODevice::WriteOnly | QIODevice::Truncate))
        return fail(err, "cat",
                    tr("cannot write '%1': %2.").arg(shown(options.output), file.errorString()));
    out.flush();
    RowTextWriter printer(toFile ? &file : out.device(),
                       options.csv ? RowTextWriter::Csv : RowTextWriter::Aligned, header);
    QStringList line;
    using Cell = Database::RowBlockReader::TextCell;
    reader.readText(options.from, end, selected, [&](qint64 row, const Cell *cells) {
        if (options.csv) {
            printer.addRow(cells, selected.size());
            return true;
        }
        line = QStringList{QString::number(row)};
        for (int c = 0; c < selected.size(); ++c)
            line << QString::fromUtf8(cells[c].data, cells[c].size);
        printer.addRow(line);
        return true;
    });
    if (!printer.finish() || (toFile && !file.flush()))
        return fail(err, "cat",
                    tr("cannot write '%1': %2.")
                            .arg(toFile ? shown(options.output) : tr("standard output"),
                                 printer.errorString().isEmpty() ? file.errorString()
                                                                 : printer.errorString()));
    if (!flushData("cat", out, err))
        return Failure;
    if (options.from >= total && total > 0)
        fail(err, "cat",
             tr("--from %1 is past the last row, %2: no rows to print.")
                     .arg(options.from)
                     .arg(total - 1));
    else if (!options.csv)
        err << tr("(rows %1 to %2 of %3)")
                        .arg(options.from)
                        .arg(qMax<qint64>(options.from, end) - 1)
                        .arg(total)
            << '\n';
    return Success;
}

int exportCsv(const QString &database, const QString &csvFile, QTextStream &out, QTextStream &err)
{
    QString path;
    if (QFileInfo(database).isFile()) {
        path = checkedPath(nullptr, "export", database, err);
    } else {
        Session session; // only a name needs the catalogue
        path = checkedPath(&session, "export", database, err);
    }
    if (path.isEmpty())
        return Failure;
    const auto exported = Database::DatabaseFileSurvey::exportedTable(path);
    const QString &table = exported.name;
    const qint64 rows = exported.rows;
    if (table.isEmpty())
        return fail(err, "export", tr("'%1' holds no table to export.").arg(shown(path)));
    // Standard output gets the file once it is complete.
    const bool toStandardOutput = csvFile == QLatin1String("-");
    ProgressBar::installInterruptHandler();
    QTemporaryFile pipeCopy(QDir::tempPath() + QLatin1String("/zqdb-export-XXXXXX"));
    QString target = csvFile;
    if (toStandardOutput) {
        if (!pipeCopy.open())
            return fail(err, "export",
                        tr("cannot write '%1': %2.")
                                .arg(shown(pipeCopy.fileName()), pipeCopy.errorString()));
        target = pipeCopy.fileName();
        ProgressBar::removeOnInterrupt(target);
    }
    const QString problem
            = toStandardOutput ? QString() : cannotWrite(csvFile, false, path);
    if (!problem.isEmpty())
        return fail(err, "export", problem);
    err.flush();
    bool ok = false;
    {
        ProgressBar bar(tr("exporting"), ProgressBar::Rows);
        const Database::ProgressScope scope(
                [&bar](qint64 done, qint64 total) { return bar.update(done, total); });
        ok = Database::DatabaseExport::toCSV(path, target);
    }
    if (!ok && ProgressBar::interrupted())
        return fail(err, "export", tr("cancelled."));
    const QString where
            = toStandardOutput ? tr("standard output") : QStringLiteral("'%1'").arg(shown(csvFile));
    // Looked at, not opened: opening could create the file the export did not write.
    const QString written = ok ? QString() : Database::WriteCheck::problem(target, false);
    if (!ok)
        return fail(
                err, "export",
                tr("exporting '%1' to %2 failed: %3.")
                        .arg(shown(path), where,
                             written.isEmpty() ? tr("the database could not be read") : written));
    if (toStandardOutput) {
        out.flush();
        errno = 0;
        QString error;
        QFile csv(target); // by name: the exporter may have put a new file in its place
        if (!csv.open(QIODevice::ReadOnly)
            || !Database::TextFileSurvey::copy(csv, *out.device(), &error))
            return fail(err, "export",
                        tr("cannot write to standard output: %1.")
                                .arg(errno != 0 ? QString::fromLocal8Bit(std::strerror(errno))
                                                : out.device()->errorString()));
    }
    if (!flushData("export", out, err))
        return Failure;
    // A table that cannot be counted (a damaged database) has no row count to report.
    const QString count = rows < 0 ? tr("an unknown number of rows")
                                      : tr("%n row(s)", nullptr, int(qMin<qint64>(rows, INT_MAX)));
    if (exported.tableCount > 1)
        err << tr("Exported %1 of %2, the first of %3 tables (export writes only the first), "
                  "to %4 (GBK).")
                        .arg(count, table)
                        .arg(exported.tableCount)
                        .arg(where)
            << '\n';
    else
        err << tr("Exported %1 of %2 to %3 (GBK).").arg(count, table, where) << '\n';
    if (rows < 0)
        fail(err, "export",
             tr("warning: the rows of %1 could not be counted; check %2.").arg(table, where));
    return Success;
}

QString utf8Warning(const QString &command, const QString &source)
{
    return tr("zqdb %1: warning: %2 looks like UTF-8 but is read as GB2312 (every line without a "
              "byte-order mark); add --encoding utf-8 to read it as UTF-8.")
            .arg(command, source);
}

int walkMemoryTable(const QString &linesFile, bool utf8, bool encodingSet, QTextStream &out,
                    QTextStream &err)
{
    if (QFileInfo(linesFile).isDir())
        return fail(err, "memory",
                    tr("'%1' is a directory, not a file of lines.").arg(shown(linesFile)));
    QString error;
    const QStringList lines = Database::TextFileSurvey::readLines(linesFile, utf8, &error);
    if (!error.isEmpty())
        return fail(err, "memory", tr("cannot read '%1': %2.").arg(shown(linesFile), error));
    if (!encodingSet && Database::TextFileSurvey::looksLikeUtf8(linesFile))
        err << utf8Warning(QStringLiteral("memory"), QStringLiteral("'%1'").arg(shown(linesFile)))
            << Qt::endl; // before the rows it is about

    Database::MemoryDatabaseManager::init();
    Database::MemoryDatabaseManager *memory = Database::MemoryDatabaseManager::instance();
    int result = Success;
    if (!memory->generateDatabase(QStringLiteral("TestTable"), lines)) {
        const QString reason = memory->getLastError();
        result = fail(err, "memory",
                      tr("cannot build the memory table from '%1': %2.")
                              .arg(linesFile,
                                   reason.isEmpty() ? tr("the file holds no \"@;!\"-joined values")
                                                    : reason));
    } else {
        const int columns = memory->getTableColumnsCount();
        QStringList header{tr("row")};
        for (int c = 1; c <= columns; ++c)
            header << QStringLiteral("column%1").arg(c);
        out.flush();
        RowTextWriter printer(out.device(), RowTextWriter::Aligned, header);
        // Read, step, test: visits every row once and stops after the last.
        memory->doReset();
        int row = 0;
        do {
            QStringList cells{QString::number(row++)};
            for (int c = 1; c <= columns; ++c)
                cells << memory->recordValue(c).toString();
            printer.addRow(cells);
            memory->doNext();
        } while (!memory->isEnd());
        if (!finishPrinting(printer, "memory", out, err))
            result = Failure;
        else
            err << tr("(%n input line(s))", nullptr, memory->getTableRowsCount()) << '\n';
    }
    Database::MemoryDatabaseManager::destruct();
    return result;
}

QStringList describeTables(const QList<Table> &tables)
{
    // Runs of three or more tables with the same row count take one line.
    QStringList lines;
    qint64 total = 0;
    for (int i = 0; i < tables.size();) {
        int last = i;
        while (last + 1 < tables.size() && tables.at(last + 1).rows == tables.at(i).rows)
            ++last;
        if (last - i < 2)
            last = i;
        const qint64 rows = tables.at(i).rows;
        const QString count = rows < 0 ? tr("unreadable") : tr("%n row(s)", nullptr, int(rows));
        if (last == i)
            lines << QStringLiteral("%1  %2").arg(tables.at(i).name, count);
        else
            lines << tr("%1 to %2  %3 each").arg(tables.at(i).name, tables.at(last).name, count);
        total += qMax<qint64>(rows, 0) * (last - i + 1);
        i = last + 1;
    }
    if (tables.size() > 1)
        lines << tr("%1 rows in %2 tables").arg(total).arg(tables.size());
    return lines;
}

QString nameList(const QStringList &names)
{
    if (names.size() <= 6)
        return names.join(QLatin1String(", "));
    return names.mid(0, 3).join(QLatin1String(", ")) + QLatin1String(", ..., ") + names.last();
}

QString cannotWrite(const QString &path, bool inDirectory, const QString &database)
{
    const QString problem = Database::WriteCheck::sameFile(path, database)
            ? tr("it is the database being read")
            : Database::WriteCheck::problem(path, inDirectory);
    return problem.isEmpty() ? problem : tr("cannot write '%1': %2.").arg(shown(path), problem);
}

} // namespace Zqdb
