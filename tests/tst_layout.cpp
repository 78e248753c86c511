// Hosts are compiled against our headers, so the size of every class is part of the binary
// interface (the exported symbols are checked by abi_symbols).
#include <database/databasechangelistener.h>
#include <database/databaseexport.h>
#include <database/databasegenerator.h>
#include <database/databasehandler.h>
#include <database/databasehandlerfactory.h>
#include <database/databasemanager.h>
#include <database/memorydatabasemanager.h>
#include <database/xlsxtodbgenerator.h>

#include <QtTest>

// The sizes follow from the member lists on x86-64 (8-byte Qt handles, 4-byte int and enum).
static_assert(sizeof(void *) == 8, "the pinned sizes are those of a 64-bit build");

class tst_Layout : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase() { QStandardPaths::setTestModeEnabled(true); }
    void classSizes_data();
    void classSizes();
};

void tst_Layout::classSizes_data()
{
    QTest::addColumn<int>("actual");
    QTest::addColumn<int>("expected");

    // map, string, list
    QTest::newRow("DatabaseManager") << int(sizeof(Database::DatabaseManager)) << 24;
    // vtable pointer only
    QTest::newRow("DatabaseChangeListener") << int(sizeof(Database::DatabaseChangeListener)) << 8;
    // db, string, record, list, list, list, int, bool, string, bool
    QTest::newRow("DatabaseHandler") << int(sizeof(Database::DatabaseHandler)) << 72;
    // map, map
    QTest::newRow("DatabaseHandlerFactory") << int(sizeof(Database::DatabaseHandlerFactory)) << 16;
    // list, string, string, enum, int, list
    QTest::newRow("DatabaseGenerator") << int(sizeof(Database::DatabaseGenerator)) << 40;
    // string, int, list
    QTest::newRow("XlsxToDBGenerator") << int(sizeof(Database::XlsxToDBGenerator)) << 24;
    // db, int, int, int, bool, string
    QTest::newRow("MemoryDatabaseManager") << int(sizeof(Database::MemoryDatabaseManager)) << 32;
    // no members
    QTest::newRow("DatabaseExport") << int(sizeof(Database::DatabaseExport)) << 1;
}

void tst_Layout::classSizes()
{
    QFETCH(int, actual);
    QTEST(actual, "expected");
}

QTEST_GUILESS_MAIN(tst_Layout)
#include "tst_layout.moc"
