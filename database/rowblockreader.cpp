#include "rowblockreader.h"

#include "databasehandler.h"
#include "sqlitehandle_p.h"
#include "utf8_p.h"

#include <QHash>
#include <QSqlDatabase>
#include <QSqlQuery>
#include <QSqlRecord>

#include <sqlite3.h>

#include <vector>

namespace Database {

namespace {

// The driver's value for an SQL NULL: a null string.
QVariant nullText()
{
#if QT_VERSION >= QT_VERSION_CHECK(6, 0, 0)
    return QVariant(QMetaType(QMetaType::QString));
#else
    return QVariant(QVariant::String);
#endif
}

// One select over a run of a table's rows: SQLite's own statement where the driver runs on
// this library's SQLite, the driver's query otherwise. Either gives the values the driver would.
class Select
{
public:
    Select(sqlite3 *handle, const QSqlDatabase &database, const QString &sql)
    {
        if (handle) {
            const QByteArray text = sql.toUtf8();
            if (sqlite3_prepare_v2(handle, text.constData(), int(text.size()), &m_statement,
                                   nullptr)
                == SQLITE_OK) {
                m_live = m_statement != nullptr;
                m_columns = sqlite3_column_count(m_statement);
            }
        } else {
            m_query.reset(new QSqlQuery(database));
            m_query->setForwardOnly(true);
            m_live = m_query->exec(sql);
            m_columns = m_query->record().count();
        }
    }
    ~Select() { sqlite3_finalize(m_statement); }
    Select(const Select &) = delete;
    Select &operator=(const Select &) = delete;

    bool isLive() const { return m_live; }
    int columnCount() const { return m_columns; }

    // Moves to the next row; false, for good, past the last.
    bool next()
    {
        if (m_live)
            m_live = m_statement ? sqlite3_step(m_statement) == SQLITE_ROW : m_query->next();
        return m_live;
    }

    QVariant value(int column) const
    {
        if (!m_statement)
            return m_query->value(column);
        switch (sqlite3_column_type(m_statement, column)) {
        case SQLITE_NULL:
            return nullText();
        case SQLITE_INTEGER:
            return QVariant(qlonglong(sqlite3_column_int64(m_statement, column)));
        case SQLITE_FLOAT:
            return QVariant(sqlite3_column_double(m_statement, column));
        case SQLITE_BLOB:
            return QVariant(blob(column));
        default:
            return QVariant(text16(column));
        }
    }

    // The cell's text, in place where SQLite holds it as well-formed UTF-8, else in scratch.
    RowBlockReader::TextCell text(int column, QByteArray *scratch) const
    {
        if (!m_statement) {
            *scratch = m_query->value(column).toString().toUtf8();
        } else {
            switch (sqlite3_column_type(m_statement, column)) {
            case SQLITE_NULL:
                return {"", 0};
            case SQLITE_INTEGER:
                *scratch = QByteArray::number(sqlite3_column_int64(m_statement, column));
                break;
            case SQLITE_FLOAT:
                *scratch = QVariant(sqlite3_column_double(m_statement, column)).toString().toUtf8();
                break;
            case SQLITE_BLOB:
                *scratch = QVariant(blob(column)).toString().toUtf8();
                break;
            default: {
                const unsigned char *utf8 = sqlite3_column_text(m_statement, column);
                const int size = sqlite3_column_bytes(m_statement, column);
                if (isValidUtf8(reinterpret_cast<const char *>(utf8), size))
                    return {reinterpret_cast<const char *>(utf8), size};
                *scratch = text16(column).toUtf8();
            }
            }
        }
        return {scratch->constData(), int(scratch->size())};
    }

private:
    QByteArray blob(int column) const
    {
        return QByteArray(static_cast<const char *>(sqlite3_column_blob(m_statement, column)),
                          sqlite3_column_bytes(m_statement, column));
    }
    // Malformed UTF-8 decodes as SQLite decodes it for the driver.
    QString text16(int column) const
    {
        const void *utf16 = sqlite3_column_text16(m_statement, column);
        return QString(static_cast<const QChar *>(utf16),
                       sqlite3_column_bytes16(m_statement, column) / int(sizeof(QChar)));
    }

    sqlite3_stmt *m_statement = nullptr;
    std::unique_ptr<QSqlQuery> m_query;
    bool m_live = false;
    int m_columns = 0;
};

// Where one asked-for cell of the current row comes from; no select: the cell is invalid.
struct Source
{
    const Select *select = nullptr;
    int column = 0;
};

} // namespace

struct Q_DECL_HIDDEN RowBlockReader::Private
{
    QString connectionName;
    QStringList tables;
    QStringList fields;
    int rowsPerTable = ImporterRowsPerTable;
    mutable QHash<QString, bool> indexed;

