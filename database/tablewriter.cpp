#include "tablewriter_p.h"

#include "databasehandler.h"
#include "jobcontext_p.h"
#include "sqlitehandle_p.h"

#include <QFileInfo>
#include <QObject>
#include <QSqlError>
#include <QVarLengthArray>
#include <QVariant>

#include <sqlite3.h>

#include <cstring>
#include <memory>

namespace Database {

namespace {

const QString ConnectionName = QStringLiteral("db_generator");

// Rows per statement of the direct path: SQLite updates sqlite_sequence at the end of every
// statement of an AUTOINCREMENT table, so one-row statements pay that per row.
const int RowsPerStatement = 50;

using Statement = std::unique_ptr<sqlite3_stmt, int (*)(sqlite3_stmt *)>;

// "insert into T values (NULL,?, ?),(NULL,?, ?)": rows rows of the generated layout.
Statement prepareInsert(sqlite3 *connection, const QString &tableName, int columnCount, int rows)
{
    QByteArray sql = "insert into " + tableName.toUtf8() + " values ";
    QByteArray row = "(NULL";
    for (int column = 0; column < columnCount; ++column)
        row += column ? ", ?" : ",?";
    row += ')';
    for (int i = 0; i < rows; ++i) {
        if (i)
            sql += ',';
        sql += row;
    }
    sqlite3_stmt *prepared = nullptr;
    if (sqlite3_prepare_v2(connection, sql.constData(), sql.size(), &prepared, nullptr) != SQLITE_OK
        || (prepared && sqlite3_bind_parameter_count(prepared) != columnCount * rows)) {
        sqlite3_finalize(prepared);
        prepared = nullptr;
    }
    return Statement(prepared, sqlite3_finalize);
}

// Appends value as UTF-8 when SQLite's own conversion of the UTF-16 text QSQLITE binds is plain
// encoding: no surrogates, noncharacters U+FFFE / U+FFFF or leading byte-order mark, which
// SQLite treats in its own way.
bool appendUtf8(QByteArray *out, const ushort *from, int size)
{
    const int start = out->size();
    out->resize(start + size * 3);
    char *to = out->data() + start;
    const ushort *end = from + size;
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

bool appendUtf8(QByteArray *out, const QString &value)
{
    return appendUtf8(out, value.utf16(), value.size());
}

QString insertStatement(const QString &tableName, int columnCount)
{
    QStringList marks;
    for (int column = 0; column < columnCount; ++column)
        marks << QStringLiteral("?");
    return QStringLiteral("insert into %1 values (NULL,%2);")
            .arg(tableName, marks.join(QStringLiteral(", ")));
}

} // namespace

RowBatch::RowBatch(const QList<QStringList> &rows)
{
    for (const QStringList &row : rows)
        append(row);
}

void RowBatch::clear()
{
    // Emptied in place: the next batch needs the same room.
    m_rows.resize(0);
    m_bytes.reserve(m_bytes.capacity()); // keeps the buffer through resize(0)
    m_bytes.resize(0);
    m_ends.resize(1);
    m_strings.clear();
}

int RowBatch::appendAscii(const char *data, int size, const QByteArray &separator)
{
    // The white space of QChar::isSpace() below 128.
    const auto isSpace = [](char c) { return c == ' ' || (c >= '\t' && c <= '\r'); };
    const char *begin = data;
    const char *end = data + size;
    while (begin < end && isSpace(*begin))
        ++begin;
    while (end > begin && isSpace(end[-1]))
        --end;

    const int first = m_ends.size() - 1;
    const char head = separator.at(0);
    const int separatorSize = separator.size();
    for (const char *from = begin;;) {
        const char *hit = from;
        for (;;) {
            hit = static_cast<const char *>(std::memchr(hit, head, size_t(end - hit)));
            if (!hit || end - hit < separatorSize
                || std::memcmp(hit, separator.constData(), size_t(separatorSize)) == 0)
                break;
            ++hit;
        }
        if (!hit || end - hit < separatorSize)
            hit = end;
        if (hit > from) {
            m_bytes.append(from, int(hit - from));
            m_ends.append(m_bytes.size());
        }
        if (hit == end)
            break;
        from = hit + separatorSize;
    }
    const int count = m_ends.size() - 1 - first;
    if (count > 0)
        m_rows.append(Row{first, count, true});
    return count;
}

int RowBatch::appendText(const QString &text, const QString &separator)
{
    const int first = m_ends.size() - 1;
    const int bytes = m_bytes.size();
    for (int from = 0; from <= text.size();) {
        int hit = text.indexOf(separator, from, Qt::CaseSensitive);
        if (hit < 0)
            hit = text.size();
        if (hit > from) {
            if (!appendUtf8(&m_bytes, text.utf16() + from, hit - from)) {
                m_bytes.resize(bytes);
                m_ends.resize(first + 1);
                return -1;
            }
            m_ends.append(m_bytes.size());
        }
        from = hit + separator.size();
    }
    const int count = m_ends.size() - 1 - first;
    if (count > 0)
        m_rows.append(Row{first, count, true});
    return count;
}

void RowBatch::append(const QStringList &fields)
{
    m_rows.append(Row{int(m_strings.size()), int(fields.size()), false});
    m_strings.append(fields);
}

int RowBatch::endRow()
{
    const int count = m_ends.size() - 1 - m_rowStart;
    if (count > 0)
        m_rows.append(Row{m_rowStart, count, true});
    return count;
}

void RowBatch::dropRow()
{
    m_bytes.resize(m_ends.at(m_rowStart));
    m_ends.resize(m_rowStart + 1);
}

const QStringList *RowBatch::strings(int row) const
{
    const Row &r = m_rows.at(row);
    return r.isBytes ? nullptr : &m_strings.at(r.first);
}

const char *RowBatch::bytes(int row, int column, int *size) const
{
    const int field = m_rows.at(row).first + column;
    *size = m_ends.at(field + 1) - m_ends.at(field);
    return m_bytes.constData() + m_ends.at(field);
}

QList<QStringList> RowBatch::toList() const
{
    QList<QStringList> rows;
    rows.reserve(m_rows.size());
    for (int row = 0; row < m_rows.size(); ++row) {
        if (const QStringList *fields = strings(row)) {
            rows.append(*fields);
            continue;
        }
        QStringList fields;
        fields.reserve(fieldCount(row));
        for (int column = 0, size = 0; column < fieldCount(row); ++column) {
            const char *data = bytes(row, column, &size);
            fields.append(QString::fromUtf8(data, size));
        }
        rows.append(fields);
    }
    return rows;
}

QString columnDefinitions(int columnCount)
{
    const QString column = QStringLiteral(" columnA TEXT ");
    QString columns;
    for (int i = 1; i < columnCount; ++i)
        columns += QString(column).replace(QLatin1Char('A'), QString::number(i)) + QLatin1Char(',');
    return columns + QString(column).replace(QLatin1Char('A'), QString::number(columnCount));
}

QString createStatement(const QString &tableName, const QString &first, int columnCount)
{
    return QStringLiteral("CREATE TABLE ") + tableName + QStringLiteral(" (") + first
            + columnDefinitions(columnCount) + QStringLiteral(" )");
}

bool TableWriter::openConnection(QSqlDatabase *database, const QString &databaseFile)
{
    const QString name = JobContext::connectionNameOr(ConnectionName);
    *database = QSqlDatabase::contains(name) ? QSqlDatabase::database(name, false)
                                             : DatabaseHandler::createSqlDatabase(name);
    database->setDatabaseName(QFileInfo(databaseFile).absoluteFilePath());
    return database->open();
}

TableWriter::Table TableWriter::prepareTable(QSqlDatabase &database, const QString &tableName,
                                             int columnCount)
{
    if (!database.isOpen())
        return Table::NotOpen;
    if (tableName.isEmpty())
        return Table::NoName;
    if (columnCount <= 0)
        return Table::NoColumns;

    QSqlQuery query(database);
    query.exec(QStringLiteral(
                       "SELECT COUNT(0) FROM sqlite_master WHERE type = \"table\" AND name = \"")
               + tableName + QLatin1Char('"'));
    if (query.next() && query.value(0).toInt() == 1) {
        query.finish();
        bool emptied = query.exec(QStringLiteral("DELETE FROM ") + tableName);
        if (emptied) {
            emptied = query.exec(QStringLiteral("UPDATE sqlite_sequence set seq=0 where name='")
                                 + tableName + QLatin1Char('\''));
        }
        return emptied ? Table::Emptied : Table::NotEmptied;
    }
    query.finish();
    query.exec(createStatement(tableName, QStringLiteral("id INTEGER PRIMARY KEY AUTOINCREMENT,"),
                               columnCount));
    return query.lastError().isValid() ? Table::NotCreated : Table::Created;
}

QString TableWriter::message(Table table, const QString &log)
{
    switch (table) {
    case Table::NotOpen:
        return QObject::tr("Database not open");
    case Table::NoName:
        return QObject::tr("Table name is empty");
    case Table::NoColumns:
        return QObject::tr("Please check the src file!");
    case Table::NotEmptied:
        return QObject::tr("Update database table error!");
    case Table::NotCreated:
        return QObject::tr("Create database error");
    default:
        return log;
    }
}

TableWriter::TableWriter(const QSqlDatabase &database, const QString &tableName, int columnCount,
                         Rows policy)
    : m_tableName(tableName)
    , m_columnCount(columnCount)
    , m_policy(policy)
    , m_query(database)
    , m_connection(sqliteHandle(database))
{ }

bool TableWriter::begin()
{
    return m_query.exec(QStringLiteral("BEGIN TRANSACTION;"));
}

TableWriter::Insert TableWriter::insert(const RowBatch &rows)
{
    m_rowErrors.clear();
    bool written = false;
    const Direct direct = insertDirectly(rows, &written);
    if (direct == Direct::Inserted)
        return Insert::Inserted;
    if (direct == Direct::Failed) {
        // The exact path takes the batch over from the start, in a transaction of its own: the
        // failed one may hold rows already, or SQLite may have ended it.
        if (written && !sqlite3_get_autocommit(m_connection))
            m_query.exec(QStringLiteral("ROLLBACK;"));
        if (sqlite3_get_autocommit(m_connection) && !begin())
            return Insert::BeginFailed;
    }
    return insertRows(rows.toList()) ? Insert::Inserted : Insert::RowsFailed;
}

bool TableWriter::exec(const QString &statement, QString *error)
{
    m_query.finish();
    if (m_query.exec(statement))
        return true;
    if (error)
        *error = m_query.lastError().text();
    return false;
}

bool TableWriter::commit(QString *error)
{
    return exec(QStringLiteral("COMMIT;"), error);
}

bool TableWriter::rollback(QString *error)
{
    return exec(QStringLiteral("ROLLBACK;"), error);
}

// Binds exactly the text QSQLITE would bind, several rows per statement, on the connection's
// own handle. Stops at the first failure; *written tells whether earlier statements wrote rows.
TableWriter::Direct TableWriter::insertDirectly(const RowBatch &rows, bool *written)
{
    if (!m_connection || rows.isEmpty())
        return Direct::Unavailable;
    const int columnCount = m_columnCount;
    const int variables = sqlite3_limit(m_connection, SQLITE_LIMIT_VARIABLE_NUMBER, -1);
    const int perStatement = qBound(1, variables / qMax(columnCount, 1), RowsPerStatement);
    Statement full = prepareInsert(m_connection, m_tableName, columnCount, perStatement);
    if (!full)
        return Direct::Failed;

    QByteArray utf8;
    utf8.reserve(1 << 16); // kept reserved, so that resize(0) keeps the buffer
    QVarLengthArray<int, 512> ends(columnCount * perStatement);
    for (int first = 0; first < rows.size(); first += perStatement) {
        const int count = qMin(perStatement, rows.size() - first);
        Statement rest(nullptr, sqlite3_finalize);
        if (count < perStatement) {
            rest = prepareInsert(m_connection, m_tableName, columnCount, count);
            if (!rest)
                return Direct::Failed;
        }
        sqlite3_stmt *statement = rest ? rest.get() : full.get();
        // Decoded values are all encoded before any is bound: the buffer must not move.
        utf8.resize(0);
        for (int i = 0; i < count; ++i) {
            const int present = rows.fieldCount(first + i);
            if (present > columnCount || (m_policy == Rows::StopAtFirst && present != columnCount))
                return Direct::Failed;
            if (const QStringList *fields = rows.strings(first + i)) {
                for (int column = 0; column < present; ++column) {
                    ends[i * columnCount + column]
                            = appendUtf8(&utf8, fields->at(column)) ? utf8.size() : -1;
                }
            }
        }
        int begin = 0;
        for (int i = 0, parameter = 1; i < count; ++i) {
            const QStringList *fields = rows.strings(first + i);
            const int present = rows.fieldCount(first + i);
            for (int column = 0; column < present; ++column, ++parameter) {
                if (!fields) {
                    int size = 0;
                    const char *data = rows.bytes(first + i, column, &size);
                    sqlite3_bind_text(statement, parameter, data, size, SQLITE_STATIC);
                    continue;
                }
                const int end = ends[i * columnCount + column];
                if (end < 0) {
                    const QString &value = fields->at(column);
                    sqlite3_bind_text16(statement, parameter, value.utf16(),
                                        value.size() * int(sizeof(QChar)), SQLITE_STATIC);
                    continue;
                }
                sqlite3_bind_text(statement, parameter, utf8.constData() + begin, end - begin,
                                  SQLITE_STATIC);
                begin = end;
            }
            for (int column = present; column < columnCount; ++column, ++parameter)
                sqlite3_bind_text(statement, parameter, "", 0, SQLITE_STATIC);
        }
        const int result = sqlite3_step(statement);
        sqlite3_reset(statement);
        if (result != SQLITE_DONE)
            return Direct::Failed;
        *written = true;
    }
    return Direct::Inserted;
}

// The exact path through QSqlQuery, as the text importer (preparing each row) and the
// spreadsheet importer (preparing once, stopping at the first bad row) always did.
bool TableWriter::insertRows(const QList<QStringList> &rows)
{
    const QString sql = insertStatement(m_tableName, m_columnCount);
    const bool stop = m_policy == Rows::StopAtFirst;
    if (stop && !m_query.prepare(sql)) {
        m_rowErrors << QObject::tr("Row = %1; %2").arg(1).arg(m_query.lastError().text());
        return false;
    }
    int rowNumber = 0;
    for (QStringList values : rows) {
        ++rowNumber;
        if (stop) {
            if (values.size() != m_columnCount) {
                m_rowErrors << QObject::tr("Row = %1; Imported values = %2; Table columns count "
                                           "= %3; Values = (%4)")
                                       .arg(QString::number(rowNumber),
                                            QString::number(values.size()),
                                            QString::number(m_columnCount),
                                            values.join(QStringLiteral(", ")));
                return false;
            }
            for (int column = 0; column < m_columnCount; ++column)
                m_query.bindValue(column, QVariant(values.at(column)), QSql::In);
        } else {
            while (values.size() < m_columnCount)
                values.append(QStringLiteral(""));
            m_query.prepare(sql);
            for (int column = 0; column < m_columnCount; ++column)
                m_query.addBindValue(QVariant(values.at(column)), QSql::In);
        }
        m_query.exec();
        if (!m_query.lastError().isValid())
            continue;
        m_rowErrors << QObject::tr("Row = %1; %2").arg(rowNumber).arg(m_query.lastError().text());
        if (stop)
            return false;
        // A constraint or trigger may make SQLite end the whole transaction; the rows after it
        // must not commit one by one, so they go into a new one rolled back with the batch.
        if (m_connection && sqlite3_get_autocommit(m_connection))
            begin();
    }
    return m_rowErrors.isEmpty();
}

} // namespace Database
