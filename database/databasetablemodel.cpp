#include "databasetablemodel.h"

#include "databasehandler.h"
#include "databasehandlerfactory.h"
#include "databasemanager.h"


namespace Database {

namespace {

constexpr int MaxBlockRows = 256;
constexpr int MaxBlockCells = 4096;
constexpr int CacheCells = 16 * MaxBlockCells;

// The factory knows readers only by a DatabaseObject pointer; the model's own address serves,
// so a host must not register that same address itself.
DatabaseObject *identity(const DatabaseTableModel *model)
{
    return reinterpret_cast<DatabaseObject *>(const_cast<DatabaseTableModel *>(model));
}

} // namespace

// Cells of up to m_blockRows rows of one table, row by row; invalid where recordValue is.
struct DatabaseTableModel::Block
{
    std::vector<QVariant> cells;
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
    if (handler && m_reader.setHandler(*handler)) {
        m_databaseName = name;
        m_fieldNames = m_reader.fieldNames();
        for (int c = 0; c < m_fieldNames.size(); ++c)
            m_columns << c;
        m_rowCount = handler->getTableRecordCount();
    } else if (handler) {
        factory->unregistSqlDatabase(identity(this));
    }
    const int columns = qMax(1, m_fieldNames.size());
    m_blockRows = qBound(1, MaxBlockCells / columns, MaxBlockRows);
    m_blocks.setMaxCost(qMax(CacheCells, m_blockRows * columns));
    endResetModel();
    return !m_databaseName.isEmpty();
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
    // Blocks start at a multiple of m_blockRows within their table and never cross its end.
    const int rowsPerTable = m_reader.rowsPerTable();
    const int offset = index.row() % rowsPerTable;
    const int first = index.row() - offset % m_blockRows;
    const std::vector<QVariant> &cells = block(first)->cells;
    const size_t cell = size_t((index.row() - first) * m_fieldNames.size() + index.column());
    return cell < cells.size() ? cells[cell] : QVariant();
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
    m_fieldNames.clear();
    m_columns.clear();
    m_rowCount = 0;
    m_reader.clear();
    m_blocks.clear();
}

// The cached block of rows from first on, read when missing. A closed connection (its handler
// gone) reads nothing, as recordValue does, and its answer is not kept.
const DatabaseTableModel::Block *DatabaseTableModel::block(int first) const
{
    if (const Block *cached = m_blocks.object(first))
        return cached;
    const int rowsPerTable = m_reader.rowsPerTable();
    const int rows = qMin(m_blockRows, rowsPerTable - first % rowsPerTable);
    auto *cells = new Block;
    if (!m_reader.readValues(first, rows, m_columns, &cells->cells)) {
        static Block closed;
        delete cells;
        return &closed;
    }
    m_blocks.insert(first, cells, qMax(1, int(cells->cells.size())));
    return cells;
}

} // namespace Database
