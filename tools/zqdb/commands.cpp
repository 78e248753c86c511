#include "commands.h"
#include "databasefile.h"
#include "progressbar.h"
#include "rowprinter.h"
#include "translate.h"

#include <core/settings.h>
#include <database/databaseexport.h>
#include <database/databasehandler.h>
#include <database/databasehandlerfactory.h>
#include <database/databasemanager.h>
#include <database/memorydatabasemanager.h>
#include <database/progressscope.h>
#include <database/rowblockreader.h>
#include <database/textfilesurvey.h>

#include <QFile>
#include <QFileInfo>
#include <QSqlDatabase>
#include <QTemporaryFile>
#include <QTextStream>

#include <cerrno>
#include <climits>
#include <cstring>

// zqdb is a host application: it gives the library's reader identity a body.
namespace Database {
class DatabaseObject
{
};
} // namespace Database

namespace Zqdb {

namespace {

// Starts the catalogue and the handler factory for the lifetime of one command.
class Session
{
public:
    Session()
    {
        Database::DatabaseManager::init();
        Database::DatabaseHandlerFactory::init();
    }
    ~Session()
    {
        if (m_handler)
            Database::DatabaseHandlerFactory::instance()->unregistSqlDatabase(&m_reader);
        Database::DatabaseHandlerFactory::destruct();
        Database::DatabaseManager::destruct();
    }

    Database::DatabaseManager *catalogue() const { return Database::DatabaseManager::instance(); }

    // A catalogued name, or a database file given by path, which then joins the catalogue.
    QString resolve(const QString &nameOrPath) const
    {
        Database::DatabaseManager *manager = catalogue();
        if (manager->exists(nameOrPath))
            return nameOrPath;
        const QFileInfo file(nameOrPath);
        if (!file.isFile())
            return QString();
        const QString name = file.baseName();
        if (manager->path(name) != file.absoluteFilePath()) {
            manager->removeDatabase(name);
            manager->addDatabaseFile(file.absoluteFilePath());
        }
        return name;
    }

    Database::DatabaseHandler *open(const QString &name)
    {
        m_handler
                = Database::DatabaseHandlerFactory::instance()->registSqlDatabase(&m_reader, name);
        return m_handler;
    }

private:
    Database::DatabaseObject m_reader;
    Database::DatabaseHandler *m_handler = nullptr;
};

QStringList userTables(Database::DatabaseHandler *handler)
{
    QStringList tables = handler->getTables();
    tables.removeAll(QStringLiteral("sqlite_sequence"));
    return tables;
}

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
    else if (!DatabaseFile::looksLikeSqlite(path))
        fail(err, command, tr("'%1' is not an SQLite database.").arg(shown(path)));
    else
        return path;
    return QString();
}

// Resolves a name or path to an open handler, or says why not. Returns the catalogue name.
// fieldTypes opens the application's default connection, which the handler takes them from.
QString openDatabase(Session &session, const char *command, const QString &database,
                     Database::DatabaseHandler **handler, QTextStream &err, bool fieldTypes = false)
{
    QString name;
    const QString path = checkedPath(&session, command, database, err, &name);
    if (path.isEmpty())
        return QString();
    if (fieldTypes) {
        QSqlDatabase defaultConnection = QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"));
        defaultConnection.setDatabaseName(path);
        defaultConnection.open();
    }
    *handler = session.open(name);
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
bool finishPrinting(RowPrinter &printer, const char *command, QTextStream &out, QTextStream &err)
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
        width = qMax(width, RowPrinter::displayWidth(name));
    for (const QString &name : names) {
        const char marker = name == manager->getDefaultDbName() ? '*' : ' ';
        out << marker << ' ' << name
            << QString(width - RowPrinter::displayWidth(name), QLatin1Char(' ')) << "  "
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
    const QStringList tables = userTables(handler);
    out << tr("Database:") << ' ' << name << '\n';
    out << tr("File:") << "     " << shown(path) << '\n';
    out << tr("Tables:") << "   "
        << (tables.isEmpty() ? tr("none") : tables.join(QLatin1String(", "))) << '\n';
    out << tr("Records:") << "  " << handler->getTableRecordCount() << '\n';
    const QStringList fields = handler->getFieldNames();
    const auto types = handler->getFieldTypes();
    if (!fields.isEmpty()) {
        QStringList declared = DatabaseFile::declaredTypes(path, handler->tableName());
        if (declared.size() == fields.size() + 1) // the hidden "id" column
            declared.removeFirst();
        out << tr("Fields of %1:").arg(handler->tableName()) << '\n';
        out.flush();
        RowPrinter printer(out.device(), RowPrinter::Aligned,
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
            = toFile ? DatabaseFile::cannotWrite(options.output, false, databasePath) : QString();
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
    RowPrinter printer(toFile ? &file : out.device(),
                       options.csv ? RowPrinter::Csv : RowPrinter::Aligned, header);
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
    int tableCount = 0;
    qint64 rows = 0;
    const QString table = DatabaseFile::exportedTable(path, &tableCount, &rows);
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
            = toStandardOutput ? QString() : DatabaseFile::cannotWrite(csvFile, false, path);
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
    const QString written = ok ? QString() : DatabaseFile::writeProblem(target, false);
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
    const QString exported = rows < 0 ? tr("an unknown number of rows")
                                      : tr("%n row(s)", nullptr, int(qMin<qint64>(rows, INT_MAX)));
    if (tableCount > 1)
        err << tr("Exported %1 of %2, the first of %3 tables (export writes only the first), "
                  "to %4 (GBK).")
                        .arg(exported, table)
                        .arg(tableCount)
                        .arg(where)
            << '\n';
    else
        err << tr("Exported %1 of %2 to %3 (GBK).").arg(exported, table, where) << '\n';
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
        RowPrinter printer(out.device(), RowPrinter::Aligned, header);
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

} // namespace Zqdb
