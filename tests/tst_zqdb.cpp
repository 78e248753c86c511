// zqdb as a user runs it: a separate process, its exit code, its output and its messages.
#include "testsupport.h"

#include <QtTest>

#include <memory>

using TestSupport::TempCatalogue;

namespace {

struct Run
{
    int exitCode = -1;
    QByteArray bytes; // standard output as it came
    QString out;
    QString err;
};

} // namespace

class tst_Zqdb : public QObject
{
    Q_OBJECT

private slots:
    void init()
    {
        m_catalogue.reset(new TempCatalogue); // a fresh one per test and row
        QVERIFY(m_catalogue->isValid());
    }

    void messages_data();
    void messages();

    void listShowsDefaultFirst();
    void encodings();
    void lineRuleWarning_data();
    void lineRuleWarning();

private:
    Run zqdb(const QStringList &arguments, const QByteArray &input = {}, const QString &out = {});
    std::unique_ptr<TempCatalogue> m_catalogue;
};

Run tst_Zqdb::zqdb(const QStringList &arguments, const QByteArray &input, const QString &out)
{
    QProcess process;
    if (!out.isEmpty()) // standard output into this file
        process.setStandardOutputFile(out);
    QStringList all{"--sys-dir", m_catalogue->sysDir(), "--user-dir", m_catalogue->userDir()};
    process.start(QStringLiteral(ZQDB_BINARY), all + arguments);
    process.write(input);
    process.closeWriteChannel();
    Run run;
    if (!process.waitForFinished(60000) || process.exitStatus() != QProcess::NormalExit)
        return run;
    run.exitCode = process.exitCode();
    run.out = QString::fromUtf8(run.bytes = process.readAllStandardOutput());
    run.err = QString::fromUtf8(process.readAllStandardError());
    return run;
}

// Usage errors (2, with a pointer to the help), failures (1) that name the cause and leave the
// database and the directories as they were, and successes: each message on standard error,
// data alone on standard output.
void tst_Zqdb::messages_data()
{
    // "@text": a file that is no database; "@ragged": lines of 2 and 3 fields, "@tabs" the same
    // at tabs; "@quote": a quote not closed on line 2; "@utf8": UTF-8 text; "@lines": memory
    // lines; "@dir": a folder; "@db": the catalogued database "people" of 3 rows in the
    // importer's layout.
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<int>("exitCode");
    QTest::addColumn<QString>("message");
    QTest::addColumn<QString>("output"); // how standard output ends; empty: nothing there
    const auto row = [](const char *name, const QStringList &arguments, int code, const char *text,
                        const char *output = "") {
        QTest::newRow(name) << arguments << code << text << output;
    };
    row("no command", {}, 2, "no command given");
    row("extra argument", {"list", "x"}, 2, "expected no arguments");
    row("bad count", {"cat", "x", "--count", "-3"}, 2, "--count takes a number");
    row("both import modes", {"import", "a", "b", "--replace", "--in-place"}, 2, "choose one");
    row("bad encoding", {"memory", "x", "--encoding", "latin9"}, 2, "takes gb2312 or utf-8");
    row("import's encodings", {"import", "a", "b", "--encoding", "latin9"}, 2,
        "takes gb2312, utf-8, gb18030 or auto");
    row("memory has no detection", {"memory", "x", "--encoding", "auto"}, 2,
        "gb2312 or utf-8 for memory");
    row("line rule in GB18030 pads", {"import", "@ragged", "@dir/x.db", "--encoding", "gb18030"}, 0,
        "table1  2 row(s)");
    row("tab separator", {"import", "@tabs", "@dir/x.db", "--separator", "\\t"}, 1,
        "line 2: 3 field(s)");
    row("utf-8 read as GB2312", {"import", "@utf8", "@dir/x.db"}, 0, "add --encoding utf-8");
    row("csv quote not closed", {"import", "@quote", "@dir/x.db", "--csv"}, 1,
        "Line 2: a quoted field is not closed.");
    row("import of a missing file", {"import", "/no/such.csv", "@dir/x.db"}, 1, "no such file");
    row("import of a spreadsheet that is none", {"import", "@fakexlsx", "@dir/x.db"}, 1,
        "Cannot open file @fakexlsx for reading.\n  The file is not a zip archive");
    row("import of a directory", {"import", "@dir", "@dir/x.db"}, 1, "is a directory");
    row("import into no directory", {"import", "@text", "@dir/no/x.db"}, 1, "does not exist");
    row("import into a text file", {"import", "@text", "@text"}, 1, "is not an SQLite database");
    row("import into tables", {"import", "@text", "@db"}, 1, "already holds 1 table(s) (table1");
    row("failed --replace", {"import", "@ragged", "@db", "--replace"}, 1, "was left as it was");
    row("--replace", {"import", "@utf8", "@db", "--replace"}, 0, "holds:\n  table1  1 row(s)");
    row("info of an unknown name", {"info", "nothere"}, 1, "no database named 'nothere'");
    row("info", {"info", "people"}, 0, "", "2  column2  TEXT      QString\n");
    row("cat to the end", {"cat", "people", "--from", "1", "--count", "9223372036854775807"}, 0,
        "(rows 1 to 2 of 3)", "-------\n1    bob      42\n2    cy       27\n");
    row("cat's CSV", {"cat", "@db", "--csv", "--columns", "column2,1", "--count", "1"}, 0, "",
        "column2,column1\n31,\"a,\"\"1\"\n");
    row("cat past the end", {"cat", "@db", "--from", "3"}, 0, "past the last row, 2", "-------\n");
    row("cat of a text file", {"cat", "@text"}, 1, "is not an SQLite database");
    row("cat onto its database", {"cat", "@db", "@db"}, 1, "the database being read");
    row("export onto its database", {"export", "@db", "@db"}, 1, "the database being read");
    row("export into no directory", {"export", "@db", "@dir/no/x.csv"}, 1, "does not exist");
    row("memory of a missing file", {"memory", "/no/such/lines.txt"}, 1, "cannot read");
    row("memory walks every row once", {"memory", "@lines", "--encoding", "utf-8"}, 0,
        "(3 input line(s))", "1    c        \xe5\xb7\x9e\n2    e        f\n");
}

