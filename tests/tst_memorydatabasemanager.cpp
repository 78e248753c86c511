#include <database/memorydatabasemanager.h>

#include "testsupport.h"
#include "warningcatcher.h"

#include <QtTest>

#include <QSqlError>
#include <QSqlField>
#include <QSqlQuery>
#include <QSqlRecord>

using Database::MemoryDatabaseManager;
using TestSupport::WarningCatcher;

Q_DECLARE_METATYPE(QList<QSqlRecord>)

namespace {

MemoryDatabaseManager *manager()
{
    return MemoryDatabaseManager::instance();
}

// The table's rows read straight through SQL, fields joined by '|', in storage order.
QStringList tableRows(const QString &table)
{
    QStringList rows;
    QSqlQuery query(manager()->memoryDatabase());
    if (!query.exec(QStringLiteral("SELECT * FROM ") + table))
        return {QStringLiteral("error: ") + query.lastError().text()};
    while (query.next()) {
        QStringList fields;
        for (int i = 0; i < query.record().count(); ++i)
            fields << query.value(i).toString();
        rows << fields.join(QLatin1Char('|'));
    }
    return rows;
}

QStringList columnNames(const QString &table)
{
    QStringList names;
    const QSqlRecord record = manager()->memoryDatabase().record(table);
    for (int i = 0; i < record.count(); ++i)
        names << record.fieldName(i);
    return names;
}

QStringList sortedTables()
{
    QStringList tables = manager()->memoryDatabase().tables(QSql::Tables);
    tables.sort();
    return tables;
}

// A record of string fields; an invalid QVariant in the list stays a null value.
QSqlRecord makeRecord(const QVariantList &values)
{
    QSqlRecord record;
    for (int i = 0; i < values.size(); ++i) {
        QSqlField field(QStringLiteral("f%1").arg(i), QVariant::String);
        field.setValue(values.at(i));
        record.append(field);
    }
    return record;
}

// Rows "r0|x0", "r1|x1", ... so that the cursor reader tells which row it is on.
QStringList numberedLines(int count)
{
    QStringList lines;
    for (int i = 0; i < count; ++i)
        lines << QStringLiteral("r%1@;!x%1").arg(i);
    return lines;
}

// Puts a three-row baseline in place with the cursor pushed past its end, so that a failed
// generation can be seen to leave the counts and the end flag alone.
bool makeBaseline()
{
    if (!manager()->generateDatabase(QStringLiteral("TestTable"), numberedLines(3)))
        return false;
    manager()->doGoTo(10);
    return manager()->isEnd();
}

} // namespace

class tst_MemoryDatabaseManager : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void cleanupTestCase();
    void init();

    void freshInstanceAfterDestruct();
    void initTwiceKeepsInstance();

    void generateFromLines_data();
    void generateFromLines();
    void generateFromRecords_data();
    void generateFromRecords();
    void rejectedInputLeavesNoTable_data();
    void rejectedInputLeavesNoTable();
    void createStatementLayout();
    void failedCreateUpdatesCounts();
    void transactionStartFailure();
    void everyTableDroppedButSequence();
    void otherTableNameIsNotRead();
    void closedConnection();

    void cursorWalk_data();
    void cursorWalk();
    void cursorMoves_data();
    void cursorMoves();
    void cursorReaderClampsColumn_data();
    void cursorReaderClampsColumn();
    void freeReaderRange_data();
    void freeReaderRange();
    void skippedRowsShiftOffsets();

    void destroyingCopyClosesConnection();
};

void tst_MemoryDatabaseManager::initTestCase()
{
    MemoryDatabaseManager::init();
    QVERIFY(manager());
    QVERIFY(manager()->memoryDatabase().isOpen());
}

void tst_MemoryDatabaseManager::cleanupTestCase()
{
    MemoryDatabaseManager::destruct();
    QVERIFY(!manager());
}

// Some cases close the connection; every case starts on an open one.
void tst_MemoryDatabaseManager::init()
{
    QSqlDatabase db = manager()->memoryDatabase();
    if (!db.isOpen())
        QVERIFY(db.open());
}

