#include <database/databasehandler.h>
#include <database/databasemanager.h>

#include <core/consolesingleton.h>

#include "generateddatabase.h"
#include "testsupport.h"

#include <QtTest>

#include <QSqlDatabase>

#include <memory>

using Database::DatabaseHandler;
using Database::DatabaseManager;
using TestSupport::generatedCell;
using TestSupport::TempCatalogue;

Q_DECLARE_METATYPE(QList<QVariant::Type>)

namespace {

bool connectionIsOpen(const QString &name)
{
    return QSqlDatabase::database(name, false).isOpen();
}

// The application's default connection on a file, for as long as the object lives.
class DefaultConnection
{
public:
    explicit DefaultConnection(const QString &file)
    {
        QSqlDatabase db = QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"));
        db.setDatabaseName(file);
        m_open = db.open();
    }
    ~DefaultConnection() { QSqlDatabase::removeDatabase(QSqlDatabase::defaultConnection); }
    bool isOpen() const { return m_open; }

private:
    bool m_open = false;
};

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
    void silentTableSwitchKeepsFieldList();
    void idColumn_data();
    void idColumn();
    void fieldTypes_data();
    void fieldTypes();
    void recordCountCoversAllTables();
    void setFirstTableTwice();
    void setTableName_data();
    void setTableName();

    void sameNameDoesNotTouchConnection();
    void switchDatabases();
    void openFailures_data();
    void openFailures();
    void neverOpenedHandler();
    void destructorLogsAndKeepsConnection_data();
    void destructorLogsAndKeepsConnection();
    void copySharesConnection();

private:
    QString addWithSql(const QString &sql);

    QString addGenerated(const QList<int> &rowCounts, int columns)
    {
        return TestSupport::addGeneratedDatabase(*m_catalogue, rowCounts, columns);
    }
    QString sysFile(const QString &name) const
    {
        return TestSupport::systemDatabaseFile(*m_catalogue, name);
    }

    TempCatalogue *m_catalogue = nullptr;
};

void tst_DatabaseHandler::init()
{
    m_catalogue = new TempCatalogue;
    QVERIFY(m_catalogue->isValid());
    DatabaseManager::init();
}

void tst_DatabaseHandler::cleanup()
{
    DatabaseManager::destruct();
    delete m_catalogue;
    m_catalogue = nullptr;
}

QString tst_DatabaseHandler::addWithSql(const QString &sql)
{
    const QString name = TestSupport::uniqueDatabaseName(QStringLiteral("sql"));
    if (!TestSupport::sqlite(sysFile(name), sql))
        return QString();
    DatabaseManager::instance()->reload();
    return name;
}

void tst_DatabaseHandler::recordValue_data()
{
    QTest::addColumn<int>("rowsPerTable");
    QTest::addColumn<int>("row");
    QTest::addColumn<int>("column");
    QTest::addColumn<QString>("expected"); // null: an invalid value
    QTest::addColumn<QString>("tableAfter");

    // Tables of 4, 4 and 3 rows, two text columns.
    QTest::newRow("first cell") << 4 << 0 << 0 << generatedCell(1, 0, 1) << "table1";
    QTest::newRow("second column") << 4 << 0 << 1 << generatedCell(1, 0, 2) << "table1";
    QTest::newRow("last of first table") << 4 << 3 << 1 << generatedCell(1, 3, 2) << "table1";
    QTest::newRow("first of second table") << 4 << 4 << 0 << generatedCell(2, 0, 1) << "table2";
    QTest::newRow("last of short table") << 4 << 10 << 1 << generatedCell(3, 2, 2) << "table3";
    QTest::newRow("two rows per table") << 2 << 5 << 0 << generatedCell(3, 1, 1) << "table3";
    QTest::newRow("beyond short table switches")
            << 4 << 11 << 0 << QString() << "table3";
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
    QFETCH(QString, tableAfter);

    const QString name = addGenerated({4, 4, 3}, 2);
    QVERIFY(!name.isEmpty());
    DatabaseHandler handler;
    QVERIFY(handler.setCurrentDatabaseName(name));

    const QVariant value = handler.recordValue(row, column, rowsPerTable);
    if (expected.isNull())
        QVERIFY2(!value.isValid(), qPrintable(value.toString()));
    else
        QCOMPARE(value.toString(), expected);
    QCOMPARE(handler.tableName(), tableAfter);
}

