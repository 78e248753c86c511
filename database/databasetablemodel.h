#ifndef DATABASE_DATABASETABLEMODEL_H
#define DATABASE_DATABASETABLEMODEL_H

#include <database/database_global.h>
#include <database/rowblockreader.h>

#include <QAbstractTableModel>
#include <QCache>
#include <QStringList>

namespace Database {

/// A read-only table model over a catalogued database: row r, column c shows
/// DatabaseHandler::recordValue(r, c, 50000), read in blocks of rows with one statement each.
class ZQDATABASE_EXPORT DatabaseTableModel : public QAbstractTableModel
{
    Q_OBJECT

public:
    /// An empty model; it reads nothing until setDatabaseName().
    explicit DatabaseTableModel(QObject *parent = nullptr);
    /// Leaves the database it was registered for.
    ~DatabaseTableModel() override;

    /// Shows the catalogued database @p name, registered with the handler factory under this
    /// model's address; false and an empty model when it cannot be read.
    bool setDatabaseName(const QString &name);
    /// The name set last, or an empty string.
    QString databaseName() const;

    /// The handler's record count over all tables.
    int rowCount(const QModelIndex &parent = QModelIndex()) const override;
    /// The number of field names, the hidden "id" column not counted.
    int columnCount(const QModelIndex &parent = QModelIndex()) const override;
    /// The cell's value for Qt::DisplayRole, an invalid QVariant for any other role.
    QVariant data(const QModelIndex &index, int role = Qt::DisplayRole) const override;
    /// The field names as horizontal headers.
    QVariant headerData(int section, Qt::Orientation orientation,
                        int role = Qt::DisplayRole) const override;

private:
    struct Block;

    void leaveDatabase();
    const Block *block(int first) const;

    QString m_databaseName;
    QStringList m_fieldNames;
    QList<int> m_columns;
    int m_rowCount = 0;
    int m_blockRows = 1;
    RowBlockReader m_reader;
    mutable QCache<int, Block> m_blocks;
};

} // namespace Database

#endif // DATABASE_DATABASETABLEMODEL_H
