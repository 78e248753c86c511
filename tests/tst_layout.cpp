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

using namespace Database;

class tst_Layout : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase() { QStandardPaths::setTestModeEnabled(true); }

    // The sizes follow from the member lists on x86-64 (4-byte int and enum): the catalogue a
    // map, a string and a list; the listener a vtable pointer; the handler a db, a string, a
    // record, three lists, an int, a bool, a string and a bool; the factory two maps; the text
    // importer a list, two strings, an enum, an int and a list; the spreadsheet importer a
    // string, an int and a list; the memory table a db, three ints, a bool and a string; the
    // exporter nothing. Qt 5's strings and lists are 8-byte handles, Qt 6's 24 bytes (a
    // pointer to shared data, one to the elements, and a size); maps, databases and records
    // are 8 bytes in both.
    void classSizes()
    {
        const QList<size_t> sizes{sizeof(DatabaseManager),       sizeof(DatabaseChangeListener),
                                  sizeof(DatabaseHandler),       sizeof(DatabaseHandlerFactory),
                                  sizeof(DatabaseGenerator),     sizeof(XlsxToDBGenerator),
                                  sizeof(MemoryDatabaseManager), sizeof(DatabaseExport)};
#if QT_VERSION < QT_VERSION_CHECK(6, 0, 0)
        QCOMPARE(sizes, (QList<size_t>{24, 8, 72, 16, 40, 24, 32, 1}));
#else
        QCOMPARE(sizes, (QList<size_t>{56, 8, 152, 16, 104, 56, 48, 1}));
#endif
    }
};

static_assert(sizeof(void *) == 8, "the sizes are those of a 64-bit build");

QTEST_GUILESS_MAIN(tst_Layout)
#include "tst_layout.moc"
