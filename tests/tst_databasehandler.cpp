// The connection layer: DatabaseHandler, and the factory that shares handlers among readers.
#include <database/databasehandler.h>
#include <database/databasehandlerfactory.h>
#include <database/databasemanager.h>

#include <core/consolesingleton.h>

#include "rowtables.h"
#include "testsupport.h"

#include <QtTest>

using namespace Database;

// A deleted handler has closed its database's connection, which stays registered.
static bool isOpen(const QString &name)
{
    return QSqlDatabase::database(name, false).isOpen();
}

class tst_DatabaseHandler : public QObject
{
    Q_OBJECT

private slots:
    // Three catalogued databases: "generated" in the importers' layout, table1 and table2 of 4
    // rows and table3 of 3, whose cell at row r (0-based) and column c reads "t<table>r<r>c<c>";
    // "shapes", whose tables have other layouts; and "unopenable".
    void initTestCase()
    {
        QVERIFY(m_catalogue.isValid());
        QString generated;
        for (int t = 1; t <= 3; ++t)
            generated += TestSupport::table(t, t < 3 ? 4 : 3, "id INTEGER PRIMARY KEY AUTOINCREMENT, "
                    "column1 TEXT, column2 TEXT", QString("NULL, 't%1r' || i || 'c1', 't%1r' || i || 'c2'").arg(t));
        QVERIFY(TestSupport::sqlite(file("generated"), generated));
        QVERIFY(TestSupport::sqlite(file("shapes"), "CREATE TABLE first (ID INTEGER PRIMARY KEY, c); "
                "INSERT INTO first (c) VALUES (1), (2), (3); CREATE TABLE second (id INTEGER PRIMARY "
                "KEY AUTOINCREMENT, a, b); INSERT INTO second (a, b) VALUES (1, 2), (3, 4);"));
        QVERIFY(TestSupport::sqlite(file("unopenable"), "CREATE TABLE t (a);"));
        QVERIFY(TestSupport::writeFile(file("tableless"), {}) && TestSupport::writeFile(file("gone"), {}));
        DatabaseManager::init();
        DatabaseHandlerFactory::init();
    }
    // Every case starts with a new, empty factory.
    void cleanup()
    {
        DatabaseHandlerFactory::destruct();
        DatabaseHandlerFactory::init();
    }

    // A global row is read from the table its quotient names, at its remainder; the count
    // spans all tables.
    void rowToTableAndOffset()
    {
        DatabaseHandler handler;
        QVERIFY(handler.setCurrentDatabaseName("generated"));
        QCOMPARE(handler.getTableRecordCount(), 11);
        QCOMPARE(handler.recordValue(5, 1, 2).toString(), QString("t3r1c2"));
        QCOMPARE(handler.tableName(), QString("table3"));
        QVERIFY(!handler.recordValue(11, 0, 4).isValid()); // table3 holds 3 rows
        QVERIFY(!handler.recordValue(-1, 0, 4).isValid());
        // Back to the first table once; a second time, or by its name, changes nothing.
        QVERIFY(handler.setFirstTable() && !handler.setFirstTable());
        QVERIFY(!handler.setTableName("table1"));
    }

    // Only a first column named exactly "id" is hidden, and reading from another table
    // switches to it silently, keeping the field list loaded last.
    void tablesOfOtherShapes()
    {
        DatabaseHandler handler;
        QVERIFY(handler.setCurrentDatabaseName("shapes"));
        QCOMPARE(handler.getFieldNames(), (QStringList{"ID", "c"}));
        QVERIFY(handler.setTableName("second"));
        QCOMPARE(handler.getFieldNames(), (QStringList{"a", "b"}));
        QVERIFY(!handler.recordValue(1, 0, 3).isValid()); // "a" read from first
        QCOMPARE(handler.tableName(), QString("first"));
        QCOMPARE(handler.getFieldNames(), (QStringList{"a", "b"}));
    }

    // Column types come from the application's default connection, not the handler's.
    void typesFromDefaultConnection()
    {
        const QString file = m_catalogue.filePath("default.sqlite");
        QVERIFY(TestSupport::sqlite(file, "CREATE TABLE table1 (id, column1 INTEGER);"));
        QSqlDatabase db = QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"));
        db.setDatabaseName(file);
        QVERIFY(db.open()); // left open: no other case reads field types

        DatabaseHandler handler;
        QVERIFY(handler.setCurrentDatabaseName("generated"));
        QT_WARNING_PUSH
        QT_WARNING_DISABLE_DEPRECATED // the interface's QVariant::Type, deprecated by Qt 6
        QCOMPARE(handler.getFieldTypes(), (QList<QVariant::Type>{QVariant::Int, QVariant::Invalid}));
        QT_WARNING_POP
    }

