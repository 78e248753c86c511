#include <database/progressscope.h>
#include <database/xlsxtodbgenerator.h>

#include "testsupport.h"
#include "xlsxfixture.h"

#include <QtTest>

using Database::XlsxToDBGenerator;
using TestSupport::sqliteQuery;

class tst_XlsxToDBGenerator : public QObject
{
    Q_OBJECT

private slots:
    // Nothing of the user's is touched, whatever the library looks up.
    void initTestCase() { QStandardPaths::setTestModeEnabled(true); }
    void import_data();
    void import();

private:
    QTemporaryDir m_dir;
};

void tst_XlsxToDBGenerator::import_data()
{
    // rows: of a sheet of 3 "r<row>c<column>" cells each, -1 no file; setup: run on the database
    // first, "garbage" not a database; tables: table1's rows|min id|min column1; the tables.
    QTest::addColumn<int>("rows");
    for (const char *column : {"setup", "log", "tables"})
        QTest::addColumn<QString>(column);

    const QString table("CREATE TABLE table1 (id INTEGER PRIMARY KEY AUTOINCREMENT, column1 TEXT, "
                        "column2 TEXT%1); INSERT INTO table1 (column1) VALUES ('old');");
    QTest::newRow("every row, the first one included") << 3 << "" << "" << "3|1|r1c1;table1";
    QTest::newRow("narrower table, next batch commits") << 50001 << table.arg("")
            << "Database commit error" << "0||;table1,table2";
    // The trigger ends the transaction, so a row tried after it would commit on its own.
    QTest::newRow("stops at the first bad row") << 3
            << table.arg(", column3 TEXT") + "CREATE TRIGGER bad BEFORE INSERT ON table1 WHEN "
                                             "NEW.column1 = 'r2c1' BEGIN SELECT RAISE(ROLLBACK, 'bad'); END;"
            << "Database commit error" << "0||;table1";
    // Cancelled at the first report past half the rows: the committed table stays whole.
    QTest::newRow("cancelled") << 100001 << "" << "Import cancelled" << "50000|1|r10000c1;table1";
    QTest::newRow("missing file") << -1 << "" << "Cannot open file %1 for reading." << ";";
    QTest::newRow("empty sheet") << 0 << "" << "%1 has no valid data." << ";";
    QTest::newRow("not a database") << 2 << "garbage" << "Create database error" << ";";
}

// A failed batch is rolled back whole and the log tells only that; later batches still commit.
// Reports start at 0, never go back and end at the sheet's rows, at least one per batch.
void tst_XlsxToDBGenerator::import()
{
    QFETCH(int, rows);
    QFETCH(QString, setup);
    QFETCH(QString, log);
    QFETCH(QString, tables);

    const QString file = m_dir.filePath(QString(QTest::currentDataTag()) + ".xlsx");
    const QString database = m_dir.filePath(QString(QTest::currentDataTag()) + ".db");
    QVERIFY(rows < 0 || TestSupport::writeXlsxGrid(file, rows, 3));
    QVERIFY(setup != "garbage" || TestSupport::writeFile(database, QByteArray(4096, 'x')));
    QVERIFY(setup.isEmpty() || setup == "garbage" || TestSupport::sqlite(database, setup));
    XlsxToDBGenerator generator;
    QList<qint64> done; // done, total, done, total, ...
    Database::ProgressScope scope([&](qint64 value, qint64 total) {
        done << value << total;
        return log != "Import cancelled" || value <= total / 2;
    });
    QCOMPARE(generator.importOriginalFile(file, database), log.isEmpty());
    for (int i = 2; i < done.size(); i += 2)
        QVERIFY(done.at(i) >= done.at(i - 2) && done.at(i + 1) == rows && done.size() < 800);
    QVERIFY(done.isEmpty()
            || (done.first() == 0 && done.size() > rows / 25000
                && (done.at(done.size() - 2) == rows) == (log != "Import cancelled")));
    QCOMPARE(generator.getLog(), log.arg(file));
    QCOMPARE(sqliteQuery(database, "SELECT count(*), min(id), min(column1) FROM table1;") + ';'
                     + sqliteQuery(database, "SELECT group_concat(name) FROM sqlite_master WHERE "
                                             "name GLOB 'table*';"),
             tables);
}
QTEST_GUILESS_MAIN(tst_XlsxToDBGenerator)
#include "tst_xlsxtodbgenerator.moc"
