#include <database/databasegenerator.h>
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
    void init()
    {
        m_dir.reset(new QTemporaryDir);
        QVERIFY(m_dir->isValid());
    }
    void importsEveryRow_data();
    void importsEveryRow();
    void batches_data();
    void batches();
    void failedBatch_data();
    void failedBatch();
    void rejected_data();
    void rejected();
    void progress_data();
    void progress();

private:
    QString path(const QString &name) const { return m_dir->filePath(name); }
    QScopedPointer<QTemporaryDir> m_dir;
};

void tst_XlsxToDBGenerator::importsEveryRow_data()
{
    QTest::addColumn<QList<QVariantList>>("rows");
    QTest::addColumn<QString>("expected");

    QTest::newRow("header row is row 1")
            << QList<QVariantList>{{"name", "city", "age", "joined"},
                                   {"ann", "Paris", 31.0, QDate(2020, 1, 2)}}
            << "1|'name'|'city'|'age'|'joined'\n2|'ann'|'Paris'|'31'|'2020-01-02'";
    QTest::newRow("empty middle row is empty strings")
            << QList<QVariantList>{{"a", "b", "c", "d"}, {}, {"e", "f", "g", "h"}}
            << "1|'a'|'b'|'c'|'d'\n2|''|''|''|''\n3|'e'|'f'|'g'|'h'";
    QTest::newRow("values stored verbatim, short rows padded")
            << QList<QVariantList>{{"it's", "-- x", " pad ", true}, {"1;DROP TABLE t"}}
            << "1|'it''s'|'-- x'|' pad '|'TRUE'\n2|'1;DROP TABLE t'|''|''|''";
}

// Imported twice into a database that holds other tables: the second import empties table1
// and numbers its rows from 1 again, and the other tables stay as they were.
void tst_XlsxToDBGenerator::importsEveryRow()
{
    QFETCH(QList<QVariantList>, rows);
    QFETCH(QString, expected);

    const QString source = path(QStringLiteral("in.xlsx"));
    const QString database = path(QStringLiteral("out.db"));
    QVERIFY(TestSupport::writeXlsx(source, rows));
    QVERIFY(TestSupport::sqlite(database, QStringLiteral(
            "CREATE TABLE notes (t TEXT); INSERT INTO notes VALUES ('kept');"
            "CREATE TABLE table2 (id INTEGER PRIMARY KEY AUTOINCREMENT, column1 TEXT);"
            "INSERT INTO table2 VALUES (NULL, 'old');")));
    for (int round = 0; round < 2; ++round) {
        XlsxToDBGenerator generator;
        QVERIFY(generator.importOriginalFile(source, database));
        QCOMPARE(generator.getLog(), QString());
        QCOMPARE(sqliteQuery(database, QStringLiteral("SELECT id, quote(column1), quote(column2), "
                                                      "quote(column3), quote(column4) FROM table1;")),
                 expected);
    }
    QCOMPARE(sqliteQuery(database, QStringLiteral("SELECT group_concat(name) FROM "
                                                  "pragma_table_info('table1');")),
             QStringLiteral("id,column1,column2,column3,column4"));
    QCOMPARE(sqliteQuery(database, QStringLiteral("SELECT t FROM notes UNION ALL SELECT id || "
                                                  "column1 FROM table2;")),
             QStringLiteral("kept\n1old"));
}

void tst_XlsxToDBGenerator::batches_data()
{
    QTest::addColumn<int>("rows");
    QTest::addColumn<QString>("tables");

    QTest::newRow("exactly one batch") << 50000 << "table1|50000|r50000c2|1";
    QTest::newRow("one row over a batch") << 50001 << "table1|50000|r50000c2|1\ntable2|1|r50001c2|1";
    QTest::newRow("three tables")
            << 100001 << "table1|50000|r50000c2|1\ntable2|50000|r100000c2|1\ntable3|1|r100001c2|1";
}