void tst_MemoryDatabaseManager::freshInstanceAfterDestruct()
{
    QVERIFY(manager()->generateDatabase(QStringLiteral("TestTable"), numberedLines(2)));
    QSqlDatabase oldHandle = manager()->memoryDatabase();
    QVERIFY(oldHandle.transaction());
    QCOMPARE(manager()->generateDatabase(QStringLiteral("TestTable"), numberedLines(2)), false);
    QVERIFY(oldHandle.rollback());
    oldHandle = QSqlDatabase();
    QCOMPARE(manager()->getLastError(), QStringLiteral("Can't begin transaction"));

    WarningCatcher catcher;
    MemoryDatabaseManager::destruct();
    QVERIFY(!manager());
    MemoryDatabaseManager::init();
    QVERIFY(manager());
    QCOMPARE(catcher.warnings(), QStringList());

    QVERIFY(manager()->memoryDatabase().isOpen());
    QCOMPARE(manager()->memoryDatabase().connectionName(),
             QStringLiteral("TalwenMemoryDatabase"));
    QCOMPARE(manager()->memoryDatabase().databaseName(), QStringLiteral(":memory:"));
    QCOMPARE(manager()->getTableRowsCount(), -1);
    QCOMPARE(manager()->getTableColumnsCount(), -1);
    QCOMPARE(manager()->getLastError(), QString());
    QCOMPARE(sortedTables(), QStringList());
    QVERIFY(!manager()->isEnd());

    // Nothing generated yet: a step forward runs past the (absent) end.
    QVERIFY(!manager()->recordValue(1).isValid());
    manager()->doNext();
    QVERIFY(manager()->isEnd());
    QVERIFY(!manager()->recordValue(1).isValid());
    QVERIFY(!manager()->recordValue(0, 0).isValid());
}

void tst_MemoryDatabaseManager::initTwiceKeepsInstance()
{
    MemoryDatabaseManager *first = manager();
    QVERIFY(first->generateDatabase(QStringLiteral("TestTable"), numberedLines(2)));
    MemoryDatabaseManager::init();
    QCOMPARE(manager(), first);
    QCOMPARE(tableRows(QStringLiteral("TestTable")),
             QStringList({QStringLiteral("r0|x0"), QStringLiteral("r1|x1")}));
}

void tst_MemoryDatabaseManager::generateFromLines_data()
{
    QTest::addColumn<QStringList>("lines");
    QTest::addColumn<int>("columns");
    QTest::addColumn<QStringList>("rows");

    QTest::newRow("three values per line")
            << QStringList{"a@;!b@;!c", "d@;!e@;!f"} << 3 << QStringList{"a|b|c", "d|e|f"};
    QTest::newRow("empty part skipped makes a short line")
            << QStringList{"a@;!b@;!c", "x@;!@;!y", "d@;!e@;!f"} << 3
            << QStringList{"a|b|c", "d|e|f"};
    QTest::newRow("leading and trailing separators")
            << QStringList{"@;!a@;!b@;!", "c@;!d"} << 2 << QStringList{"a|b", "c|d"};
    QTest::newRow("no separator gives one column")
            << QStringList{"abc", "d e f"} << 1 << QStringList{"abc", "d e f"};
    QTest::newRow("empty and separator-only lines skipped")
            << QStringList{"a", "", "@;!@;!", "b"} << 1 << QStringList{"a", "b"};
    QTest::newRow("longer line skipped")
            << QStringList{"a@;!b", "c@;!d@;!e", "f@;!g"} << 2 << QStringList{"a|b", "f|g"};
    QTest::newRow("quote breaks only its own row")
            << QStringList{"a@;!b", "O'Brien@;!x", "c@;!d"} << 2 << QStringList{"a|b", "c|d"};
    QTest::newRow("partial separator is text")
            << QStringList{"a@;b@!c"} << 1 << QStringList{"a@;b@!c"};
    QTest::newRow("chinese text") << QStringList{QString::fromUtf8("中文@;!数据")} << 2
                                  << QStringList{QString::fromUtf8("中文|数据")};
    QTest::newRow("blanks kept") << QStringList{" a @;! "} << 2 << QStringList{" a | "};
}

void tst_MemoryDatabaseManager::generateFromLines()
{
    QFETCH(QStringList, lines);
    QFETCH(int, columns);
    QFETCH(QStringList, rows);

    QVERIFY(makeBaseline());
    QVERIFY(manager()->generateDatabase(QStringLiteral("TestTable"), lines));
    // Every input line counts, whether it made a row or not.
    QCOMPARE(manager()->getTableRowsCount(), lines.size());
    QCOMPARE(manager()->getTableColumnsCount(), columns);
    QVERIFY(!manager()->isEnd());
    QCOMPARE(tableRows(QStringLiteral("TestTable")), rows);
    QCOMPARE(columnNames(QStringLiteral("TestTable")).size(), columns);
    QCOMPARE(columnNames(QStringLiteral("TestTable")).last(),
             QStringLiteral("column%1").arg(columns));
    // The cursor is back on the first row.
    QCOMPARE(manager()->recordValue(1).toString(), rows.first().section(QLatin1Char('|'), 0, 0));
}