void tst_Zqdb::messages()
{
    QFETCH(QStringList, arguments);
    QFETCH(int, exitCode);
    QFETCH(QString, message);
    QFETCH(QString, output);
    const QString db = m_catalogue->sysDir() + "/people.db";
    QVERIFY(TestSupport::sqlite(db,
                                "CREATE TABLE table1 (id INTEGER PRIMARY KEY AUTOINCREMENT, "
                                "column1 TEXT, column2 TEXT); INSERT INTO table1 (column1, "
                                "column2) VALUES ('a,\"1', 31), ('bob', 42), ('cy', 27);"));
    const QByteArray before = TestSupport::readFile(db);
    const struct { const char *token, *file, *text; } inputs[] = {
        {"@text", "notes.txt", "just notes\n"}, {"@ragged", "ragged.csv", "a,b\nc,d,e\n"},
        {"@tabs", "tabs.txt", "a\tb\nc\td\te\n"}, {"@quote", "quote.csv", "a,b\n\"c,d\ne\n"},
        {"@fakexlsx", "notes.xlsx", "just notes\n"}, {"@utf8", "utf8.csv", "caf\xC3\xA9,1\n"},
        {"@lines", "lines.txt", "a@;!b\nc@;!\xe5\xb7\x9e\ne@;!f\n"}};
    for (const auto &input : inputs) {
        QVERIFY(TestSupport::writeFile(m_catalogue->filePath(input.file), input.text));
        arguments.replaceInStrings(input.token, m_catalogue->filePath(input.file));
    }
    arguments.replaceInStrings("@dir", m_catalogue->root()).replaceInStrings("@db", db);
    const auto files = [this] {
        return QDir(m_catalogue->root()).entryList(QDir::Files | QDir::Hidden)
                + QDir(m_catalogue->sysDir()).entryList(QDir::Files | QDir::Hidden);
    };
    const QStringList filesBefore = files();
    const Run run = zqdb(arguments);
    message.replace("@fakexlsx", m_catalogue->filePath("notes.xlsx"));
    QCOMPARE(run.exitCode, exitCode);
    QVERIFY2(run.err.contains(message)
                     && (output.isEmpty() ? run.out.isEmpty() : run.out.endsWith(output)),
             qPrintable(run.err));
    QCOMPARE(run.err.contains("--help"), exitCode == 2);
    if (exitCode != 0)
        QVERIFY(TestSupport::readFile(db) == before && files() == filesBefore);
}

void tst_Zqdb::listShowsDefaultFirst()
{
    for (const char *file : {"system/b.db", "system/a.db", "user/C.db"})
        QVERIFY(TestSupport::writeFile(m_catalogue->filePath(file), QByteArray()));
    const QStringList lines = zqdb({"list"}).out.split('\n', Qt::SkipEmptyParts);
    QVERIFY(lines.size() == 3 && lines.at(0).startsWith("* a ") && lines.at(2).startsWith("  b "));
    QVERIFY(zqdb({"list"}, {}, "/dev/full").err.contains("No space left on device"));
}

