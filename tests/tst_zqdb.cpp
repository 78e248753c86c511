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

    void usageErrors_data();
    void usageErrors();
    void helpForEveryCommand_data();
    void helpForEveryCommand();
    void failures_data();
    void failures();

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

void tst_Zqdb::usageErrors_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<QString>("message");

    QTest::newRow("no command") << QStringList() << "no command given";
    QTest::newRow("unknown command") << QStringList{"frobnicate"} << "unknown command 'frobnicate'";
    QTest::newRow("unknown option") << QStringList{"list", "--bogus"} << "Unknown option 'bogus'";
    QTest::newRow("missing argument")
            << QStringList{"import", "a.csv"} << "expected SOURCE DATABASE";
    QTest::newRow("extra argument") << QStringList{"list", "x"} << "expected no arguments";
    QTest::newRow("bad count") << QStringList{"cat", "x", "--count", "-3"}
                               << "--count takes a number";
    QTest::newRow("option without value")
            << QStringList{"cat", "x", "--from"} << "Missing value after '--from'";
}

void tst_Zqdb::usageErrors()
{
    QFETCH(QStringList, arguments);
    QFETCH(QString, message);
    const Run run = zqdb(arguments);
    QCOMPARE(run.exitCode, 2);
    QVERIFY2(run.err.contains(message), qPrintable(run.err));
    QVERIFY2(run.err.contains("--help"), qPrintable(run.err));
    QVERIFY(run.out.isEmpty());
}

void tst_Zqdb::helpForEveryCommand_data()
{
    QTest::addColumn<QString>("command");
    QTest::addColumn<QString>("option");
    QTest::newRow("general") << QString() << "Commands:";
    QTest::newRow("list") << "list"
                          << "--sys-dir";
    QTest::newRow("info") << "info"
                          << "NAME";
    QTest::newRow("cat") << "cat"
                         << "--columns";
    QTest::newRow("import") << "import"
                            << "--separator";
    QTest::newRow("export") << "export"
                            << "CSVFILE";
    QTest::newRow("memory") << "memory"
                            << "FILE";
}

void tst_Zqdb::helpForEveryCommand()
{
    QFETCH(QString, command);
    QFETCH(QString, option);
    const Run run
            = zqdb(command.isEmpty() ? QStringList{"--help"} : QStringList{command, "--help"});
    QCOMPARE(run.exitCode, 0);
    QVERIFY2(run.out.contains(option), qPrintable(run.out));
}

void tst_Zqdb::failures_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<QString>("message");

    QTest::newRow("import of a missing file")
            << QStringList{"import", "/no/such/file.csv", "/tmp/never.db"} << "no such file";
    QTest::newRow("info of an unknown name")
            << QStringList{"info", "nothere"} << "no database named 'nothere'";
    QTest::newRow("cat of an unknown name") << QStringList{"cat", "nothere"} << "zqdb list";
    QTest::newRow("export of an unknown name")
            << QStringList{"export", "nothere", "/tmp/x.csv"} << "no database named 'nothere'";
    QTest::newRow("memory of a missing file")
            << QStringList{"memory", "/no/such/lines.txt"} << "cannot read";
    QTest::newRow("info of a text file")
            << QStringList{"info", "@text"} << "is not an SQLite database";
    QTest::newRow("export of a text file")
            << QStringList{"export", "@text", "/tmp/x.csv"} << "is not an SQLite database";
}

void tst_Zqdb::failures()
{
    QFETCH(QStringList, arguments);
    QFETCH(QString, message);
    // "@text" stands for a file that exists but is no database.
    const QString textFile = m_catalogue->filePath("notes.txt");
    QVERIFY(TestSupport::writeFile(textFile, "just notes\n"));
    arguments.replaceInStrings("@text", textFile);
    const Run run = zqdb(arguments);
    QCOMPARE(run.exitCode, 1);
    QVERIFY2(run.err.contains(message), qPrintable(run.err));
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
