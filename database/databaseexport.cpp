#include "databaseexport.h"
#include "jobcontext_p.h"
#include "sqlitehandle_p.h"

#include "progressreport_p.h"

#include <core/vectorstate_p.h>

#include <QCoreApplication>
#include <QFile>
#include <QSaveFile>
#include <QSqlDatabase>
#include <QSqlQueryModel>
#include <QSqlRecord>
#include <QTextCodec>
#include <QVariant>

#include <sqlite3.h>

#include <sys/stat.h>

#include <memory>
#include <string>

namespace Database {

namespace {

const QString ConnectionName = QStringLiteral("DB3EXPORT");
const QString SkippedTable = QStringLiteral("DATABASE_SQLITE_DEFAULTDB");
constexpr int FlushThreshold = 1 << 20;
// A cancel waits at most this many rows, whatever the table's size.
constexpr qint64 MaxRowsBetweenReports = 50000;

QTextCodec *outputCodec()
{
    QTextCodec *codec = QTextCodec::codecForName("GBK");
    // A stream without a codec writes with the locale's.
    return codec ? codec : QTextCodec::codecForLocale();
}

bool isAscii(const char *bytes, int size)
{
    unsigned char any = 0;
    for (int i = 0; i < size; ++i)
        any |= uchar(bytes[i]);
    return any < 0x80;
}

bool isAscii(const QString &text)
{
    unsigned short any = 0;
    const ushort *chars = text.utf16();
    for (int i = 0, size = text.size(); i < size; ++i)
        any |= chars[i];
    return any < 0x80;
}

bool sameFile(const QString &first, const QString &second)
{
    struct stat a;
    struct stat b;
    if (::stat(QFile::encodeName(first).constData(), &a) != 0
        || ::stat(QFile::encodeName(second).constData(), &b) != 0)
        return false;
    return a.st_dev == b.st_dev && a.st_ino == b.st_ino;
}

// Writes what a GBK text stream would, byte for byte, without building the text first. The
// stream encodes its buffer in chunks with one converter state for the whole file, and the
// converter's output does not depend on where the chunks end; ASCII maps to itself. So ASCII
// is copied through and other text encoded piece by piece, except while the converter holds
// a high surrogate from the last piece: the next piece must reach it to settle that.
class EncodedWriter
{
public:
    explicit EncodedWriter(QFileDevice *file) : m_file(file), m_codec(outputCodec())
    {
        m_state.flags |= QTextCodec::IgnoreHeader;
        m_buffer.reserve(FlushThreshold + 4096);
    }

    void appendAscii(const char *bytes, int size)
    {
        if (m_pendingSurrogate) {
            encode(QString::fromLatin1(bytes, size));
            return;
        }
        m_buffer.append(bytes, size_t(size));
        if (m_buffer.size() >= FlushThreshold)
            flush();
    }

    void appendAscii(char byte) { appendAscii(&byte, 1); }

    void appendText(const QString &text)
    {
        if (isAscii(text) && !m_pendingSurrogate) {
            const QByteArray bytes = text.toLatin1();
            appendAscii(bytes.constData(), bytes.size());
        } else {
            encode(text);
        }
    }

    void flush()
    {
        m_file->write(m_buffer.data(), qint64(m_buffer.size()));
        m_buffer.clear();
    }

private:
    void encode(const QString &text)
    {
        if (text.isEmpty())
            return;
        const QByteArray encoded = m_codec->fromUnicode(text.constData(), text.size(), &m_state);
        m_buffer.append(encoded.constData(), size_t(encoded.size()));
        m_pendingSurrogate = text.back().isHighSurrogate();
        if (m_buffer.size() >= FlushThreshold)
            flush();
    }

