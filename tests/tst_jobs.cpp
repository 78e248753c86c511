#include <database/csvimporter.h>
#include <database/databaseexport.h>
#include <database/databasegenerator.h>
#include <database/databasehandlerfactory.h>
#include <database/databasemanager.h>
#include <database/databasetablemodel.h>
#include <database/jobs.h>
#include <database/xlsxtodbgenerator.h>

#include "testsupport.h"
#include "xlsxfixture.h"

#include <QtSql>
#include <QtTest>

using Database::JobResult;
namespace Jobs = Database::Jobs;

namespace {

const int BigRows = 250000;

QByteArray rows(int count, int from = 1)
{
    QByteArray text;
    for (int i = from; i < from + count; ++i)
        text += "r" + QByteArray::number(i) + ",v" + QByteArray::number(i * 7) + ",w\n";
    return text;
}

QStringList tableNames(const QString &databaseFile)
{
    return TestSupport::sqliteQuery(databaseFile, "SELECT name FROM sqlite_master WHERE type = "
                                    "'table' AND name LIKE 'table%' ORDER BY length(name), name")
            .split('\n', Qt::SkipEmptyParts);
}

// Every table of a database as the sqlite3 shell prints it, names first.
QString dump(const QString &databaseFile)
{
    QString text = tableNames(databaseFile).join('\n') + '\n';
    for (const QString &name : tableNames(databaseFile))
        text += TestSupport::sqliteQuery(databaseFile, "SELECT * FROM " + name) + '\n';
    return text;
}

QStringList tableSizes(const QString &databaseFile)
{
    QStringList sizes;
    for (const QString &name : tableNames(databaseFile))
        sizes << TestSupport::sqliteQuery(databaseFile, "SELECT COUNT(*) FROM " + name);
    return sizes;
}

const Database::CsvImporter::Options CsvOptions{Database::CsvImporter::Format::Rfc4180,
                                                Database::CsvImporter::Encoding::Automatic, ";"};

QFuture<JobResult> job(const QString &kind, const QString &source, const QString &target)
{
    return kind == "text" ? Jobs::importText(source, target, ";")
            : kind == "csv"   ? Jobs::importCsv(source, target, CsvOptions)
            : kind == "spreadsheet" ? Jobs::importSpreadsheet(source, target)
                                    : Jobs::exportCsv(source, target);
}

// The synchronous call a job of that kind must match.
JobResult direct(const QString &kind, const QString &source, const QString &target)
{
    JobResult result;
    if (kind == "text") {
        Database::DatabaseGenerator generator;
        generator.setSeparator(";");
        result.ok = generator.importOriginalFile(source, target);
        result.log = generator.getLog();
    } else if (kind == "csv") {
        Database::CsvImporter importer(CsvOptions);
        result.ok = importer.importFile(source, target);
        result.log = importer.log();
        result.errorLine = importer.errorLine();
    } else if (kind == "spreadsheet") {
        Database::XlsxToDBGenerator generator;
        result.ok = generator.importOriginalFile(source, target);
        result.log = generator.getLog();
    } else {
        result.ok = Database::DatabaseExport::toCSV(source, target);
    }
    return result;
}

} // namespace

class tst_Jobs : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void cleanup();
    void sameAsSynchronous_data();
    void sameAsSynchronous();
    void cancelKeepsWholeTables_data();
    void cancelKeepsWholeTables();
    void cancelWhileBatchIsWritten();
    void jobsOnOneFileRunInTurn();
    void jobBesideDirectImport();
    void modelSeesWholeTables();
    void applicationQuitsWhileRunning();

private:
    // Starts an import of the big source into databaseFile and waits for its progress to pass
    // atBytes (-1: never); then cancels it.
    JobResult cancelAt(const QString &databaseFile, qint64 atBytes);
    void verifyWholePrefix(const QString &databaseFile);

    TestSupport::TempCatalogue m_catalogue;
    QString m_big;
    QString m_bigReference;
    qint64 m_firstBatchBytes = 0;
};

void tst_Jobs::initTestCase()
{
    QVERIFY(m_catalogue.isValid());
    m_big = m_catalogue.filePath("big.txt");
    QVERIFY(TestSupport::writeFile(m_big, rows(BigRows)));
    m_firstBatchBytes = rows(50000).size();
    m_bigReference = m_catalogue.filePath("big-reference.db");
    Database::DatabaseGenerator generator;
    QVERIFY(generator.importOriginalFile(m_big, m_bigReference));
}

