// zqdb as a user runs it: a separate process, its exit code, its output and its messages.
#include "testsupport.h"

#include <QtTest>

using TestSupport::TempCatalogue;

namespace {

struct Run
{
    int exitCode = -1;
    QString out;
    QString err;
};

} // namespace

class tst_Zqdb : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void cleanup();

    void messages_data();
    void messages();

    void listShowsDefaultFirst();
    void importInfoCatRoundTrip();
    void catCsvQuotesAndSelectsColumns();
    void importFailurePrintsImporterLog();
    void exportWritesGbk();
    void memoryWalksEveryRow();

private:
    Run zqdb(const QStringList &arguments);
    TempCatalogue *m_catalogue = nullptr;
};

Run tst_Zqdb::zqdb(const QStringList &arguments)
{
    QProcess process;
    QStringList all{"--sys-dir", m_catalogue->sysDir(), "--user-dir", m_catalogue->userDir()};
    all += arguments;
    process.start(QStringLiteral(ZQDB_BINARY), all);
    Run run;
    if (!process.waitForFinished(60000) || process.exitStatus() != QProcess::NormalExit)
        return run;
    run.exitCode = process.exitCode();
    run.out = QString::fromUtf8(process.readAllStandardOutput());
    run.err = QString::fromUtf8(process.readAllStandardError());
    return run;
}

void tst_Zqdb::init()
{
    m_catalogue = new TempCatalogue;
    QVERIFY(m_catalogue->isValid());
}

void tst_Zqdb::cleanup()
{
    delete m_catalogue;
}

// Messages a person reads: usage errors (2, with a pointer to the help), help (0, on
// standard output) and failures (1).
void tst_Zqdb::messages_data()
{
    QTest::addColumn<QStringList>("arguments"); // "@text": a file that is no database
    QTest::addColumn<int>("exitCode");
    QTest::addColumn<QString>("message");
    const auto row
            = [](const char *name, const QStringList &arguments, int code, const char *text) {
                  QTest::newRow(name) << arguments << code << QString(text);
              };
    row("no command", {}, 2, "no command given");
    row("unknown command", {"frobnicate"}, 2, "unknown command 'frobnicate'");
    row("unknown option", {"list", "--bogus"}, 2, "Unknown option 'bogus'");
    row("missing argument", {"import", "a.csv"}, 2, "expected SOURCE DATABASE");
    row("extra argument", {"list", "x"}, 2, "expected no arguments");
    row("bad count", {"cat", "x", "--count", "-3"}, 2, "--count takes a number");
    row("option without value", {"cat", "x", "--from"}, 2, "Missing value after '--from'");
    row("general help", {"--help"}, 0, "Commands:");
    row("list help", {"list", "--help"}, 0, "--sys-dir");
    row("info help", {"info", "--help"}, 0, "NAME");
    row("cat help", {"cat", "--help"}, 0, "--columns");
    row("import help", {"import", "--help"}, 0, "--separator");
    row("export help", {"export", "--help"}, 0, "CSVFILE");
    row("memory help", {"memory", "--help"}, 0, "FILE");
    row("import of a missing file", {"import", "/no/such/file.csv", "/tmp/never.db"}, 1,
        "no such file");
    row("info of an unknown name", {"info", "nothere"}, 1, "no database named 'nothere'");
    row("cat of an unknown name", {"cat", "nothere"}, 1, "zqdb list");
    row("export of an unknown name", {"export", "nothere", "/tmp/x.csv"}, 1, "no database named");
    row("memory of a missing file", {"memory", "/no/such/lines.txt"}, 1, "cannot read");
    row("info of a text file", {"info", "@text"}, 1, "is not an SQLite database");
    row("export of a text file", {"export", "@text", "/tmp/x.csv"}, 1, "is not an SQLite database");
}

void tst_Zqdb::messages()
{
    QFETCH(QStringList, arguments);
    QFETCH(int, exitCode);
    QFETCH(QString, message);
    const QString textFile = m_catalogue->filePath("notes.txt");
    QVERIFY(TestSupport::writeFile(textFile, "just notes\n"));
    arguments.replaceInStrings("@text", textFile);

    const Run run = zqdb(arguments);
    QCOMPARE(run.exitCode, exitCode);
    const QString &text = exitCode == 0 ? run.out : run.err;
    QVERIFY2(text.contains(message), qPrintable(text));
    if (exitCode == 2) {
        QVERIFY2(run.err.contains("--help"), qPrintable(run.err));
        QVERIFY(run.out.isEmpty());
    }
}

void tst_Zqdb::listShowsDefaultFirst()
{
    QVERIFY(TestSupport::writeFile(m_catalogue->sysDir() + "/b.db", QByteArray()));
    QVERIFY(TestSupport::writeFile(m_catalogue->sysDir() + "/a.db", QByteArray()));
    QVERIFY(TestSupport::writeFile(m_catalogue->userDir() + "/C.db", QByteArray()));
    const Run run = zqdb({"list"});
    QCOMPARE(run.exitCode, 0);
    const QStringList lines = run.out.split('\n', Qt::SkipEmptyParts);
    QCOMPARE(lines.size(), 3);
    QVERIFY2(lines.at(0).startsWith("* a "), qPrintable(run.out));
    QVERIFY(lines.at(1).startsWith("  C "));
    QVERIFY(lines.at(2).startsWith("  b "));
    QVERIFY(lines.at(0).endsWith(QFileInfo(m_catalogue->sysDir() + "/a.db").absoluteFilePath()));
}