void tst_MemoryDatabaseManager::generateFromRecords_data()
{
    QTest::addColumn<QList<QSqlRecord>>("records");
    QTest::addColumn<int>("columns");
    QTest::addColumn<QStringList>("rows");

    QTest::newRow("text of numbers and strings")
            << QList<QSqlRecord>{makeRecord({1, QStringLiteral("one"), 1.5}),
                                 makeRecord({qint64(-7), QString(), true})}
            << 3 << QStringList{"1|one|1.5", "-7||true"};
    QTest::newRow("short record padded, long record cut")
            << QList<QSqlRecord>{makeRecord({"a", "b"}), makeRecord({"c"}),
                                 makeRecord({"d", "e", "f"})}
            << 2 << QStringList{"a|b", "c|", "d|e"};
    QTest::newRow("empty record padded")
            << QList<QSqlRecord>{makeRecord({"a", "b"}), QSqlRecord()} << 2
            << QStringList{"a|b", "|"};
    QTest::newRow("null value is empty text")
            << QList<QSqlRecord>{makeRecord({QVariant(), "x"})} << 2 << QStringList{"|x"};
    QTest::newRow("quote breaks only its own row")
            << QList<QSqlRecord>{makeRecord({"it's"}), makeRecord({"fine"})} << 1
            << QStringList{"fine"};
    QTest::newRow("separator is not special")
            << QList<QSqlRecord>{makeRecord({"a@;!b"})} << 1 << QStringList{"a@;!b"};
}

void tst_MemoryDatabaseManager::generateFromRecords()
{
    QFETCH(QList<QSqlRecord>, records);
    QFETCH(int, columns);
    QFETCH(QStringList, rows);

    QVERIFY(makeBaseline());
    QVERIFY(manager()->generateDatabase(QStringLiteral("TestTable"), records));
    QCOMPARE(manager()->getTableRowsCount(), records.size());
    QCOMPARE(manager()->getTableColumnsCount(), columns);
    QVERIFY(!manager()->isEnd());
    QCOMPARE(tableRows(QStringLiteral("TestTable")), rows);
}

void tst_MemoryDatabaseManager::rejectedInputLeavesNoTable_data()
{
    QTest::addColumn<bool>("useRecords");
    QTest::addColumn<QStringList>("lines");
    QTest::addColumn<QList<QSqlRecord>>("records");

    QTest::newRow("no lines") << false << QStringList() << QList<QSqlRecord>();
    QTest::newRow("no records") << true << QStringList() << QList<QSqlRecord>();
    QTest::newRow("empty first line") << false << QStringList{"", "a@;!b"} << QList<QSqlRecord>();
    QTest::newRow("separators-only first line")
            << false << QStringList{"@;!@;!", "a"} << QList<QSqlRecord>();
    QTest::newRow("first record without fields")
            << true << QStringList() << QList<QSqlRecord>{QSqlRecord(), makeRecord({"a"})};
}

// Rejected input still drops the old table, but leaves counts, cursor and end flag alone.
void tst_MemoryDatabaseManager::rejectedInputLeavesNoTable()
{
    QFETCH(bool, useRecords);
    QFETCH(QStringList, lines);
    QFETCH(QList<QSqlRecord>, records);

    QVERIFY(makeBaseline());
    const bool result = useRecords
            ? manager()->generateDatabase(QStringLiteral("TestTable"), records)
            : manager()->generateDatabase(QStringLiteral("TestTable"), lines);
    QCOMPARE(result, false);
    QCOMPARE(sortedTables(), QStringList());
    QCOMPARE(manager()->getTableRowsCount(), 3);
    QCOMPARE(manager()->getTableColumnsCount(), 2);
    QVERIFY(manager()->isEnd());
    QCOMPARE(manager()->getLastError(), QString());
}

void tst_MemoryDatabaseManager::createStatementLayout()
{
    QVERIFY(manager()->generateDatabase(QStringLiteral("T"), QStringList{"a@;!b@;!c"}));
    QSqlQuery query(manager()->memoryDatabase());
    QVERIFY_SQL(query, exec("SELECT sql FROM sqlite_master WHERE name = 'T'"));
    QVERIFY(query.next());
    QCOMPARE(query.value(0).toString(),
             QStringLiteral("CREATE TABLE T ( column1 TEXT , column2 TEXT , column3 TEXT  )"));
}