void tst_Jobs::cleanup()
{
    // A failed check must not leave a job writing into the next test's files.
    Jobs::cancelAll();
}

void tst_Jobs::sameAsSynchronous_data()
{
    QTest::addColumn<QString>("kind");
    QTest::addColumn<QByteArray>("source"); // for export: SQL run on the database first
    QTest::addColumn<QByteArray>("before"); // SQL run on the target database first, or "directory"
    QTest::addColumn<int>("code");          // the text import's code

    const auto row = [](const char *name, const char *kind, const QByteArray &source, int code = 0,
                        const QByteArray &before = {}) {
        QTest::newRow(name) << kind << source << before << code;
    };
    row("text, two tables", "text", rows(60000).replace(',', ';'));
    row("text, content error", "text", "a;b\na;b;c\n", 3);
    row("text, failing rows", "text", "a;b;c\nd;e;f\n", 11, "CREATE TABLE table1 (id INTEGER "
        "PRIMARY KEY AUTOINCREMENT, column1 TEXT, column2 TEXT);");
    row("text, missing source", "text", QByteArray(), 4);
    row("text, target a directory", "text", "a;b\n", 9, "directory");
    row("csv, unclosed quote", "csv", "a;b\n\"c;d\n");
    row("spreadsheet", "spreadsheet", QByteArray());
    row("export", "export", "CREATE TABLE t (a, b); INSERT INTO t VALUES (1, '\xe7\x94\xb2'), (2.5, NULL);");
    row("export, no table", "export", "PRAGMA user_version = 1;");
}

// A job writes what the synchronous class writes, with the same result and log, and hands
// over the text importer's code.
void tst_Jobs::sameAsSynchronous()
{
    QFETCH(QString, kind);
    QFETCH(QByteArray, source);
    QFETCH(QByteArray, before);
    QFETCH(int, code);
    const QString tag = QTest::currentDataTag();
    QString input = m_catalogue.filePath(tag + ".in");
    QVERIFY(kind == "spreadsheet" ? TestSupport::writeXlsxGrid(input, 1200, 3)
            : kind == "export" ? TestSupport::sqlite(input, source)
                               : source.isNull() || TestSupport::writeFile(input, source));
    const bool exporting = kind == "export";
    const QString viaJob = m_catalogue.filePath(tag + (exporting ? ".job.csv" : ".job.db"));
    const QString direct = m_catalogue.filePath(tag + (exporting ? ".csv" : ".db"));
    if (before == "directory") // where no database opens
        QVERIFY(QDir().mkpath(viaJob) && QDir().mkpath(direct));
    else
        QVERIFY(before.isEmpty() || (TestSupport::sqlite(viaJob, before) && TestSupport::sqlite(direct, before)));

    const JobResult expected = ::direct(kind, input, direct);
    const JobResult result = Jobs::resultOf(job(kind, input, viaJob));
    QCOMPARE(result.ok, expected.ok);
    QVERIFY(!result.cancelled);
    if (!exporting)
        QCOMPARE(result.log, expected.log);
    QCOMPARE(result.code, code);
    QCOMPARE(result.errorLine, expected.errorLine);
    if (exporting) {
        QCOMPARE(QFile::exists(viaJob), QFile::exists(direct));
        QCOMPARE(TestSupport::readFile(viaJob), TestSupport::readFile(direct));
    } else {
        QCOMPARE(dump(viaJob), dump(direct));
    }
    // The job's connection went with it.
    for (const QString &name : QSqlDatabase::connectionNames())
        QVERIFY2(name == "db_generator" || name == "DB3EXPORT", qPrintable(name));
}

JobResult tst_Jobs::cancelAt(const QString &databaseFile, qint64 atBytes)
{
    QFutureWatcher<JobResult> watcher;
    QList<int> values;
    int maximum = -1;
    connect(&watcher, &QFutureWatcher<JobResult>::progressRangeChanged, this,
            [&](int, int max) { maximum = max; });
    connect(&watcher, &QFutureWatcher<JobResult>::progressValueChanged, this, [&](int value) {
        values << value;
        if (atBytes >= 0 && value >= atBytes)
            watcher.cancel();
    });
    QSignalSpy finished(&watcher, &QFutureWatcher<JobResult>::finished);
    watcher.setFuture(Jobs::importText(m_big, databaseFile));
    if (atBytes == 0) // long before the helper has read a batch
        watcher.cancel();
    if (!finished.wait(60000))
        return JobResult();
    for (int i = 1; i < values.size(); ++i)
        if (values[i] < values[i - 1] || values[i] > maximum)
            return JobResult();
    return Jobs::resultOf(watcher.future());
}