// Reads the whole database cell by cell and compares it with the shell's dump, in order.
void tst_DatabaseHandler::everyCellMatchesShell()
{
    const QString name = addGenerated({5, 5, 2}, 3);
    QVERIFY(!name.isEmpty());
    DatabaseHandler handler;
    QVERIFY(handler.setCurrentDatabaseName(name));
    QCOMPARE(handler.getTableRecordCount(), 12);

    QStringList lines;
    for (int row = 0; row < handler.getTableRecordCount(); ++row) {
        QStringList cells;
        for (int column = 0; column < handler.getFieldNames().size(); ++column)
            cells << handler.recordValue(row, column, 5).toString();
        lines << cells.join(QLatin1Char('|'));
    }
    QString dump;
    for (int t = 1; t <= 3; ++t)
        dump += TestSupport::sqliteQuery(
                        sysFile(name),
                        QStringLiteral("SELECT column1, column2, column3 FROM table%1 ORDER BY id;")
                                .arg(t))
                + QLatin1Char('\n');
    dump.chop(1);
    QCOMPARE(lines.join(QLatin1Char('\n')), dump);
}

// Reading into another table keeps the field list of the table loaded last, so a column
// that only the first table has cannot be read from the second.
void tst_DatabaseHandler::silentTableSwitchKeepsFieldList()
{
    const QString name = addWithSql(
            "CREATE TABLE first (id INTEGER PRIMARY KEY, a TEXT, b TEXT);"
            "INSERT INTO first (a, b) VALUES ('a0', 'b0'), ('a1', 'b1');"
            "CREATE TABLE second (id INTEGER PRIMARY KEY, c TEXT);"
            "INSERT INTO second (c) VALUES ('c0'), ('c1');");
    QVERIFY(!name.isEmpty());
    DatabaseHandler handler;
    QVERIFY(handler.setCurrentDatabaseName(name));

    QCOMPARE(handler.recordValue(1, 1, 2).toString(), QString("b1"));
    QVERIFY(!handler.recordValue(2, 0, 2).isValid());
    QCOMPARE(handler.tableName(), QString("second"));
    QCOMPARE(handler.getFieldNames(), (QStringList{"a", "b"}));
    // Back to the first table, the same field list reads again.
    QCOMPARE(handler.recordValue(0, 0, 2).toString(), QString("a0"));
    QCOMPARE(handler.tableName(), QString("first"));
}

void tst_DatabaseHandler::idColumn_data()
{
    QTest::addColumn<QString>("columns");
    QTest::addColumn<QString>("values");
    QTest::addColumn<QStringList>("fieldNames");
    QTest::addColumn<QString>("firstCell");

    QTest::newRow("lowercase id hidden") << "id INTEGER PRIMARY KEY, a TEXT, b TEXT"
                                         << "7, 'x', 'y'" << QStringList{"a", "b"} << "x";
    QTest::newRow("uppercase ID kept") << "ID INTEGER PRIMARY KEY, a TEXT" << "7, 'x'"
                                       << QStringList{"ID", "a"} << "7";
    QTest::newRow("mixed case Id kept")
            << "Id INTEGER, a TEXT" << "7, 'x'" << QStringList{"Id", "a"} << "7";
    QTest::newRow("id not first kept")
            << "a TEXT, id INTEGER" << "'x', 7" << QStringList{"a", "id"} << "x";
    QTest::newRow("only an id column") << "id INTEGER PRIMARY KEY" << "7" << QStringList()
                                       << QString();
}

void tst_DatabaseHandler::idColumn()
{
    QFETCH(QString, columns);
    QFETCH(QString, values);
    QFETCH(QStringList, fieldNames);
    QFETCH(QString, firstCell);

    const QString name = addWithSql(QStringLiteral("CREATE TABLE t (%1); INSERT INTO t VALUES (%2);")
                                            .arg(columns, values));
    QVERIFY(!name.isEmpty());
    DatabaseHandler handler;
    QVERIFY(handler.setCurrentDatabaseName(name));
    QCOMPARE(handler.getFieldNames(), fieldNames);
    QCOMPARE(handler.getFieldTypes().size(), fieldNames.size());
    QCOMPARE(handler.recordValue(0, 0, 1).toString(), firstCell);
}

