#include <database/databaseexport.h>

#include "testsupport.h"
#include "warningcatcher.h"

#include <QtTest>

#include <QSqlDatabase>
#include <QSqlError>
#include <QSqlQuery>
#include <QSqlQueryModel>
#include <QSqlRecord>
#include <QTextCodec>
#include <QTextStream>

using Database::DatabaseExport;
using TestSupport::readFile;
using TestSupport::WarningCatcher;

namespace {

const QString ExportConnection = QStringLiteral("DB3EXPORT");

// Runs the export with a queued call pending, telling whether the export let it run.
bool exportWatchingEvents(const QString &dbFile, const QString &csvFile, bool *eventsRan)
{
    QObject context;
    bool ran = false;
    QMetaObject::invokeMethod(&context, [&ran] { ran = true; }, Qt::QueuedConnection);
    const bool result = DatabaseExport::toCSV(dbFile, csvFile);
    *eventsRan = ran;
    return result;
}

// The bytes the straightforward way gives: the whole first table in a query model, written
// through a GBK text stream. Own connection, so nothing is shared with the exporter.
QByteArray modelReference(const QString &dbFile)
{
    const QString name = QStringLiteral("tst_databaseexport_reference");
    QByteArray bytes;
    {
        QSqlDatabase db = QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"), name);
        db.setDatabaseName(dbFile);
        if (!db.open())
            return "reference: cannot open";
        QStringList tables = db.tables(QSql::Tables);
        tables.removeOne(QStringLiteral("DATABASE_SQLITE_DEFAULTDB"));
        QSqlQueryModel model;
        model.setQuery(QStringLiteral("SELECT * FROM ") + tables.value(0), db);
        while (model.canFetchMore())
            model.fetchMore();
        QBuffer buffer(&bytes);
        buffer.open(QIODevice::WriteOnly | QIODevice::Text);
        QTextStream stream(&buffer);
        stream.setCodec(QTextCodec::codecForName("GBK"));
        for (int r = 0; r < model.rowCount(); ++r) {
            for (int c = 0; c < model.columnCount(); ++c)
                stream << model.record(r).value(c).toString() << ',';
            stream << '\n';
        }
        stream.flush();
    }
    QSqlDatabase::removeDatabase(name);
    return bytes;
}

// Inserts values bound through Qt, which keeps text the shell cannot type (lone surrogates).
bool insertBound(const QString &dbFile, const QString &table, const QVariantList &values)
{
    const QString name = QStringLiteral("tst_databaseexport_writer");
    bool ok = true;
    {
        QSqlDatabase db = QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"), name);
        db.setDatabaseName(dbFile);
        ok = db.open() && db.transaction();
        QSqlQuery query(db);
        ok = ok && query.prepare(QStringLiteral("INSERT INTO %1 VALUES (?)").arg(table));
        for (const QVariant &value : values) {
            query.addBindValue(value);
            ok = ok && query.exec();
        }
        ok = ok && db.commit();
    }
    QSqlDatabase::removeDatabase(name);
    return ok;
}

} // namespace

class tst_DatabaseExport : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void cleanupTestCase();

    void writesFirstTable_data();
    void writesFirstTable();
    void chineseTextIsGbk();
    void matchesModelReference_data();
    void matchesModelReference();
    void unpairedSurrogatesMatchModelReference();
    void failures_data();
    void failures();
    void outputTruncated();
    void outputOverDatabaseFile();
    void connectionStaysRegisteredUntilNextCall();

private:
    QString dbPath(const QString &name) const { return m_dir.filePath(name + ".db"); }
    QString csvPath(const QString &name) const { return m_dir.filePath(name + ".csv"); }

    QTemporaryDir m_dir;
};

void tst_DatabaseExport::initTestCase()
{
    QVERIFY(m_dir.isValid());
    QVERIFY(QTextCodec::codecForName("GBK"));
}

void tst_DatabaseExport::cleanupTestCase()
{
    QSqlDatabase::removeDatabase(ExportConnection);
}

