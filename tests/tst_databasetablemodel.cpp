#include <database/databasehandler.h>
#include <database/databasehandlerfactory.h>
#include <database/databasemanager.h>
#include <database/databasetablemodel.h>

#include "rowtables.h"
#include "testsupport.h"

#include <QtTest>

using Database::DatabaseHandlerFactory;
using Database::DatabaseTableModel;
using TestSupport::generated;

class tst_DatabaseTableModel : public QObject
{
    Q_OBJECT

private slots:
    void matchesRecordValue();
    void switchesDatabase();
    void init() { Database::DatabaseManager::init(), DatabaseHandlerFactory::init(); }
    void cleanup() { DatabaseHandlerFactory::destruct(), Database::DatabaseManager::destruct(); }

private:
    TestSupport::TempCatalogue m_catalogue;
};

// Every cell of rows at the model's block and table edges, read out of order, equals
// recordValue's; the reader's own cases are in tst_rowblockreader.
void tst_DatabaseTableModel::matchesRecordValue()
{
    const QString name = m_catalogue.add("BEGIN;" + generated(1, 50000) + generated(2, 50000)
                                         + generated(3, 7) + "COMMIT;");
    DatabaseTableModel model;
    QVERIFY(model.setDatabaseName(name));
    Database::DatabaseHandler *handler = DatabaseHandlerFactory::instance()->databaseHandler(name);
    QCOMPARE(model.rowCount(), handler->getTableRecordCount());
    QCOMPARE(model.headerData(1, Qt::Horizontal), QVariant(handler->getFieldNames().value(1)));
    int valid = 0;
    for (int row : {100009, 49999, 0, 255, 256, 50000, 50299, 50300, 50010, 100006, 100007}) {
        for (int column = 0; column < handler->getFieldNames().size(); ++column) {
            const QVariant expected = handler->recordValue(row, column, 50000);
            const QVariant shown = model.data(model.index(row, column));
            QVERIFY(shown.userType() == expected.userType() && shown.isNull() == expected.isNull()
                    && shown == expected);
            valid += expected.isValid();
        }
    }
    QCOMPARE(valid, 18);
}

// A model follows its database as a reader: it leaves the old one, and a name it cannot show
// leaves it empty and registered nowhere.
void tst_DatabaseTableModel::switchesDatabase()
{
    const QString first = m_catalogue.add(generated(1, 3));
    const QString second = m_catalogue.add(generated(1, 2) + generated(2, 2));
    QVERIFY(TestSupport::writeFile(m_catalogue.file("notadb"), QByteArray(4096, 'x')));
    Database::DatabaseManager::instance()->reload();
    DatabaseHandlerFactory *factory = DatabaseHandlerFactory::instance();
    DatabaseTableModel model;
    QVERIFY(model.setDatabaseName(first) && model.setDatabaseName(second));
    QVERIFY(!factory->isOccupied(first) && factory->userList(second).size() == 1);
    QCOMPARE(model.rowCount() * 10 + model.columnCount(), 4 * 10 + 2);
    QCOMPARE(model.data(model.index(1, 0)).toString(), QStringLiteral("t1r1"));
    for (const char *bad : {"notadb", "unknown"}) {
        QVERIFY(!model.setDatabaseName(bad));
        QCOMPARE(model.rowCount() + model.columnCount(), 0);
        QVERIFY(factory->userList(bad).isEmpty() && !factory->isOccupied(second));
    }
}

QTEST_MAIN(tst_DatabaseTableModel)
#include "tst_databasetablemodel.moc"