void tst_DatabaseHandler::fieldTypes_data()
{
    QTest::addColumn<QString>("defaultSchema"); // null: no default connection; "same": that file
    QTest::addColumn<QList<QVariant::Type>>("types");

    const QVariant::Type invalid = QVariant::Invalid;
    QTest::newRow("no default connection") << QString() << QList<QVariant::Type>{invalid, invalid};
    QTest::newRow("default is the same file")
            << "same" << QList<QVariant::Type>{QVariant::String, QVariant::String};
    QTest::newRow("default types win")
            << "CREATE TABLE table1 (id TEXT, column1 INTEGER, column2 REAL);"
            << QList<QVariant::Type>{QVariant::Int, QVariant::Double};
    QTest::newRow("default lacks the table") << "CREATE TABLE other (id INTEGER, x TEXT);"
                                             << QList<QVariant::Type>{invalid, invalid};
    QTest::newRow("default table is narrower")
            << "CREATE TABLE table1 (id INTEGER, column1 BLOB);"
            << QList<QVariant::Type>{QVariant::ByteArray, invalid};
}

// Types come from the application's default connection, not from the handler's own.
void tst_DatabaseHandler::fieldTypes()
{
    QFETCH(QString, defaultSchema);
    QFETCH(QList<QVariant::Type>, types);

    const QString name = addGenerated({2}, 2);
    QVERIFY(!name.isEmpty());
    std::unique_ptr<DefaultConnection> defaultConnection;
    if (defaultSchema == QLatin1String("same")) {
        defaultConnection.reset(new DefaultConnection(sysFile(name)));
    } else if (!defaultSchema.isNull()) {
        const QString file = m_catalogue->filePath("default.sqlite");
        QVERIFY(TestSupport::sqlite(file, defaultSchema));
        defaultConnection.reset(new DefaultConnection(file));
    }
    if (defaultConnection)
        QVERIFY(defaultConnection->isOpen());

    DatabaseHandler handler;
    QVERIFY(handler.setCurrentDatabaseName(name));
    QCOMPARE(handler.getFieldNames(), (QStringList{"column1", "column2"}));
    QCOMPARE(handler.getFieldTypes(), types);
}

void tst_DatabaseHandler::recordCountCoversAllTables()
{
    const QString name = addGenerated({10, 10, 5}, 1);
    QVERIFY(!name.isEmpty());
    DatabaseHandler handler;
    QVERIFY(handler.setCurrentDatabaseName(name));
    QCOMPARE(handler.getTableRecordCount(), 25);
    QVERIFY(handler.setTableName("table3"));
    QCOMPARE(handler.getTableRecordCount(), 25);
    QCOMPARE(handler.recordValue(24, 0, 10).toString(), generatedCell(3, 4, 1));
    QCOMPARE(handler.getTableRecordCount(), 25);
}

void tst_DatabaseHandler::setFirstTableTwice()
{
    const QString name = addGenerated({1, 1}, 1);
    QVERIFY(!name.isEmpty());
    DatabaseHandler handler;
    QVERIFY(handler.setCurrentDatabaseName(name));
    QCOMPARE(handler.tableName(), QString("table1"));
    // The first table is current already.
    QVERIFY(!handler.setFirstTable());
    QVERIFY(handler.setTableName("table2"));
    QVERIFY(handler.setFirstTable());
    QCOMPARE(handler.tableName(), QString("table1"));
    QVERIFY(!handler.setFirstTable());
    // getTables is the raw list, the bookkeeping table included.
    QCOMPARE(handler.getTables(), (QStringList{"table1", "sqlite_sequence", "table2"}));
}

void tst_DatabaseHandler::setTableName_data()
{
    QTest::addColumn<QString>("table");
    QTest::addColumn<bool>("result");
    QTest::addColumn<QStringList>("fieldNames");

    QTest::newRow("current table") << "wide" << false << QStringList{"a", "b"};
    QTest::newRow("other table") << "narrow" << true << QStringList{"c"};
    QTest::newRow("unknown table") << "nosuch" << true << QStringList{"a", "b"};
    QTest::newRow("empty name") << "" << true << QStringList{"a", "b"};
}

void tst_DatabaseHandler::setTableName()
{
    QFETCH(QString, table);
    QFETCH(bool, result);
    QFETCH(QStringList, fieldNames);

    const QString name = addWithSql("CREATE TABLE wide (id INTEGER PRIMARY KEY, a TEXT, b TEXT);"
                                    "INSERT INTO wide (a, b) VALUES ('a', 'b');"
                                    "CREATE TABLE narrow (id INTEGER PRIMARY KEY, c TEXT);");
    QVERIFY(!name.isEmpty());
    DatabaseHandler handler;
    QVERIFY(handler.setCurrentDatabaseName(name));
    QCOMPARE(handler.setTableName(table), result);
    QCOMPARE(handler.tableName(), table);
    QCOMPARE(handler.getFieldNames(), fieldNames);
    QCOMPARE(handler.getTableRecordCount(), 1);
}