    // A failed open still takes the new name, so asking for it again answers true at once;
    // the field list of the table loaded before stays.
    void failedOpenKeepsName()
    {
        // A connection of that name already registered with a driver that is not there.
        for (int i = 0; i < 2; ++i)
            QTest::ignoreMessage(QtWarningMsg, QRegularExpression("not loaded|available drivers"));
        QSqlDatabase::addDatabase(QStringLiteral("QNOSUCHDRIVER"), QStringLiteral("unopenable"));

        DatabaseHandler handler;
        QVERIFY(handler.setCurrentDatabaseName("generated"));
        QVERIFY(!handler.setCurrentDatabaseName("unopenable"));
        QCOMPARE(handler.currentDatabaseName(), QString("unopenable"));
        QCOMPARE(handler.getFieldNames(), (QStringList{"column1", "column2"}));
        QVERIFY(handler.setCurrentDatabaseName("unopenable"));
    }

    // A switch that fails: to a file gone since the catalogue listed it, the database read
    // before stays as it was; to a database without tables, it closes, keeping the field list.
    void failedSwitches_data()
    {
        QTest::addColumn<QString>("name");
        QTest::addColumn<QString>("current");
        QTest::addColumn<QString>("table");
        QTest::addColumn<int>("records");
        QTest::newRow("file gone") << "gone" << "generated" << "table2" << 11;
        QTest::newRow("no tables") << "tableless" << "tableless" << "" << 0;
    }
    void failedSwitches()
    {
        QFETCH(QString, name);
        QFile::remove(file("gone"));
        DatabaseHandler handler;
        QVERIFY(handler.setCurrentDatabaseName("generated") && handler.setTableName("table2"));
        QVERIFY(!handler.setCurrentDatabaseName(name));
        QTEST(handler.currentDatabaseName(), "current");
        QTEST(handler.tableName(), "table");
        QTEST(handler.getTableRecordCount(), "records");
        QVERIFY(handler.isDatabaseOpen());
        QCOMPARE(handler.getFieldNames(), (QStringList{"column1", "column2"}));
    }

    // A handler's end is the one console line; the console keeps the last 1,000 lines.
    void consoleLine()
    {
        {
            DatabaseHandler handler;
            QVERIFY(handler.setCurrentDatabaseName("shapes"));
        }
        Core::ConsoleSingleton &console = Core::ConsoleSingleton::instance();
        QCOMPARE(console.history().last(), QString("DatabaseHandler::~DatabaseHandler:: shapes"));
        for (int i = 0; i < 1000; ++i)
            console.log("line %d", i);
        QCOMPARE(console.history().size(), 1000);
        QCOMPARE(console.history().first(), QString("line 0"));
    }

    void sharedHandlerLivesWhileUsed()
    {
        DatabaseHandlerFactory *factory = DatabaseHandlerFactory::instance();
        DatabaseHandler *handler = regist(0, "generated");
        QVERIFY(handler && isOpen("generated"));
        QCOMPARE(regist(1, "generated"), handler);
        QCOMPARE(handler->recordValue(9, 1, 4).toString(), TestSupport::sqliteQuery(file("generated"),
                 "SELECT column2 FROM table3 WHERE id = 2"));
        factory->unregistSqlDatabase(m_objects);
        QVERIFY(factory->isOccupied("generated") && isOpen("generated"));
        factory->unregistSqlDatabase(m_objects + 1);
        QVERIFY(!factory->isOccupied("generated") && !isOpen("generated"));
    }

    // The object leaves its database, deleting the handler, before the name is refused. A
    // handler made for the caller is open on its name; an unknown name makes none.
    void unknownNameUnregistersFirst()
    {
        QVERIFY(regist(0, "generated"));
        QVERIFY(!regist(0, "nosuch"));
        QVERIFY(!isOpen("generated"));
        QScopedPointer<DatabaseHandler> own(DatabaseHandlerFactory::instance()->createDatabaseHandler("shapes"));
        QVERIFY(own && own->isDatabaseOpen() && own->tableName() == "first");
        QVERIFY(!DatabaseHandlerFactory::instance()->createDatabaseHandler("nosuch"));
    }

    void destructDeletesEveryHandler()
    {
        QVERIFY(regist(0, "generated") && regist(1, "shapes"));
        DatabaseHandlerFactory::destruct();
        QVERIFY(!isOpen("generated") && !isOpen("shapes"));
    }

private:
    QString file(const QString &name) const { return m_catalogue.file(name); }
    DatabaseHandler *regist(int object, const QString &name)
    {
        return DatabaseHandlerFactory::instance()->registSqlDatabase(m_objects + object, name);
    }

    TestSupport::TempCatalogue m_catalogue;
    DatabaseObject m_objects[2];
};

QTEST_GUILESS_MAIN(tst_DatabaseHandler)
#include "tst_databasehandler.moc"