// The new counts are in place before the CREATE runs; the cursor is not reset.
void tst_MemoryDatabaseManager::failedCreateUpdatesCounts()
{
    QVERIFY(makeBaseline());
    QCOMPARE(manager()->generateDatabase(QStringLiteral("bad name"),
                                         QStringList{"a@;!b@;!c@;!d", "e"}),
             false);
    QCOMPARE(manager()->getTableRowsCount(), 2);
    QCOMPARE(manager()->getTableColumnsCount(), 4);
    QVERIFY(!manager()->isEnd());
    QCOMPARE(manager()->getLastError(), QString());
    QCOMPARE(sortedTables(), QStringList());
}

// A transaction already open on the connection makes the overloads part ways.
void tst_MemoryDatabaseManager::transactionStartFailure()
{
    QSqlDatabase db = manager()->memoryDatabase();

    QVERIFY(db.transaction());
    QCOMPARE(manager()->generateDatabase(QStringLiteral("TestTable"),
                                         QStringList{"a@;!b", "c@;!d", "e@;!f"}),
             false);
    QCOMPARE(manager()->getLastError(), QStringLiteral("Can't begin transaction"));
    QCOMPARE(manager()->getTableRowsCount(), 3);
    QCOMPARE(manager()->getTableColumnsCount(), 2);
    QCOMPARE(sortedTables(), QStringList{"TestTable"});
    QCOMPARE(tableRows(QStringLiteral("TestTable")), QStringList());
    QVERIFY(db.commit());

    QVERIFY(db.transaction());
    QVERIFY(manager()->generateDatabase(QStringLiteral("TestTable"),
                                        QList<QSqlRecord>{makeRecord({"x"}), makeRecord({"y"})}));
    // Its commit ended the outer transaction, so a new one can start.
    QVERIFY(db.transaction());
    QVERIFY(db.rollback());
    QCOMPARE(tableRows(QStringLiteral("TestTable")), QStringList({"x", "y"}));

    // Never cleared by later successes.
    QVERIFY(manager()->generateDatabase(QStringLiteral("TestTable"), QStringList{"z"}));
    QCOMPARE(manager()->getLastError(), QStringLiteral("Can't begin transaction"));
}

void tst_MemoryDatabaseManager::everyTableDroppedButSequence()
{
    QSqlQuery query(manager()->memoryDatabase());
    QVERIFY_SQL(query, exec("CREATE TABLE Extra (v TEXT)"));
    QVERIFY_SQL(query, exec("CREATE TABLE Keyed (id INTEGER PRIMARY KEY AUTOINCREMENT, v)"));
    QVERIFY_SQL(query, exec("INSERT INTO Keyed (v) VALUES (1)"));
    QVERIFY_SQL(query, exec("CREATE TEMP TABLE Scratch (v)"));
    QVERIFY_SQL(query, exec("CREATE VIEW Shown AS SELECT 1"));
    query.finish();

    QVERIFY(manager()->generateDatabase(QStringLiteral("Other"), QStringList{"a"}));
    QCOMPARE(sortedTables(), QStringList({"Other", "sqlite_sequence"}));
    QVERIFY(manager()->generateDatabase(QStringLiteral("TestTable"), QStringList{"b"}));
    QCOMPARE(sortedTables(), QStringList({"TestTable", "sqlite_sequence"}));
    // Views are not tables and stay.
    QVERIFY(manager()->memoryDatabase().tables(QSql::Views).contains(QStringLiteral("Shown")));
    QVERIFY_SQL(query, exec("DROP VIEW Shown"));
}

void tst_MemoryDatabaseManager::otherTableNameIsNotRead()
{
    QVERIFY(manager()->generateDatabase(QStringLiteral("Other"), QStringList{"a@;!b", "c@;!d"}));
    QCOMPARE(tableRows(QStringLiteral("Other")), QStringList({"a|b", "c|d"}));
    QVERIFY(!manager()->recordValue(1).isValid());
    QVERIFY(!manager()->recordValue(0, 0).isValid());
    QVERIFY(!manager()->recordValue(1, 1).isValid());
}