    QFileDevice *m_file;
    QTextCodec *m_codec;
    QTextCodec::ConverterState m_state;
    // Keeps its capacity across flushes, and appends a few bytes cheaply in Qt 5 and Qt 6 alike.
    std::string m_buffer;
    bool m_pendingSurrogate = false;
};

// Writes each cell as the text QVariant::toString gives for the value QSQLITE would deliver.
void writeRow(sqlite3_stmt *statement, int columnCount, bool utf16Database,
              EncodedWriter &writer)
{
    for (int c = 0; c < columnCount; ++c) {
        switch (sqlite3_column_type(statement, c)) {
        case SQLITE_NULL:
            break;
        case SQLITE_INTEGER: {
            // SQLite's decimal text of a 64-bit integer is QString::number's.
            const char *text = reinterpret_cast<const char *>(sqlite3_column_text(statement, c));
            writer.appendAscii(text, sqlite3_column_bytes(statement, c));
            break;
        }
        case SQLITE_FLOAT:
            writer.appendText(QVariant(sqlite3_column_double(statement, c)).toString());
            break;
        case SQLITE_BLOB: {
            const char *bytes = static_cast<const char *>(sqlite3_column_blob(statement, c));
            const QByteArray blob(bytes, sqlite3_column_bytes(statement, c));
            writer.appendText(QVariant(blob).toString());
            break;
        }
        default: {
            // The UTF-8 view is free only in a UTF-8 database; in a UTF-16 one it would also
            // replace the stored text by a lossy round trip. Anything not ASCII is decoded by
            // SQLite to UTF-16, as the driver reads it, so malformed text comes out the same.
            if (!utf16Database) {
                const char *text = reinterpret_cast<const char *>(sqlite3_column_text(statement, c));
                const int size = sqlite3_column_bytes(statement, c);
                if (isAscii(text, size)) {
                    writer.appendAscii(text, size);
                    break;
                }
            }
            const void *utf16 = sqlite3_column_text16(statement, c);
            writer.appendText(QString(static_cast<const QChar *>(utf16),
                                      sqlite3_column_bytes16(statement, c) / 2));
            break;
        }
        }
        writer.appendAscii(',');
    }
    writer.appendAscii('\n');
}

bool isUtf8Database(sqlite3 *handle)
{
    sqlite3_stmt *statement = nullptr;
    bool utf8 = false;
    if (sqlite3_prepare_v2(handle, "PRAGMA encoding", -1, &statement, nullptr) == SQLITE_OK
        && sqlite3_step(statement) == SQLITE_ROW) {
        utf8 = qstrcmp(reinterpret_cast<const char *>(sqlite3_column_text(statement, 0)),
                       "UTF-8") == 0;
    }
    sqlite3_finalize(statement);
    return utf8;
}

// The output, opened for writing. While a progress scope lives it is written beside the target
// and renamed over it once complete, so that a cancel leaves no file, or the one that was there.
std::unique_ptr<QFileDevice> openOutput(const QString &path, bool replaceWhenComplete)
{
    std::unique_ptr<QFileDevice> file;
    if (replaceWhenComplete)
        file.reset(new QSaveFile(path));
    else
        file.reset(new QFile(path));
    if (!file->open(QIODevice::WriteOnly | QIODevice::Text))
        file.reset();
    return file;
}

// Closes the output; complete false drops what was written. False when nothing is kept.
bool closeOutput(QFileDevice *file, bool complete)
{
    auto *saveFile = qobject_cast<QSaveFile *>(file);
    if (!saveFile) {
        file->close();
        return true;
    }
    if (complete)
        return saveFile->commit();
    saveFile->cancelWriting();
    return false;
}

// Reports one more row written; false once the host has cancelled.
bool rowWritten(ProgressReport &report, qint64 done)
{
    return !report.isActive() || report.advance(done, done % MaxRowsBetweenReports == 0);
}

qint64 countRows(sqlite3 *handle, const QByteArray &select)
{
    const QByteArray sql = "SELECT COUNT(*) FROM (" + select + ')';
    sqlite3_stmt *statement = nullptr;
    qint64 rows = 0;
    if (sqlite3_prepare_v2(handle, sql.constData(), sql.size(), &statement, nullptr) == SQLITE_OK
        && sqlite3_step(statement) == SQLITE_ROW)
        rows = sqlite3_column_int64(statement, 0);
    sqlite3_finalize(statement);
    return rows;
}

// Streams the rows straight from SQLite; false when the output cannot be opened or the host
// cancelled. A statement that does not prepare yields no rows, as it leaves a query model empty.
bool exportStreaming(sqlite3 *handle, const QString &statementText, const QString &csvFilePath)
{
    const QByteArray sql = statementText.toUtf8();
    sqlite3_stmt *statement = nullptr;
    const char *tail = nullptr;
    if (sqlite3_prepare_v2(handle, sql.constData(), sql.size(), &statement, &tail) != SQLITE_OK
        || (tail && !QString::fromUtf8(tail).trimmed().isEmpty())) {
        // The driver refuses a second statement in one query.
        sqlite3_finalize(statement);
        statement = nullptr;
    }

    // Rows are counted only for a host that asked for progress.
    ProgressReport report(statement && ProgressReport::scopeActive() ? countRows(handle, sql) : 0);
    std::unique_ptr<QFileDevice> file;
    if (!report.isCancelled())
        file = openOutput(csvFilePath, report.isActive());
    if (!file) {
        sqlite3_finalize(statement);
        return false;
    }
    EncodedWriter writer(file.get());
    bool complete = true;
    if (statement) {
        const int columnCount = sqlite3_column_count(statement);
        const bool utf16Database = !isUtf8Database(handle);
        qint64 done = 0;
        Core::clearUpperVectorState();
        while (complete && sqlite3_step(statement) == SQLITE_ROW) {
            writeRow(statement, columnCount, utf16Database, writer);
            complete = rowWritten(report, ++done);
        }
        sqlite3_finalize(statement);
    }
    writer.flush();
    return closeOutput(file.get(), complete && report.finish());
}

// Loads the whole table into a model before the output is touched; used where streaming
// could differ (another driver, or the output being the database file itself).
bool exportThroughModel(const QSqlDatabase &database, const QString &statement,
                        const QString &csvFilePath)
{
    QSqlQueryModel model;
    model.setQuery(statement, database);
    while (model.canFetchMore())
        model.fetchMore();

    ProgressReport report(model.rowCount());
    std::unique_ptr<QFileDevice> file;
    if (!report.isCancelled())
        file = openOutput(csvFilePath, report.isActive());
    if (!file)
        return false;
    EncodedWriter writer(file.get());
    bool complete = true;
    for (int r = 0; complete && r < model.rowCount(); ++r) {
        for (int c = 0; c < model.columnCount(); ++c) {
            writer.appendText(model.record(r).value(c).toString());
            writer.appendAscii(',');
        }
        writer.appendAscii('\n');
        complete = rowWritten(report, r + 1);
    }
    writer.flush();
    return closeOutput(file.get(), complete && report.finish());
}

} // namespace

DatabaseExport::DatabaseExport() = default;
DatabaseExport &DatabaseExport::operator=(const DatabaseExport &other) = default;
DatabaseExport::~DatabaseExport() = default;

// Writes the first table (never "DATABASE_SQLITE_DEFAULTDB") as GBK lines, each cell followed
// by a comma. False when the database does not open, has no such table or the output cannot
// be opened. Events are pumped once after an export and after a failed open only. A
// ProgressScope on this thread hears of the rows written and may cancel: false, nothing kept.
bool DatabaseExport::toCSV(QString dbFilePath, QString csvFilePath)
{
    // Replaces the previous call's connection; removing it first spares Qt's duplicate warning.
    const QString connectionName = JobContext::connectionNameOr(ConnectionName);
    if (QSqlDatabase::contains(connectionName))
        QSqlDatabase::removeDatabase(connectionName);
    QSqlDatabase database = QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"), connectionName);
    database.setDatabaseName(dbFilePath);
    const bool opened = database.open();
    if (opened) {
        QStringList tables = database.tables(QSql::Tables);
        tables.removeOne(SkippedTable);
        if (tables.isEmpty())
            return false;
        const QString statement = QStringLiteral("SELECT * FROM ") + tables.first();
        sqlite3 *handle = sqliteHandle(database);
        const bool written = handle && !sameFile(dbFilePath, csvFilePath)
                ? exportStreaming(handle, statement, csvFilePath)
                : exportThroughModel(database, statement, csvFilePath);
        if (!written)
            return false;
    }
    // A job's thread has no window to keep drawn.
    if (!JobContext::current())
        QCoreApplication::processEvents(QEventLoop::AllEvents, 200);
    return opened;
}

} // namespace Database
