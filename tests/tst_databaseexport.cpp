#include <database/databaseexport.h>

#include "testsupport.h"
#include "warningcatcher.h"

#include <QtTest>

#include <QSqlDatabase>
#include <QSqlQueryModel>
#include <QSqlRecord>
#include <QTextCodec>
#include <QTextStream>

using Database::DatabaseExport;
using TestSupport::readFile;

namespace {

const QString ExportConnection = QStringLiteral("DB3EXPORT");

// Runs the export with a queued call pending, telling whether the export let it run.
bool exportWatchingEvents(const QString &dbFile, const QString &csvFile, bool *eventsRan)
{
    QObject context;
    bool ran = false;
    QMetaObject::invokeMethod(
            &context, [&ran] { ran = true; }, Qt::QueuedConnection);
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
        db.open();
        QSqlQueryModel model;
        model.setQuery(QStringLiteral("SELECT * FROM ") + db.tables(QSql::Tables).value(0), db);
        while (model.canFetchMore())
            model.fetchMore();
        QTextStream stream(&bytes, QIODevice::WriteOnly);
        stream.setCodec(QTextCodec::codecForName("GBK"));
        for (int r = 0; r < model.rowCount(); ++r) {
            for (int c = 0; c < model.columnCount(); ++c)
                stream << model.record(r).value(c).toString() << ',';
            stream << '\n';
        }
    }
    QSqlDatabase::removeDatabase(name);
    return bytes;
}

} // namespace

class tst_DatabaseExport : public QObject
{
    Q_OBJECT

private slots:
    void cleanupTestCase();

    void toCSV_data();
    void toCSV();
    void matchesModelReference_data();
    void matchesModelReference();

private:
    QString path(const QString &suffix) const
    {
        return m_dir.filePath(QString::fromLatin1(QTest::currentDataTag()) + suffix);
    }

    QTemporaryDir m_dir;
};

void tst_DatabaseExport::cleanupTestCase()
{
    QSqlDatabase::removeDatabase(ExportConnection);
}

void tst_DatabaseExport::toCSV_data()
{
    QTest::addColumn<QString>("sql");      // null: the database path is a directory
    QTest::addColumn<QString>("csv");      // empty: the database file itself
    QTest::addColumn<QString>("expected"); // null: the export fails

    QTest::newRow("every cell followed by a comma")
            << "CREATE TABLE t (a, b); INSERT INTO t VALUES (1, 'x'), (2, 'y');" << ".csv"
            << QStringLiteral("1,x,\n2,y,\n");
    QTest::newRow("commas, quotes, breaks and nulls as they are")
            << "CREATE TABLE t (a, b, c); INSERT INTO t VALUES ('a,b', 'say \"hi\"', NULL),"
               " ('l1' || char(10) || 'l2' || char(13), '', NULL);"
            << ".csv" << QStringLiteral("a,b,say \"hi\",,\nl1\nl2\r,,,\n");
    QTest::newRow("importer layout keeps the key, chinese in gbk")
            << QString::fromUtf8("CREATE TABLE table1 (id INTEGER PRIMARY KEY AUTOINCREMENT,"
                                 " column1 TEXT, column2 TEXT); INSERT INTO table1 (column1,"
                                 " column2) VALUES ('张三', '北京'), ('李四,王五', '上海 浦东');")
            << ".csv" << QString::fromUtf8("1,张三,北京,\n2,李四,王五,上海 浦东,\n");
    QTest::newRow("rows read in full before the database itself is overwritten")
            << "CREATE TABLE t (a, b); INSERT INTO t VALUES (1, 'one'), (2, 'two');" << ""
            << QStringLiteral("1,one,\n2,two,\n");
    QTest::newRow("empty table gives empty file") << "CREATE TABLE t (a, b);" << ".csv" << "";
    QTest::newRow("default table listed first is skipped")
            << "CREATE TABLE DATABASE_SQLITE_DEFAULTDB (v); INSERT INTO DATABASE_SQLITE_DEFAULTDB"
               " VALUES ('no'); CREATE TABLE other (v); INSERT INTO other VALUES ('yes');"
            << ".csv" << QStringLiteral("yes,\n");
    QTest::newRow("sequence table is not skipped")
            << "CREATE TABLE DATABASE_SQLITE_DEFAULTDB (id INTEGER PRIMARY KEY AUTOINCREMENT, v);"
               "INSERT INTO DATABASE_SQLITE_DEFAULTDB (v) VALUES ('x');"
            << ".csv" << QStringLiteral("DATABASE_SQLITE_DEFAULTDB,1,\n");
    QTest::newRow("unquoted name that does not parse gives empty file")
            << "CREATE TABLE \"my table\" (a); INSERT INTO \"my table\" VALUES ('x');" << ".csv"
            << "";
    QTest::newRow("no table but the default one")
            << "CREATE TABLE DATABASE_SQLITE_DEFAULTDB (a);" << ".csv" << QString();
    QTest::newRow("output cannot be opened")
            << "CREATE TABLE t (a);" << "/missing/out.csv" << QString();
    QTest::newRow("database does not open") << QString() << ".csv" << QString();
}