void tst_Zqdb::importInfoCatRoundTrip()
{
    const QString source = m_catalogue->filePath("people.txt");
    QVERIFY(TestSupport::writeFile(source, "ann\t31\nbob\t42\ncy\t27\n"));
    const QString database = m_catalogue->sysDir() + "/people.db";

    Run run = zqdb({"import", source, database, "--separator", "\\t"});
    QCOMPARE(run.exitCode, 0);
    QVERIFY2(run.out.contains("table1  3 row(s)"), qPrintable(run.out));
    QCOMPARE(
            TestSupport::sqliteQuery(database, "SELECT column1, column2 FROM table1 WHERE id = 2;"),
            QString("bob|42"));

    run = zqdb({"info", "people"});
    QCOMPARE(run.exitCode, 0);
    QVERIFY2(run.out.contains("Records:  3"), qPrintable(run.out));
    QVERIFY(run.out.contains("column2"));
    QVERIFY(!run.out.contains(" id "));

    run = zqdb({"cat", "people", "--from", "1", "--count", "5"});
    QCOMPARE(run.exitCode, 0);
    QVERIFY2(run.out.contains("bob"), qPrintable(run.out));
    QVERIFY(run.out.contains("cy"));
    QVERIFY(!run.out.contains("ann"));
    QVERIFY(run.out.contains("(rows 1 to 2 of 3)"));
}

void tst_Zqdb::catCsvQuotesAndSelectsColumns()
{
    const QString database = m_catalogue->userDir() + "/q.db";
    QVERIFY(TestSupport::sqlite(
            database,
            "CREATE TABLE table1 (id INTEGER PRIMARY KEY AUTOINCREMENT, column1 TEXT, column2 "
            "TEXT);"
            "INSERT INTO table1 VALUES (NULL, 'a,b', 'say \"hi\"'), (NULL, 'plain', 'x');"));
    Run run = zqdb({"cat", "q", "--csv", "--columns", "column2,1"});
    QCOMPARE(run.exitCode, 0);
    QCOMPARE(run.out, QString("column2,column1\n\"say \"\"hi\"\"\",\"a,b\"\nx,plain\n"));

    run = zqdb({"cat", "q", "--columns", "nope"});
    QCOMPARE(run.exitCode, 2);
    QVERIFY2(run.err.contains("no field 'nope'"), qPrintable(run.err));
}

void tst_Zqdb::importFailurePrintsImporterLog()
{
    const QString source = m_catalogue->filePath("ragged.csv");
    QVERIFY(TestSupport::writeFile(source, "a,b\nc,d,e\n"));
    const Run run = zqdb({"import", source, m_catalogue->filePath("r.db")});
    QCOMPARE(run.exitCode, 1);
    QVERIFY2(run.err.contains("failed:") && run.err.contains("Content error"), qPrintable(run.err));
}

void tst_Zqdb::exportWritesGbk()
{
    const QString database = m_catalogue->sysDir() + "/cn.db";
    QVERIFY(TestSupport::sqlite(
            database,
            QString::fromUtf8(
                    "CREATE TABLE table1 (id INTEGER PRIMARY KEY AUTOINCREMENT, column1 TEXT);"
                    "INSERT INTO table1 VALUES (NULL, '杭州');")));
    const QString csv = m_catalogue->filePath("cn.csv");
    const Run run = zqdb({"export", "cn", csv});
    QCOMPARE(run.exitCode, 0);
    QVERIFY2(run.out.contains("1 row(s)"), qPrintable(run.out));
    QCOMPARE(TestSupport::readFile(csv),
             TestSupport::iconvEncode(QString::fromUtf8("1,杭州,\n"), "GBK"));

    const Run unwritable = zqdb({"export", "cn", m_catalogue->filePath("no/dir/x.csv")});
    QCOMPARE(unwritable.exitCode, 1);
    QVERIFY2(unwritable.err.contains("cannot write"), qPrintable(unwritable.err));
}

void tst_Zqdb::memoryWalksEveryRow()
{
    const QString lines = m_catalogue->filePath("lines.txt");
    QVERIFY(TestSupport::writeFile(lines, "a@;!b\nc@;!d\ne@;!f\n"));
    Run run = zqdb({"memory", lines});
    QCOMPARE(run.exitCode, 0);
    const QStringList rows = run.out.split('\n', Qt::SkipEmptyParts);
    QCOMPARE(rows.size(), 6); // header, rule, three rows, count
    QVERIFY(rows.at(2).startsWith("0  ") && rows.at(2).contains("a") && rows.at(2).endsWith("b"));
    QVERIFY(rows.at(4).startsWith("2  ") && rows.at(4).endsWith("f"));

    QVERIFY(TestSupport::writeFile(lines, "@;!@;!\n"));
    run = zqdb({"memory", lines});
    QCOMPARE(run.exitCode, 1);
    QVERIFY2(run.err.contains("cannot build the memory table"), qPrintable(run.err));
}

QTEST_GUILESS_MAIN(tst_Zqdb)
#include "tst_zqdb.moc"
