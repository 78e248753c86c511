#include "memorydatabasemanager.h"
#include "tablewriter_p.h"

#include <QSqlError>
#include <QSqlQuery>

namespace Database {

namespace {

const QString ConnectionName = QStringLiteral("TalwenMemoryDatabase");
const QString ReadTable = QStringLiteral("TestTable");
const QString LineSeparator = QStringLiteral("@;!");

QStringList splitLine(const QString &line)
{
    return line.split(LineSeparator, Qt::SkipEmptyParts, Qt::CaseSensitive);
}

// Values go in between quotes as they stand; a value holding a quote breaks its own row only.
QString insertStatement(const QString &tableName, const QStringList &values)
{
    QString statement = QStringLiteral("INSERT INTO %1 VALUES(").arg(tableName);
    for (int i = 0; i < values.size() - 1; ++i)
        statement += QStringLiteral("'%1',").arg(values.at(i));
    statement += QStringLiteral("'%1')").arg(values.last());
    return statement;
}

// Every table goes, whatever its name, except SQLite's own sequence table.
void dropAllTables(QSqlDatabase &database)
{
    QStringList tables = database.tables(QSql::Tables);
    tables.removeOne(QStringLiteral("sqlite_sequence"));
    while (!tables.isEmpty())
        database.exec(QStringLiteral("DROP TABLE %1").arg(tables.takeFirst()));
}

bool createTable(QSqlDatabase &database, const QString &tableName, int columnCount)
{
    return !database.exec(createStatement(tableName, QString(), columnCount)).lastError().isValid();
}

QVariant firstValue(const QSqlDatabase &database, int column, int row)
{
    QSqlQuery query(database);
    query.exec(QStringLiteral("SELECT %1 FROM %2 LIMIT 1 OFFSET %3")
                       .arg(QStringLiteral("column") + QString::number(column), ReadTable)
                       .arg(row));
    if (!query.first())
        return QVariant();
    return query.record().value(0);
}

} // namespace

MemoryDatabaseManager *MemoryDatabaseManager::m_pInstance = nullptr;

// Creates the instance once; later calls keep the existing one.
void MemoryDatabaseManager::init()
{
    if (!m_pInstance)
        m_pInstance = new MemoryDatabaseManager;
}

MemoryDatabaseManager *MemoryDatabaseManager::instance()
{
    return m_pInstance;
}

void MemoryDatabaseManager::destruct()
{
    delete m_pInstance;
    m_pInstance = nullptr;
}

// Registers the in-memory connection. An earlier registration (left by destruct()) is
// replaced; removing it first keeps Qt from warning about the duplicate name.
MemoryDatabaseManager::MemoryDatabaseManager()
    : m_currentRow(0), m_columnCount(-1), m_rowCount(-1), m_isEnd(false)
{
    if (QSqlDatabase::contains(ConnectionName))
        QSqlDatabase::removeDatabase(ConnectionName);
    m_database = QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"), ConnectionName);
    m_database.setDatabaseName(QStringLiteral(":memory:"));
    m_database.open();
}

MemoryDatabaseManager::MemoryDatabaseManager(const MemoryDatabaseManager &other) = default;
MemoryDatabaseManager &
MemoryDatabaseManager::operator=(const MemoryDatabaseManager &other) = default;

// Closes the shared connection, so destroying a copy closes the singleton's database too.
MemoryDatabaseManager::~MemoryDatabaseManager()
{
    m_database.close();
}

// Rebuilds the memory table from records; false when closed, empty, without values or when
// the table cannot be created. A transaction that cannot start is ignored here.
bool MemoryDatabaseManager::generateDatabase(QString tableName, QList<QSqlRecord> records)
{
    if (!m_database.isOpen())
        return false;
    dropAllTables(m_database);
    if (records.isEmpty() || records.first().count() == 0)
        return false;
    m_isEnd = false;
    m_rowCount = records.size();
    m_columnCount = records.first().count();
    if (!createTable(m_database, tableName, m_columnCount))
        return false;

    m_database.transaction();
    QStringList values;
    for (const QSqlRecord &record : qAsConst(records)) {
        values.clear();
        for (int c = 0; c < m_columnCount; ++c)
            values.append(record.value(c).toString());
        m_database.exec(insertStatement(tableName, values));
    }
    m_database.commit();
    m_currentRow = 0;
    return true;
}

// Rebuilds the memory table from "@;!"-joined lines; lines with another number of values
// than the first are skipped but still counted. False also when no transaction can start.
bool MemoryDatabaseManager::generateDatabase(QString tableName, QStringList lines)
{
    if (!m_database.isOpen())
        return false;
    dropAllTables(m_database);
    if (lines.isEmpty())
        return false;
    const int columnCount = splitLine(lines.first()).size();
    if (columnCount == 0)
        return false;
    m_isEnd = false;
    m_rowCount = lines.size();
    m_columnCount = columnCount;
    if (!createTable(m_database, tableName, m_columnCount))
        return false;

    if (!m_database.transaction()) {
        m_lastError = QStringLiteral("Can't begin transaction");
        return false;
    }
    for (const QString &line : qAsConst(lines)) {
        const QStringList values = splitLine(line);
        if (values.size() != m_columnCount)
            continue;
        m_database.exec(insertStatement(tableName, values));
    }
    m_database.commit();
    m_currentRow = 0;
    return true;
}

int MemoryDatabaseManager::getTableRowsCount()
{
    return m_rowCount;
}

int MemoryDatabaseManager::getTableColumnsCount()
{
    return m_columnCount;
}

QString MemoryDatabaseManager::getLastError() const
{
    return m_lastError;
}

// Clamps to the table; going past the last row sets the end flag.
void MemoryDatabaseManager::doGoTo(int row)
{
    m_isEnd = false;
    m_currentRow = row < 0 ? 0 : row;
    if (m_currentRow >= m_rowCount) {
        m_isEnd = true;
        m_currentRow = m_rowCount - 1;
    }
}

// Steps forward; a step past the last row keeps the cursor there and sets the end flag.
void MemoryDatabaseManager::doNext()
{
    ++m_currentRow;
    if (m_currentRow >= m_rowCount) {
        m_isEnd = true;
        m_currentRow = m_rowCount - 1;
    }
}

// Hosts link to both names; GCC can give the one body both symbols.
#if defined(__GNUC__) && !defined(__clang__)
void MemoryDatabaseManager::finishMarking()
        __attribute__((alias("_ZN8Database21MemoryDatabaseManager6doNextEv")));
#else
void MemoryDatabaseManager::finishMarking()
{
    doNext();
}
#endif

void MemoryDatabaseManager::doPre()
{
    --m_currentRow;
    m_isEnd = false;
    if (m_currentRow <= 0)
        m_currentRow = 0;
}

void MemoryDatabaseManager::doReset()
{
    m_currentRow = 0;
    m_isEnd = false;
}

bool MemoryDatabaseManager::isEnd()
{
    return m_isEnd;
}

// Reads a cell of the cursor's row from "TestTable"; the 1-based column is clamped. A
// negative cursor (no rows) reads nothing, since SQLite would treat the offset as 0.
QVariant MemoryDatabaseManager::recordValue(int column)
{
    if (!m_database.isOpen() || m_currentRow < 0)
        return QVariant();
    if (column <= 0)
        column = 1;
    else if (column > m_columnCount)
        column = m_columnCount;
    return firstValue(m_database, column, m_currentRow);
}

// Reads any cell of "TestTable"; row and column are 0-based and must lie inside the counts.
QVariant MemoryDatabaseManager::recordValue(int row, int column)
{
    if (!m_database.isOpen() || row < 0 || row >= m_rowCount || column < 0
        || column >= m_columnCount)
        return QVariant();
    return firstValue(m_database, column + 1, row);
}

QSqlDatabase MemoryDatabaseManager::memoryDatabase()
{
    return m_database;
}

} // namespace Database
