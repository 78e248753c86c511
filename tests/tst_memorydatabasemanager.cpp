#include <database/memorydatabasemanager.h>

#include "testsupport.h"

#include <QtTest>

#include <QSqlError>
#include <QSqlQuery>

using Database::MemoryDatabaseManager;

class tst_MemoryDatabaseManager : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase()
    {
        QVERIFY(m_catalogue.isValid());
        MemoryDatabaseManager::init();
        m = MemoryDatabaseManager::instance();
    }

    // Lines that split differently from the first are skipped and quoted values break their
    // row, yet every line counts; the reader then sees the rows really stored.
    void skippedLinesStillCounted()
    {
        QVERIFY(m->generateDatabase(QStringLiteral("TestTable"), QStringList{"@;!a@;!b@;!c@;!",
                "x@;!@;!y", "O'Brien@;!x@;!y", "d@;!e@;!f"}));
        QCOMPARE(m->getTableRowsCount(), 4);
        QCOMPARE(firstColumn("SELECT column1 || column2 || column3 FROM TestTable"),
                 (QStringList{"abc", "def"}));
        const QVariantList firsts{"a", "d", QVariant(), QVariant()};
        for (int row = 0; row < 4; ++row)
            QCOMPARE(m->recordValue(row, 0), firsts.at(row));
    }

    // A transaction already open on the connection makes the overloads part ways: lines give
    // up, with an error that is never cleared; records insert all the same (and commit it).
    void transactionStart()
    {
        QSqlQuery query("SELECT 'x', 'y' UNION ALL SELECT 'it''s', NULL", m->memoryDatabase());
        QList<QSqlRecord> records;
        while (query.next())
            records << query.record();
        QVERIFY(m->memoryDatabase().transaction());
        QVERIFY(!m->generateDatabase(QStringLiteral("T"), QStringList{"a@;!b@;!c", "d"}));
        QCOMPARE(m->getLastError(), "Can't begin transaction");
        QCOMPARE(firstColumn("SELECT * FROM T"), QStringList()); // created, left empty
        QVERIFY(m->generateDatabase(QStringLiteral("T"), records));
        QCOMPARE(firstColumn("SELECT column1 || column2 FROM T"), QStringList{"xy"});
        QVERIFY(m->generateDatabase(QStringLiteral("TestTable"), QStringList{"a"}));
        QCOMPARE(m->getLastError(), "Can't begin transaction");
    }

    // No record, or a first record without fields, makes no table, yet the old one is gone.
    void recordsWithoutValues()
    {
        for (const QList<QSqlRecord> &records : {QList<QSqlRecord>(), QList<QSqlRecord>{QSqlRecord()}}) {
            QVERIFY(m->generateDatabase(QStringLiteral("TestTable"), QStringList{"a"}));
            QVERIFY(!m->generateDatabase(QStringLiteral("T"), records));
            QCOMPARE(firstColumn("SELECT name FROM sqlite_master"), QStringList());
        }
    }

    // Moves of the cursor over 5 rows: g<row> goes to a row, n and f step forward (doNext and
    // finishMarking), p steps back, r resets. The cursor's row shows in the value it reads.
    void cursor_data()
    {
        QTest::addColumn<QString>("moves");
        QTest::addColumn<int>("row");
        QTest::addColumn<bool>("end");
        QTest::newRow("past the end") << "g7" << 4 << true;
        QTest::newRow("negative") << "g-3" << 0 << false;
        QTest::newRow("last row") << "g4" << 4 << false;
        QTest::newRow("one past the last") << "g5" << 4 << true;
        QTest::newRow("a step past the last") << "g4 n" << 4 << true;
        QTest::newRow("back from the end") << "g4 f p" << 3 << false;
        QTest::newRow("steps") << "n f n" << 3 << false;
        QTest::newRow("back from the first") << "p p" << 0 << false;
        QTest::newRow("reset") << "g9 r" << 0 << false;
    }
    void cursor()
    {
        QFETCH(QString, moves);
        QVERIFY(m->generateDatabase(QStringLiteral("TestTable"),
                                    QStringList{"r0", "r1", "r2", "r3", "r4"}));
        for (const QString &move : moves.split(' ')) {
            switch (move.at(0).toLatin1()) {
            case 'g': m->doGoTo(move.mid(1).toInt()); break;
            case 'n': m->doNext(); break;
            case 'f': m->finishMarking(); break;
            case 'p': m->doPre(); break;
            case 'r': m->doReset(); break;
            }
        }
        QFETCH(int, row);
        QCOMPARE(m->recordValue(1), QVariant(QString("r%1").arg(row)));
        QTEST(m->isEnd(), "end");
    }

    void readers_data()
    {
        QTest::addColumn<int>("row"); // -1: the cursor reader, on row 1
        QTest::addColumn<int>("column");
        QTest::addColumn<QVariant>("value");

        QTest::newRow("cursor: column 0 clamped to the first") << -1 << 0 << QVariant("r1c1");
        QTest::newRow("cursor: past the count clamped to the last") << -1 << 3 << QVariant("r1c2");
        QTest::newRow("free: column count rejected") << 0 << 2 << QVariant();
        QTest::newRow("free: negative column rejected") << 0 << -1 << QVariant();
        QTest::newRow("free: row count rejected") << 2 << 0 << QVariant();
    }

    // The manager knows 2 rows of 2 columns of "Other", while "TestTable", made by hand and the
    // only table read, holds one more row and a column more on either side, so that every
    // bound the readers keep shows.
    void readers()
    {
        QFETCH(int, row);
        QFETCH(int, column);
        QVERIFY(m->generateDatabase(QStringLiteral("Other"), QStringList{"a@;!b", "c@;!d"}));
        QSqlQuery query(m->memoryDatabase());
        QVERIFY_SQL(query, exec("CREATE TABLE TestTable AS SELECT 'r0c0' column0, 'r0c1' column1, "
                "'r0c2' column2, 'r0c3' column3 UNION ALL VALUES ('r1c0', 'r1c1', 'r1c2', 'r1c3'), "
                "('r2c0', 'r2c1', 'r2c2', 'r2c3')"));
        m->doNext();
        QTEST(row < 0 ? m->recordValue(column) : m->recordValue(row, column), "value");
    }

private:
    // The first field of every row a statement gives, read through a query of our own.
    QStringList firstColumn(const QString &statement)
    {
        QSqlQuery query(statement, m->memoryDatabase());
        QStringList values;
        while (query.next())
            values << query.value(0).toString();
        return values;
    }

    TestSupport::TempCatalogue m_catalogue;
    MemoryDatabaseManager *m = nullptr;
};

QTEST_GUILESS_MAIN(tst_MemoryDatabaseManager)
#include "tst_memorydatabasemanager.moc"
