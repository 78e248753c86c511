#include <database/memorydatabasemanager.h>

#include "testsupport.h"
#include "warningcatcher.h"

#include <QtTest>

#include <QSqlError>
#include <QSqlField>
#include <QSqlQuery>
#include <QSqlRecord>

using Database::MemoryDatabaseManager;
using Move = void (MemoryDatabaseManager::*)();

Q_DECLARE_METATYPE(QList<QSqlRecord>)
Q_DECLARE_METATYPE(Move)

namespace {

// A query's rows through a query of our own, fields joined by '|'.
QStringList queryRows(const QString &statement)
{
    QSqlQuery query(statement, MemoryDatabaseManager::instance()->memoryDatabase());
    QStringList rows;
    while (query.next()) {
        rows << query.value(0).toString();
        for (int i = 1; i < query.record().count(); ++i)
            rows.last() += QLatin1Char('|') + query.value(i).toString();
    }
    return rows;
}

// Records of string fields; an invalid QVariant stays a null value.
QList<QSqlRecord> records(const QList<QVariantList> &rows)
{
    QList<QSqlRecord> records;
    for (const QVariantList &values : rows) {
        records << QSqlRecord();
        for (int i = 0; i < values.size(); ++i) {
            records.last().append(QSqlField(QStringLiteral("f%1").arg(i), QVariant::String));
            records.last().setValue(i, values.at(i));
        }
    }
    return records;
}

} // namespace