    QSqlDatabase openConnection() const
    {
        return connectionName.isEmpty() ? QSqlDatabase()
                                        : QSqlDatabase::database(connectionName, false);
    }
    bool isIndexed(const QSqlDatabase &database, const QString &table) const;
    // Calls visit(row, sources) for rows from..end-1 in order; false when visit stopped.
    template<typename Visit>
    bool scan(qint64 from, qint64 end, const QList<int> &columns, Visit visit) const;
    template<typename Visit>
    bool scanTable(const QSqlDatabase &database, sqlite3 *handle, qint64 from, qint64 end,
                   const QList<int> &columns, Visit &visit) const;
};

// SQLite orders a one-column select by an index on that column: a table with any index is read
// one field per statement, as recordValue reads it. A list that cannot be read counts as one.
bool RowBlockReader::Private::isIndexed(const QSqlDatabase &database, const QString &table) const
{
    auto known = indexed.find(table);
    if (known == indexed.end()) {
        QSqlQuery indexes(database);
        const bool listed
                = indexes.exec(QStringLiteral("PRAGMA index_list(") + table + QLatin1Char(')'));
        known = indexed.insert(table, !listed || indexes.next());
    }
    return known.value();
}

template<typename Visit>
bool RowBlockReader::Private::scan(qint64 from, qint64 end, const QList<int> &columns,
                                   Visit visit) const
{
    const QSqlDatabase database = openConnection();
    if (!database.isOpen())
        return false;
    sqlite3 *handle = sqliteHandle(database);
    const std::vector<Source> none(size_t(columns.size()));
    for (qint64 row = from; row < end;) {
        // Negative rows, and rows beyond the last table, read as invalid cells.
        if (row < 0 || row / rowsPerTable >= tables.size()) {
            if (!visit(row++, none.data()))
                return false;
            continue;
        }
        const qint64 tableEnd = qMin(end, (row / rowsPerTable + 1) * rowsPerTable);
        if (!scanTable(database, handle, row, tableEnd, columns, visit))
            return false;
        row = tableEnd;
    }
    return true;
}

// Reads rows from..end-1 of one table with "SELECT fields FROM table LIMIT n OFFSET m", the
// handler's statement for a run of rows: all fields at once where no index can order a narrower
// select differently, otherwise, or when the joint select fails, one field per statement, so
// that a field the table lacks leaves only its own cells invalid.
template<typename Visit>
bool RowBlockReader::Private::scanTable(const QSqlDatabase &database, sqlite3 *handle, qint64 from,
                                        qint64 end, const QList<int> &columns, Visit &visit) const
{
    const QString table = tables.at(int(from / rowsPerTable));
    const QString tail = QStringLiteral(" FROM ") + table + QStringLiteral(" LIMIT ")
            + QString::number(end - from) + QStringLiteral(" OFFSET ")
            + QString::number(from % rowsPerTable);
    std::vector<std::unique_ptr<Select>> selects;
    std::vector<Source> sources(size_t(columns.size()));
    bool joint = false;
    if (!isIndexed(database, table)) {
        QStringList names;
        for (int column : columns)
            names << fields.value(column);
        if (!columns.isEmpty() && !names.contains(QString())) {
            selects.emplace_back(new Select(handle, database,
                                            QStringLiteral("SELECT ")
                                                    + names.join(QStringLiteral(", ")) + tail));
            joint = selects.back()->isLive() && selects.back()->columnCount() == columns.size();
            if (!joint)
                selects.clear();
        }
    }
    for (int c = 0; c < columns.size(); ++c) {
        const int column = columns.at(c);
        if (joint) {
            sources[size_t(c)] = {selects.front().get(), c};
        } else if (column >= 0 && column < fields.size()) {
            selects.emplace_back(new Select(handle, database,
                                            QStringLiteral("SELECT ") + fields.at(column) + tail));
            sources[size_t(c)] = {selects.back().get(), 0};
        }
    }
    std::vector<Source> current = sources;
    for (qint64 row = from; row < end; ++row) {
        for (const std::unique_ptr<Select> &select : selects)
            select->next();
        for (size_t c = 0; c < current.size(); ++c)
            if (current[c].select && !current[c].select->isLive())
                current[c].select = nullptr;
        if (!visit(row, current.data()))
            return false;
    }
    return true;
}

RowBlockReader::RowBlockReader()
    : d(new Private)
{ }

RowBlockReader::~RowBlockReader() = default;

bool RowBlockReader::setHandler(DatabaseHandler &handler, int rowsPerTable)
{
    clear();
    // The driver opens any file lazily; one that is not a database fails its first statement.
    const QSqlDatabase database = QSqlDatabase::database(handler.currentDatabaseName(), false);
    if (rowsPerTable <= 0 || !database.isOpen()
        || !QSqlQuery(database).exec(QStringLiteral("SELECT 1 FROM sqlite_master")))
        return false;
    d->connectionName = handler.currentDatabaseName();
    d->fields = handler.getFieldNames();
    // The handler's table list: the connection's, without "sqlite_sequence".
    d->tables = handler.getTables();
    d->tables.removeOne(QStringLiteral("sqlite_sequence"));
    d->rowsPerTable = rowsPerTable;
    return true;
}

void RowBlockReader::clear()
{
    d.reset(new Private);
}

QStringList RowBlockReader::fieldNames() const
{
    return d->fields;
}

QStringList RowBlockReader::tables() const
{
    return d->tables;
}

int RowBlockReader::rowsPerTable() const
{
    return d->rowsPerTable;
}

bool RowBlockReader::readValues(qint64 first, int count, const QList<int> &columns,
                                std::vector<QVariant> *cells) const
{
    cells->assign(size_t(qMax(0, count) * columns.size()), QVariant());
    QVariant *cell = cells->data();
    return d->scan(first, first + qMax(0, count), columns, [&](qint64, const Source *sources) {
        for (int c = 0; c < columns.size(); ++c, ++cell)
            if (sources[c].select)
                *cell = sources[c].select->value(sources[c].column);
        return true;
    });
}

bool RowBlockReader::readText(qint64 from, qint64 end, const QList<int> &columns,
                              const TextSink &sink) const
{
    std::vector<TextCell> cells(size_t(columns.size()));
    std::vector<QByteArray> scratch(cells.size());
    return d->scan(from, end, columns, [&](qint64 row, const Source *sources) {
        for (size_t c = 0; c < cells.size(); ++c)
            cells[c] = sources[c].select ? sources[c].select->text(sources[c].column, &scratch[c])
                                         : TextCell{"", 0};
        return sink(row, cells.data());
    });
}

} // namespace Database
