#include "xlsxtodbgenerator.h"

#include "progressreport_p.h"
#include "tablewriter_p.h"

#include <core/xlsxreader.h>

#include <QObject>
#include <QSqlDatabase>

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

// Reads every row of the sheet's data area, the first one included, and writes it in batches
// of batchRows rows; a failed batch does not stop the following ones.
bool XlsxToDBGenerator::parserFromFile(const QString &sourceFile, const QString &databaseFile,
                                       qint64, int batchRows)
{
    std::unique_ptr<Core::XlsxReader> reader(new Core::XlsxReader);
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
    int rowsInBatch = 0;
    bool pending = false;
    const auto cancelled = [this] {
        m_log = QObject::tr("Import cancelled");
        return false;
    };
    // Rows of the sheet; a cancel drops the batch being read, committed tables stay.
    ProgressReport progress(reader->rowCount());
    if (reader->rowCount() < 1)
        return progress.finish() || cancelled();

    for (int row = 0; row < reader->rowCount() && progress.advance(row); ++row) {
        QStringList values;
        values.reserve(m_columnCount);
        for (int column = 0; column < m_columnCount; ++column)
            values.append(reader->textAt(row, column));
        if (values.isEmpty())
            continue;
        m_values.append(values);
        ++rowsInBatch;
        pending = true;
        if (rowsInBatch >= batchRows) {
            if (!progress.advance(row + 1, true))
                break;
            result = generateDatabase(databaseFile,
                                      QStringLiteral("table") + QString::number(tableIndex))
                    && result;
            ++tableIndex;
            m_values.clear();
            pending = false;
            rowsInBatch = 0;
        }
    }
    if (!progress.isCancelled() && progress.finish() && pending)
        result = generateDatabase(databaseFile,
                                  QStringLiteral("table") + QString::number(tableIndex))
                && result;
    return progress.isCancelled() ? cancelled() : result;
}

// Writes m_values into tableName inside one transaction; the first bad row rolls the whole
// batch back. True when every row went in.
bool XlsxToDBGenerator::generateDatabase(const QString &databaseFile, const QString &tableName)
{
    if (m_values.isEmpty()) {
        m_log = QObject::tr("The source file is empty");
        return false;
    }
    if (databaseFile.isEmpty()) {
        m_log = QObject::tr("Database name empty");
        return false;
    }
    if (tableName.isEmpty()) {
        m_log = QObject::tr("Table name empty");
        return false;
    }

    QSqlDatabase db;
    if (!TableWriter::openConnection(&db, databaseFile)) {
        m_log = QObject::tr("Open database file failed!");
        return false;
    }
    if (!makeDatabase(db, tableName, m_columnCount)) {
        db.close();
        return false;
    }

    TableWriter writer(db, tableName, m_columnCount, TableWriter::Rows::StopAtFirst);
    if (!writer.begin()) {
        db.close();
        m_log = QObject::tr("Database transaction error!");
        return false;
    }
    // A commit that fails (a full disk, a lock) leaves the batch unwritten, so it fails too.
    bool ok = writer.insert(RowBatch(m_values)) == TableWriter::Insert::Inserted
            && writer.commit(nullptr);
    if (!ok) {
        writer.rollback(nullptr);
        // Replaces the row message on purpose: a failed batch reads as a failed commit.
        m_log = QObject::tr("Database commit error");
    }
    db.close();
    return ok;
}

// Makes sure tableName exists empty with the generated layout: an existing table is emptied
// and its id sequence reset, never dropped.
bool XlsxToDBGenerator::makeDatabase(QSqlDatabase &database, const QString &tableName,
                                     const int &columnCount)
{
    const TableWriter::Table table = TableWriter::prepareTable(database, tableName, columnCount);
    m_log = TableWriter::message(table, m_log);
    return table == TableWriter::Table::Created || table == TableWriter::Table::Emptied;
}

} // namespace Database