class tst_MemoryDatabaseManager : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase() { MemoryDatabaseManager::init(); }
    void cleanupTestCase() { MemoryDatabaseManager::destruct(); }
    // Every case starts on an open, empty database; some close it.
    void init() { QVERIFY((m = MemoryDatabaseManager::instance())->memoryDatabase().open()); }

    // A second init() keeps the instance; after destruct() a quiet init() starts afresh. A
    // copy shares the connection and closes it when destroyed: generating then fails and
    // changes nothing.
    void lifecycle()
    {
        QVERIFY(m->generateDatabase(QStringLiteral("TestTable"), QStringList{"a"}));
        MemoryDatabaseManager::init();
        QCOMPARE(MemoryDatabaseManager::instance(), m);
        TestSupport::WarningCatcher catcher;
        MemoryDatabaseManager::destruct();
        QVERIFY(!MemoryDatabaseManager::instance());
        MemoryDatabaseManager::init();
        m = MemoryDatabaseManager::instance();
        QCOMPARE(catcher.warnings(), QStringList());
        QCOMPARE(m->memoryDatabase().connectionName(), "TalwenMemoryDatabase");
        QCOMPARE(m->memoryDatabase().tables(), QStringList());
        delete new MemoryDatabaseManager(*m);
        QVERIFY(!m->memoryDatabase().isOpen());
        QVERIFY(!m->generateDatabase(QStringLiteral("TestTable"), QStringList{"a"}));
        QVERIFY(!m->generateDatabase(QStringLiteral("TestTable"), records({{"a"}})));
        QCOMPARE(m->getTableRowsCount(), -1);
        QCOMPARE(m->getTableColumnsCount(), -1);
    }

    void generate_data()
    {
        QTest::addColumn<QVariant>("input");   // lines or records
        QTest::addColumn<int>("columns");      // 0: rejected before the CREATE
        QTest::addColumn<QStringList>("rows"); // none: the call fails

        QTest::newRow("lines: empty parts skipped; short, long and quoted lines dropped, counted")
                << QVariant(QStringList{"@;!a@;!b@;!c@;!", "x@;!@;!y", "c@;!d@;!e@;!f",
                                         "O'Brien@;!x@;!y", "d@;!e@;!f"})
                << 3 << QStringList{"a|b|c", "d|e|f"};
        QTest::newRow("lines: no full separator, one column, blanks kept, empty lines dropped")
                << QVariant(QStringList{"a@;b@!c", " d ", "", "@;!@;!"}) << 1
                << QStringList{"a@;b@!c", " d "};
        const QList<QSqlRecord> mixed = records(
                {{1, QVariant(), 1.5}, {true, "@;!"}, {}, {"it's"}, {"d", "e", "f", "g"}});
        QTest::newRow("records: text of each value; short padded, long cut, quoted dropped")
                << QVariant::fromValue(mixed) << 3
                << QStringList{"1||1.5", "true|@;!|", "||", "d|e|f"};
        QTest::newRow("too many columns: CREATE fails after counting")
                << QVariant(QStringList{QString("v@;!").repeated(2001), "x"}) << 2001
                << QStringList();
        QTest::newRow("no lines") << QVariant(QStringList()) << 0 << QStringList();
        QTest::newRow("no records") << QVariant::fromValue(records({})) << 0 << QStringList();
        QTest::newRow("separator-only first line")
                << QVariant(QStringList{"@;!@;!", "a"}) << 0 << QStringList();
        QTest::newRow("first record without fields")
                << QVariant::fromValue(records({{}, {"a"}})) << 0 << QStringList();
    }

    // From a 3 x 2 table with the cursor pushed past its end: rejected input drops the table
    // but leaves counts and end flag alone; a failed CREATE has already replaced them.
    void generate()
    {
        QFETCH(QVariant, input);
        QFETCH(int, columns);
        QFETCH(QStringList, rows);

        const bool result = !rows.isEmpty();
        QVERIFY(m->generateDatabase(QStringLiteral("TestTable"), QStringList{"a@;!b", "c", "d"}));
        m->doGoTo(10);
        const QStringList lines = input.toStringList();
        const QList<QSqlRecord> records = input.value<QList<QSqlRecord>>();
        QCOMPARE(input.type() == QVariant::StringList
                         ? m->generateDatabase(QStringLiteral("TestTable"), lines)
                         : m->generateDatabase(QStringLiteral("TestTable"), records),
                 result);
        const int inputs = columns ? lines.size() + records.size() : 3;
        QCOMPARE(m->getTableRowsCount(), inputs);
        QCOMPARE(m->getTableColumnsCount(), columns ? columns : 2);
        QCOMPARE(m->isEnd(), !columns);
        QCOMPARE(m->memoryDatabase().tables(), result ? QStringList{"TestTable"} : QStringList());
        QCOMPARE(queryRows(QStringLiteral("SELECT * FROM TestTable")), rows);
        // Both readers see the rows really stored: later rows move up over dropped ones and the
        // last offsets find nothing. Read, step, test the end flag: each row once.
        for (int r = 0; result && r < inputs; ++r) {
            const QVariant first = rows.size() > r ? rows.at(r).section('|', 0, 0) : QVariant();
            QCOMPARE(m->recordValue(r, 0), first);
            QCOMPARE(m->recordValue(0), first);
            m->doNext();
            QCOMPARE(m->isEnd(), r == inputs - 1);
        }
    }

    // Every table goes first, and the new one is created blank for blank under any name. A
    // transaction already open on the connection makes the overloads part ways.
    void tablesAndTransactionStart()
    {
        QSqlDatabase db = m->memoryDatabase();
        QVERIFY(m->generateDatabase(QStringLiteral("Old"), QStringList{"a"}));
        QVERIFY(!db.exec(QStringLiteral("CREATE TABLE Extra (v)")).lastError().isValid());
        QVERIFY(db.transaction());
        QVERIFY(!m->generateDatabase(QStringLiteral("T"), QStringList{"a@;!b@;!c", "d"}));
        QCOMPARE(m->getLastError(), "Can't begin transaction");
        QCOMPARE(m->getTableRowsCount(), 2);
        QCOMPARE(queryRows(QStringLiteral("SELECT sql FROM sqlite_master")),
                 QStringList{"CREATE TABLE T ( column1 TEXT , column2 TEXT , column3 TEXT  )"});
        QCOMPARE(queryRows(QStringLiteral("SELECT * FROM T")), QStringList());
        QVERIFY(m->generateDatabase(QStringLiteral("Other"), records({{"x"}, {"y"}})));
        QCOMPARE(queryRows(QStringLiteral("SELECT * FROM Other")), QStringList({"x", "y"}));
        // Never cleared.
        QCOMPARE(m->getLastError(), "Can't begin transaction");
    }

    // Stepping forward is walked through above.
    void cursorMoves_data()
    {
        QTest::addColumn<int>("start"); // a doGoTo from one past the end of 5 rows
        QTest::addColumn<Move>("move");
        QTest::addColumn<int>("row");
        QTest::addColumn<bool>("end");

        QTest::newRow("goto past end") << 7 << Move() << 4 << true;
        QTest::newRow("goto row count") << 5 << Move() << 4 << true;
        QTest::newRow("goto negative") << -3 << Move() << 0 << false;
        QTest::newRow("goto last") << 4 << Move() << 4 << false;
        QTest::newRow("finishMarking past last")
                << 4 << Move(&MemoryDatabaseManager::finishMarking) << 4 << true;
        QTest::newRow("pre after end") << 9 << Move(&MemoryDatabaseManager::doPre) << 3 << false;
        QTest::newRow("pre on first row") << 0 << Move(&MemoryDatabaseManager::doPre) << 0 << false;
        QTest::newRow("reset after end")
                << 8 << Move(&MemoryDatabaseManager::doReset) << 0 << false;
    }

    void cursorMoves()
    {
        QFETCH(int, start);
        QFETCH(Move, move);
        QFETCH(int, row);
        QFETCH(bool, end);

        QVERIFY(m->generateDatabase(QStringLiteral("TestTable"),
                                    QStringList{"r0", "r1", "r2", "r3", "r4"}));
        m->doGoTo(5);
        m->doGoTo(start);
        if (move)
            (m->*move)();
        QCOMPARE(m->isEnd(), end);
        QCOMPARE(m->recordValue(1).toString(), QStringLiteral("r%1").arg(row));
    }

    void readers_data()
    {
        QTest::addColumn<int>("row"); // -2: the cursor reader, on row 1
        QTest::addColumn<int>("column");
        QTest::addColumn<QVariant>("value");

        QTest::newRow("cursor: negative column reads the first") << -2 << -5 << QVariant("r1c1");
        QTest::newRow("cursor: column 0 reads the first") << -2 << 0 << QVariant("r1c1");
        QTest::newRow("cursor: past the count reads the last") << -2 << 99 << QVariant("r1c2");
        QTest::newRow("free: last cell") << 1 << 1 << QVariant("r1c2");
        QTest::newRow("free: column count") << 0 << 2 << QVariant();
        QTest::newRow("free: negative column") << 0 << -1 << QVariant();
        QTest::newRow("free: negative row") << -1 << 0 << QVariant();
        QTest::newRow("free: row count") << 2 << 0 << QVariant();
    }

    // The manager knows 2 rows of 2 columns of "Other", while "TestTable", made by hand and the
    // only table read, holds one more row and a column more on either side, so that every
    // bound the readers keep shows.
    void readers()
    {
        QFETCH(int, row);
        QFETCH(int, column);
        QFETCH(QVariant, value);

        QVERIFY(m->generateDatabase(QStringLiteral("Other"), QStringList{"a@;!b", "c@;!d"}));
        QSqlQuery query(m->memoryDatabase());
        QVERIFY_SQL(query,
                    exec("CREATE TABLE TestTable AS SELECT 'r0c0' column0, 'r0c1' column1,"
                         " 'r0c2' column2, 'r0c3' column3 UNION ALL VALUES ('r1c0', 'r1c1',"
                         " 'r1c2', 'r1c3'), ('r2c0', 'r2c1', 'r2c2', 'r2c3')"));
        m->doNext();
        QCOMPARE(row == -2 ? m->recordValue(column) : m->recordValue(row, column), value);
    }

private:
    MemoryDatabaseManager *m = nullptr;
};

QTEST_GUILESS_MAIN(tst_MemoryDatabaseManager)
#include "tst_memorydatabasemanager.moc"
