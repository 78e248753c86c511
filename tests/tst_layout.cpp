// Hosts are compiled against our headers, so the size of every class and the exported
// static members are part of the binary interface.
#include <database/databasechangelistener.h>
#include <database/databaseexport.h>
#include <database/databasegenerator.h>
#include <database/databasehandler.h>
#include <database/databasehandlerfactory.h>
#include <database/databasemanager.h>
#include <database/memorydatabasemanager.h>
#include <database/xlsxtodbgenerator.h>

#include <QtTest>

#include <dlfcn.h>

// The sizes follow from the member lists on x86-64 (8-byte Qt handles, 4-byte int and enum).
static_assert(sizeof(void *) == 8, "the pinned sizes are those of a 64-bit build");

class tst_Layout : public QObject
{
    Q_OBJECT

private slots:
    void classSizes_data();
    void classSizes();
    void exportedSymbols_data();
    void exportedSymbols();
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
    QFETCH(int, expected);
    QCOMPARE(actual, expected);
}

void tst_Layout::exportedSymbols_data()
{
    QTest::addColumn<QByteArray>("symbol");

    QTest::newRow("DatabaseManager::m_pInstance")
            << QByteArray("_ZN8Database15DatabaseManager11m_pInstanceE");
    QTest::newRow("DatabaseHandlerFactory::m_pInstance")
            << QByteArray("_ZN8Database22DatabaseHandlerFactory11m_pInstanceE");
    QTest::newRow("MemoryDatabaseManager::m_pInstance")
            << QByteArray("_ZN8Database21MemoryDatabaseManager11m_pInstanceE");
    QTest::newRow("MemoryDatabaseManager::doNext")
            << QByteArray("_ZN8Database21MemoryDatabaseManager6doNextEv");
    QTest::newRow("MemoryDatabaseManager::finishMarking")
            << QByteArray("_ZN8Database21MemoryDatabaseManager13finishMarkingEv");
}

// Looks the mangled names up in the built library itself, as a host's dynamic linker would.
void tst_Layout::exportedSymbols()
{
    QFETCH(QByteArray, symbol);
    void *library = dlopen(ZQDATABASE_LIBRARY_FILE, RTLD_NOW | RTLD_NOLOAD);
    if (!library)
        library = dlopen(ZQDATABASE_LIBRARY_FILE, RTLD_NOW);
    QVERIFY2(library, dlerror());
    QVERIFY2(dlsym(library, symbol.constData()), symbol.constData());
    dlclose(library);
}

QTEST_GUILESS_MAIN(tst_Layout)
#include "tst_layout.moc"
