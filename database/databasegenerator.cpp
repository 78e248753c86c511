#include "databasegenerator.h"

#include "databasehandler.h"
#include "textlinereader.h"

#include <QFile>
#include <QFileInfo>
#include <QObject>
#include <QSqlDatabase>
#include <QSqlDriver>
#include <QSqlError>
#include <QSqlQuery>
#include <QTextCodec>
#include <QTextStream>
#include <QVarLengthArray>
#include <QVariant>

#include <sqlite3.h>

#include <cstring>
#include <memory>

namespace Database {

namespace {

const QString ConnectionName = QStringLiteral("db_generator");

// The creation statement of the generated layout; its spacing is part of the file format.
QString createStatement(const QString &tableName, int columnCount)
{
    const QString columnTemplate = QStringLiteral(" columnA TEXT ");
    QString sql = QStringLiteral("CREATE TABLE ") + tableName + QStringLiteral(" (")
            + QStringLiteral("id") + QStringLiteral(" INTEGER PRIMARY KEY AUTOINCREMENT,");
    for (int column = 1; column < columnCount; ++column) {
        sql += QString(columnTemplate).replace(QLatin1Char('A'), QString::number(column))
                + QLatin1Char(',');
    }
    sql += QString(columnTemplate).replace(QLatin1Char('A'), QString::number(columnCount));
    sql += QStringLiteral(" )");
    return sql;
}

QString insertStatement(const QString &tableName, int columnCount)
{
    QStringList marks;
    for (int column = 0; column < columnCount; ++column)
        marks << QStringLiteral("?");
    return QStringLiteral("insert into %1 values (NULL,%2);")
            .arg(tableName, marks.join(QStringLiteral(", ")));
}


// QTextStream converts what it reads in chunks of this size.
const int StreamChunk = 16384;

bool isAscii(const char *data, int size)
{
    quint64 bits = 0;
    int i = 0;
    for (; i + 8 <= size; i += 8) {
        quint64 word;
        std::memcpy(&word, data + i, sizeof word);
        bits |= word;
    }
    for (; i < size; ++i)
        bits |= uchar(data[i]);
    return (bits & Q_UINT64_C(0x8080808080808080)) == 0;
}

// The white space of QChar::isSpace() below 128.
bool isAsciiSpace(char c)
{
    return c == ' ' || (c >= '\t' && c <= '\r');
}

// The separator's bytes when a byte search finds exactly what QString::split() finds; empty
// otherwise.
QByteArray asciiSeparator(const QString &separator)
{
    for (const QChar c : separator) {
        if (c.unicode() >= 0x80)
            return QByteArray();
    }
    return separator.toLatin1();
}

// Decodes one line as a QTextStream with the line's codec does: one conversion with a fresh
// state when the line fits into the stream's single chunk.
QString decodeLine(const char *data, int size, QTextCodec *gb2312)
{
    const QByteArray bytes = QByteArray::fromRawData(data, size);
    QTextCodec *codec = QTextCodec::codecForUtfText(bytes, gb2312);
    if (codec && size <= StreamChunk) {
        QTextCodec::ConverterState state;
        return codec->toUnicode(data, size, &state);
    }
    QTextStream stream(bytes);
    if (codec)
        stream.setCodec(codec);
    return stream.readAll();
}

// QString::trimmed() and split(separator, Qt::SkipEmptyParts) done on the bytes of an ASCII
// line, which decode to the same characters in GB2312.
QStringList splitAscii(const char *data, int size, const QByteArray &separator, int expected)
{
    const char *begin = data;
    const char *end = data + size;
    while (begin < end && isAsciiSpace(*begin))
        ++begin;
    while (end > begin && isAsciiSpace(end[-1]))
        --end;

    QStringList fields;
    fields.reserve(expected);
    const char first = separator.at(0);
    const int separatorSize = separator.size();
    const char *from = begin;
    for (;;) {
        const char *hit = from;
        for (;;) {
            hit = static_cast<const char *>(std::memchr(hit, first, size_t(end - hit)));
            if (!hit || end - hit < separatorSize
                || std::memcmp(hit, separator.constData(), size_t(separatorSize)) == 0)
                break;
            ++hit;
        }
        if (!hit || end - hit < separatorSize)
            hit = end;
        if (hit > from)
            fields.append(QString::fromLatin1(from, int(hit - from)));
        if (hit == end)
            return fields;
        from = hit + separatorSize;
    }
}

// Turns one raw line into its fields; an empty list when the line holds none.
QStringList splitLine(const char *data, int size, const QString &separator,
                      const QByteArray &byteSeparator, QTextCodec *gb2312, int expected)
{
    if (!byteSeparator.isEmpty() && isAscii(data, size))
        return splitAscii(data, size, byteSeparator, expected);
    return decodeLine(data, size, gb2312)
            .trimmed()
            .split(separator, Qt::SkipEmptyParts, Qt::CaseSensitive);
}

// The connection's own SQLite handle, or null when the driver offers none.
sqlite3 *sqliteHandle(const QSqlDatabase &db)
{
    const QVariant handle = db.driver()->handle();
    if (!handle.isValid() || qstrcmp(handle.typeName(), "sqlite3*") != 0)
        return nullptr;
    return *static_cast<sqlite3 *const *>(handle.constData());
}

// Inserts every row through QSqlQuery, preparing the statement again for each, and returns one
// "Row = N; error" entry per failing row, numbered from 1.
QStringList insertRows(const QSqlDatabase &db, QSqlQuery &query, const QString &sql,
                       const QList<QStringList> &rows, int columnCount)
{
    sqlite3 *connection = sqliteHandle(db);
    QStringList rowErrors;
    int rowNumber = 0;
    for (QStringList values : rows) {
        ++rowNumber;
        while (values.size() < columnCount)
            values.append(QStringLiteral(""));
        query.prepare(sql);
        for (int column = 0; column < columnCount; ++column)
            query.addBindValue(QVariant(values.at(column)), QSql::In);
        query.exec();
        if (query.lastError().isValid()) {
            rowErrors.append(
                    QObject::tr("Row = %1; %2").arg(rowNumber).arg(query.lastError().text()));
            // Some errors (a full disk) make SQLite drop the whole transaction; the rows after
            // it must not be committed one by one, so they go into a new one that is rolled
            // back with the batch.
            if (connection && sqlite3_get_autocommit(connection))
                QSqlQuery(db).exec(QStringLiteral("BEGIN TRANSACTION;"));
        }
    }
    return rowErrors;
}

// Appends value as UTF-8 when SQLite's own conversion of the UTF-16 text is plain encoding:
// no surrogates, noncharacters or leading byte-order mark, which SQLite treats specially.
bool appendUtf8(QByteArray *out, const QString &value)
{
    const int start = out->size();
    out->resize(start + value.size() * 3);
    char *to = out->data() + start;
    const ushort *from = value.utf16();
    const ushort *end = from + value.size();
    if (from != end && *from == 0xfeff) {
        out->resize(start);
        return false;
    }
    for (; from != end; ++from) {
        const ushort c = *from;
        if (c < 0x80) {
            *to++ = char(c);
        } else if (c < 0x800) {
            *to++ = char(0xc0 | (c >> 6));
            *to++ = char(0x80 | (c & 0x3f));
        } else if ((c >= 0xd800 && c < 0xe000) || c >= 0xfffe) {
            out->resize(start);
            return false;
        } else {
            *to++ = char(0xe0 | (c >> 12));
            *to++ = char(0x80 | ((c >> 6) & 0x3f));
            *to++ = char(0x80 | (c & 0x3f));
        }
    }
    out->resize(int(to - out->constData()));
    return true;
}

enum class DirectInsert { Unavailable, Inserted, Failed, FailedAfterWrites };

// Inserts the rows through SQLite's C API on the connection's own handle, with one prepared
// statement, binding exactly the UTF-16 text QSQLITE would bind. Stops at the first failure.
DirectInsert insertDirectly(const QSqlDatabase &db, const QString &sql,
                            const QList<QStringList> &rows, int columnCount)
{
    sqlite3 *connection = sqliteHandle(db);
    if (!connection)
        return DirectInsert::Unavailable;

    sqlite3_stmt *prepared = nullptr;
    const QByteArray utf8 = sql.toUtf8();
    const int prepareResult =
            sqlite3_prepare_v2(connection, utf8.constData(), utf8.size(), &prepared, nullptr);
    std::unique_ptr<sqlite3_stmt, int (*)(sqlite3_stmt *)> statement(prepared, sqlite3_finalize);
    if (prepareResult != SQLITE_OK || !prepared
        || sqlite3_bind_parameter_count(prepared) != columnCount)
        return DirectInsert::Failed;

    bool written = false;
    QByteArray utf8Row;
    utf8Row.reserve(4096); // kept reserved, so that resize(0) keeps the buffer
    QVarLengthArray<int, 32> ends(columnCount);
    for (const QStringList &row : rows) {
        const int present = qMin(row.size(), columnCount);
        // All values of the row are encoded before any is bound: the buffer must not move.
        utf8Row.resize(0);
        for (int column = 0; column < present; ++column) {
            ends[column] = appendUtf8(&utf8Row, row.at(column)) ? utf8Row.size() : -1;
        }
        int begin = 0;
        for (int column = 0; column < present; ++column) {
            if (ends[column] < 0) {
                const QString &value = row.at(column);
                sqlite3_bind_text16(prepared, column + 1, value.utf16(),
                                    value.size() * int(sizeof(QChar)), SQLITE_STATIC);
                continue;
            }
            sqlite3_bind_text(prepared, column + 1, utf8Row.constData() + begin,
                              ends[column] - begin, SQLITE_STATIC);
            begin = ends[column];
        }
        for (int column = present; column < columnCount; ++column)
            sqlite3_bind_text(prepared, column + 1, "", 0, SQLITE_STATIC);
        const int stepResult = sqlite3_step(prepared);
        sqlite3_reset(prepared);
        if (stepResult != SQLITE_DONE)
            return written ? DirectInsert::FailedAfterWrites : DirectInsert::Failed;
        written = true;
    }
    return DirectInsert::Inserted;
}

} // namespace

DatabaseGenerator::DatabaseGenerator()
    : m_errCode(NoError), m_columnCount(0)
{
    init();
}

DatabaseGenerator::DatabaseGenerator(const DatabaseGenerator &other) = default;
DatabaseGenerator &DatabaseGenerator::operator=(const DatabaseGenerator &other) = default;
DatabaseGenerator::~DatabaseGenerator() = default;

void DatabaseGenerator::init()
{
    m_separators.clear();
    m_separators << QStringLiteral("|") << QStringLiteral(",") << QStringLiteral(";")
                 << QStringLiteral("\t");
    m_separator = QStringLiteral(",");
}

void DatabaseGenerator::setSeparator(const QString &separator)
{
    if (m_separator != separator)
        m_separator = separator;
}

QString DatabaseGenerator::getSeparator() const
{
    return m_separator;
}

QString DatabaseGenerator::getLog() const
{
    return m_log;
}

QList<QStringList> DatabaseGenerator::getValues() const
{
    return m_values;
}

// Checks the separator against the head of the file, then writes every batch; true when
// every batch was written. getLog() tells what went wrong otherwise.
bool DatabaseGenerator::importOriginalFile(const QString &sourceFile, const QString &databaseFile)
{
    m_errCode = NoError;
    const ErrCode code = checkDefaultSeparator(sourceFile, m_separator);
    m_errCode = code;
    if (code != NoError)
        return false;
    return parserFromFile(sourceFile, databaseFile, 0, 50000);
}

// Splits at most six non-empty head lines and requires the same field count in all of them;
// sets m_columnCount to that count.
DatabaseGenerator::ErrCode DatabaseGenerator::checkDefaultSeparator(const QString &sourceFile,
                                                                     const QString &separator)
{
    QFile file(sourceFile);
    if (!file.open(QIODevice::ReadOnly | QIODevice::Text)) {
        m_log = QObject::tr("Open file fail");
        return OpenFileFail;
    }

    QTextStream stream(&file);
    int nonEmpty = 0;
    int fieldLines = 0;
    QList<int> counts;
    while (!stream.atEnd()) {
        const QString line = stream.readLine();
        if (line.isEmpty())
            continue;
        ++nonEmpty;
        const QStringList fields = line.split(separator, Qt::SkipEmptyParts, Qt::CaseSensitive);
        if (fields.isEmpty())
            continue;
        counts.append(fields.size());
        ++fieldLines;
        if (nonEmpty > 5)
            break;
    }
    file.close();

    if (fieldLines == 0) {
        m_log = QObject::tr("Source file empty");
        return SourceFileEmpty;
    }
    if (counts.isEmpty() || counts.size() != fieldLines) {
        m_columnCount = 1;
        m_log = QObject::tr("Separator empty");
        return SeparatorEmpty;
    }
    for (int i = 1; i < counts.size(); ++i) {
        if (counts.at(i - 1) != counts.at(i)) {
            m_log = QObject::tr("Content error");
            return ContentError;
        }
    }
    m_columnCount = counts.first();
    return NoError;
}

// Parses every line of the file and writes each batch of batchRows rows as its own table;
// a failed batch makes the result false without stopping the parse.
bool DatabaseGenerator::parserFromFile(const QString &sourceFile, const QString &databaseFile,
                                       qint64, int batchRows)
{
    m_values.clear();
    QFile file(sourceFile);
    if (!file.open(QIODevice::ReadOnly | QIODevice::Text)) {
        m_log = QObject::tr("Cannot open file %1 for reading.").arg(sourceFile);
        m_values.clear();
        m_errCode = ReadFileError;
        return false;
    }

    // The lines come from a reader that reproduces QIODevice::readLine() in text mode on raw
    // blocks, which is what makes large files fast.
    file.setTextModeEnabled(false);
    TextLineReader reader(&file);
    QTextCodec *gb2312 = QTextCodec::codecForName("GB2312");
    QByteArray byteSeparator = asciiSeparator(m_separator);
    bool result = true;
    int tableIndex = 1;
    int rowsInBatch = 0;
    bool pending = false;
    m_columnCount = 0;

    const char *line = nullptr;
    int lineSize = 0;
    while (reader.readLine(&line, &lineSize)) {
        QStringList fields =
                splitLine(line, lineSize, m_separator, byteSeparator, gb2312, m_columnCount);
        if (fields.isEmpty())
            continue;
        if (fields.size() > m_columnCount)
            m_columnCount = fields.size();
        if (m_columnCount == 0) {
            result = false;
            m_log = QStringLiteral("Source file empty");
            m_errCode = SourceFileEmpty;
            break;
        }
        m_values.append(std::move(fields));
        ++rowsInBatch;
        pending = true;
        if (rowsInBatch >= batchRows) {
            result = generateDatabase(databaseFile, QStringLiteral("table")
                                                            + QString::number(tableIndex))
                    && result;
            // An empty separator becomes "," for a one-column table.
            byteSeparator = asciiSeparator(m_separator);
            ++tableIndex;
            m_values.clear();
            pending = false;
            rowsInBatch = 0;
        }
    }
    if (pending) {
        result = generateDatabase(databaseFile,
                                  QStringLiteral("table") + QString::number(tableIndex))
                && result;
    }
    file.close();
    return result;
}

// Writes m_values into tableName of databaseFile in one transaction; true when every row
// was inserted and committed. A failing row rolls the whole batch back.
bool DatabaseGenerator::generateDatabase(const QString &databaseFile, const QString &tableName)
{
    if (databaseFile.isEmpty()) {
        m_log = QObject::tr("Database name empty");
        m_errCode = DatabaseNameEmpty;
        return false;
    }
    if (tableName.isEmpty()) {
        m_log = QObject::tr("Table name empty");
        m_errCode = TableNameEmpty;
        return false;
    }
    if (m_separator.isEmpty()) {
        if (m_columnCount == 1) {
            m_separator = QStringLiteral(",");
        } else {
            m_log = QObject::tr("Separator empty");
            m_errCode = SeparatorEmpty;
            return false;
        }
    }

    QSqlDatabase db = DatabaseHandler::createSqlDatabase(ConnectionName);
    db.setDatabaseName(QFileInfo(databaseFile).absoluteFilePath());
    if (!db.open()) {
        m_errCode = OpenDatabaseFileFailed;
        m_log = QObject::tr("Open database file failed!");
        return false;
    }
    m_log = QString(QLatin1String(""));
    bool ok = true;

    if (!makeDatabase(db, tableName, m_columnCount)) {
        m_log = QObject::tr("Create database fail");
        return false;
    }

    const int columnCount = m_columnCount;
    const QString insertSql = insertStatement(tableName, columnCount);
    QSqlQuery query(db);
    if (!query.exec(QStringLiteral("BEGIN TRANSACTION;"))) {
        m_log = QObject::tr("Database transaction error!");
        m_errCode = TransactionError;
        return false;
    }

    QStringList rowErrors;
    const DirectInsert direct = insertDirectly(db, insertSql, m_values, columnCount);
    if (direct != DirectInsert::Inserted) {
        if (direct == DirectInsert::FailedAfterWrites) {
            // Start the batch over on the QSqlQuery path, whose log names every failing row.
            query.exec(QStringLiteral("ROLLBACK;"));
            if (!query.exec(QStringLiteral("BEGIN TRANSACTION;"))) {
                m_log = QObject::tr("Database transaction error!");
                m_errCode = TransactionError;
                return false;
            }
        }
        rowErrors = insertRows(db, query, insertSql, m_values, columnCount);
        ok = rowErrors.isEmpty();
    }

    if (m_values.isEmpty()) {
        ok = false;
        m_log = QObject::tr("The source file is empty");
    }
    QString commitError;
    if (ok && !query.exec(QStringLiteral("COMMIT;"))) {
        // A batch whose commit failed (a full disk, a lock) was not written: say so.
        commitError = query.lastError().text();
        ok = false;
    }
    if (!ok) {
        query.exec(QStringLiteral("ROLLBACK;"));
        if (query.lastError().isValid() && commitError.isEmpty()) {
            m_log = query.lastError().text();
        } else if (!commitError.isEmpty()) {
            m_log = commitError;
        } else if (rowErrors.isEmpty()) {
            m_log = QObject::tr("Database commit error");
        } else {
            for (const QString &entry : rowErrors)
                m_log += QLatin1Char('\n') + entry;
        }
        m_errCode = CommitError;
    }
    db.close();
    return ok;
}

// Leaves an empty table of the generated layout named tableName: an existing one is emptied
// and its id sequence reset, never dropped. True on success.
bool DatabaseGenerator::makeDatabase(QSqlDatabase &database, const QString &tableName,
                                     const int &columnCount)
{
    if (!database.isOpen()) {
        m_errCode = DatabaseNotOpen;
        m_log = QObject::tr("Database not open");
        return false;
    }
    if (tableName.isEmpty()) {
        m_errCode = TableNameEmpty;
        m_log = QObject::tr("Table name is empty");
        return false;
    }
    if (columnCount <= 0) {
        m_errCode = SourceFileEmpty;
        m_log = QObject::tr("Please check the src file!");
        return false;
    }

    QSqlQuery query(database);
    query.exec(QStringLiteral("SELECT COUNT(0) FROM sqlite_master WHERE type = \"table\" AND name = \"")
               + tableName + QLatin1Char('"'));
    if (query.next() && query.value(0).toInt() == 1) {
        bool ok = query.exec(QStringLiteral("DELETE FROM ") + tableName);
        if (ok) {
            ok = query.exec(QStringLiteral("UPDATE sqlite_sequence set seq=0 where name='")
                            + tableName + QLatin1Char('\''));
        }
        m_errCode = ok ? NoError : CreateDatabaseError;
        return ok;
    }

    query.exec(createStatement(tableName, columnCount));
    if (query.lastError().isValid()) {
        m_log = QObject::tr("Create database error");
        m_errCode = CreateDatabaseError;
        return false;
    }
    return true;
}

} // namespace Database
