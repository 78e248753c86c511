#include <database/databaseexport.h>

#include "testsupport.h"

#include <QtTest>

#include <QSqlQuery>
#include <QSqlRecord>
#include <QTextCodec>

using Database::DatabaseExport;

// The bytes the straightforward way gives: every row of the table through a query, as a query
// model reads it, encoded as GBK, on a connection of its own.
static QByteArray reference(const QString &dbFile)
{
    QSqlDatabase db = QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"), dbFile);
    db.setDatabaseName(dbFile);
    db.open();
    QSqlQuery query(QStringLiteral("SELECT * FROM t"), db);
    QString text;
    while (query.next()) {
        for (int c = 0; c < query.record().count(); ++c)
            text += query.value(c).toString() + ',';
        text += '\n';
    }
    return QTextCodec::codecForName("GBK")->fromUnicode(text);
}

class tst_DatabaseExport : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase() { QVERIFY(m_catalogue.isValid()); }

    void toCSV_data()
    {
        // expected: the file's text; null when the export fails; "=query" for the bytes of
        // reference(), which reads the table as a query model does.
        QTest::addColumn<QString>("sql");
        QTest::addColumn<QString>("expected");
        QTest::addColumn<bool>("ontoItself"); // the CSV file is the database file

        QTest::newRow("every cell followed by a comma, nothing quoted, gbk")
                << QString::fromUtf8("CREATE TABLE t (a, b); INSERT INTO t VALUES ('a,b', 'say "
                                     "\"hi\"'), ('张三', NULL);")
                << QString::fromUtf8("a,b,say \"hi\",\n张三,,\n") << false;
        QTest::newRow("default table listed first is skipped")
                << "CREATE TABLE DATABASE_SQLITE_DEFAULTDB (v); INSERT INTO "
                   "DATABASE_SQLITE_DEFAULTDB VALUES ('no'); CREATE TABLE other (v); INSERT INTO "
                   "other VALUES ('yes');"
                << "yes,\n" << false;
        QTest::newRow("no table but the default one")
                << "CREATE TABLE DATABASE_SQLITE_DEFAULTDB (a);" << QString() << false;

        // Numbers at the edges of their text forms, null, blobs, text GBK lacks, malformed
        // text and unpaired surrogates (in a UTF-16 database) ending cells, with enough long
        // cells that the writer's and the stream's buffer boundaries fall next to them.
        const QString table = QString::fromUtf8(
                "CREATE TABLE t (i INTEGER PRIMARY KEY, v, w); INSERT INTO t (v, w) VALUES (0.1, "
                "1e20), (-0.0, 5e-324), (1.7976931348623157e308, -9223372036854775808), "
                "(9223372036854775807, 123456789.125), (X'00414243', X'FF41'), (X'E4B8AD0A2C', "
                "X''), ('한국어 😀', '€ ß ÿ ｱ Ω ё'), ('中' || char(0) || '文', char(160, 12288, "
                "65533)), (CAST(X'3DD8' AS TEXT), CAST(X'00DE' AS TEXT) || 'y'), (CAST(X'3DD800DE' "
                "AS TEXT), CAST(X'FF41' AS TEXT)); WITH RECURSIVE c(x) AS (SELECT 1 UNION ALL "
                "SELECT x + 1 FROM c WHERE x < 2000) INSERT INTO t (v, w) SELECT CASE x % 4 WHEN 0 "
                "THEN NULL WHEN 1 THEN x / 7.0 WHEN 2 THEN randomblob(3) ELSE 'row' || x END, CASE "
                "x % 2 WHEN 0 THEN replace(hex(zeroblob(x % 7 * 150 + 400)), '00', '中') || "
                "CAST(X'3DD8' AS TEXT) ELSE CAST(X'00DE' AS TEXT) || x || '数据' END FROM c;");
        QTest::newRow("utf-8 database, as a query reads it")
                << "PRAGMA encoding = 'UTF-8';" + table << "=query" << false;
        QTest::newRow("utf-16 database, as a query reads it")
                << "PRAGMA encoding = 'UTF-16le';" + table << "=query" << false;
        // Read whole before the file is overwritten.
        QTest::newRow("onto the database file itself, as a query reads it")
                << "PRAGMA encoding = 'UTF-8';" + table << "=query" << true;
    }

    void toCSV()
    {
        QFETCH(QString, sql);
        QFETCH(QString, expected);
        QFETCH(bool, ontoItself);
        const QString db = m_catalogue.filePath(QTest::currentDataTag() + QStringLiteral(".db"));
        const QString csv = ontoItself ? db : db + QStringLiteral(".csv");
        QVERIFY(TestSupport::sqlite(db, sql));
        const QByteArray bytes
                = expected == "=query" ? reference(db) : TestSupport::iconvEncode(expected, "GBK");
        QCOMPARE(DatabaseExport::toCSV(db, csv), !expected.isNull());
        if (!expected.isNull())
            QCOMPARE(TestSupport::readFile(csv), bytes);
    }

private:
    TestSupport::TempCatalogue m_catalogue;
};

QTEST_GUILESS_MAIN(tst_DatabaseExport)
#include "tst_databaseexport.moc"