void tst_MemoryDatabaseManager::closedConnection()
{
    QVERIFY(manager()->generateDatabase(QStringLiteral("TestTable"), numberedLines(3)));
    manager()->memoryDatabase().close();
    QCOMPARE(manager()->generateDatabase(QStringLiteral("TestTable"), numberedLines(1)), false);
    QCOMPARE(manager()->generateDatabase(QStringLiteral("TestTable"),
                                         QList<QSqlRecord>{makeRecord({"a"})}),
             false);
    QCOMPARE(manager()->getTableRowsCount(), 3);
    QVERIFY(!manager()->recordValue(1).isValid());
    QVERIFY(!manager()->recordValue(0, 0).isValid());
    manager()->doGoTo(5);
    QVERIFY(manager()->isEnd());
}

void tst_MemoryDatabaseManager::cursorWalk_data()
{
    QTest::addColumn<bool>("viaFinishMarking");
    QTest::addColumn<int>("rowCount");

    QTest::newRow("doNext, five rows") << false << 5;
    QTest::newRow("finishMarking, five rows") << true << 5;
    QTest::newRow("doNext, one row") << false << 1;
    QTest::newRow("finishMarking, one row") << true << 1;
}

// Read, step, test the end flag: every row once, then stop.
void tst_MemoryDatabaseManager::cursorWalk()
{
    QFETCH(bool, viaFinishMarking);
    QFETCH(int, rowCount);

    QVERIFY(manager()->generateDatabase(QStringLiteral("TestTable"), numberedLines(rowCount)));
    QStringList seen;
    do {
        seen << manager()->recordValue(1).toString() + QLatin1Char('|')
                        + manager()->recordValue(2).toString();
        QVERIFY(seen.size() <= rowCount);
        if (viaFinishMarking)
            manager()->finishMarking();
        else
            manager()->doNext();
    } while (!manager()->isEnd());
    QStringList expected = numberedLines(rowCount);
    expected.replaceInStrings(QStringLiteral("@;!"), QStringLiteral("|"));
    QCOMPARE(seen, expected);
    // At the end the cursor stays on the last row.
    manager()->doNext();
    QVERIFY(manager()->isEnd());
    QCOMPARE(manager()->recordValue(1).toString(), QStringLiteral("r%1").arg(rowCount - 1));
}

void tst_MemoryDatabaseManager::cursorMoves_data()
{
    QTest::addColumn<QStringList>("moves");
    QTest::addColumn<int>("row");
    QTest::addColumn<bool>("end");

    QTest::newRow("goto past end") << QStringList{"goto 7"} << 4 << true;
    QTest::newRow("goto row count") << QStringList{"goto 5"} << 4 << true;
    QTest::newRow("goto negative") << QStringList{"goto -3"} << 0 << false;
    QTest::newRow("goto last") << QStringList{"goto 4"} << 4 << false;
    QTest::newRow("goto middle after end") << QStringList{"goto 9", "goto 2"} << 2 << false;
    QTest::newRow("next inside") << QStringList{"next", "next"} << 2 << false;
    QTest::newRow("next onto last row") << QStringList{"goto 3", "next"} << 4 << false;
    QTest::newRow("next past last") << QStringList{"goto 4", "next"} << 4 << true;
    QTest::newRow("finishMarking past last") << QStringList{"goto 4", "finish"} << 4 << true;
    QTest::newRow("repeated next at end")
            << QStringList{"goto 4", "next", "next", "finish"} << 4 << true;
    QTest::newRow("pre after end") << QStringList{"goto 4", "next", "pre"} << 3 << false;
    QTest::newRow("pre on first row") << QStringList{"pre"} << 0 << false;
    QTest::newRow("pre twice from 1") << QStringList{"next", "pre", "pre"} << 0 << false;
    QTest::newRow("reset after end") << QStringList{"goto 8", "reset"} << 0 << false;
    QTest::newRow("large goto") << QStringList{"goto 2147483647"} << 4 << true;
}

void tst_MemoryDatabaseManager::cursorMoves()
{
    QFETCH(QStringList, moves);
    QFETCH(int, row);
    QFETCH(bool, end);

    QVERIFY(manager()->generateDatabase(QStringLiteral("TestTable"), numberedLines(5)));
    for (const QString &move : qAsConst(moves)) {
        const QStringList parts = move.split(QLatin1Char(' '));
        if (parts.first() == QLatin1String("goto"))
            manager()->doGoTo(parts.at(1).toInt());
        else if (parts.first() == QLatin1String("next"))
            manager()->doNext();
        else if (parts.first() == QLatin1String("finish"))
            manager()->finishMarking();
        else if (parts.first() == QLatin1String("pre"))
            manager()->doPre();
        else if (parts.first() == QLatin1String("reset"))
            manager()->doReset();
        else
            QFAIL(qPrintable(move));
    }
    QCOMPARE(manager()->isEnd(), end);
    QCOMPARE(manager()->recordValue(1).toString(), QStringLiteral("r%1").arg(row));
}