// Each call replaces the previous call's connection quietly and leaves its own registered.
void tst_DatabaseExport::toCSV()
{
    QFETCH(QString, sql);
    QFETCH(QString, csv);
    QFETCH(QString, expected);

    const QString db = sql.isNull() ? m_dir.path() : path(".db");
    csv = csv.isEmpty() ? db : path(csv);
    if (!sql.isNull())
        QVERIFY(TestSupport::sqlite(db, sql));
    if (!expected.isNull() && csv != db)
        QVERIFY(TestSupport::writeFile(csv, QByteArray(5000, 'o')));
    TestSupport::WarningCatcher catcher;
    bool eventsRan = false;
    QCOMPARE(exportWatchingEvents(db, csv, &eventsRan), !expected.isNull());
    // Pumped after an export or a failed open, not when there is no table or no output.
    QCOMPARE(eventsRan, !expected.isNull() || sql.isNull());
    QCOMPARE(catcher.warnings(), QStringList());
    const QSqlDatabase connection = QSqlDatabase::database(ExportConnection, false);
    QCOMPARE(connection.isOpen(), !sql.isNull());
    QCOMPARE(connection.databaseName(), db);
    if (expected.isNull())
        QVERIFY(!QFileInfo::exists(csv));
    else
        QCOMPARE(readFile(csv), TestSupport::iconvEncode(expected, "GBK"));
}

void tst_DatabaseExport::matchesModelReference_data()
{
    QTest::addColumn<QString>("sql");

    // Numbers at the edges of their text forms, null, blobs, text GBK lacks, malformed text
    // and unpaired surrogates (in a UTF-16 database) ending cells, with enough long cells that
    // the writer's and the stream's buffer boundaries fall next to them.
    const QString table = QString::fromUtf8(
            "CREATE TABLE t (i INTEGER PRIMARY KEY, v, w); INSERT INTO t (v, w) VALUES"
            " (0.1, 1e20), (-0.0, 5e-324), (1.7976931348623157e308, -9223372036854775808),"
            " (9223372036854775807, 123456789.125), (X'00414243', X'FF41'), (X'E4B8AD0A2C', X''),"
            " ('한국어 😀', '€ ß ÿ ｱ Ω ё'), ('中' || char(0) || '文', char(160, 12288, 65533)),"
            " (CAST(X'3DD8' AS TEXT), CAST(X'00DE' AS TEXT) || 'y'), (CAST(X'3DD800DE' AS TEXT),"
            " CAST(X'FF41' AS TEXT)); WITH RECURSIVE c(x) AS (SELECT 1 UNION ALL SELECT x + 1"
            " FROM c WHERE x < 2000) INSERT INTO t (v, w) SELECT CASE x % 4 WHEN 0 THEN NULL"
            " WHEN 1 THEN x / 7.0 WHEN 2 THEN randomblob(3) ELSE 'row' || x END, CASE x % 2"
            " WHEN 0 THEN replace(hex(zeroblob(x % 7 * 150 + 400)), '00', '中')"
            " || CAST(X'3DD8' AS TEXT) ELSE CAST(X'00DE' AS TEXT) || x || '数据' END FROM c;");
    QTest::newRow("utf-8 database") << QStringLiteral("PRAGMA encoding = 'UTF-8';") + table;
    QTest::newRow("utf-16 database") << QStringLiteral("PRAGMA encoding = 'UTF-16le';") + table;
}

// The streamed output must be byte for byte what loading the table into a model gives.
void tst_DatabaseExport::matchesModelReference()
{
    QFETCH(QString, sql);

    const QString db = path(".db");
    const QString csv = path(".csv");
    QVERIFY(TestSupport::sqlite(db, sql));
    QVERIFY(DatabaseExport::toCSV(db, csv));
    const QByteArray expected = modelReference(db);
    QVERIFY(expected.size() > (1 << 20));
    QCOMPARE(readFile(csv), expected);
}

QTEST_GUILESS_MAIN(tst_DatabaseExport)
#include "tst_databaseexport.moc"
