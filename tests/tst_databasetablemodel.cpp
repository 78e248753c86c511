#include <database/databasehandler.h>
#include <database/databasehandlerfactory.h>
#include <database/databasemanager.h>
#include <database/databasetablemodel.h>

#include "generateddatabase.h"

#include <QtTest>

namespace Database {
class DatabaseObject
{
};
} // namespace Database

using Database::DatabaseHandlerFactory;
using Database::DatabaseTableModel;

namespace {

// n rows of table t from a recursive count i: columns given as "name expression" pairs.
QString table(int t, int rows, const QString &columns, const QString &values)
{
    return QStringLiteral("CREATE TABLE table%1 (%2); WITH RECURSIVE r(i) AS (SELECT 0 UNION ALL "
                          "SELECT i + 1 FROM r WHERE i < %3) INSERT INTO table%1 SELECT %4 FROM r;")
            .arg(t)
            .arg(columns)
            .arg(rows - 1)
            .arg(values);
}

const QString Generated = QStringLiteral("id INTEGER PRIMARY KEY, column1 TEXT, column2 TEXT");
const QString GeneratedValues = QStringLiteral("NULL, 't%1r' || i, CASE i % 5 WHEN 0 THEN NULL "
                                               "WHEN 1 THEN i WHEN 2 THEN i / 4.0 ELSE 'c' END");

} // namespace

class tst_DatabaseTableModel : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase() { QStandardPaths::setTestModeEnabled(true); }
    void matchesRecordValue_data();
    void matchesRecordValue();
    void switchesDatabase();

private:
    TestSupport::LoadedCatalogue m_db;
};

void tst_DatabaseTableModel::matchesRecordValue_data()
{
    QTest::addColumn<QString>("sql");
    QTest::addColumn<int>("validCells"); // of the rows below, over every column

    const auto generated
            = [](int t, int rows) { return table(t, rows, Generated, GeneratedValues.arg(t)); };
    const QString idAndColumn1 = QStringLiteral("id INTEGER PRIMARY KEY, column1 TEXT");
    const QString keptId = QStringLiteral("ID INTEGER, b TEXT");
    QTest::newRow("importer layout")
            << generated(1, 50000) + generated(2, 50000) + generated(3, 7) << 18;
    // table2 lacks column2 and ends early: its rows past 10 are past its end.
    QTest::newRow("odd middle table") << generated(1, 50000)
                    + table(2, 10, idAndColumn1, "NULL, 'x' || i") + generated(3, 50000)
                                      << 15;
    QTest::newRow("no id, ID column kept")
            << table(1, 50000, keptId, "i, 'b' || i") + table(2, 300, keptId, "-i, 'z' || i") << 14;
    // An index orders a one-column select differently from the table.
    QTest::newRow("indexed column")
            << generated(1, 50000) + "CREATE INDEX i2 ON table1 (column2);" + generated(2, 3) << 10;
}

// Every cell of rows at block and table edges, read out of order, equals recordValue's.
void tst_DatabaseTableModel::matchesRecordValue()
{
    QFETCH(QString, sql);
    QFETCH(int, validCells);
    const QString name = m_db.addWithSql("BEGIN;" + sql + "COMMIT;");
    QVERIFY(!name.isEmpty());
    DatabaseHandlerFactory::init();
    auto done = qScopeGuard(&DatabaseHandlerFactory::destruct);
    DatabaseTableModel model;
    QVERIFY(model.setDatabaseName(name));
    Database::DatabaseObject reader;
    Database::DatabaseHandler *handler
            = DatabaseHandlerFactory::instance()->registSqlDatabase(&reader, name);
    QCOMPARE(model.rowCount(), handler->getTableRecordCount());
    QCOMPARE(model.columnCount(), handler->getFieldNames().size());
    QCOMPARE(model.headerData(0, Qt::Horizontal), QVariant(handler->getFieldNames().first()));
    int valid = 0;
    for (int row : {100009, 49999, 0, 255, 256, 50000, 50299, 50300, 50010, 100006, 100007}) {
        for (int column = 0; column < model.columnCount(); ++column) {
            const QVariant expected = handler->recordValue(row, column, 50000);
            const QVariant shown = model.data(model.index(row, column));
            QCOMPARE(shown.type(), expected.type());
            QCOMPARE(shown.isNull(), expected.isNull());
            QCOMPARE(shown, expected);
            valid += expected.isValid();
        }
    }
    QCOMPARE(valid, validCells);
}

// A model follows its database as a reader: it leaves the old one, and a name it cannot show
// leaves it empty and registered nowhere.
void tst_DatabaseTableModel::switchesDatabase()
{
    const QString first = m_db.addGenerated({3}, 2);
    const QString second = m_db.addGenerated({2, 2}, 3);
    QVERIFY(TestSupport::writeFile(m_db.file("notadb"), QByteArray(4096, 'x')));
    Database::DatabaseManager::instance()->reload();
    DatabaseHandlerFactory::init();
    auto done = qScopeGuard(&DatabaseHandlerFactory::destruct);
    DatabaseHandlerFactory *factory = DatabaseHandlerFactory::instance();
    DatabaseTableModel model;
    QSignalSpy resets(&model, &QAbstractItemModel::modelReset);
    QVERIFY(model.setDatabaseName(first));
    QVERIFY(model.setDatabaseName(second));
    QVERIFY(!factory->isOccupied(first));
    QCOMPARE(factory->userList(second).size(), 1);
    QCOMPARE(model.rowCount(), 4);
    QCOMPARE(model.columnCount(), 3);
    QCOMPARE(model.data(model.index(1, 2)).toString(), TestSupport::generatedCell(1, 1, 3));
    for (const QString &bad : {QStringLiteral("notadb"), QStringLiteral("unknown")}) {
        QVERIFY(!model.setDatabaseName(bad));
        QCOMPARE(model.rowCount() + model.columnCount(), 0);
        QVERIFY(factory->userList(bad).isEmpty() && !factory->isOccupied(second));
    }
    QCOMPARE(resets.count(), 4);
}

QTEST_MAIN(tst_DatabaseTableModel)
#include "tst_databasetablemodel.moc"
