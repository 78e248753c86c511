#include <database/memorydatabasemanager.h>

#include "testsupport.h"

#include <QtTest>

#include <QSqlError>
#include <QSqlField>
#include <QSqlQuery>
#include <QSqlRecord>

using Database::MemoryDatabaseManager;

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

// One record of string fields.
QSqlRecord record(const QStringList &values)
{
    QSqlRecord record;
    for (const QString &value : values) {
        record.append(QSqlField(QStringLiteral("f%1").arg(record.count()), QVariant::String));
        record.setValue(record.count() - 1, value);
    }
    return record;
}

} // namespace

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
    void cleanupTestCase() { MemoryDatabaseManager::destruct(); }

    // Lines that split differently from the first are skipped and quoted values break their
    // row, yet every line counts; readers and the cursor then see the rows really stored.
    void skippedLinesStillCounted()
    {
        QVERIFY(m->generateDatabase(QStringLiteral("TestTable"),
                                    QStringList{"@;!a@;!b@;!c@;!", "x@;!@;!y", "O'Brien@;!x@;!y",
                                                "d@;!e@;!f"}));
        QCOMPARE(m->getTableRowsCount(), 4);
        QCOMPARE(m->getTableColumnsCount(), 3);
        QCOMPARE(queryRows(QStringLiteral("SELECT * FROM TestTable")),
                 (QStringList{"a|b|c", "d|e|f"}));
        const QVariantList firsts{"a", "d", QVariant(), QVariant()};
        for (int row = 0; row < 4; ++row) {
            QCOMPARE(m->recordValue(row, 0), firsts.at(row));
            QCOMPARE(m->recordValue(1), firsts.at(row));
            QVERIFY(!m->isEnd());
            m->doNext();
        }
        QVERIFY(m->isEnd());
    }

    // A transaction already open on the connection makes the overloads part ways: lines give
    // up, with an error that is never cleared; records insert all the same (and commit it).
    void transactionStart()
    {
        QSqlDatabase db = m->memoryDatabase();
        QVERIFY(db.transaction());
        QVERIFY(!m->generateDatabase(QStringLiteral("T"), QStringList{"a@;!b@;!c", "d"}));
        QCOMPARE(m->getLastError(), "Can't begin transaction");
        QCOMPARE(queryRows(QStringLiteral("SELECT sql FROM sqlite_master")),
                 QStringList{"CREATE TABLE T ( column1 TEXT , column2 TEXT , column3 TEXT  )"});
        QCOMPARE(queryRows(QStringLiteral("SELECT * FROM T")), QStringList());
        QVERIFY(m->generateDatabase(QStringLiteral("T"), {record({"x", "y"}), record({"it's"})}));
        QCOMPARE(queryRows(QStringLiteral("SELECT * FROM T")), QStringList({"x|y"}));
        QVERIFY(m->generateDatabase(QStringLiteral("TestTable"), QStringList{"a"}));
        QCOMPARE(m->getLastError(), "Can't begin transaction");
    }

    void readers_data()
    {
        QTest::addColumn<int>("row"); // -2: the cursor reader, on row 1
        QTest::addColumn<int>("column");
        QTest::addColumn<QVariant>("value");

        QTest::newRow("cursor: column 0 clamped to the first") << -2 << 0 << QVariant("r1c1");
        QTest::newRow("cursor: past the count clamped to the last") << -2 << 3 << QVariant("r1c2");
        QTest::newRow("free: last cell") << 1 << 1 << QVariant("r1c2");
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
        QVERIFY_SQL(query,
                    exec("CREATE TABLE TestTable AS SELECT 'r0c0' column0, 'r0c1' column1,"
                         " 'r0c2' column2, 'r0c3' column3 UNION ALL VALUES ('r1c0', 'r1c1',"
                         " 'r1c2', 'r1c3'), ('r2c0', 'r2c1', 'r2c2', 'r2c3')"));
        m->doNext();
        QTEST(row == -2 ? m->recordValue(column) : m->recordValue(row, column), "value");
    }

private:
    TestSupport::TempCatalogue m_catalogue;
    MemoryDatabaseManager *m = nullptr;
};

QTEST_GUILESS_MAIN(tst_MemoryDatabaseManager)
#include "tst_memorydatabasemanager.moc"