void tst_DatabaseExport::writesFirstTable_data()
{
    QTest::addColumn<QString>("sql");
    QTest::addColumn<QByteArray>("expected");

    QTest::newRow("every cell followed by a comma")
            << "CREATE TABLE t (a, b); INSERT INTO t VALUES (1, 'x'), (2, 'y');"
            << QByteArray("1,x,\n2,y,\n");
    QTest::newRow("commas and quotes as they are")
            << "CREATE TABLE t (a, b); INSERT INTO t VALUES ('a,b', 'say \"hi\"');"
            << QByteArray("a,b,say \"hi\",\n");
    QTest::newRow("line breaks as they are")
            << "CREATE TABLE t (a); INSERT INTO t VALUES ('l1' || char(10) || 'l2' || char(13));"
            << QByteArray("l1\nl2\r,\n");
    QTest::newRow("null and empty cells")
            << "CREATE TABLE t (a, b, c); INSERT INTO t VALUES (NULL, '', NULL);"
            << QByteArray(",,,\n");
    QTest::newRow("integers and reals as text")
            << "CREATE TABLE t (i INTEGER, r REAL, v);"
               "INSERT INTO t VALUES (42, 0.1, -7), (-9223372036854775808, 1e20, 2.5),"
               " (9223372036854775807, 1e-7, -0.0), (0, 3, 123456789.125);"
            << QByteArray("42,0.1,-7,\n-9223372036854775808,1e+20,2.5,\n"
                          "9223372036854775807,1e-07,0,\n0,3,123456789.125,\n");
    QTest::newRow("blob as its text")
            << "CREATE TABLE t (b); INSERT INTO t VALUES (X'414243'), (X'');"
            << QByteArray("ABC,\n,\n");
    QTest::newRow("importer layout keeps the key")
            << "CREATE TABLE table1 (id INTEGER PRIMARY KEY AUTOINCREMENT, column1 TEXT,"
               " column2 TEXT);"
               "INSERT INTO table1 (column1, column2) VALUES ('a', 'b'), ('c', 'd');"
            << QByteArray("1,a,b,\n2,c,d,\n");
    QTest::newRow("empty table gives empty file") << "CREATE TABLE t (a, b);" << QByteArray();
    QTest::newRow("first created table, not first by name")
            << "CREATE TABLE zeta (v); CREATE TABLE alpha (v);"
               "INSERT INTO zeta VALUES ('z'); INSERT INTO alpha VALUES ('a');"
            << QByteArray("z,\n");
    QTest::newRow("default table listed first is skipped")
            << "CREATE TABLE DATABASE_SQLITE_DEFAULTDB (v); INSERT INTO DATABASE_SQLITE_DEFAULTDB"
               " VALUES ('no'); CREATE TABLE other (v); INSERT INTO other VALUES ('yes');"
            << QByteArray("yes,\n");
    QTest::newRow("sequence table is not skipped")
            << "CREATE TABLE DATABASE_SQLITE_DEFAULTDB (id INTEGER PRIMARY KEY AUTOINCREMENT, v);"
               "INSERT INTO DATABASE_SQLITE_DEFAULTDB (v) VALUES ('x');"
            << QByteArray("DATABASE_SQLITE_DEFAULTDB,1,\n");
    QTest::newRow("views are not tables")
            << "CREATE VIEW v AS SELECT 'view'; CREATE TABLE t (a); INSERT INTO t VALUES ('t');"
            << QByteArray("t,\n");
    QTest::newRow("unquoted name that does not parse gives empty file")
            << "CREATE TABLE \"my table\" (a); INSERT INTO \"my table\" VALUES ('x');"
            << QByteArray();
}

void tst_DatabaseExport::writesFirstTable()
{
    QFETCH(QString, sql);
    QFETCH(QByteArray, expected);

    const QString db = dbPath(QTest::currentDataTag());
    const QString csv = csvPath(QTest::currentDataTag());
    QVERIFY(TestSupport::sqlite(db, sql));
    bool eventsRan = false;
    QVERIFY(exportWatchingEvents(db, csv, &eventsRan));
    QVERIFY(eventsRan);
    QVERIFY(QFileInfo::exists(csv));
    QCOMPARE(readFile(csv), expected);
}

void tst_DatabaseExport::chineseTextIsGbk()
{
    const QString db = dbPath(QStringLiteral("chinese"));
    const QString csv = csvPath(QStringLiteral("chinese"));
    QVERIFY(TestSupport::sqlite(db, QString::fromUtf8(
            "CREATE TABLE t (id INTEGER PRIMARY KEY AUTOINCREMENT, name TEXT, city TEXT);"
            "INSERT INTO t (name, city) VALUES ('张三', '北京'), ('李四,王五', '上海 浦东'),"
            " ('abc', '广州市天河区');")));
    QVERIFY(DatabaseExport::toCSV(db, csv));
    const QByteArray expected = TestSupport::iconvEncode(
            QString::fromUtf8("1,张三,北京,\n2,李四,王五,上海 浦东,\n3,abc,广州市天河区,\n"),
            "GBK");
    QVERIFY(!expected.isEmpty());
    QCOMPARE(readFile(csv), expected);
}

