#include <database/databasehandler.h>

#include "generateddatabase.h"

#include <QtTest>

#include <QScopeGuard>
#include <QSqlDatabase>

#include <memory>

using Database::DatabaseHandler;
using TestSupport::generatedCell;

namespace {

bool connectionIsOpen(const QString &name)
{
    return QSqlDatabase::database(name, false).isOpen();
}

} // namespace

class tst_DatabaseHandler : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void cleanup();

    void recordValue_data();
    void recordValue();
    void everyCellMatchesShell();
    void tableSwitching();
    void defaultConnection();
    void openFailures();

private:
    std::unique_ptr<TestSupport::LoadedCatalogue> m_db;
};

void tst_DatabaseHandler::init()
{
    m_db.reset(new TestSupport::LoadedCatalogue);
    QVERIFY(m_db->isValid());
}

void tst_DatabaseHandler::cleanup()
{
    m_db.reset();
}

void tst_DatabaseHandler::recordValue_data()
{
    QTest::addColumn<int>("rowsPerTable");
    QTest::addColumn<int>("row");
    QTest::addColumn<int>("column");
    QTest::addColumn<QString>("expected"); // null: an invalid value
    QTest::addColumn<QString>("tableAfter");

    // Tables of 4, 4 and 3 rows, two text columns.
    QTest::newRow("two rows per table") << 2 << 5 << 0 << generatedCell(3, 1, 1) << "table3";
    QTest::newRow("beyond short table") << 4 << 11 << 0 << QString() << "table3";
    QTest::newRow("beyond last table") << 4 << 12 << 0 << QString() << "table1";
    QTest::newRow("negative row") << 4 << -1 << 0 << QString() << "table1";
    QTest::newRow("column past field list") << 4 << 0 << 2 << QString() << "table1";
    QTest::newRow("negative column") << 4 << 4 << -1 << QString() << "table2";
    QTest::newRow("zero rows per table") << 0 << 4 << 0 << QString() << "table1";
}

void tst_DatabaseHandler::recordValue()
{
    QFETCH(int, rowsPerTable);
    QFETCH(int, row);
    QFETCH(int, column);
    QFETCH(QString, expected);

    DatabaseHandler handler;
    QVERIFY(handler.setCurrentDatabaseName(m_db->addGenerated({4, 4, 3}, 2)));
    const QVariant value = handler.recordValue(row, column, rowsPerTable);
    QCOMPARE(value.isValid(), !expected.isNull());
    QCOMPARE(value.toString(), expected);
    QTEST(handler.tableName(), "tableAfter");
}

// Reads a database cell by cell, after a switch from another one, and compares it with
// the shell's rows in order.
void tst_DatabaseHandler::everyCellMatchesShell()
{
    const QString first = m_db->addGenerated({3}, 1);
    const QString name = m_db->addGenerated({5, 5, 2}, 3);
    DatabaseHandler handler;
    QVERIFY(handler.setCurrentDatabaseName(first));
    // The name already current is not reopened.
    QSqlDatabase::database(first, false).close();
    QVERIFY(handler.setCurrentDatabaseName(first));
    QVERIFY(!connectionIsOpen(first));
    QVERIFY(handler.setCurrentDatabaseName(name));

    QStringList ours, shell;
    for (int row = 0; row < handler.getTableRecordCount(); ++row) {
        QStringList cells;
        for (int column = 0; column < handler.getFieldNames().size(); ++column)
            cells << handler.recordValue(row, column, 5).toString();
        ours << cells.join(QLatin1Char('|'));
    }
    for (int t = 1; t <= 3; ++t)
        shell << TestSupport::sqliteQuery(
                m_db->file(name),
                QStringLiteral("SELECT column1, column2, column3 FROM table%1 ORDER BY id").arg(t));
    QCOMPARE(ours.join(QLatin1Char('\n')), shell.join(QLatin1Char('\n')));
}

