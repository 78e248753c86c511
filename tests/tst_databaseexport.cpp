#include <database/databaseexport.h>

#include "testsupport.h"

#include <QtTest>

#include <QSqlDatabase>
#include <QSqlQueryModel>
#include <QSqlRecord>
#include <QTextCodec>
#include <QTextStream>

using Database::DatabaseExport;
using TestSupport::readFile;

namespace {

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
    void initTestCase() { QVERIFY(m_catalogue.isValid()); }
    void toCSV_data();
    void toCSV();
    void matchesModelReference_data();
    void matchesModelReference();

private:
    QString path(const QString &suffix) const
    {
        return m_catalogue.filePath(QString::fromLatin1(QTest::currentDataTag()) + suffix);
    }

    TestSupport::TempCatalogue m_catalogue;
};

void tst_DatabaseExport::toCSV_data()
{
    QTest::addColumn<QString>("sql");
    QTest::addColumn<QString>("expected"); // null: the export fails

    QTest::newRow("every cell followed by a comma, nothing quoted")
            << "CREATE TABLE t (a, b); INSERT INTO t VALUES ('a,b', 'say \"hi\"'), (2, NULL);"
            << QStringLiteral("a,b,say \"hi\",\n2,,\n");
    QTest::newRow("importer layout keeps the key, chinese in gbk")
            << QString::fromUtf8("CREATE TABLE table1 (id INTEGER PRIMARY KEY AUTOINCREMENT,"
                                 " column1 TEXT); INSERT INTO table1 (column1) VALUES ('张三');")
            << QString::fromUtf8("1,张三,\n");
    QTest::newRow("default table listed first is skipped")
            << "CREATE TABLE DATABASE_SQLITE_DEFAULTDB (v); INSERT INTO DATABASE_SQLITE_DEFAULTDB"
               " VALUES ('no'); CREATE TABLE other (v); INSERT INTO other VALUES ('yes');"
            << QStringLiteral("yes,\n");
    QTest::newRow("no table but the default one")
            << "CREATE TABLE DATABASE_SQLITE_DEFAULTDB (a);" << QString();
}

void tst_DatabaseExport::toCSV()
{
    QFETCH(QString, sql);
    QFETCH(QString, expected);
    const QString db = path(".db");
    const QString csv = path(".csv");
    QVERIFY(TestSupport::sqlite(db, sql));
    QCOMPARE(DatabaseExport::toCSV(db, csv), !expected.isNull());
    QCOMPARE(QFileInfo::exists(csv), !expected.isNull());
    if (!expected.isNull())
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