// Rows keep sheet order across tables, and ids restart in every table.
void tst_XlsxToDBGenerator::batches()
{
    QFETCH(int, rows);
    QFETCH(QString, tables);

    const QString source = path(QStringLiteral("big.xlsx"));
    QVERIFY(TestSupport::writeXlsxGrid(source, rows, 2));
    const QString database = path(QStringLiteral("big.db"));
    XlsxToDBGenerator generator;
    QVERIFY2(generator.importOriginalFile(source, database), qPrintable(generator.getLog()));

    QStringList counts;
    for (int table = 1; table <= (rows + 49999) / 50000 + 1; ++table) {
        counts << sqliteQuery(database, QStringLiteral(
                "SELECT 'table%1', max(id), column2, max(id) = count(*) FROM table%1;").arg(table));
    }
    QCOMPARE(counts.join(QLatin1Char('\n')).trimmed(), tables);
}

void tst_XlsxToDBGenerator::failedBatch_data()
{
    QTest::addColumn<QString>("setup");
    QTest::addColumn<int>("rows");
    QTest::addColumn<QString>("table2");

    const QString narrow = QStringLiteral("CREATE TABLE table1 (id INTEGER PRIMARY KEY "
                                          "AUTOINCREMENT, column1 TEXT, column2 TEXT);");
    QTest::newRow("narrower table") << narrow << 3 << QString();
    QTest::newRow("narrower table, next batch commits") << narrow << 50001 << "1|r50001c3";
    // The trigger ends the transaction, so a row tried after it would commit on its own.
    QTest::newRow("stops at the first bad row")
            << "CREATE TABLE table1 (id INTEGER PRIMARY KEY AUTOINCREMENT, column1 TEXT, column2 "
               "TEXT, column3 TEXT); CREATE TRIGGER bad BEFORE INSERT ON table1 WHEN "
               "NEW.column1 = 'r2c1' BEGIN SELECT RAISE(ROLLBACK, 'bad'); END;"
            << 3 << QString();
}

// A batch whose row fails is rolled back whole and the log tells only that; the table was
// emptied before, and later batches are still written.
void tst_XlsxToDBGenerator::failedBatch()
{
    QFETCH(QString, setup);
    QFETCH(int, rows);
    QFETCH(QString, table2);

    const QString database = path(QStringLiteral("narrow.db"));
    QVERIFY(TestSupport::sqlite(database, setup + "INSERT INTO table1 (column1) VALUES ('old');"));
    const QString source = path(QStringLiteral("wide.xlsx"));
    QVERIFY(TestSupport::writeXlsxGrid(source, rows, 3));

    XlsxToDBGenerator generator;
    QVERIFY(!generator.importOriginalFile(source, database));
    QCOMPARE(generator.getLog(), QStringLiteral("Database commit error"));
    QCOMPARE(sqliteQuery(database, QStringLiteral("SELECT count(*) FROM table1;")),
             QStringLiteral("0"));
    QCOMPARE(sqliteQuery(database, QStringLiteral("SELECT id, column3 FROM table2;")), table2);
}

void tst_XlsxToDBGenerator::rejected_data()
{
    QTest::addColumn<QByteArray>("source");
    QTest::addColumn<QString>("database");
    QTest::addColumn<QString>("message");

    const QString db = QStringLiteral("out.db");
    QTest::newRow("missing file") << QByteArray() << db << "Cannot open file %1 for reading.";
    QTest::newRow("text file") << QByteArray("a,b\n1,2\n") << db
                               << "Cannot open file %1 for reading.";
    QTest::newRow("empty sheet") << QByteArray("empty") << db << "%1 has no valid data.";
    QTest::newRow("empty database name") << QByteArray("grid") << "" << "Database name empty";
    QTest::newRow("directory missing") << QByteArray("grid") << "no/dir/x.db"
                                       << "Open database file failed!";
    QTest::newRow("not a database") << QByteArray("grid") << "garbage.db" << "Create database error";
}

