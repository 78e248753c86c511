#include "commands.h"

#include <database/databaseexport.h>
#include <database/databasegenerator.h>
#include <database/databasehandler.h>
#include <database/databasehandlerfactory.h>
#include <database/databasemanager.h>
#include <database/memorydatabasemanager.h>
#include <database/xlsxtodbgenerator.h>

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSqlDatabase>
#include <QSqlQuery>
#include <QTextStream>

// zqdb is a host application: it gives the library's reader identity a body.
namespace Database {
class DatabaseObject
{
};
} // namespace Database

namespace Zqdb {

namespace {

constexpr int RowsPerTable = 50000;
const QString SummaryConnection = QStringLiteral("zqdb-summary");

QString tr(const char *text, const char *disambiguation = nullptr, int n = -1)
{
    return QCoreApplication::translate("zqdb", text, disambiguation, n);
}

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

QString unknownDatabase(const QString &command, const QString &nameOrPath)
{
    return tr("zqdb %1: no database named '%2' in the catalogue, and no such file. "
              "Run 'zqdb list' to see the catalogue.")
            .arg(command, nameOrPath);
}

// SQLite opens any file lazily, so a file that is not a database must be recognised here.
bool looksLikeSqlite(const QString &path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return false;
    const QByteArray header = file.read(16);
    return header.isEmpty() || header == QByteArray("SQLite format 3", 16);
}

QString notADatabase(const QString &command, const QString &path)
{
    return tr("zqdb %1: '%2' is not an SQLite database.")
            .arg(command, QDir::toNativeSeparators(path));
}

QStringList userTables(Database::DatabaseHandler *handler)
{
    QStringList tables = handler->getTables();
    tables.removeAll(QStringLiteral("sqlite_sequence"));
    return tables;
}

// Terminal cells a text takes: East Asian wide and full-width characters take two.
int displayWidth(const QString &text)
{
    int width = 0;
    for (const uint code : text.toUcs4()) {
        const bool wide = (code >= 0x1100 && code <= 0x115f) || (code >= 0x2e80 && code <= 0xa4cf)
                || (code >= 0xac00 && code <= 0xd7a3) || (code >= 0xf900 && code <= 0xfaff)
                || (code >= 0xfe30 && code <= 0xfe4f) || (code >= 0xff00 && code <= 0xff60)
                || (code >= 0xffe0 && code <= 0xffe6) || (code >= 0x20000 && code <= 0x3fffd);
        width += wide ? 2 : 1;
    }
    return width;
}

// Prints rows as columns padded to their widest cell.
void printAligned(QTextStream &out, const QStringList &header, const QList<QStringList> &rows)
{
    QVector<int> widths(header.size());
    for (int c = 0; c < header.size(); ++c)
        widths[c] = displayWidth(header.at(c));
    for (const QStringList &row : rows)
        for (int c = 0; c < row.size() && c < widths.size(); ++c)
            widths[c] = qMax(widths[c], displayWidth(row.at(c)));
    auto printRow = [&](const QStringList &row) {
        QString line;
        for (int c = 0; c < row.size(); ++c) {
            if (c > 0)
                line += QLatin1String("  ");
            line += row.at(c);
            if (c + 1 < row.size())
                line += QString(widths[c] - displayWidth(row.at(c)), QLatin1Char(' '));
        }
        out << line << '\n';
    };
    printRow(header);
    QStringList rule;
    for (int width : widths)
        rule << QString(width, QLatin1Char('-'));
    printRow(rule);
    for (const QStringList &row : rows)
        printRow(row);
}

QString csvField(const QString &value)
{
    if (!value.contains(QLatin1Char(',')) && !value.contains(QLatin1Char('"'))
        && !value.contains(QLatin1Char('\n')) && !value.contains(QLatin1Char('\r')))
        return value;
    QString quoted = value;
    quoted.replace(QLatin1String("\""), QLatin1String("\"\""));
    return QLatin1Char('"') + quoted + QLatin1Char('"');
}

void printCsv(QTextStream &out, const QStringList &header, const QList<QStringList> &rows)
{
    auto printRow = [&](const QStringList &row) {
        QStringList fields;
        for (const QString &value : row)
            fields << csvField(value);
        out << fields.join(QLatin1Char(',')) << '\n';
    };
    printRow(header);
    for (const QStringList &row : rows)
        printRow(row);
}

// The tables of a database file with their row counts, read through a connection of our own.
QStringList describeTables(const QString &databaseFile)
{
    QStringList lines;
    {
        QSqlDatabase db = QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"), SummaryConnection);
        db.setDatabaseName(databaseFile);
        if (db.open()) {
            QStringList tables = db.tables(QSql::Tables);
            tables.removeAll(QStringLiteral("sqlite_sequence"));
            for (const QString &table : qAsConst(tables)) {
                QSqlQuery query(db);
                const bool ok = query.exec(QStringLiteral("SELECT COUNT(*) FROM \"%1\"").arg(table))
                        && query.next();
                lines << QStringLiteral("%1  %2").arg(
                        table,
                        ok ? tr("%n row(s)", nullptr, query.value(0).toInt()) : tr("unreadable"));
            }
            db.close();
        }
    }
    QSqlDatabase::removeDatabase(SummaryConnection);
    return lines;
}

} // namespace

int listDatabases(QTextStream &out, QTextStream &)
{
    Session session;
    Database::DatabaseManager *manager = session.catalogue();
    const QStringList names = manager->names();
    if (names.isEmpty()) {
        out << tr("No databases found in the system or user directory.") << '\n';
        return Success;
    }
    int width = 0;
    for (const QString &name : names)
        width = qMax(width, name.size());
    for (const QString &name : names) {
        const char marker = name == manager->getDefaultDbName() ? '*' : ' ';
        out << marker << ' ' << name.leftJustified(width) << "  "
            << QDir::toNativeSeparators(manager->path(name)) << '\n';
    }
    return Success;
}

int showInfo(const QString &database, QTextStream &out, QTextStream &err)
{
    Session session;
    const QString name = session.resolve(database);
    if (name.isEmpty()) {
        err << unknownDatabase(QStringLiteral("info"), database) << '\n';
        return Failure;
    }
    const QString path = session.catalogue()->path(name);
    if (!looksLikeSqlite(path)) {
        err << notADatabase(QStringLiteral("info"), path) << '\n';
        return Failure;
    }
    // The handler takes field types from the application's default connection.
    QSqlDatabase defaultConnection = QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"));
    defaultConnection.setDatabaseName(path);
    defaultConnection.open();

    Database::DatabaseHandler *handler = session.open(name);
    if (!handler || !handler->isDatabaseOpen()) {
        err << tr("zqdb info: cannot open '%1' as an SQLite database.")
                        .arg(QDir::toNativeSeparators(path))
            << '\n';
        return Failure;
    }
    const QStringList tables = userTables(handler);
    out << tr("Database:") << ' ' << name << '\n';
    out << tr("File:") << "     " << QDir::toNativeSeparators(path) << '\n';
    out << tr("Tables:") << "   "
        << (tables.isEmpty() ? tr("none") : tables.join(QLatin1String(", "))) << '\n';
    out << tr("Records:") << "  " << handler->getTableRecordCount() << '\n';
    const QStringList fields = handler->getFieldNames();
    const QList<QVariant::Type> types = handler->getFieldTypes();
    if (!fields.isEmpty()) {
        out << tr("Fields of %1:").arg(handler->tableName()) << '\n';
        QList<QStringList> rows;
        for (int i = 0; i < fields.size(); ++i) {
            const QVariant::Type type = types.value(i, QVariant::Invalid);
            rows << QStringList{QString::number(i + 1), fields.at(i),
                                type == QVariant::Invalid
                                        ? tr("unknown")
                                        : QLatin1String(QVariant::typeToName(type))};
        }
        printAligned(out, {tr("#"), tr("field"), tr("type")}, rows);
    }
    return Success;
}

int catRows(const QString &database, const CatOptions &options, QTextStream &out, QTextStream &err)
{
    Session session;
    const QString name = session.resolve(database);
    if (name.isEmpty()) {
        err << unknownDatabase(QStringLiteral("cat"), database) << '\n';
        return Failure;
    }
    if (!looksLikeSqlite(session.catalogue()->path(name))) {
        err << notADatabase(QStringLiteral("cat"), session.catalogue()->path(name)) << '\n';
        return Failure;
    }
    Database::DatabaseHandler *handler = session.open(name);
    if (!handler || !handler->isDatabaseOpen()) {
        err << tr("zqdb cat: cannot open '%1' as an SQLite database.")
                        .arg(session.catalogue()->path(name))
            << '\n';
        return Failure;
    }
    const QStringList fields = handler->getFieldNames();
    if (fields.isEmpty()) {
        err << tr("zqdb cat: '%1' has no table to read.").arg(name) << '\n';
        return Failure;
    }

    QList<int> selected;
    for (const QString &column : options.columns) {
        bool isNumber = false;
        const int number = column.trimmed().toInt(&isNumber);
        const int index = isNumber ? number - 1 : fields.indexOf(column.trimmed());
        if (index < 0 || index >= fields.size()) {
            err << tr("zqdb cat: no field '%1' in %2; its fields are %3.")
                            .arg(column, name, fields.join(QLatin1String(", ")))
                << '\n';
            return Usage;
        }
        selected << index;
    }
    if (selected.isEmpty())
        for (int i = 0; i < fields.size(); ++i)
            selected << i;

    QStringList header;
    for (int index : qAsConst(selected))
        header << fields.at(index);
    const qint64 total = handler->getTableRecordCount();
    const qint64 end = qMin<qint64>(total, qint64(options.from) + options.count);
    QList<QStringList> rows;
    for (qint64 row = options.from; row < end; ++row) {
        QStringList cells;
        if (!options.csv)
            cells << QString::number(row);
        for (int index : qAsConst(selected))
            cells << handler->recordValue(int(row), index, RowsPerTable).toString();
        rows << cells;
    }
    if (options.csv) {
        printCsv(out, header, rows);
    } else {
        header.prepend(tr("row"));
        printAligned(out, header, rows);
        out << tr("(rows %1 to %2 of %3)")
                        .arg(options.from)
                        .arg(qMax<qint64>(options.from, end) - 1)
                        .arg(total)
            << '\n';
    }
    return Success;
}

int importFile(const QString &source, const QString &databaseFile, const QString &separator,
               bool separatorSet, QTextStream &out, QTextStream &err)
{
    const QFileInfo sourceInfo(source);
    if (!sourceInfo.isFile()) {
        err << tr("zqdb import: cannot read '%1': no such file.").arg(source) << '\n';
        return Failure;
    }
    const QString suffix = sourceInfo.suffix().toLower();
    const bool spreadsheet = suffix == QLatin1String("xlsx") || suffix == QLatin1String("xlsm");
    if (spreadsheet && separatorSet) {
        err << tr("zqdb import: --separator applies to text files, not to spreadsheets.") << '\n';
        return Usage;
    }

    bool ok = false;
    QString log;
    if (spreadsheet) {
        Database::XlsxToDBGenerator generator;
        ok = generator.importOriginalFile(source, databaseFile);
        log = generator.getLog();
    } else {
        Database::DatabaseGenerator generator;
        if (separatorSet)
            generator.setSeparator(separator);
        ok = generator.importOriginalFile(source, databaseFile);
        log = generator.getLog();
    }
    if (!ok) {
        err << tr("zqdb import: importing '%1' into '%2' failed:").arg(source, databaseFile)
            << '\n';
        for (const QString &line : log.split(QLatin1Char('\n'), Qt::SkipEmptyParts))
            err << "  " << line << '\n';
        return Failure;
    }
    out << tr("Imported '%1' into '%2', which now holds:").arg(source, databaseFile) << '\n';
    for (const QString &line : describeTables(databaseFile))
        out << "  " << line << '\n';
    return Success;
}

int exportCsv(const QString &database, const QString &csvFile, QTextStream &out, QTextStream &err)
{
    QString path;
    if (QFileInfo(database).isFile()) {
        path = database;
    } else {
        Session session;
        const QString name = session.resolve(database);
        if (name.isEmpty()) {
            err << unknownDatabase(QStringLiteral("export"), database) << '\n';
            return Failure;
        }
        path = session.catalogue()->path(name);
    }
    if (!Database::DatabaseExport::toCSV(path, csvFile)) {
        const QFileInfo target(csvFile);
        if (!looksLikeSqlite(path))
            err << notADatabase(QStringLiteral("export"), path) << '\n';
        else if (!QFileInfo(target.absolutePath()).isDir()
                 || (target.exists() && !target.isWritable()))
            err << tr("zqdb export: cannot write '%1'.").arg(csvFile) << '\n';
        else
            err << tr("zqdb export: '%1' has no table to export, or is not an SQLite database.")
                            .arg(path)
                << '\n';
        return Failure;
    }
    QFile written(csvFile);
    qint64 lines = 0;
    if (written.open(QIODevice::ReadOnly)) {
        while (!written.atEnd())
            lines += written.read(1 << 20).count('\n');
    }
    out << tr("Exported %n row(s) of '%1' to '%2' (GBK).", nullptr, int(lines)).arg(path, csvFile)
        << '\n';
    return Success;
}

int walkMemoryTable(const QString &linesFile, QTextStream &out, QTextStream &err)
{
    QFile file(linesFile);
    if (!file.open(QIODevice::ReadOnly | QIODevice::Text)) {
        err << tr("zqdb memory: cannot read '%1': %2.").arg(linesFile, file.errorString()) << '\n';
        return Failure;
    }
    QStringList lines = QString::fromUtf8(file.readAll()).split(QLatin1Char('\n'));
    if (!lines.isEmpty() && lines.last().isEmpty())
        lines.removeLast();

    Database::MemoryDatabaseManager::init();
    Database::MemoryDatabaseManager *memory = Database::MemoryDatabaseManager::instance();
    int result = Success;
    if (!memory->generateDatabase(QStringLiteral("TestTable"), lines)) {
        const QString reason = memory->getLastError();
        err << tr("zqdb memory: cannot build the memory table from '%1': %2.")
                        .arg(linesFile,
                             reason.isEmpty() ? tr("the file holds no \"@;!\"-joined values")
                                              : reason)
            << '\n';
        result = Failure;
    } else {
        const int columns = memory->getTableColumnsCount();
        QStringList header{tr("row")};
        for (int c = 1; c <= columns; ++c)
            header << QStringLiteral("column%1").arg(c);
        QList<QStringList> rows;
        // Read, step, test: visits every row once and stops after the last.
        memory->doReset();
        int row = 0;
        do {
            QStringList cells{QString::number(row++)};
            for (int c = 1; c <= columns; ++c)
                cells << memory->recordValue(c).toString();
            rows << cells;
            memory->doNext();
        } while (!memory->isEnd());
        printAligned(out, header, rows);
        out << tr("(%n input line(s))", nullptr, memory->getTableRowsCount()) << '\n';
    }
    Database::MemoryDatabaseManager::destruct();
    return result;
}

} // namespace Zqdb
