// Faults around an import: the call must report failure through its log, and the database
// file must afterwards pass SQLite's integrity check with every committed table complete.
#include <database/databaseexport.h>
#include <database/databasegenerator.h>

#include "testsupport.h"

#include <QSqlDatabase>
#include <QSqlError>
#include <QSqlQuery>
#include <QtTest>

#include <csignal>
#include <sys/stat.h>
#include <unistd.h>

using TestSupport::sqliteQuery;

namespace {

struct Outcome
{
    bool ran = false;
    bool result = false;
    QString log;
};

// Lines "k-N,v-N" for N in [first, first + count).
QByteArray numberedLines(int first, int count)
{
    QByteArray bytes;
    bytes.reserve(count * 16);
    for (int i = first; i < first + count; ++i)
        bytes += "k-" + QByteArray::number(i) + ",v-" + QByteArray::number(i) + '\n';
    return bytes;
}

QString integrity(const QString &database)
{
    return sqliteQuery(database, "PRAGMA integrity_check;");
}

// Row counts of table1, table2, ... as the sqlite3 shell sees them.
QList<int> tableCounts(const QString &database)
{
    QList<int> counts;
    const QStringList tables
            = sqliteQuery(
                      database,
                      "SELECT name FROM sqlite_master WHERE type='table' AND name LIKE 'table%' "
                      "ORDER BY CAST(substr(name, 6) AS INTEGER);")
                      .split('\n', Qt::SkipEmptyParts);
    for (const QString &table : tables)
        counts << sqliteQuery(database, "SELECT COUNT(*) FROM " + table + ";").toInt();
    return counts;
}

// A committed batch holds exactly its own rows, numbered from the batch's first line.
bool batchComplete(const QString &database, int tableIndex, int rows)
{
    const int first = (tableIndex - 1) * 50000;
    const QString table = "table" + QString::number(tableIndex);
    return sqliteQuery(database,
                       QString("SELECT COUNT(*), MIN(id), MAX(id), "
                               "SUM(column1 = 'k-' || (id - 1 + %1)) FROM %2;")
                               .arg(first)
                               .arg(table))
            == QString("%1|1|%1|%1").arg(rows);
}

} // namespace

class tst_Faults : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void readOnlyDirectory();
    void lockedDatabase();
    void fullDisk();
    void killedHalfWay();
    void sourceVanishesBetweenCheckAndParse();
    void damagedDatabaseFile_data();
    void damagedDatabaseFile();

private:
    Outcome runDriver(const QStringList &arguments);
    QTemporaryDir m_dir;
};

Outcome tst_Faults::runDriver(const QStringList &arguments)
{
    QProcess driver;
    driver.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    driver.start(QStringLiteral(FAULTDRIVER_BINARY), arguments);
    Outcome outcome;
    if (!driver.waitForFinished(300000) || driver.exitStatus() != QProcess::NormalExit
        || driver.exitCode() != 0)
        return outcome;
    const QString output = QString::fromUtf8(driver.readAllStandardOutput());
    outcome.ran = true;
    outcome.result = output.startsWith("result=1");
    outcome.log = output.section('\n', 1).trimmed();
    return outcome;
}

void tst_Faults::initTestCase()
{
    QVERIFY(m_dir.isValid());
    // A child that drops to "nobody" must be able to reach its files.
    QVERIFY(QFile::setPermissions(m_dir.path(),
                                  QFileDevice::ReadOwner | QFileDevice::WriteOwner
                                          | QFileDevice::ExeOwner | QFileDevice::ReadOther
                                          | QFileDevice::ExeOther | QFileDevice::ReadGroup
                                          | QFileDevice::ExeGroup));
}