void tst_MemoryDatabaseManager::cursorReaderClampsColumn_data()
{
    QTest::addColumn<int>("column");
    QTest::addColumn<QString>("value");

    QTest::newRow("negative") << -5 << "b1";
    QTest::newRow("zero") << 0 << "b1";
    QTest::newRow("first") << 1 << "b1";
    QTest::newRow("second") << 2 << "b2";
    QTest::newRow("last") << 3 << "b3";
    QTest::newRow("one past") << 4 << "b3";
    QTest::newRow("far past") << 99 << "b3";
}

void tst_MemoryDatabaseManager::cursorReaderClampsColumn()
{
    QFETCH(int, column);
    QFETCH(QString, value);

    QVERIFY(manager()->generateDatabase(QStringLiteral("TestTable"),
                                        QStringList{"a1@;!a2@;!a3", "b1@;!b2@;!b3"}));
    manager()->doNext();
    QCOMPARE(manager()->recordValue(column), QVariant(value));
}

void tst_MemoryDatabaseManager::freeReaderRange_data()
{
    QTest::addColumn<int>("row");
    QTest::addColumn<int>("column");
    QTest::addColumn<QVariant>("value");

    QTest::newRow("first cell") << 0 << 0 << QVariant("a1");
    QTest::newRow("last cell") << 1 << 2 << QVariant("b3");
    QTest::newRow("column count") << 0 << 3 << QVariant();
    QTest::newRow("negative column") << 0 << -1 << QVariant();
    QTest::newRow("negative row") << -1 << 0 << QVariant();
    QTest::newRow("row count") << 2 << 0 << QVariant();
}

// Zero-based and range-tested, independent of the cursor.
void tst_MemoryDatabaseManager::freeReaderRange()
{
    QFETCH(int, row);
    QFETCH(int, column);
    QFETCH(QVariant, value);

    QVERIFY(manager()->generateDatabase(QStringLiteral("TestTable"),
                                        QStringList{"a1@;!a2@;!a3", "b1@;!b2@;!b3"}));
    manager()->doNext();
    QCOMPARE(manager()->recordValue(row, column), value);
}

// Skipped and failed rows are counted but missing, so later rows move up and the last
// offsets find nothing.
void tst_MemoryDatabaseManager::skippedRowsShiftOffsets()
{
    const QStringList lines{"a@;!1", "short", "b@;!2", "c'@;!3", "d@;!4"};
    QVERIFY(manager()->generateDatabase(QStringLiteral("TestTable"), lines));
    QCOMPARE(manager()->getTableRowsCount(), 5);

    QStringList byRow;
    for (int row = 0; row < 5; ++row) {
        const QVariant value = manager()->recordValue(row, 0);
        byRow << (value.isValid() ? value.toString() : QStringLiteral("<invalid>"));
    }
    QCOMPARE(byRow, QStringList({"a", "b", "d", "<invalid>", "<invalid>"}));

    QStringList byCursor;
    do {
        const QVariant value = manager()->recordValue(2);
        byCursor << (value.isValid() ? value.toString() : QStringLiteral("<invalid>"));
        manager()->doNext();
    } while (!manager()->isEnd());
    QCOMPARE(byCursor, QStringList({"1", "2", "4", "<invalid>", "<invalid>"}));
}

// Copies share the named connection, and a copy's destructor closes it.
void tst_MemoryDatabaseManager::destroyingCopyClosesConnection()
{
    QVERIFY(manager()->generateDatabase(QStringLiteral("TestTable"), numberedLines(2)));
    {
        MemoryDatabaseManager copy(*manager());
        QCOMPARE(copy.getTableRowsCount(), 2);
        QCOMPARE(copy.recordValue(1, 1), QVariant("x1"));
    }
    QVERIFY(!manager()->memoryDatabase().isOpen());
    QVERIFY(!manager()->recordValue(1).isValid());
}

QTEST_GUILESS_MAIN(tst_MemoryDatabaseManager)
#include "tst_memorydatabasemanager.moc"
