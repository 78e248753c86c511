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
    void init();

    void importsEveryRow_data();
    void importsEveryRow();
    void batches_data();
    void batches();
    void reimportRestartsIds();
    void narrowerTable_data();
    void narrowerTable();
    void unreadableSource_data();
    void unreadableSource();
    void databaseFailures_data();
    void databaseFailures();
    void logClearedByNextImport();
    void otherTablesAreLeftAlone();

private:
    QString path(const QString &name) const { return m_dir->filePath(name); }
    // A sheet of `rows` rows of "r<row>c<column>" texts in `columns` columns.
    QString writeGrid(const QString &name, int rows, int columns);

    QScopedPointer<QTemporaryDir> m_dir;
};

void tst_XlsxToDBGenerator::init()
{
    m_dir.reset(new QTemporaryDir);
    QVERIFY(m_dir->isValid());
}

QString tst_XlsxToDBGenerator::writeGrid(const QString &name, int rows, int columns)
{
    const QString file = path(name);
    TestSupport::XlsxFixture fixture(file, true);
    fixture.writeGrid(rows, columns);
    return fixture.close() ? file : QString();
}

void tst_XlsxToDBGenerator::importsEveryRow_data()
{
    QTest::addColumn<QList<QVariantList>>("rows");
    QTest::addColumn<QString>("expected");

    QTest::newRow("header row is row 1")
            << QList<QVariantList>{{"name", "city", "age", "joined"},
                                   {"ann", "Paris", 31.0, QDate(2020, 1, 2)},
                                   {"bob", "Oslo", 4.5, QDate(2021, 12, 31)}}
            << "1|'name'|'city'|'age'|'joined'\n"
               "2|'ann'|'Paris'|'31'|'2020-01-02'\n"
               "3|'bob'|'Oslo'|'4.5'|'2021-12-31'";
    QTest::newRow("empty middle row is empty strings")
            << QList<QVariantList>{{"a", "b", "c", "d"}, {}, {"e", "f", "g", "h"}}
            << "1|'a'|'b'|'c'|'d'\n2|''|''|''|''\n3|'e'|'f'|'g'|'h'";
    QTest::newRow("values stored verbatim")
            << QList<QVariantList>{{"it's", "-- x", " pad "}, {"\"q\"", "1;DROP TABLE t", true}}
            << "1|'it''s'|'-- x'|' pad '\n2|'\"q\"'|'1;DROP TABLE t'|'TRUE'";
    QTest::newRow("short rows padded to the widest")
            << QList<QVariantList>{{"a"}, {"b", "c", "d"}}
            << "1|'a'|''|''\n2|'b'|'c'|'d'";
}

void tst_XlsxToDBGenerator::importsEveryRow()
{
    QFETCH(QList<QVariantList>, rows);
    QFETCH(QString, expected);

    const QString source = path(QStringLiteral("in.xlsx"));
    const QString database = path(QStringLiteral("out.db"));
    QVERIFY(TestSupport::writeXlsx(source, rows));

    XlsxToDBGenerator generator;
    QVERIFY(generator.importOriginalFile(source, database));
    QCOMPARE(generator.getLog(), QString());

    const int columns = expected.section(QLatin1Char('\n'), 0, 0).count(QLatin1Char('|'));
    QStringList quoted;
    for (int i = 1; i <= columns; ++i)
        quoted << QStringLiteral("quote(column%1)").arg(i);
    QCOMPARE(sqliteQuery(database, QStringLiteral("SELECT id, %1 FROM table1 ORDER BY id;")
                                           .arg(quoted.join(QLatin1Char(',')))),
             expected);

    QStringList columnNames = {QStringLiteral("id")};
    for (int i = 1; i <= columns; ++i)
        columnNames << QStringLiteral("column%1").arg(i);
    QCOMPARE(sqliteQuery(database, QStringLiteral("SELECT group_concat(name) FROM "
                                                  "pragma_table_info('table1');")),
             columnNames.join(QLatin1Char(',')));
}

void tst_XlsxToDBGenerator::batches_data()
{
    QTest::addColumn<int>("rows");
    QTest::addColumn<QString>("tables");

    QTest::newRow("exactly one batch") << 50000 << "table1|50000";
    QTest::newRow("one row over a batch") << 50001 << "table1|50000\ntable2|1";
    QTest::newRow("three tables") << 100001 << "table1|50000\ntable2|50000\ntable3|1";
}