// The log keeps its message, copies included, until the next import starts.
void tst_XlsxToDBGenerator::rejected()
{
    QFETCH(QByteArray, source);
    QFETCH(QString, database);
    QFETCH(QString, message);

    const QString file = path(QStringLiteral("in.xlsx"));
    const QString good = path(QStringLiteral("good.xlsx"));
    QVERIFY(TestSupport::writeXlsxGrid(good, 1, 1));
    if (source == "grid" || source == "empty")
        QVERIFY(TestSupport::writeXlsxGrid(file, source == "grid" ? 2 : 0, 2));
    else if (!source.isNull())
        QVERIFY(TestSupport::writeFile(file, source));
    if (!database.isEmpty())
        database = path(database);
    if (database.endsWith(QLatin1String("garbage.db")))
        QVERIFY(TestSupport::writeFile(database, QByteArray(4096, 'x')));

    XlsxToDBGenerator generator;
    QVERIFY(!generator.importOriginalFile(file, database));
    message.replace(QLatin1String("%1"), file);
    QCOMPARE(generator.getLog(), message);
    QCOMPARE(XlsxToDBGenerator(generator).getLog(), message);
    QCOMPARE(QFile::exists(path(QStringLiteral("out.db"))), false);
    QVERIFY(generator.importOriginalFile(good, path(QStringLiteral("good.db"))));
    QCOMPARE(generator.getLog(), QString());
}

void tst_XlsxToDBGenerator::progress_data()
{
    QTest::addColumn<bool>("sheet");
    QTest::addColumn<bool>("cancel"); // at the first report past half the total
    for (const bool sheet : {false, true}) {
        QTest::addRow("%s", sheet ? "sheet" : "text") << sheet << false;
        QTest::addRow("%s cancelled", sheet ? "sheet" : "text") << sheet << true;
    }
}

// Reports start at 0, never go back and end at the total (bytes of a text file, rows of a
// sheet), at least one per batch; a cancel keeps the committed table whole and writes no more.
void tst_XlsxToDBGenerator::progress()
{
    QFETCH(bool, sheet);
    QFETCH(bool, cancel);
    const int rows = 100001;
    const QString source = path(QStringLiteral("in"));
    const QString database = path(QStringLiteral("out.db"));
    QByteArray text;
    for (int row = 1; row <= rows && !sheet; ++row)
        text += "r" + QByteArray::number(row) + "c1,x\n";
    QVERIFY(sheet ? TestSupport::writeXlsxGrid(source, rows, 2) : TestSupport::writeFile(source, text));

    QList<QPair<qint64, qint64>> reports;
    Database::ProgressScope scope([&](qint64 done, qint64 total) {
        reports << qMakePair(done, total);
        return !cancel || done <= total / 2;
    });
    Database::XlsxToDBGenerator fromSheet;
    Database::DatabaseGenerator fromText;
    const bool ok = sheet ? fromSheet.importOriginalFile(source, database)
                          : fromText.importOriginalFile(source, database);
    QCOMPARE(ok, !cancel);
    QCOMPARE(sheet ? fromSheet.getLog() : fromText.getLog(), cancel ? "Import cancelled" : "");
    const qint64 total = sheet ? rows : text.size();
    QVERIFY(reports.size() >= 3 && reports.size() <= 400);
    QCOMPARE(reports.first(), qMakePair(qint64(0), total));
    for (int i = 1; i < reports.size(); ++i)
        QVERIFY(reports.at(i).first >= reports.at(i - 1).first && reports.at(i).second == total);
    QCOMPARE(reports.last().first == total, !cancel);
    QCOMPARE(sqliteQuery(database, QStringLiteral("SELECT group_concat(name) FROM sqlite_master "
                                                  "WHERE name GLOB 'table*';")),
             cancel ? "table1" : "table1,table2,table3");
    QCOMPARE(sqliteQuery(database, "SELECT count(*), min(id), group_concat(column1) GLOB "
                                   "'r1c1,*,r50000c1' FROM (SELECT * FROM table1 ORDER BY id);"),
             "50000|1|1");
}

QTEST_GUILESS_MAIN(tst_XlsxToDBGenerator)
#include "tst_xlsxtodbgenerator.moc"