// Tables of different shapes: the count spans them all, only a first column named exactly
// "id" is hidden, and reading into another table keeps the field list loaded last.
void tst_DatabaseHandler::tableSwitching()
{
    DatabaseHandler handler;
    QVERIFY(handler.setCurrentDatabaseName(m_db->addWithSql(
            "CREATE TABLE first (id INTEGER PRIMARY KEY AUTOINCREMENT, a TEXT, b TEXT);"
            "INSERT INTO first (a, b) VALUES ('a0', 'b0'), ('a1', 'b1');"
            "CREATE TABLE second (ID INTEGER PRIMARY KEY, c TEXT);"
            "INSERT INTO second (c) VALUES ('c0'), ('c1'), ('c2');"
            "CREATE TABLE third (c TEXT, id INTEGER);")));
    QCOMPARE(handler.getTables(), (QStringList{"first", "sqlite_sequence", "second", "third"}));
    QCOMPARE(handler.getTableRecordCount(), 5);
    QVERIFY(!handler.setFirstTable()); // already current

    QVERIFY(!handler.recordValue(2, 0, 2).isValid()); // "a" read from second
    QCOMPARE(handler.tableName(), QString("second"));
    QCOMPARE(handler.getFieldNames(), (QStringList{"a", "b"}));
    QCOMPARE(handler.recordValue(1, 0, 2).toString(), QString("a1"));

    QVERIFY(handler.setTableName("second"));
    QVERIFY(!handler.setTableName("second"));
    QCOMPARE(handler.getFieldNames(), (QStringList{"ID", "c"}));
    QCOMPARE(handler.getTableRecordCount(), 5);
    QVERIFY(handler.setTableName("third"));
    QCOMPARE(handler.getFieldNames(), (QStringList{"c", "id"}));
    QVERIFY(handler.setFirstTable());
    QCOMPARE(handler.getFieldNames(), (QStringList{"a", "b"}));
    // An unknown table is taken as current but loads nothing.
    QVERIFY(handler.setTableName("nosuch"));
    QCOMPARE(handler.getFieldNames(), (QStringList{"a", "b"}));
}

// Column types come from the application's default connection; a handler that never
// opened a database must not read that connection otherwise.
void tst_DatabaseHandler::defaultConnection()
{
    const QString file = m_db->filePath("default.sqlite");
    QVERIFY(TestSupport::sqlite(file, "CREATE TABLE table1 (id, column1 INTEGER);"
                                      "INSERT INTO table1 VALUES (1, 5);"));
    const auto removeDefault = qScopeGuard(
            [] { QSqlDatabase::removeDatabase(QSqlDatabase::defaultConnection); });
    QSqlDatabase db = QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"));
    db.setDatabaseName(file);
    QVERIFY(db.open());

    DatabaseHandler handler;
    QVERIFY(!handler.setFirstTable());
    QVERIFY(handler.setTableName("table1"));
    QVERIFY(handler.getFieldNames().isEmpty());
    QVERIFY(!handler.recordValue(0, 0, 1).isValid());

    QVERIFY(handler.setCurrentDatabaseName(m_db->addGenerated({2}, 2)));
    QCOMPARE(handler.getFieldNames(), (QStringList{"column1", "column2"}));
    QCOMPARE(handler.getFieldTypes(), (QList<QVariant::Type>{QVariant::Int, QVariant::Invalid}));
}

// Failed opens never lose the field list of the table loaded before.
void tst_DatabaseHandler::openFailures()
{
    const QString old = m_db->addGenerated({3}, 2);
    const QString directory = TestSupport::uniqueDatabaseName("directory");
    QVERIFY(QDir().mkpath(m_db->file(directory)));
    const QString sequence = m_db->addWithSql(
            "CREATE TABLE t (id INTEGER PRIMARY KEY AUTOINCREMENT);"
            "INSERT INTO t DEFAULT VALUES; DROP TABLE t;");
    const QString unopenable = m_db->addWithSql("CREATE TABLE t (a);");
    // A connection of that name already registered with a driver that is not there.
    QTest::ignoreMessage(QtWarningMsg, QRegularExpression("not loaded"));
    QTest::ignoreMessage(QtWarningMsg, QRegularExpression("available drivers"));
    QSqlDatabase::addDatabase(QStringLiteral("QNOSUCHDRIVER"), unopenable);
    const auto removeUnopenable = qScopeGuard([&] { QSqlDatabase::removeDatabase(unopenable); });

    DatabaseHandler handler;
    QVERIFY(handler.setCurrentDatabaseName(old));
    // Not a regular file: the old database stays open and current.
    QVERIFY(!handler.setCurrentDatabaseName(directory));
    QCOMPARE(handler.currentDatabaseName(), old);
    QVERIFY(connectionIsOpen(old));
    // Opened, but no table besides the bookkeeping one.
    QVERIFY(!handler.setCurrentDatabaseName(sequence));
    QVERIFY(handler.isDatabaseOpen());
    QVERIFY(!connectionIsOpen(old));
    QCOMPARE(handler.getTables(), QStringList{"sqlite_sequence"});
    QCOMPARE(handler.getTableRecordCount(), 0);

    QVERIFY(!handler.setCurrentDatabaseName(unopenable));
    QVERIFY(!handler.isDatabaseOpen());
    QCOMPARE(handler.getFieldNames(), (QStringList{"column1", "column2"}));
    QCOMPARE(handler.getFieldTypes().size(), 2);
    // The name is taken even so: asking again is a no-op.
    QVERIFY(handler.setCurrentDatabaseName(unopenable));
}

QTEST_GUILESS_MAIN(tst_DatabaseHandler)
#include "tst_databasehandler.moc"