void tst_Faults::readOnlyDirectory()
{
    const QString dir = m_dir.filePath("readonly");
    QVERIFY(QDir().mkpath(dir));
    const QString source = m_dir.filePath("ro-source.csv");
    QVERIFY(TestSupport::writeFile(source, numberedLines(0, 100)));
    QFile::setPermissions(source, QFile::permissions(source) | QFileDevice::ReadOther);

    // An earlier import left a committed table; the directory then became read-only.
    const QString existing = dir + "/existing.db";
    Database::DatabaseGenerator first;
    QVERIFY2(first.importOriginalFile(source, existing), qPrintable(first.getLog()));
    QVERIFY(QFile::setPermissions(existing,
                                  QFile::permissions(existing) | QFileDevice::WriteOther
                                          | QFileDevice::ReadOther));
    QVERIFY(::chmod(QFile::encodeName(dir).constData(), 0555) == 0);

    // Root ignores permission bits, so the child drops to "nobody" when it runs as root.
    Outcome created = runDriver({"--as-nobody", "text", source, dir + "/new.db"});
    QVERIFY(created.ran);
    QVERIFY(!created.result);
    QCOMPARE(created.log, QString("Open database file failed!"));
    QVERIFY(!QFile::exists(dir + "/new.db"));

    // Emptying the old table needs a journal beside it, which cannot be created.
    Outcome reused = runDriver({"--as-nobody", "text", source, existing});
    QVERIFY(reused.ran);
    QVERIFY(!reused.result);
    QVERIFY2(!reused.log.isEmpty(), "a failure must leave a message");
    QCOMPARE(integrity(existing), QString("ok"));
    QVERIFY(batchComplete(existing, 1, 100));
    ::chmod(QFile::encodeName(dir).constData(), 0755);
}

void tst_Faults::lockedDatabase()
{
    const QString source = m_dir.filePath("lock-source.csv");
    QVERIFY(TestSupport::writeFile(source, numberedLines(0, 1000)));
    const QString database = m_dir.filePath("locked.db");
    Database::DatabaseGenerator generator;
    QVERIFY(generator.importOriginalFile(source, database));

    {
        QSqlDatabase holder = QSqlDatabase::addDatabase("QSQLITE", "lock-holder");
        holder.setDatabaseName(database);
        QVERIFY(holder.open());
        QSqlQuery lock(holder);
        QVERIFY_SQL(lock, exec("BEGIN EXCLUSIVE;"));

        QVERIFY(!generator.importOriginalFile(source, database));
        QVERIFY(!generator.getLog().isEmpty());

        QVERIFY_SQL(lock, exec("ROLLBACK;"));
        holder.close();
    }
    QSqlDatabase::removeDatabase("lock-holder");

    QCOMPARE(integrity(database), QString("ok"));
    QVERIFY(batchComplete(database, 1, 1000));
    // Once the lock is gone the same object imports again.
    QVERIFY2(generator.importOriginalFile(source, database), qPrintable(generator.getLog()));
    QVERIFY(batchComplete(database, 1, 1000));
}

void tst_Faults::fullDisk()
{
    const QString source = m_dir.filePath("full-source.csv");
    QVERIFY(TestSupport::writeFile(source, numberedLines(0, 200000)));
    const QString database = m_dir.filePath("full.db");

    // A batch takes about 1.2 MB: the limit lets the first ones in and stops the rest.
    const Outcome outcome
            = runDriver({"--fsize", QString::number(2500 * 1024), "text", source, database});
    QVERIFY(outcome.ran);
    QVERIFY(!outcome.result);
    QVERIFY2(!outcome.log.isEmpty(), "the last batch's failure must be in the log");

    QCOMPARE(integrity(database), QString("ok"));
    const QList<int> counts = tableCounts(database);
    QCOMPARE(counts.size(), 4);
    QVERIFY(batchComplete(database, 1, 50000));
    QCOMPARE(counts.last(), 0);
    // Every batch was either committed whole or rolled back whole.
    for (int i = 1; i < counts.size(); ++i) {
        QVERIFY2(counts.at(i) == 0 || batchComplete(database, i + 1, 50000),
                 qPrintable(QString("table%1 holds %2 rows").arg(i + 1).arg(counts.at(i))));
    }
}