// Every table there is whole and holds the rows the synchronous import gave it.
void tst_Jobs::verifyWholePrefix(const QString &databaseFile)
{
    const QStringList sizes = tableSizes(databaseFile);
    for (int i = 0; i < sizes.size(); ++i) {
        QCOMPARE(sizes[i], QString("50000"));
        const QString select = QString("SELECT * FROM table%1").arg(i + 1);
        QCOMPARE(TestSupport::sqliteQuery(databaseFile, select),
                 TestSupport::sqliteQuery(m_bigReference, select));
    }
}

void tst_Jobs::cancelKeepsWholeTables_data()
{
    QTest::addColumn<double>("at"); // of the first batch's bytes; 0 at once, -1 never

    QTest::newRow("not cancelled") << -1.0;
    QTest::newRow("before the first batch") << 0.0;
    QTest::newRow("mid-batch") << 1.5;
    QTest::newRow("in the fourth batch") << 3.5;
}

// A cancel drops the batch being read; the tables committed before stay whole. The progress
// the watcher sees lags behind the job's, so a cancel from it may come after the end: only a
// cancel at once is certain to leave nothing.
void tst_Jobs::cancelKeepsWholeTables()
{
    QFETCH(double, at);
    const QString database = m_catalogue.filePath(QTest::currentDataTag() + QString(".db"));
    const JobResult result = cancelAt(database, at < 0 ? -1 : qint64(at * m_firstBatchBytes));
    if (at < 0)
        QCOMPARE(dump(database), dump(m_bigReference));
    if (at == 0)
        QCOMPARE(tableSizes(database), QStringList());
    QCOMPARE(result.ok, !result.cancelled);
    if (at <= 0)
        QCOMPARE(result.cancelled, at == 0);
    verifyWholePrefix(database);
}

// A batch being written when the cancel comes is still committed whole: another connection
// holds the database until after the cancel, so the job waits inside its first batch.
void tst_Jobs::cancelWhileBatchIsWritten()
{
    const QString database = m_catalogue.filePath("locked.db");
    QVERIFY(TestSupport::sqlite(database, "PRAGMA user_version = 1;"));
    {
        QSqlDatabase lock = QSqlDatabase::addDatabase("QSQLITE", "lock");
        lock.setDatabaseName(database);
        QVERIFY(lock.open());
        QSqlQuery query(lock);
        QVERIFY_SQL(query, exec("BEGIN IMMEDIATE"));
        QFutureWatcher<JobResult> watcher;
        watcher.setFuture(Jobs::importText(m_big, database));
        // The value stands at the batch's end while the job waits for the database.
        QTRY_VERIFY_WITH_TIMEOUT(watcher.progressValue() >= m_firstBatchBytes, 4000);
        watcher.cancel();
        QTest::qWait(200);
        QVERIFY_SQL(query, exec("COMMIT"));
        QVERIFY(Jobs::resultOf(watcher.future()).cancelled);
        lock.close();
    }
    QSqlDatabase::removeDatabase("lock");
    QCOMPARE(tableSizes(database), QStringList{"50000"});
    verifyWholePrefix(database);
}

// Jobs on one file run in the order they came, one after another, each whole; a job cancelled
// while it waits never runs.
void tst_Jobs::jobsOnOneFileRunInTurn()
{
    const QString small = m_catalogue.filePath("small.txt");
    QVERIFY(TestSupport::writeFile(small, rows(10, 900001)));
    const QString database = m_catalogue.filePath("turns.db");
    // The same file under another spelling waits too.
    const QString sameFile = m_catalogue.root() + "/./turns.db";
    const QFuture<JobResult> first = Jobs::importText(m_big, database);
    const QFuture<JobResult> second = Jobs::importText(small, sameFile);
    QFuture<JobResult> third = Jobs::importText(m_big, database);
    third.cancel();
    QVERIFY(Jobs::resultOf(first).ok && Jobs::resultOf(second).ok && Jobs::resultOf(third).cancelled);
    QCOMPARE(tableSizes(database), QStringList({"10", "50000", "50000", "50000", "50000"}));
    QCOMPARE(TestSupport::sqliteQuery(database, "SELECT column1 FROM table1 LIMIT 1"),
             QString("r900001"));
    QCOMPARE(TestSupport::sqliteQuery(database, "SELECT * FROM table2"),
             TestSupport::sqliteQuery(m_bigReference, "SELECT * FROM table2"));
}