void tst_DatabaseExport::matchesModelReference_data()
{
    QTest::addColumn<QString>("sql");

    QTest::newRow("numbers")
            << "CREATE TABLE t (a, b REAL, c INTEGER);"
               "INSERT INTO t VALUES (0.1, 1e20, -0.0), (1.7976931348623157e308, 5e-324, 1e16),"
               " (-1.5e-300, 100, 3.0), (1e15, 123456789012345678, -0.5), (2.0, '7', 1e100);";
    QTest::newRow("blobs")
            << "CREATE TABLE t (a);"
               "INSERT INTO t VALUES (X'00414243'), (X'4100'), (X'E4B8AD'), (X'FF41'), (X''),"
               " (X'0A2C22');";
    QTest::newRow("text the codec cannot take")
            << QString::fromUtf8(
                       "CREATE TABLE t (a, b);"
                       "INSERT INTO t VALUES ('한국어', '😀 emoji'), ('€ ß ÿ', 'ｱ Ω ё'),"
                       " (CAST(X'FF41' AS TEXT), CAST(X'610062' AS TEXT)),"
                       " ('中' || char(0) || '文', char(160, 12288, 65533));");
    QTest::newRow("every ascii character")
            << "CREATE TABLE t (a); WITH RECURSIVE c(x) AS (SELECT 1 UNION ALL SELECT x + 1"
               " FROM c WHERE x < 127) INSERT INTO t SELECT char(x) FROM c;";
    QTest::newRow("many mixed rows")
            << QString::fromUtf8(
                       "CREATE TABLE table1 (id INTEGER PRIMARY KEY AUTOINCREMENT, column1 TEXT,"
                       " column2 TEXT, column3);"
                       "WITH RECURSIVE c(x) AS (SELECT 1 UNION ALL SELECT x + 1 FROM c"
                       " WHERE x < 40000) INSERT INTO table1 (column1, column2, column3)"
                       " SELECT 'row' || x, CASE WHEN x % 3 = 0 THEN '数据' || x || '😀'"
                       " ELSE 'plain' END, CASE x % 4 WHEN 0 THEN NULL WHEN 1 THEN x / 7.0"
                       " WHEN 2 THEN randomblob(3) ELSE x END FROM c;");
}

// The streamed output must be byte for byte what loading the table into a model gives.
void tst_DatabaseExport::matchesModelReference()
{
    QFETCH(QString, sql);

    const QString db = dbPath(QStringLiteral("reference_") + QTest::currentDataTag());
    const QString csv = csvPath(QStringLiteral("reference_") + QTest::currentDataTag());
    QVERIFY(TestSupport::sqlite(db, sql));
    QVERIFY(DatabaseExport::toCSV(db, csv));
    const QByteArray expected = modelReference(db);
    QVERIFY(!expected.isEmpty());
    QCOMPARE(readFile(csv), expected);
}

// A UTF-16 database keeps unpaired surrogates, which reach the codec at the end of a cell,
// right before its comma, and across the stream's buffer boundaries.
void tst_DatabaseExport::unpairedSurrogatesMatchModelReference()
{
    const QString db = dbPath(QStringLiteral("surrogates"));
    const QString csv = csvPath(QStringLiteral("surrogates"));
    QVERIFY(TestSupport::sqlite(db, "PRAGMA encoding = 'UTF-16le'; CREATE TABLE t (a);"));
    QVariantList values;
    const QString high(QChar(0xD83D));
    const QString low(QChar(0xDE00));
    for (int i = 0; i < 3000; ++i) {
        values << QString(QStringLiteral("x%1") + high).arg(i) << low + QStringLiteral("y")
               << high + low << QString::fromUtf8("中") + high << QStringLiteral("ascii");
    }
    values << -0.0 << 0.1 << 1e20 << QStringLiteral("end");
    QVERIFY(insertBound(db, QStringLiteral("t"), values));
    QVERIFY(DatabaseExport::toCSV(db, csv));
    const QByteArray expected = modelReference(db);
    QVERIFY(expected.size() > 16384 * 2);
    // SQLite stores no negative zero.
    const QByteArray tail("\n0,\n0.1,\n1e+20,\nend,\n");
    QCOMPARE(expected.right(tail.size()), tail);
    QCOMPARE(readFile(csv), expected);
}