void tst_XlsxToDBGenerator::batches()
{
    QFETCH(int, rows);
    QFETCH(QString, tables);

    const QString source = writeGrid(QStringLiteral("big.xlsx"), rows, 2);
    QVERIFY(!source.isEmpty());
    const QString database = path(QStringLiteral("big.db"));

    XlsxToDBGenerator generator;
    QVERIFY2(generator.importOriginalFile(source, database), qPrintable(generator.getLog()));

    QStringList counts;
    const QStringList names = sqliteQuery(database, QStringLiteral(
            "SELECT name FROM sqlite_master WHERE type='table' AND name LIKE 'table%' "
            "ORDER BY length(name), name;")).split(QLatin1Char('\n'));
    for (const QString &name : names) {
        counts << name + QLatin1Char('|')
                        + sqliteQuery(database, QStringLiteral("SELECT count(*) FROM %1;").arg(name));
    }
    QCOMPARE(counts.join(QLatin1Char('\n')), tables);
    // Rows keep sheet order across tables and ids restart in every table.
    const int lastTable = names.size();
    QCOMPARE(sqliteQuery(database, QStringLiteral("SELECT id, column1, column2 FROM table%1 "
                                                  "ORDER BY id DESC LIMIT 1;").arg(lastTable)),
             QStringLiteral("%1|r%2c1|r%2c2").arg(rows - (lastTable - 1) * 50000).arg(rows));
    QCOMPARE(sqliteQuery(database, QStringLiteral("SELECT id, column1 FROM table1 WHERE id = 1;")),
             QStringLiteral("1|r1c1"));
}

void tst_XlsxToDBGenerator::reimportRestartsIds()
{
    const QString first = writeGrid(QStringLiteral("a.xlsx"), 3, 2);
    const QString second = writeGrid(QStringLiteral("b.xlsx"), 2, 2);
    const QString database = path(QStringLiteral("twice.db"));

    XlsxToDBGenerator generator;
    QVERIFY(generator.importOriginalFile(first, database));
    QVERIFY(generator.importOriginalFile(second, database));
    QCOMPARE(sqliteQuery(database, QStringLiteral("SELECT id, column1 FROM table1 ORDER BY id;")),
             QStringLiteral("1|r1c1\n2|r2c1"));
}

void tst_XlsxToDBGenerator::narrowerTable_data()
{
    QTest::addColumn<int>("rows");
    QTest::addColumn<QString>("table2");

    QTest::newRow("single batch") << 3 << QString();
    QTest::newRow("later batch still commits") << 50001 << "1|r50001c1|r50001c2|r50001c3";
}

// An existing table1 with fewer columns makes the first row fail: the batch is rolled back
// (the table stays emptied, its columns as they were), the log says only that the commit
// failed, and following batches are still written.
void tst_XlsxToDBGenerator::narrowerTable()
{
    QFETCH(int, rows);
    QFETCH(QString, table2);

    const QString database = path(QStringLiteral("narrow.db"));
    QVERIFY(TestSupport::sqlite(database, QStringLiteral(
            "CREATE TABLE table1 (id INTEGER PRIMARY KEY AUTOINCREMENT, column1 TEXT, column2 TEXT);"
            "INSERT INTO table1 VALUES (NULL, 'old', 'row');")));
    const QString source = writeGrid(QStringLiteral("wide.xlsx"), rows, 3);

    XlsxToDBGenerator generator;
    QVERIFY(!generator.importOriginalFile(source, database));
    QCOMPARE(generator.getLog(), QStringLiteral("Database commit error"));
    QCOMPARE(sqliteQuery(database, QStringLiteral("SELECT count(*) FROM table1;")),
             QStringLiteral("0"));
    QCOMPARE(sqliteQuery(database, QStringLiteral("SELECT group_concat(name) FROM "
                                                  "pragma_table_info('table1');")),
             QStringLiteral("id,column1,column2"));
    if (!table2.isNull())
        QCOMPARE(sqliteQuery(database, QStringLiteral("SELECT * FROM table2;")), table2);
}