void tst_DatabaseHandler::sameNameDoesNotTouchConnection()
{
    const QString name = addGenerated({1}, 1);
    QVERIFY(!name.isEmpty());
    DatabaseHandler handler;
    QVERIFY(handler.setCurrentDatabaseName(name));
    QSqlDatabase::database(name, false).close();
    QVERIFY(handler.setCurrentDatabaseName(name));
    QVERIFY(!connectionIsOpen(name));
    QVERIFY(handler.isDatabaseOpen());
}

void tst_DatabaseHandler::switchDatabases()
{
    const QString first = addGenerated({3}, 1);
    const QString second = addGenerated({2, 2}, 3);
    QVERIFY(!first.isEmpty() && !second.isEmpty());

    DatabaseHandler handler;
    QVERIFY(handler.setCurrentDatabaseName(first));
    QCOMPARE(handler.currentDatabaseName(), first);
    QVERIFY(handler.setCurrentDatabaseName(second));
    QCOMPARE(handler.currentDatabaseName(), second);
    QVERIFY(!connectionIsOpen(first));
    QVERIFY(connectionIsOpen(second));
    QCOMPARE(handler.getFieldNames(), (QStringList{"column1", "column2", "column3"}));
    QCOMPARE(handler.getTableRecordCount(), 4);
    QCOMPARE(handler.recordValue(3, 2, 2).toString(), generatedCell(2, 1, 3));
}

void tst_DatabaseHandler::openFailures_data()
{
    QTest::addColumn<QString>("kind");
    QTest::addColumn<bool>("staysOnOld"); // the old database stays open and current
    QTest::addColumn<bool>("open");
    QTest::addColumn<QStringList>("tables");

    const QStringList oldTables{"table1", "sqlite_sequence"};
    QTest::newRow("unknown name") << "unknown" << true << true << oldTables;
    QTest::newRow("directory named like a database") << "directory" << true << true << oldTables;
    QTest::newRow("file gone since listing") << "gone" << true << true << oldTables;
    // The driver opens any file lazily; the first read finds that it is not a database.
    QTest::newRow("not a database") << "junk" << false << true << QStringList();
    QTest::newRow("empty file") << "empty" << false << true << QStringList();
    QTest::newRow("only sqlite_sequence")
            << "sequence" << false << true << QStringList{"sqlite_sequence"};
    QTest::newRow("open fails") << "unopenable" << false << false << QStringList();
}

