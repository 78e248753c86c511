#include "databasetablemodel.h"

#include "databasehandler.h"
#include "databasehandlerfactory.h"
#include "databasemanager.h"

#include <QSqlDatabase>
#include <QSqlQuery>
#include <QSqlRecord>
#include <QVector>

namespace Database {

namespace {

// The importers' table length: global row r is row r % 50000 of table r / 50000.
constexpr int RowsPerTable = 50000;
constexpr int MaxBlockRows = 256;
constexpr int MaxBlockCells = 4096;
constexpr int CacheCells = 16 * MaxBlockCells;

// The factory knows readers only by a DatabaseObject pointer; the model's own address serves,
// so a host must not register that same address itself.
DatabaseObject *identity(const DatabaseTableModel *model)
{
    return reinterpret_cast<DatabaseObject *>(const_cast<DatabaseTableModel *>(model));
}

// The driver opens any file lazily; one that is not a database fails its first statement.
bool isReadable(const QString &connectionName)
{
    const QSqlDatabase database = QSqlDatabase::database(connectionName, false);
    return database.isOpen()
            && QSqlQuery(database).exec(QStringLiteral("SELECT 1 FROM sqlite_master"));
}

} // namespace

// Cells of up to m_blockRows rows of one table, row by row; invalid where recordValue is.
struct DatabaseTableModel::Block
{
    int columns = 0;
    QVector<QVariant> cells;
};

DatabaseTableModel::DatabaseTableModel(QObject *parent)
    : QAbstractTableModel(parent)
{ }

DatabaseTableModel::~DatabaseTableModel()
{
    leaveDatabase();
}

// Registers with the factory for the catalogued database and shows it; the database shown
// before is left. Setting the same name again rereads it. False, and an empty model, when the
// catalogue or factory is missing, the name is unknown or the file is not a readable database.
bool DatabaseTableModel::setDatabaseName(const QString &name)
{
    beginResetModel();
    leaveDatabase();
    DatabaseHandlerFactory *factory = DatabaseHandlerFactory::instance();
    DatabaseHandler *handler = factory && DatabaseManager::instance()
            ? factory->registSqlDatabase(identity(this), name)
            : nullptr;
    if (handler && isReadable(handler->currentDatabaseName())) {
        m_databaseName = name;
        m_connectionName = handler->currentDatabaseName();
        m_fieldNames = handler->getFieldNames();
        // The handler's table list: the connection's, without "sqlite_sequence".
        m_tables = handler->getTables();
        m_tables.removeOne(QStringLiteral("sqlite_sequence"));
        m_rowCount = handler->getTableRecordCount();
    } else if (handler) {
        factory->unregistSqlDatabase(identity(this));
    }
    const int columns = qMax(1, m_fieldNames.size());
    m_blockRows = qBound(1, MaxBlockCells / columns, MaxBlockRows);
    m_blocks.setMaxCost(qMax(CacheCells, m_blockRows * columns));
    endResetModel();
    return !m_connectionName.isEmpty();
}

QString DatabaseTableModel::databaseName() const
{
    return m_databaseName;
}

int DatabaseTableModel::rowCount(const QModelIndex &parent) const
{
    return parent.isValid() ? 0 : m_rowCount;
}

int DatabaseTableModel::columnCount(const QModelIndex &parent) const
{
    return parent.isValid() ? 0 : m_fieldNames.size();
}

QVariant DatabaseTableModel::data(const QModelIndex &index, int role) const
{
    if (role != Qt::DisplayRole || !index.isValid() || index.column() >= m_fieldNames.size())
        return QVariant();
    const int table = index.row() / RowsPerTable;
    const int offset = index.row() % RowsPerTable;
    if (table >= m_tables.size())
        return QVariant();
    const int first = offset - offset % m_blockRows;
    const Block *cells = block(table, first);
    return cells->cells.value((offset - first) * cells->columns + index.column());
}

QVariant DatabaseTableModel::headerData(int section, Qt::Orientation orientation, int role) const
{
    if (orientation == Qt::Horizontal && role == Qt::DisplayRole)
        return m_fieldNames.value(section);
    return QAbstractTableModel::headerData(section, orientation, role);
}

void DatabaseTableModel::leaveDatabase()
{
    if (DatabaseHandlerFactory *factory = DatabaseHandlerFactory::instance())
        factory->unregistSqlDatabase(identity(this));
    m_databaseName.clear();
    m_connectionName.clear();
    m_fieldNames.clear();
    m_tables.clear();
    m_rowCount = 0;
    m_blocks.clear();
    m_indexedTables.clear();
}

// The cached block of the table's rows from first on, read when missing. A closed connection
// (its handler gone) reads nothing, as recordValue does, and its answer is not kept.
const DatabaseTableModel::Block *DatabaseTableModel::block(int table, int first) const
{
    static const Block closed;
    const QSqlDatabase database = QSqlDatabase::database(m_connectionName, false);
    if (!database.isOpen())
        return &closed;
    const qint64 key = (qint64(table) << 32) | first;
    if (const Block *cached = m_blocks.object(key))
        return cached;
    Block *cells = readBlock(database, table, first);
    m_blocks.insert(key, cells, qMax(1, cells->cells.size()));
    return cells;
}

// Reads rows as recordValue would, "SELECT field FROM table LIMIT 1 OFFSET row": all fields in
// one statement where the table's rows come in the same order for any column list (no index
// can serve a narrower select), otherwise one statement per field, which also keeps a field
// the table lacks from failing the others.
DatabaseTableModel::Block *DatabaseTableModel::readBlock(const QSqlDatabase &database, int table,
                                                         int first) const
{
    const int rows = qMin(m_blockRows, RowsPerTable - first);
    const int columns = m_fieldNames.size();
    Block *cells = new Block;
    cells->columns = columns;
    cells->cells.resize(rows * columns);

    const QString tableName = m_tables.at(table);
    const QString tail = QStringLiteral(" FROM ") + tableName + QStringLiteral(" LIMIT ")
            + QString::number(rows) + QStringLiteral(" OFFSET ") + QString::number(first);
    auto indexed = m_indexedTables.find(tableName);
    if (indexed == m_indexedTables.end()) {
        QSqlQuery indexes(database);
        const bool listed
                = indexes.exec(QStringLiteral("PRAGMA index_list(") + tableName + QLatin1Char(')'));
        indexed = m_indexedTables.insert(tableName, !listed || indexes.next());
    }
    if (!indexed.value()) {
        QSqlQuery query(database);
        query.setForwardOnly(true);
        if (query.exec(QStringLiteral("SELECT ") + m_fieldNames.join(QStringLiteral(", ")) + tail)
            && query.record().count() == columns) {
            for (int r = 0; r < rows && query.next(); ++r) {
                for (int c = 0; c < columns; ++c)
                    cells->cells[r * columns + c] = query.value(c);
            }
            return cells;
        }
    }
    for (int c = 0; c < columns; ++c) {
        QSqlQuery query(database);
        query.setForwardOnly(true);
        if (!query.exec(QStringLiteral("SELECT ") + m_fieldNames.at(c) + tail))
            continue;
        for (int r = 0; r < rows && query.next(); ++r)
            cells->cells[r * columns + c] = query.value(0);
    }
    return cells;
}

} // namespace Database
