#include <database/databasehandler.h>

#include "testsupport.h"

#include <QtTest>

#include <QScopeGuard>
#include <QSqlDatabase>

using Database::DatabaseHandler;
using TestSupport::generatedCell;

class tst_DatabaseHandler : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase() { QVERIFY(m_db.isValid()); }
    void recordValue_data();
    void recordValue();
    void tablesOfOtherShapes();
    void typesFromDefaultConnection();
    void failedOpenKeepsName();

private:
    TestSupport::LoadedCatalogue m_db;
};

void tst_DatabaseHandler::recordValue_data()
{
    QTest::addColumn<int>("rowsPerTable");
    QTest::addColumn<int>("row");
    QTest::addColumn<int>("column");
    QTest::addColumn<QString>("expected"); // null: an invalid value
    QTest::addColumn<QString>("tableAfter");

    // Tables of 4, 4 and 3 rows, two text columns.
    QTest::newRow("table by quotient, offset by remainder")
            << 2 << 5 << 1 << generatedCell(3, 1, 2) << "table3";
    QTest::newRow("beyond the short last table") << 4 << 11 << 0 << QString() << "table3";
    QTest::newRow("beyond the last table") << 4 << 12 << 0 << QString() << "table1";
    QTest::newRow("column past the field list") << 4 << 0 << 2 << QString() << "table1";
}

void tst_DatabaseHandler::recordValue()
{
    QFETCH(int, rowsPerTable);
    QFETCH(int, row);
    QFETCH(int, column);
    QFETCH(QString, expected);

    DatabaseHandler handler;
    QVERIFY(handler.setCurrentDatabaseName(m_db.addGenerated({4, 4, 3}, 2)));
    const QVariant value = handler.recordValue(row, column, rowsPerTable);
    QCOMPARE(value.isValid(), !expected.isNull());
    QCOMPARE(value.toString(), expected);
    QTEST(handler.tableName(), "tableAfter");
}

// The count spans all tables, only a first column named exactly "id" is hidden, and reading
// from another table switches to it silently, keeping the field list loaded last.
void tst_DatabaseHandler::tablesOfOtherShapes()
{
    DatabaseHandler handler;
    QVERIFY(handler.setCurrentDatabaseName(m_db.addWithSql(
            "CREATE TABLE first (ID INTEGER PRIMARY KEY, c TEXT);"
            "INSERT INTO first (c) VALUES ('c0'), ('c1'), ('c2');"
            "CREATE TABLE second (id INTEGER PRIMARY KEY AUTOINCREMENT, a TEXT, b TEXT);"
            "INSERT INTO second (a, b) VALUES ('a0', 'b0'), ('a1', 'b1');")));
    QCOMPARE(handler.getFieldNames(), (QStringList{"ID", "c"}));
    QVERIFY(handler.setTableName("second"));
    QCOMPARE(handler.getFieldNames(), (QStringList{"a", "b"}));
    QCOMPARE(handler.getTableRecordCount(), 5);
    QCOMPARE(handler.recordValue(4, 1, 3).toString(), QString("b1"));
    QVERIFY(!handler.recordValue(1, 0, 3).isValid()); // "a" read from first
    QCOMPARE(handler.tableName(), QString("first"));
    QCOMPARE(handler.getFieldNames(), (QStringList{"a", "b"}));
}

// Column types come from the application's default connection, not the handler's.
void tst_DatabaseHandler::typesFromDefaultConnection()
{
    const QString file = m_db.filePath("default.sqlite");
    QVERIFY(TestSupport::sqlite(file, "CREATE TABLE table1 (id, column1 INTEGER);"));
    const auto removeDefault = qScopeGuard(
            [] { QSqlDatabase::removeDatabase(QSqlDatabase::defaultConnection); });
    QSqlDatabase db = QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"));
    db.setDatabaseName(file);
    QVERIFY(db.open());

    DatabaseHandler handler;
    QVERIFY(handler.setCurrentDatabaseName(m_db.addGenerated({2}, 2)));
    QCOMPARE(handler.getFieldNames(), (QStringList{"column1", "column2"}));
    QCOMPARE(handler.getFieldTypes(), (QList<QVariant::Type>{QVariant::Int, QVariant::Invalid}));
}

// A failed open still takes the new name, so asking for it again answers true at once; the
// field list of the table loaded before stays.
void tst_DatabaseHandler::failedOpenKeepsName()
{
    const QString old = m_db.addGenerated({3}, 2);
    const QString unopenable = m_db.addWithSql("CREATE TABLE t (a);");
    // A connection of that name already registered with a driver that is not there.
    QTest::ignoreMessage(QtWarningMsg, QRegularExpression("not loaded|available drivers"));
    QTest::ignoreMessage(QtWarningMsg, QRegularExpression("not loaded|available drivers"));
    QSqlDatabase::addDatabase(QStringLiteral("QNOSUCHDRIVER"), unopenable);
    const auto removeUnopenable = qScopeGuard([&] { QSqlDatabase::removeDatabase(unopenable); });

    DatabaseHandler handler;
    QVERIFY(handler.setCurrentDatabaseName(old));
    QVERIFY(!handler.setCurrentDatabaseName(unopenable));
    QVERIFY(!handler.isDatabaseOpen());
    QCOMPARE(handler.currentDatabaseName(), unopenable);
    QCOMPARE(handler.getFieldNames(), (QStringList{"column1", "column2"}));
    QVERIFY(handler.setCurrentDatabaseName(unopenable));
    QVERIFY(!handler.isDatabaseOpen());
}

QTEST_GUILESS_MAIN(tst_DatabaseHandler)
#include "tst_databasehandler.moc"
