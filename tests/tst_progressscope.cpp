#include <database/databaseexport.h>
#include <database/progressscope.h>

#include "testsupport.h"

#include <QtTest>

class tst_ProgressScope : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void exportReportsAndCancels_data();
    void exportReportsAndCancels();

private:
    QTemporaryDir m_dir;
    const QString m_db = m_dir.filePath("rows.db");
};

void tst_ProgressScope::initTestCase()
{
    QStandardPaths::setTestModeEnabled(true);
    QVERIFY(TestSupport::sqlite(m_db,
                                "CREATE TABLE t (id INTEGER PRIMARY KEY, v TEXT); WITH "
                                "RECURSIVE r(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM r "
                                "WHERE i < 120000) INSERT INTO t SELECT i, 'v' || i FROM r;"));
    QVERIFY(Database::DatabaseExport::toCSV(m_db, m_dir.filePath("unobserved.csv")));
}

void tst_ProgressScope::exportReportsAndCancels_data()
{
    QTest::addColumn<qint64>("cancelAt");   // the first done the host refuses; -1 none
    QTest::addColumn<QByteArray>("before"); // the output file's content before; null: none

    QTest::newRow("complete") << qint64(-1) << QByteArray();
    QTest::newRow("cancel at once") << qint64(0) << QByteArray();
    QTest::newRow("cancel midway over a file") << qint64(60000) << QByteArray("old\n");
    QTest::newRow("cancel at the last report") << qint64(120000) << QByteArray();
}

// Reports start at 0, never go back, come at least every 50,000 rows and end at the row
// count; a cancel keeps the file that was there, or none, and nothing beside it. Complete, it
// writes what it writes unobserved.
void tst_ProgressScope::exportReportsAndCancels()
{
    QFETCH(qint64, cancelAt);
    QFETCH(QByteArray, before);
    const QString csv = m_dir.filePath(QTest::currentDataTag() + QStringLiteral(".csv"));
    QVERIFY(before.isNull() || TestSupport::writeFile(csv, before));
    QList<qint64> reports;
    qint64 total = -1;
    Database::ProgressScope scope([&](qint64 done, qint64 all) {
        reports << done;
        total = all;
        return cancelAt < 0 || done < cancelAt;
    });
    const bool exported = Database::DatabaseExport::toCSV(m_db, csv);
    QCOMPARE(total, TestSupport::sqliteQuery(m_db, "SELECT COUNT(*) FROM t").toLongLong());
    QVERIFY(reports.first() == 0 && reports.size() <= 400);
    for (int i = 1; i < reports.size(); ++i)
        QVERIFY(reports[i] >= reports[i - 1] && reports[i] - reports[i - 1] <= 50000);
    QCOMPARE(exported, cancelAt < 0);
    if (exported)
        QCOMPARE(reports.last(), total);
    else // no report follows the refused one
        QVERIFY(reports.last() >= cancelAt && reports.value(reports.size() - 2, -1) < cancelAt);
    QCOMPARE(QFile::exists(csv) ? TestSupport::readFile(csv) : QByteArray(),
             exported ? TestSupport::readFile(m_dir.filePath("unobserved.csv")) : before);
    QCOMPARE(QDir(m_dir.path()).entryList({QFileInfo(csv).fileName() + "?*"}, QDir::Files | QDir::Hidden),
             QStringList()); // nothing beside it
}

QTEST_MAIN(tst_ProgressScope)
#include "tst_progressscope.moc"