void tst_DatabaseExport::failures_data()
{
    QTest::addColumn<QString>("sql");
    QTest::addColumn<QString>("dbFile");
    QTest::addColumn<QString>("csvFile");
    QTest::addColumn<bool>("eventsRun");

    const QString table = QStringLiteral("CREATE TABLE t (a); INSERT INTO t VALUES (1);");
    QTest::newRow("no table")
            << "PRAGMA user_version = 3;" << "notable.db" << "notable.csv" << false;
    QTest::newRow("only the default table")
            << "CREATE TABLE DATABASE_SQLITE_DEFAULTDB (a); INSERT INTO DATABASE_SQLITE_DEFAULTDB"
               " VALUES (1);"
            << "defaultonly.db" << "defaultonly.csv" << false;
    QTest::newRow("output directory missing")
            << table << "nodir.db" << "missing/dir/out.csv" << false;
    QTest::newRow("output is a directory") << table << "outdir.db" << "." << false;
    QTest::newRow("database is a directory") << QString() << "." << "dbdir.csv" << true;
    QTest::newRow("database in a missing directory")
            << QString() << "missing/db.db" << "missingdb.csv" << true;
}

// Events are pumped after a failed open, but not when there is no table or no output.
void tst_DatabaseExport::failures()
{
    QFETCH(QString, sql);
    QFETCH(QString, dbFile);
    QFETCH(QString, csvFile);
    QFETCH(bool, eventsRun);

    const QString db = m_dir.filePath(dbFile);
    const QString csv = m_dir.filePath(csvFile);
    if (!sql.isEmpty())
        QVERIFY(TestSupport::sqlite(db, sql));
    const bool csvExisted = QFileInfo::exists(csv);
    bool eventsRan = true;
    QCOMPARE(exportWatchingEvents(db, csv, &eventsRan), false);
    QCOMPARE(eventsRan, eventsRun);
    QCOMPARE(QFileInfo::exists(csv), csvExisted);
}

void tst_DatabaseExport::outputTruncated()
{
    const QString db = dbPath(QStringLiteral("truncate"));
    const QString csv = csvPath(QStringLiteral("truncate"));
    QVERIFY(TestSupport::sqlite(db, "CREATE TABLE t (a); INSERT INTO t VALUES ('new');"));
    QVERIFY(TestSupport::writeFile(csv, QByteArray(5000, 'o')));
    QVERIFY(DatabaseExport::toCSV(db, csv));
    QCOMPARE(readFile(csv), QByteArray("new,\n"));
}

// The rows are read in full before the output is opened, even when it is the database itself.
void tst_DatabaseExport::outputOverDatabaseFile()
{
    const QString db = dbPath(QStringLiteral("overwrite"));
    QVERIFY(TestSupport::sqlite(db, "CREATE TABLE t (a, b); INSERT INTO t VALUES (1, 'one'),"
                                    " (2, 'two');"));
    QVERIFY(DatabaseExport::toCSV(db, db));
    QCOMPARE(readFile(db), QByteArray("1,one,\n2,two,\n"));
}

// Each call registers the connection anew, quietly replacing the previous call's.
void tst_DatabaseExport::connectionStaysRegisteredUntilNextCall()
{
    const QString first = dbPath(QStringLiteral("first"));
    const QString second = dbPath(QStringLiteral("second"));
    QVERIFY(TestSupport::sqlite(first, "CREATE TABLE t (a); INSERT INTO t VALUES ('1');"));
    QVERIFY(TestSupport::sqlite(second, "CREATE TABLE t (a); INSERT INTO t VALUES ('2');"));

    WarningCatcher catcher;
    QVERIFY(DatabaseExport::toCSV(first, csvPath(QStringLiteral("first"))));
    {
        const QSqlDatabase db = QSqlDatabase::database(ExportConnection, false);
        QVERIFY(db.isOpen());
        QCOMPARE(db.databaseName(), first);
    }
    QVERIFY(DatabaseExport::toCSV(second, csvPath(QStringLiteral("second"))));
    {
        const QSqlDatabase db = QSqlDatabase::database(ExportConnection, false);
        QVERIFY(db.isOpen());
        QCOMPARE(db.databaseName(), second);
    }
    QCOMPARE(catcher.warnings(), QStringList());
    QCOMPARE(readFile(csvPath(QStringLiteral("second"))), QByteArray("2,\n"));
}

QTEST_GUILESS_MAIN(tst_DatabaseExport)
#include "tst_databaseexport.moc"