// GB2312 from standard input, GBK to standard output, UTF-8 from a file when asked.
void tst_Zqdb::encodings()
{
    const QString database = m_catalogue->filePath("s.db");
    const QString text = QString::fromUtf8("杭州,1\n");
    Run run = zqdb({"import", "-", database}, TestSupport::iconvEncode(text, "GB2312"));
    // No progress bar where standard error is no terminal.
    QVERIFY2(run.exitCode == 0 && run.out.isEmpty() && !run.err.contains('\r'), qPrintable(run.err));
    run = zqdb({"export", database, "-"});
    QCOMPARE(run.bytes, TestSupport::iconvEncode(QString::fromUtf8("1,杭州,1,\n"), "GBK"));
    QVERIFY(run.err.contains("Exported 1 row(s) of table1"));
    QCOMPARE(zqdb({"cat", database, "--csv", "-"}).out, "column1,column2\n" + text);
    run = zqdb({"cat", database, "--csv"}, {}, "/dev/full");
    QVERIFY2(run.exitCode == 1 && run.err.contains("No space left on device"), qPrintable(run.err));

    const QString source = m_catalogue->filePath("utf8.csv");
    QVERIFY(TestSupport::writeFile(source, QString::fromUtf8("北京,2\n\n杭州,1\n").toUtf8()));
    run = zqdb({"import", source, database, "--replace", "--encoding", "utf-8"});
    QVERIFY2(run.exitCode == 0 && !run.err.contains("warning"), qPrintable(run.err));
    QCOMPARE(TestSupport::sqliteQuery(database, "SELECT column1, column2 FROM table1;"),
             QString::fromUtf8("北京|2\n杭州|1"));
}

// The warning names what the line rule changed, and stays away from what it reads faithfully.
void tst_Zqdb::lineRuleWarning_data()
{
    QTest::addColumn<QByteArray>("lines");
    QTest::addColumn<QStringList>("options");
    QTest::addColumn<QStringList>("warning"); // what it says; empty: no warning
    const QString dropped = "line(s) with empty fields, which are dropped";
    const QString split = "line(s) with a quoted field holding ','";
    const auto row = [](const char *name, const QByteArray &lines, const QStringList &options,
                        const QStringList &warning) {
        QTest::newRow(name) << lines << options << warning;
    };
    row("empty fields inside", "a,b,c\nd,,f\ng,h,i\n,k,l\n", {},
        {"data of 2 line(s), the first being line 2:", "  2 " + dropped});
    row("quoted separator", "a,b\n\"x, y\",\"z\"\"\"\n", {}, {"being line 2:\n  1 " + split});
    row("both on one line", "a,,\"b,c\"\r\n", {}, {"  1 " + dropped, "  1 " + split});
    row("tab before the first value", "\tb\tc\n", {"--separator", "\t"}, {dropped});
    row("GB2312 line", "\xce\xf7\xb0\xb2,,\xc9\xc2\n", {}, {"being line 1:\n  1 " + dropped});
    row("long separator", "a::::b\n", {"--separator", "::"}, {dropped});
    row("GB18030 line rule", "a\n,b\n", {"--encoding", "gb18030"}, {"being line 2:"});
    row("trailing separators", "a,b,\nc,d,,\n\n", {}, {});
    row("quotes without separators", "\"a\",b\"c\n5\",\"6,7\n\"8,9\n", {}, {});
    row("blank fields kept", " a, ,b\n", {}, {});
    row("csv keeps them", "a,,b\n", {"--csv"}, {});
}

void tst_Zqdb::lineRuleWarning()
{
    QFETCH(QByteArray, lines);
    QFETCH(QStringList, options);
    QFETCH(QStringList, warning);
    const QString source = m_catalogue->filePath("rule.csv");
    QVERIFY(TestSupport::writeFile(source, lines));
    const Run run = zqdb(QStringList{"import", source, m_catalogue->filePath("rule.db")} + options);
    QVERIFY2(run.exitCode >= 0 && run.err.contains("line rule") != warning.isEmpty(),
             qPrintable(run.err));
    if (!warning.isEmpty())
        warning << "the line rule changes the data"
                << "--csv reads the file as CSV and keeps them.";
    for (const QString &part : warning)
        QVERIFY2(run.err.contains(part), qPrintable(run.err));
}

QTEST_GUILESS_MAIN(tst_Zqdb)
#include "tst_zqdb.moc"