void tst_XlsxToDBGenerator::unreadableSource_data()
{
    QTest::addColumn<QByteArray>("content");
    QTest::addColumn<bool>("exists");
    QTest::addColumn<QString>("message");

    QTest::newRow("missing file") << QByteArray() << false << "Cannot open file %1 for reading.";
    QTest::newRow("text file") << QByteArray("a,b\n1,2\n") << true
                               << "Cannot open file %1 for reading.";
    QTest::newRow("empty file") << QByteArray() << true << "Cannot open file %1 for reading.";
}

void tst_XlsxToDBGenerator::unreadableSource()
{
    QFETCH(QByteArray, content);
    QFETCH(bool, exists);
    QFETCH(QString, message);

    const QString source = path(QStringLiteral("source.xlsx"));
    if (exists)
        QVERIFY(TestSupport::writeFile(source, content));
    const QString database = path(QStringLiteral("none.db"));

    XlsxToDBGenerator generator;
    QVERIFY(!generator.importOriginalFile(source, database));
    QCOMPARE(generator.getLog(), message.arg(source));
    QVERIFY(!QFile::exists(database));
}

void tst_XlsxToDBGenerator::databaseFailures_data()
{
    QTest::addColumn<QString>("databaseName");
    QTest::addColumn<QString>("message");

    QTest::newRow("empty database name") << QString() << "Database name empty";
    QTest::newRow("directory missing") << "no/such/dir/x.db" << "Open database file failed!";
    QTest::newRow("not a database") << "garbage.db" << "Create database error";
}

void tst_XlsxToDBGenerator::databaseFailures()
{
    QFETCH(QString, databaseName);
    QFETCH(QString, message);

    const QString source = writeGrid(QStringLiteral("ok.xlsx"), 2, 2);
    QString database;
    if (!databaseName.isEmpty()) {
        database = path(databaseName);
        if (databaseName == QLatin1String("garbage.db"))
            QVERIFY(TestSupport::writeFile(database, QByteArray(4096, 'x')));
    }
    XlsxToDBGenerator generator;
    QVERIFY(!generator.importOriginalFile(source, database));
    QCOMPARE(generator.getLog(), message);
}

void tst_XlsxToDBGenerator::logClearedByNextImport()
{
    const QString empty = path(QStringLiteral("empty.xlsx"));
    QVERIFY(TestSupport::writeXlsx(empty, {}));
    const QString database = path(QStringLiteral("log.db"));

    XlsxToDBGenerator generator;
    QVERIFY(!generator.importOriginalFile(empty, database));
    QCOMPARE(generator.getLog(), QStringLiteral("%1 has no valid data.").arg(empty));

    // A copy carries the log; the next import of either starts from an empty one.
    XlsxToDBGenerator copy(generator);
    QCOMPARE(copy.getLog(), generator.getLog());
    QVERIFY(copy.importOriginalFile(writeGrid(QStringLiteral("one.xlsx"), 1, 1), database));
    QCOMPARE(copy.getLog(), QString());
    QCOMPARE(generator.getLog(), QStringLiteral("%1 has no valid data.").arg(empty));
}

void tst_XlsxToDBGenerator::otherTablesAreLeftAlone()
{
    const QString database = path(QStringLiteral("keep.db"));
    QVERIFY(TestSupport::sqlite(database, QStringLiteral(
            "CREATE TABLE notes (t TEXT); INSERT INTO notes VALUES ('kept');"
            "CREATE TABLE table2 (id INTEGER PRIMARY KEY AUTOINCREMENT, column1 TEXT);"
            "INSERT INTO table2 VALUES (NULL, 'old');")));
    const QString source = writeGrid(QStringLiteral("small.xlsx"), 2, 1);

    XlsxToDBGenerator generator;
    QVERIFY(generator.importOriginalFile(source, database));
    QCOMPARE(sqliteQuery(database, QStringLiteral("SELECT t FROM notes;")), QStringLiteral("kept"));
    QCOMPARE(sqliteQuery(database, QStringLiteral("SELECT column1 FROM table2;")),
             QStringLiteral("old"));
    QCOMPARE(sqliteQuery(database, QStringLiteral("SELECT count(*) FROM table1;")),
             QStringLiteral("2"));
}

QTEST_GUILESS_MAIN(tst_XlsxToDBGenerator)
#include "tst_xlsxtodbgenerator.moc"