// A job and a described import on this thread, on two files at once, both whole.
void tst_Jobs::jobBesideDirectImport()
{
    const QString viaJob = m_catalogue.filePath("beside-job.db");
    const QString direct = m_catalogue.filePath("beside-direct.db");
    const QFuture<JobResult> job = Jobs::importText(m_big, viaJob);
    const QFuture<JobResult> exported = Jobs::exportCsv(m_bigReference, m_catalogue.filePath("beside.csv"));
    Database::DatabaseGenerator generator;
    QVERIFY2(generator.importOriginalFile(m_big, direct), qPrintable(generator.getLog()));
    QVERIFY(Database::DatabaseExport::toCSV(m_bigReference, m_catalogue.filePath("direct.csv")));
    QVERIFY(Jobs::resultOf(job).ok && Jobs::resultOf(exported).ok);
    QCOMPARE(dump(viaJob) + dump(direct), dump(m_bigReference).repeated(2));
    QCOMPARE(TestSupport::readFile(m_catalogue.filePath("beside.csv")),
             TestSupport::readFile(m_catalogue.filePath("direct.csv")));
}

// A model open on the file a job writes shows whole tables only, and the new ones after it
// opens the database again.
void tst_Jobs::modelSeesWholeTables()
{
    const QString database = QDir(m_catalogue.sysDir()).filePath("watched.db");
    QVERIFY(TestSupport::sqlite(database, "PRAGMA user_version = 1;"));
    Database::DatabaseManager::init();
    Database::DatabaseHandlerFactory::init();
    QSet<int> seen;
    {
        Database::DatabaseTableModel model;
        QFuture<JobResult> job = Jobs::importText(m_big, database);
        while (!job.isFinished()) {
            model.setDatabaseName(QString());
            if (model.setDatabaseName("watched")) {
                QCOMPARE(model.rowCount() % 50000, 0);
                seen << model.rowCount();
                if (model.rowCount() > 0) {
                    const QModelIndex last = model.index(model.rowCount() - 1, 1);
                    QCOMPARE(last.data().toString(),
                             QString("v%1").arg(model.rowCount() * 7));
                }
            }
            QTest::qWait(5);
        }
        QVERIFY(Jobs::resultOf(job).ok);
        model.setDatabaseName(QString());
        QVERIFY(model.setDatabaseName("watched"));
        QCOMPARE(model.rowCount(), BigRows);
    }
    Database::DatabaseHandlerFactory::destruct();
    Database::DatabaseManager::destruct();
    QVERIFY2(seen.size() > 1, "the model never saw the import in progress");
}

// The application object goes while a job writes: the process ends normally and what the job
// committed is whole.
void tst_Jobs::applicationQuitsWhileRunning()
{
    const QString database = m_catalogue.filePath("quit.db");
    QProcess child;
    child.start(QCoreApplication::applicationFilePath(), {"--quit-during-import", m_big, database});
    QVERIFY(child.waitForFinished(60000));
    QCOMPARE(child.exitStatus(), QProcess::NormalExit);
    QCOMPARE(child.exitCode(), 0);
    QVERIFY(tableSizes(database).size() < 5);
    verifyWholePrefix(database);
}

// The child of applicationQuitsWhileRunning: returns from main once the job has made progress.
static int quitDuringImport(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    QFutureWatcher<JobResult> watcher;
    QObject::connect(&watcher, &QFutureWatcher<JobResult>::progressValueChanged, &app,
                     [](int value) { value > 0 ? QCoreApplication::quit() : void(); });
    watcher.setFuture(Jobs::importText(QString::fromLocal8Bit(argv[2]),
                                       QString::fromLocal8Bit(argv[3])));
    return app.exec();
}

int main(int argc, char **argv)
{
    if (argc == 4 && qstrcmp(argv[1], "--quit-during-import") == 0)
        return quitDuringImport(argc, argv);
    QCoreApplication app(argc, argv);
    tst_Jobs test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_jobs.moc"