void tst_DatabaseHandler::openFailures()
{
    QFETCH(QString, kind);
    QFETCH(bool, staysOnOld);
    QFETCH(bool, open);
    QFETCH(QStringList, tables);

    const QString old = addGenerated({3}, 2);
    QVERIFY(!old.isEmpty());
    const QString name = TestSupport::uniqueDatabaseName(kind);
    const QString file = sysFile(name);
    if (kind == QLatin1String("directory")) {
        QVERIFY(QDir().mkpath(file));
    } else if (kind == QLatin1String("gone")) {
        QVERIFY(TestSupport::writeGeneratedDatabase(file, {1}, 1));
    } else if (kind == QLatin1String("junk")) {
        QVERIFY(TestSupport::writeFile(file, QByteArray(4096, '\x5a')));
    } else if (kind == QLatin1String("empty")) {
        QVERIFY(TestSupport::writeFile(file, QByteArray()));
    } else if (kind == QLatin1String("sequence")) {
        QVERIFY(TestSupport::sqlite(file, "CREATE TABLE t (id INTEGER PRIMARY KEY AUTOINCREMENT);"
                                          "INSERT INTO t DEFAULT VALUES; DROP TABLE t;"));
    } else if (kind == QLatin1String("unopenable")) {
        // A connection of that name already registered with a driver that is not there.
        QVERIFY(TestSupport::writeGeneratedDatabase(file, {1}, 1));
        QTest::ignoreMessage(QtWarningMsg, QRegularExpression("not loaded"));
        QTest::ignoreMessage(QtWarningMsg, QRegularExpression("available drivers"));
        QSqlDatabase::addDatabase(QStringLiteral("QNOSUCHDRIVER"), name);
    }
    DatabaseManager::instance()->reload();
    if (kind == QLatin1String("gone"))
        QVERIFY(QFile::remove(file));

    {
        DatabaseHandler handler;
        QVERIFY(handler.setCurrentDatabaseName(old));
        const QStringList oldFields = handler.getFieldNames();

        QVERIFY(!handler.setCurrentDatabaseName(name));
        QCOMPARE(handler.isDatabaseOpen(), open);
        QCOMPARE(handler.getTables(), tables);
        // The old field list stays readable whatever happened.
        QCOMPARE(handler.getFieldNames(), oldFields);
        QCOMPARE(handler.getFieldTypes().size(), oldFields.size());
        if (staysOnOld) {
            QCOMPARE(handler.currentDatabaseName(), old);
            QCOMPARE(handler.getTableRecordCount(), 3);
            QCOMPARE(handler.recordValue(2, 1, 3).toString(), generatedCell(1, 2, 2));
        } else {
            QCOMPARE(handler.currentDatabaseName(), name);
            QVERIFY(!connectionIsOpen(old));
            QCOMPARE(handler.getTableRecordCount(), 0);
            QVERIFY(!handler.recordValue(0, 0, 3).isValid());
            // The name is taken even when nothing could be read: asking again is a no-op.
            QVERIFY(handler.setCurrentDatabaseName(name));
            QCOMPARE(handler.isDatabaseOpen(), open);
        }
    }
    if (kind == QLatin1String("unopenable"))
        QSqlDatabase::removeDatabase(name);
}

// A handler that never opened a database must not read the application's default one.
void tst_DatabaseHandler::neverOpenedHandler()
{
    const QString name = addGenerated({2}, 2);
    QVERIFY(!name.isEmpty());
    DefaultConnection defaultConnection(sysFile(name));
    QVERIFY(defaultConnection.isOpen());

    DatabaseHandler handler;
    QVERIFY(!handler.isDatabaseOpen());
    QVERIFY(handler.tableName().isNull());
    QVERIFY(!handler.recordValue(0, 0, 1).isValid());
    QVERIFY(handler.setTableName("table1"));
    QVERIFY(handler.getFieldNames().isEmpty());
    QVERIFY(handler.getFieldTypes().isEmpty());
    QCOMPARE(handler.getTableRecordCount(), 0);
    QVERIFY(!handler.setFirstTable());
    QVERIFY(handler.getTables().isEmpty());
}

void tst_DatabaseHandler::destructorLogsAndKeepsConnection_data()
{
    QTest::addColumn<bool>("opened");
    QTest::newRow("opened") << true;
    QTest::newRow("never opened") << false;
}

void tst_DatabaseHandler::destructorLogsAndKeepsConnection()
{
    QFETCH(bool, opened);
    const QString name = addGenerated({1}, 1);
    QVERIFY(!name.isEmpty());

    auto *handler = new DatabaseHandler;
    if (opened)
        QVERIFY(handler->setCurrentDatabaseName(name));
    const int before = Core::ConsoleSingleton::instance().history().size();
    delete handler;

    const QStringList history = Core::ConsoleSingleton::instance().history();
    QCOMPARE(history.size(), qMin(before + 1, 1000));
    QCOMPARE(history.last(),
             QStringLiteral("DatabaseHandler::~DatabaseHandler:: ") + (opened ? name : QString()));
    QCOMPARE(QSqlDatabase::contains(name), opened);
    QVERIFY(!connectionIsOpen(name));
}

// A member-wise copy holds the same connection: destroying it closes the original's too.
void tst_DatabaseHandler::copySharesConnection()
{
    const QString name = addGenerated({2}, 1);
    QVERIFY(!name.isEmpty());
    DatabaseHandler handler;
    QVERIFY(handler.setCurrentDatabaseName(name));
    {
        DatabaseHandler copy(handler);
        QCOMPARE(copy.currentDatabaseName(), name);
        QCOMPARE(copy.recordValue(1, 0, 2).toString(), generatedCell(1, 1, 1));
    }
    QVERIFY(!connectionIsOpen(name));
    QVERIFY(!handler.recordValue(1, 0, 2).isValid());
}

QTEST_GUILESS_MAIN(tst_DatabaseHandler)
#include "tst_databasehandler.moc"
