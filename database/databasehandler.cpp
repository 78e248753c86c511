#include "databasehandler.h"

#include "databasemanager.h"

#include <core/consolesingleton.h>

#include <QFileInfo>
#include <QSqlError>
#include <QSqlQuery>
#include <QSqlTableModel>

namespace Database {

namespace {

const QString SequenceTable = QStringLiteral("sqlite_sequence");
const QString IdField = QStringLiteral("id");

} // namespace

DatabaseHandler::DatabaseHandler()
    : m_recordCount(0), m_isOpen(false), m_hasIdField(false)
{
}

DatabaseHandler::DatabaseHandler(const DatabaseHandler &other) = default;
DatabaseHandler &DatabaseHandler::operator=(const DatabaseHandler &other) = default;

// Closes the shared connection (other handlers of the name lose it too); the named
// connection itself stays registered for reuse.
DatabaseHandler::~DatabaseHandler()
{
    if (m_sqlDatabase.isOpen())
        m_sqlDatabase.close();
    Core::ConsoleSingleton::instance().log("DatabaseHandler::~DatabaseHandler:: %s",
                                           m_databaseName.toLocal8Bit().constData());
}

// Returns the named connection, opened again if it was closed, or registers a new
// SQLite connection under that name. Connections are never removed.
QSqlDatabase DatabaseHandler::createSqlDatabase(const QString &connectionName)
{
    if (QSqlDatabase::contains(connectionName))
        return QSqlDatabase::database(connectionName, true);
    return QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"), connectionName);
}

// Opens the catalogued database and makes its first table current. True at once when
// the name is already the current one, even if that database failed to open.
bool DatabaseHandler::setCurrentDatabaseName(const QString &name)
{
    if (name == m_databaseName)
        return true;
    DatabaseManager *catalogue = DatabaseManager::instance();
    const QString filePath = catalogue ? catalogue->path(name) : QString();
    if (filePath.isEmpty())
        return false;
    if (!openDatabase(filePath))
        return false;
    return setFirstTable();
}

QString DatabaseHandler::currentDatabaseName() const
{
    return m_databaseName;
}

QStringList DatabaseHandler::getTables()
{
    return m_sqlDatabase.tables(QSql::Tables);
}

// Makes the first table current; false when there is none or it is current already.
bool DatabaseHandler::setFirstTable()
{
    m_tables = getTables();
    m_tables.removeOne(SequenceTable);
    if (m_tables.isEmpty())
        return false;
    if (m_tables.first() == m_tableName)
        return false;
    m_tableName = m_tables.first();
    updateTableInfo();
    return true;
}

// Switches the current table without checking that it exists; false if it is current.
bool DatabaseHandler::setTableName(const QString &name)
{
    if (name == m_tableName)
        return false;
    m_tableName = name;
    updateTableInfo();
    return true;
}

QString DatabaseHandler::tableName() const
{
    return m_tableName;
}

// Reloads the column list of the current table; an unknown table leaves everything as it
// was. Types come from the application's default connection, which may lack the table.
void DatabaseHandler::updateTableInfo()
{
    // A query on an invalid handle would run on the default connection instead.
    if (!m_sqlDatabase.isOpen())
        return;
    QSqlQuery query(m_sqlDatabase);
    query.exec(QStringLiteral("PRAGMA table_info (") + m_tableName + QLatin1Char(')'));
    if (!query.first())
        return;

    m_fieldNames.clear();
    m_fieldTypes.clear();
    do {
        m_fieldNames.append(query.record().value(QStringLiteral("name")).toString());
    } while (query.next());

    QSqlTableModel model(nullptr, QSqlDatabase());
    model.setTable(m_tableName);
    const QSqlRecord record = model.record();
    // Every type a driver gives a field is a built-in one, which QVariant::Type names alike.
    QT_WARNING_PUSH
    QT_WARNING_DISABLE_DEPRECATED // QVariant::Type: see the header
    for (int i = 0; i < m_fieldNames.size(); ++i)
        m_fieldTypes.append(QVariant::Type(record.value(i).userType()));
    QT_WARNING_POP

    m_hasIdField = false;
    if (!m_fieldNames.isEmpty() && m_fieldNames.first() == IdField) {
        m_hasIdField = true;
        m_fieldNames.removeFirst();
        if (!m_fieldTypes.isEmpty())
            m_fieldTypes.removeFirst();
    }
    updateRecordCount();
}

QStringList DatabaseHandler::getFieldNames() const
{
    return m_fieldNames;
}

QT_WARNING_PUSH
QT_WARNING_DISABLE_DEPRECATED // QVariant::Type: see the header
QList<QVariant::Type> DatabaseHandler::getFieldTypes() const
{
    return m_fieldTypes;
}
QT_WARNING_POP

// The number of records over all tables of the database, not of the current table.
int DatabaseHandler::getTableRecordCount()
{
    return m_recordCount;
}

bool DatabaseHandler::isDatabaseOpen()
{
    return m_isOpen;
}

// Reads one cell by its index over all tables, each holding rowsPerTable records. The
// table switch is silent: the field list stays that of the table loaded last.
QVariant DatabaseHandler::recordValue(int row, int column, int rowsPerTable)
{
    if (row < 0 || m_fieldNames.isEmpty() || column >= m_fieldNames.size())
        return QVariant();
    if (rowsPerTable <= 0)
        return QVariant();
    const int tableIndex = row / rowsPerTable;
    const int offset = row % rowsPerTable;
    if (tableIndex >= m_tables.size())
        return QVariant();
    m_tableName = m_tables.at(tableIndex);
    if (!m_sqlDatabase.isOpen())
        return QVariant();

    // A negative column gives an empty name, so the statement fails instead of reading.
    QSqlQuery query(m_sqlDatabase);
    query.exec(QStringLiteral("SELECT ") + m_fieldNames.value(column)
               + QStringLiteral(" FROM ") + m_tableName + QStringLiteral(" LIMIT 1 OFFSET ")
               + QString::number(offset, 10));
    if (query.lastError().type() == QSqlError::NoError && query.first())
        return query.record().value(0);
    return QVariant();
}

// Opens an existing regular file under a connection named after its base name. On a
// failed open the handler stays closed but keeps the new name.
bool DatabaseHandler::openDatabase(const QString &filePath)
{
    const QFileInfo info(filePath);
    if (!info.isFile())
        return false;
    closeCurrentDatabase();
    m_databaseName = info.baseName();
    m_sqlDatabase = createSqlDatabase(m_databaseName);
    m_sqlDatabase.setDatabaseName(info.absoluteFilePath());
    if (m_sqlDatabase.open()) {
        m_isOpen = true;
        return true;
    }
    // The handler reports no text; the driver's message is left unread.
    return false;
}

// Closes the connection; the field list of the last table deliberately stays readable.
void DatabaseHandler::closeCurrentDatabase()
{
    m_sqlDatabase.close();
    if (!m_tableName.isEmpty()) {
        m_tableName = QLatin1String("");
        updateTableInfo();
    }
    m_isOpen = false;
    m_recordCount = 0;
    m_hasIdField = false;
    m_databaseName.clear();
}

// Sums the row counts of all listed tables; a table whose count fails adds nothing.
void DatabaseHandler::updateRecordCount()
{
    m_recordCount = 0;
    const QStringList tables = m_tables;
    QSqlQuery query(m_sqlDatabase);
    for (const QString &table : tables) {
        query.exec(QStringLiteral("SELECT COUNT(1) FROM ") + table);
        if (query.first())
            m_recordCount += query.value(0).toInt();
    }
}

} // namespace Database
