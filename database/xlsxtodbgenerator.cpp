#include "xlsxtodbgenerator.h"

#include "progressreport_p.h"
#include "tablewriter_p.h"

#include <core/xlsxrowreader_p.h>

#include <QObject>
#include <QSqlDatabase>

#include <cstring>
#include <memory>

namespace Database {

XlsxToDBGenerator::XlsxToDBGenerator()
    : m_columnCount(0)
{ }

XlsxToDBGenerator::XlsxToDBGenerator(const XlsxToDBGenerator &other) = default;
XlsxToDBGenerator &XlsxToDBGenerator::operator=(const XlsxToDBGenerator &other) = default;
XlsxToDBGenerator::~XlsxToDBGenerator() = default;

// Imports the first worksheet into table1, table2, ... of databaseFile; true when every batch
// was committed. On false, getLog() holds the message of the last failing step.
bool XlsxToDBGenerator::importOriginalFile(const QString &sourceFile, const QString &databaseFile)
{
    m_log.clear();
    return parserFromFile(sourceFile, databaseFile, 0, 50000);
}

QString XlsxToDBGenerator::getLog() const
{
    return m_log;
}

namespace {

// The importers' message for a table that is not ready, as makeDatabase keeps it.
bool prepareTable(QSqlDatabase &database, const QString &tableName, int columnCount, QString *log)
{
    const TableWriter::Table table = TableWriter::prepareTable(database, tableName, columnCount);
    *log = TableWriter::message(table, *log);
    return table == TableWriter::Table::Created || table == TableWriter::Table::Emptied;
}

// Writes rows into tableName inside one transaction; the first bad row rolls the whole batch
// back. True when every row went in.
bool writeBatch(const RowBatch &rows, int columnCount, const QString &databaseFile,
                const QString &tableName, QString *log)
{
    if (rows.isEmpty()) {
        *log = QObject::tr("The source file is empty");
        return false;
    }
    if (databaseFile.isEmpty()) {
        *log = QObject::tr("Database name empty");
        return false;
    }
    if (tableName.isEmpty()) {
        *log = QObject::tr("Table name empty");
        return false;
    }

    QSqlDatabase db;
    if (!TableWriter::openConnection(&db, databaseFile)) {
        *log = QObject::tr("Open database file failed!");
        return false;
    }
    if (!prepareTable(db, tableName, columnCount, log)) {
        db.close();
        return false;
    }

    TableWriter writer(db, tableName, columnCount, TableWriter::Rows::StopAtFirst);
    if (!writer.begin()) {
        db.close();
        *log = QObject::tr("Database transaction error!");
        return false;
    }
    // A commit that fails (a full disk, a lock) leaves the batch unwritten, so it fails too.
    bool ok = writer.insert(rows) == TableWriter::Insert::Inserted && writer.commit(nullptr);
    if (!ok) {
        writer.rollback(nullptr);
        // Replaces the row message on purpose: a failed batch reads as a failed commit.
        *log = QObject::tr("Database commit error");
    }
    db.close();
    return ok;
}

// Whether the direct path would bind the UTF-8 of this text as the text itself: not for what
// SQLite converts from UTF-16 in its own way (see appendUtf8 in tablewriter.cpp), which is
// the 4-byte sequences, U+FFFE, U+FFFF and a leading byte-order mark.
bool bindsAsUtf8(const char *text, int size)
{
    if (size >= 3 && std::memcmp(text, "\xef\xbb\xbf", 3) == 0)
        return false;
    for (int i = 0; i < size; ++i) {
        const uchar c = uchar(text[i]);
        if (c < 0xef)
            continue;
        if (c >= 0xf0
            || (i + 2 < size && uchar(text[i + 1]) == 0xbf && (uchar(text[i + 2]) & 0xfe) == 0xbe))
            return false;
    }
    return true;
}

// Appends a row of the sheet to the batch: as UTF-8 fields where that binds the same text,
// otherwise as the decoded texts the exact path binds.
void appendRow(RowBatch *batch, const Core::XlsxRow &row, int columnCount)
{
    const char *bytes = row.bytes.constData();
    bool plain = row.inexact.isEmpty();
    for (int column = 0; plain && column < columnCount; ++column)
        plain = bindsAsUtf8(bytes + row.ends.at(column),
                            row.ends.at(column + 1) - row.ends.at(column));
    if (plain) {
        batch->beginRow();
        for (int column = 0; column < columnCount; ++column)
            batch->appendField(bytes + row.ends.at(column),
                               row.ends.at(column + 1) - row.ends.at(column));
        batch->endRow();
        return;
    }
    QStringList fields;
    fields.reserve(columnCount);
    for (int column = 0; column < columnCount; ++column) {
        fields.append(row.inexact.contains(column)
                              ? row.inexact.value(column)
                              : QString::fromUtf8(bytes + row.ends.at(column),
                                                  row.ends.at(column + 1) - row.ends.at(column)));
    }
    batch->append(fields);
}

} // namespace

// Reads every row of the sheet's data area, the first one included, and writes it in batches
// of batchRows rows; a failed batch does not stop the following ones. The sheet is checked
// whole before the first batch and then read row by row, so that memory does not grow with it.
bool XlsxToDBGenerator::parserFromFile(const QString &sourceFile, const QString &databaseFile,
                                       qint64, int batchRows)
{
    std::unique_ptr<Core::XlsxRowReader> reader(new Core::XlsxRowReader);
    if (!reader->open(sourceFile)) {
        m_log = QObject::tr("Cannot open file %1 for reading.").arg(sourceFile);
        return false;
    }
    if (reader->isEmpty()) {
        m_log = QObject::tr("%1 has no valid data.").arg(sourceFile);
        return false;
    }

    m_values.clear();
    m_columnCount = reader->columnCount();
    bool result = true;
    int tableIndex = 1;
    const auto cancelled = [this] {
        m_log = QObject::tr("Import cancelled");
        return false;
    };
    // Rows of the sheet; a cancel drops the batch being read, committed tables stay.
    const int rows = reader->rowCount();
    ProgressReport progress(rows);
    if (rows < 1)
        return progress.finish() || cancelled();

    RowBatch batch;
    const auto writeTable = [&] {
        result = writeBatch(batch, m_columnCount, databaseFile,
                            QStringLiteral("table") + QString::number(tableIndex), &m_log)
                && result;
        ++tableIndex;
        batch.clear();
    };
    const bool read = reader->readRows([&](const Core::XlsxRow &row) {
        if (!progress.advance(row.index))
            return false;
        appendRow(&batch, row, m_columnCount);
        if (batch.size() >= batchRows) {
            if (!progress.advance(row.index + 1, true))
                return false;
            writeTable();
        }
        return true;
    });
    if (progress.isCancelled())
        return cancelled();
    if (!read) {
        // The file changed after it was checked.
        m_log = QObject::tr("Cannot open file %1 for reading.").arg(sourceFile);
        return false;
    }
    if (progress.finish() && !batch.isEmpty())
        writeTable();
    return progress.isCancelled() ? cancelled() : result;
}

// Writes m_values into tableName inside one transaction; the first bad row rolls the whole
// batch back. True when every row went in.
bool XlsxToDBGenerator::generateDatabase(const QString &databaseFile, const QString &tableName)
{
    return writeBatch(RowBatch(m_values), m_columnCount, databaseFile, tableName, &m_log);
}

// Makes sure tableName exists empty with the generated layout: an existing table is emptied
// and its id sequence reset, never dropped.
bool XlsxToDBGenerator::makeDatabase(QSqlDatabase &database, const QString &tableName,
                                     const int &columnCount)
{
    return prepareTable(database, tableName, columnCount, &m_log);
}

} // namespace Database
