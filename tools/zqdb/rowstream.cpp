#include "rowstream.h"

#include <QFile>
#include <QVariant>

#include <sqlite3.h>

#include <vector>

namespace Zqdb {

namespace {

// Well-formed UTF-8 (no overlong forms, surrogates or values past U+10FFFF): text that Qt's
// UTF-16 round trip gives back byte for byte.
bool isWellFormedUtf8(const unsigned char *text, int size)
{
    for (int i = 0; i < size;) {
        const unsigned char lead = text[i];
        if (lead < 0x80) {
            ++i;
            continue;
        }
        int length = 0;
        unsigned char low = 0x80, high = 0xBF;
        if (lead >= 0xC2 && lead <= 0xDF) {
            length = 2;
        } else if (lead >= 0xE0 && lead <= 0xEF) {
            length = 3;
            low = lead == 0xE0 ? 0xA0 : 0x80;
            high = lead == 0xED ? 0x9F : 0xBF;
        } else if (lead >= 0xF0 && lead <= 0xF4) {
            length = 4;
            low = lead == 0xF0 ? 0x90 : 0x80;
            high = lead == 0xF4 ? 0x8F : 0xBF;
        } else {
            return false;
        }
        if (i + length > size || text[i + 1] < low || text[i + 1] > high)
            return false;
        for (int k = 2; k < length; ++k)
            if ((text[i + k] & 0xC0) != 0x80)
                return false;
        i += length;
    }
    return true;
}

} // namespace

RowStream::RowStream(const QString &databaseFile, const QStringList &tables,
                     const QStringList &fields)
    : m_tables(tables)
    , m_fields(fields)
{
    if (sqlite3_open_v2(QFile::encodeName(databaseFile).constData(), &m_db, SQLITE_OPEN_READONLY,
                        nullptr)
        != SQLITE_OK) {
        m_error = QString::fromUtf8(sqlite3_errmsg(m_db));
        sqlite3_close(m_db);
        m_db = nullptr;
    }
}

RowStream::~RowStream()
{
    sqlite3_close(m_db);
}

void RowStream::read(qint64 from, qint64 end, const QList<int> &columns, const Sink &sink)
{
    qint64 row = from;
    while (row < end) {
        const qint64 tableIndex = row / RowsPerTable;
        const qint64 offset = row % RowsPerTable;
        const qint64 count = qMin(end - row, RowsPerTable - offset);
        const QString table
                = tableIndex < m_tables.size() ? m_tables.at(int(tableIndex)) : QString();
        if (!readTable(table, row, offset, count, columns, sink))
            return;
        row += count;
    }
}

sqlite3_stmt *RowStream::prepare(const QStringList &names, const QString &table, qint64 offset,
                                 qint64 count)
{
    // The handler's statement, names unquoted, for a whole run of rows.
    const QByteArray sql = QStringLiteral("SELECT %1 FROM %2 LIMIT %3 OFFSET %4")
                                   .arg(names.join(QLatin1String(", ")), table)
                                   .arg(count)
                                   .arg(offset)
                                   .toUtf8();
    sqlite3_stmt *statement = nullptr;
    if (sqlite3_prepare_v2(m_db, sql.constData(), sql.size(), &statement, nullptr) != SQLITE_OK) {
        sqlite3_finalize(statement);
        return nullptr;
    }
    return statement;
}

bool RowStream::hasIndex(const QString &table)
{
    const QByteArray sql = QStringLiteral("PRAGMA index_list(\"%1\")").arg(table).toUtf8();
    sqlite3_stmt *statement = nullptr;
    bool found = false;
    if (sqlite3_prepare_v2(m_db, sql.constData(), sql.size(), &statement, nullptr) == SQLITE_OK)
        found = sqlite3_step(statement) == SQLITE_ROW;
    sqlite3_finalize(statement);
    return found;
}

RowStream::Cell RowStream::cell(sqlite3_stmt *statement, int column, QByteArray *scratch)
{
    // The text Qt's driver would give as a QVariant, turned into a string and into UTF-8.
    switch (sqlite3_column_type(statement, column)) {
    case SQLITE_NULL:
        return Cell{"", 0};
    case SQLITE_INTEGER:
        *scratch = QByteArray::number(sqlite3_column_int64(statement, column));
        break;
    case SQLITE_FLOAT:
        *scratch = QVariant(sqlite3_column_double(statement, column)).toString().toUtf8();
        break;
    case SQLITE_BLOB:
        *scratch = QVariant(QByteArray(static_cast<const char *>(
                                               sqlite3_column_blob(statement, column)),
                                       sqlite3_column_bytes(statement, column)))
                           .toString()
                           .toUtf8();
        break;
    default: {
        const unsigned char *text = sqlite3_column_text(statement, column);
        const int size = sqlite3_column_bytes(statement, column);
        if (isWellFormedUtf8(text, size))
            return Cell{reinterpret_cast<const char *>(text), size};
        const void *utf16 = sqlite3_column_text16(statement, column);
        *scratch = QString(static_cast<const QChar *>(utf16),
                           sqlite3_column_bytes16(statement, column) / int(sizeof(QChar)))
                           .toUtf8();
    }
    }
    return Cell{scratch->constData(), int(scratch->size())};
}

bool RowStream::readTable(const QString &table, qint64 firstRow, qint64 offset, qint64 count,
                          const QList<int> &columns, const Sink &sink)
{
    std::vector<Cell> cells(size_t(columns.size()), Cell{"", 0});
    std::vector<QByteArray> scratch(size_t(columns.size()));
    qint64 done = 0;
    if (!table.isEmpty()) {
        // Without an index every one-column statement of the handler scans the table in the
        // same order, so one statement for all columns reads the same rows.
        if (hasIndex(table))
            return readColumns(table, firstRow, offset, count, columns, sink);
        QStringList names;
        for (int column : columns)
            names << m_fields.at(column);
        sqlite3_stmt *statement = prepare(names, table, offset, count);
        if (!statement)
            return readColumns(table, firstRow, offset, count, columns, sink);
        bool more = true;
        for (; more && done < count && sqlite3_step(statement) == SQLITE_ROW; ++done) {
            for (size_t c = 0; c < cells.size(); ++c)
                cells[c] = cell(statement, int(c), &scratch[c]);
            more = sink(firstRow + done, cells.data());
        }
        sqlite3_finalize(statement);
        if (!more)
            return false;
    }
    // Rows past the end of a table, or of the table list, read as empty cells.
    std::fill(cells.begin(), cells.end(), Cell{"", 0});
    for (; done < count; ++done) {
        if (!sink(firstRow + done, cells.data()))
            return false;
    }
    return true;
}

bool RowStream::readColumns(const QString &table, qint64 firstRow, qint64 offset, qint64 count,
                            const QList<int> &columns, const Sink &sink)
{
    // One statement per column, stepped side by side: each column in the order the handler's
    // own statement for it would read; a column whose statement fails reads as empty.
    std::vector<sqlite3_stmt *> statements;
    for (int column : columns)
        statements.push_back(prepare({m_fields.at(column)}, table, offset, count));
    std::vector<Cell> cells(statements.size());
    std::vector<QByteArray> scratch(statements.size());
    bool more = true;
    for (qint64 done = 0; more && done < count; ++done) {
        for (size_t c = 0; c < statements.size(); ++c) {
            if (statements[c] && sqlite3_step(statements[c]) == SQLITE_ROW) {
                cells[c] = cell(statements[c], 0, &scratch[c]);
            } else {
                sqlite3_finalize(statements[c]);
                statements[c] = nullptr;
                cells[c] = Cell{"", 0};
            }
        }
        more = sink(firstRow + done, cells.data());
    }
    for (sqlite3_stmt *statement : statements)
        sqlite3_finalize(statement);
    return more;
}

} // namespace Zqdb