void tst_Faults::killedHalfWay()
{
    const QString source = m_dir.filePath("kill-source.csv");
    QVERIFY(TestSupport::writeFile(source, numberedLines(0, 400000)));
    const QString database = m_dir.filePath("killed.db");

    QProcess driver;
    driver.start(QStringLiteral(FAULTDRIVER_BINARY), {"text", source, database});
    QVERIFY(driver.waitForStarted());
    // Wait until two batches are committed and a third is under way, then kill.
    QElapsedTimer timer;
    timer.start();
    bool third = false;
    while (!third && timer.elapsed() < 120000 && driver.state() == QProcess::Running) {
        QThread::msleep(20);
        third = sqliteQuery(
                        database,
                        ".timeout 2000\nSELECT COUNT(*) FROM sqlite_master WHERE name = 'table3';")
                == "1";
    }
    QVERIFY2(third, "the import never reached its third batch");
    ::kill(pid_t(driver.processId()), SIGKILL);
    QVERIFY(driver.waitForFinished());
    QCOMPARE(driver.exitStatus(), QProcess::CrashExit);

    QCOMPARE(integrity(database), QString("ok"));
    const QList<int> counts = tableCounts(database);
    QVERIFY(counts.size() >= 3);
    QVERIFY(batchComplete(database, 1, 50000));
    QVERIFY(batchComplete(database, 2, 50000));
    for (int i = 2; i < counts.size(); ++i) {
        QVERIFY2(counts.at(i) == 0 || counts.at(i) == 50000,
                 qPrintable(QString("table%1 holds %2 rows").arg(i + 1).arg(counts.at(i))));
        if (counts.at(i) == 50000)
            QVERIFY(batchComplete(database, i + 1, 50000));
    }
}

void tst_Faults::sourceVanishesBetweenCheckAndParse()
{
    const QString source = m_dir.filePath("vanishing.csv");
    QVERIFY(TestSupport::writeFile(source, numberedLines(0, 10)));
    const QString database = m_dir.filePath("vanished.db");

    // The check opens the file first; it is deleted just before the parser's open.
    const Outcome outcome = runDriver({"--vanish-on-open", "2", source, "text", source, database});
    QVERIFY(outcome.ran);
    QVERIFY(!outcome.result);
    QCOMPARE(outcome.log, QString("Cannot open file %1 for reading.").arg(source));
    QVERIFY(!QFile::exists(source));
    QVERIFY(tableCounts(database).isEmpty());
}

void tst_Faults::damagedDatabaseFile_data()
{
    QTest::addColumn<QString>("kind");
    QTest::newRow("not a database") << "text";
    QTest::newRow("truncated database") << "truncated";
}

void tst_Faults::damagedDatabaseFile()
{
    QFETCH(QString, kind);
    const QString source = m_dir.filePath("damaged-source.csv");
    QVERIFY(TestSupport::writeFile(source, numberedLines(0, 2000)));
    const QString database = m_dir.filePath("damaged-" + kind + ".db");
    if (kind == "text") {
        QVERIFY(TestSupport::writeFile(database,
                                       QByteArray("just some notes, not SQLite\n").repeated(200)));
    } else {
        Database::DatabaseGenerator generator;
        QVERIFY(generator.importOriginalFile(source, database));
        QFile file(database);
        QVERIFY(file.resize(file.size() / 3));
    }
    const QByteArray before = TestSupport::readFile(database);

    Database::DatabaseGenerator generator;
    QVERIFY(!generator.importOriginalFile(source, database));
    QVERIFY(!generator.getLog().isEmpty());
    // A file the importer could not use is left exactly as it was.
    QCOMPARE(TestSupport::readFile(database), before);

    // Exporting it must not crash either; whatever it reports, nothing is written to the db.
    Database::DatabaseExport::toCSV(database, m_dir.filePath("damaged-" + kind + ".csv"));
    QCOMPARE(TestSupport::readFile(database), before);
}

QTEST_GUILESS_MAIN(tst_Faults)
#include "tst_faults.moc"
