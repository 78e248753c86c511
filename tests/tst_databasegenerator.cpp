#include <database/databasegenerator.h>

#include "testsupport.h"

#include <QRandomGenerator>
#include <QSqlDatabase>
#include <QSqlError>
#include <QSqlQuery>
#include <QSqlRecord>
#include <QTextCodec>
#include <QtTest>

using Database::DatabaseGenerator;
using TestSupport::sqlite;
using TestSupport::sqliteQuery;

namespace {

QByteArray repeatLines(const QByteArray &line, int count)
{
    QByteArray bytes;
    bytes.reserve(line.size() * count);
    for (int i = 0; i < count; ++i)
        bytes += line;
    return bytes;
}

// Lines "1,a", "2,a", ... so that every row of every table can be told apart.
QByteArray numberedLines(int count, const QByteArray &suffix = ",a")
{
    QByteArray bytes;
    for (int i = 1; i <= count; ++i)
        bytes += QByteArray::number(i) + suffix + '\n';
    return bytes;
}

} // namespace

class tst_DatabaseGenerator : public QObject
{
    Q_OBJECT

private slots:
    void init();

    void separatorDefaults();
    void import_data();
    void import();
    void createStatement_data();
    void createStatement();
    void errors_data();
    void errors();
    void mismatchingTableLogsEveryRow();
    void failingRowRollsBackBatch();
    void failingBatchDoesNotStopNext();
    void batches_data();
    void batches();
    void reimportResetsIds();
    void shorterReimportKeepsExtraTables();
    void gb2312Text();
    void byteOrderMarkOnFirstLineOnly();
    void longGb2312Line();
    void matchesLineByLineReading();

private:
    bool importFile(DatabaseGenerator &generator, const QByteArray &bytes);

    QScopedPointer<QTemporaryDir> m_dir;
    QString m_source;
    QString m_database;
};

void tst_DatabaseGenerator::init()
{
    m_dir.reset(new QTemporaryDir);
    QVERIFY(m_dir->isValid());
    m_source = m_dir->filePath(QStringLiteral("source.txt"));
    m_database = m_dir->filePath(QStringLiteral("import.db"));
}

bool tst_DatabaseGenerator::importFile(DatabaseGenerator &generator, const QByteArray &bytes)
{
    if (!TestSupport::writeFile(m_source, bytes))
        return false;
    return generator.importOriginalFile(m_source, m_database);
}

void tst_DatabaseGenerator::separatorDefaults()
{
    DatabaseGenerator generator;
    QCOMPARE(generator.getSeparator(), QStringLiteral(","));
    QVERIFY(generator.getLog().isNull());
    generator.setSeparator(QStringLiteral(";"));
    QCOMPARE(generator.getSeparator(), QStringLiteral(";"));
    DatabaseGenerator copy(generator);
    QCOMPARE(copy.getSeparator(), QStringLiteral(";"));
}

void tst_DatabaseGenerator::import_data()
{
    QTest::addColumn<QString>("separator");
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<int>("columns");
    QTest::addColumn<QString>("rows"); // table1 through the sqlite3 shell, quote()d

    QTest::newRow("plain") << "," << QByteArray("a,b\nc,d\n") << 2
                           << "1|'a'|'b'\n2|'c'|'d'";
    QTest::newRow("wider seventh line pads the head")
            << "," << repeatLines("a,b,c\n", 6) + "1,2,3,4\n" << 4
            << "1|'a'|'b'|'c'|''\n2|'a'|'b'|'c'|''\n3|'a'|'b'|'c'|''\n"
               "4|'a'|'b'|'c'|''\n5|'a'|'b'|'c'|''\n6|'a'|'b'|'c'|''\n7|'1'|'2'|'3'|'4'";
    QTest::newRow("narrower line after the head padded")
            << "," << QByteArray("a,b\n,\n,\n,\n,\nc,d\ne\n") << 2
            << "1|'a'|'b'\n2|'c'|'d'\n3|'e'|''";
    QTest::newRow("empty first line, other separator inside")
            << "," << QByteArray("\na;b\nc;d\n") << 1 << "1|'a;b'\n2|'c;d'";
    QTest::newRow("separator-only lines are no rows")
            << "," << QByteArray(",,,\na,b\n,\nc,d\n") << 2 << "1|'a'|'b'\n2|'c'|'d'";
    QTest::newRow("separator-only lines count toward the head")
            << "," << repeatLines(",,\n", 5) + "a,b\na,b,c\n" << 3
            << "1|'a'|'b'|''\n2|'a'|'b'|'c'";
    QTest::newRow("line trimmed, fields keep blanks")
            << "," << QByteArray("x, y ,z\n \tp,q,r\t \n") << 3
            << "1|'x'|' y '|'z'\n2|'p'|'q'|'r'";
    QTest::newRow("empty fields dropped") << "," << QByteArray("a,,c\n") << 2 << "1|'a'|'c'";
    QTest::newRow("quotes and comment sign verbatim")
            << "," << QByteArray("\"a,b\",--x,'y');\n") << 4
            << "1|'\"a'|'b\"'|'--x'|'''y'');'";
    QTest::newRow("CRLF") << "," << QByteArray("a,b\r\nc,d\r\n") << 2
                          << "1|'a'|'b'\n2|'c'|'d'";
    QTest::newRow("no final line feed") << "," << QByteArray("a,b\nc,d") << 2
                                        << "1|'a'|'b'\n2|'c'|'d'";
    QTest::newRow("multi-character separator") << "::" << QByteArray("a::b:c\n") << 2
                                               << "1|'a'|'b:c'";
    QTest::newRow("tab separator") << "\t" << QByteArray("a\tb c\n") << 2 << "1|'a'|'b c'";
    QTest::newRow("non-ASCII separator on ASCII lines")
            << QStringLiteral("\u00a7") << QByteArray("a,b\n") << 1 << "1|'a,b'";
    QTest::newRow("empty separator, one column") << "" << QByteArray("a\nb\n") << 1
                                                 << "1|'a'\n2|'b'";
    QTest::newRow("white-space-only lines skipped") << "," << QByteArray("a\n \t \nb\n") << 1
                                                    << "1|'a'\n2|'b'";
}

void tst_DatabaseGenerator::import()
{
    QFETCH(QString, separator);
    QFETCH(QByteArray, bytes);
    QFETCH(int, columns);
    QFETCH(QString, rows);

    DatabaseGenerator generator;
    generator.setSeparator(separator);
    QVERIFY2(importFile(generator, bytes), qPrintable(generator.getLog()));
    QCOMPARE(generator.getLog(), QString());

    QStringList quoted{QStringLiteral("id")};
    for (int column = 1; column <= columns; ++column)
        quoted << QStringLiteral("quote(column%1)").arg(column);
    QCOMPARE(sqliteQuery(m_database, QStringLiteral("SELECT %1 FROM table1 ORDER BY id;")
                                             .arg(quoted.join(QLatin1Char(',')))),
             rows);
    QCOMPARE(sqliteQuery(m_database, QStringLiteral("SELECT count(*) FROM pragma_table_info('table1');")),
             QString::number(columns + 1));
    if (separator.isEmpty())
        QCOMPARE(generator.getSeparator(), QStringLiteral(","));
}

void tst_DatabaseGenerator::createStatement_data()
{
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<QString>("statement");

    QTest::newRow("one column")
            << QByteArray("a\n")
            << "CREATE TABLE table1 (id INTEGER PRIMARY KEY AUTOINCREMENT, column1 TEXT  )";
    QTest::newRow("three columns")
            << QByteArray("a,b,c\n")
            << "CREATE TABLE table1 (id INTEGER PRIMARY KEY AUTOINCREMENT, column1 TEXT ,"
               " column2 TEXT , column3 TEXT  )";
    QTest::newRow("twelve columns")
            << QByteArray("1,2,3,4,5,6,7,8,9,10,11,12\n")
            << "CREATE TABLE table1 (id INTEGER PRIMARY KEY AUTOINCREMENT, column1 TEXT ,"
               " column2 TEXT , column3 TEXT , column4 TEXT , column5 TEXT , column6 TEXT ,"
               " column7 TEXT , column8 TEXT , column9 TEXT , column10 TEXT , column11 TEXT ,"
               " column12 TEXT  )";
}

void tst_DatabaseGenerator::createStatement()
{
    QFETCH(QByteArray, bytes);
    QFETCH(QString, statement);
    DatabaseGenerator generator;
    QVERIFY2(importFile(generator, bytes), qPrintable(generator.getLog()));
    QCOMPARE(sqliteQuery(m_database, QStringLiteral("SELECT sql FROM sqlite_master WHERE name = 'table1';")),
             statement);
}

void tst_DatabaseGenerator::errors_data()
{
    QTest::addColumn<QByteArray>("bytes"); // no source file when null
    QTest::addColumn<QString>("separator");
    QTest::addColumn<QString>("database"); // "" for the test's file, else a relative path or "-"
    QTest::addColumn<QString>("setup");    // SQL run on the database file first
    QTest::addColumn<QString>("log");
    QTest::addColumn<QString>("check");    // query on the database file afterwards
    QTest::addColumn<QString>("checkResult");

    const QByteArray ab("a,b\n");
    QTest::newRow("source missing") << QByteArray() << "," << "" << "" << "Open file fail"
                                    << "" << "";
    QTest::newRow("source empty") << QByteArray("") << "," << "" << "" << "Source file empty"
                                  << "" << "";
    QTest::newRow("only separators") << QByteArray(",,\n,\n\n") << "," << "" << ""
                                     << "Source file empty" << "" << "";
    QTest::newRow("head disagrees") << QByteArray("a,b\na,b,c\n") << "," << "" << ""
                                    << "Content error" << "" << "";
    QTest::newRow("sixth head line disagrees")
            << repeatLines(ab, 5) + "a\n" << "," << "" << "" << "Content error" << "" << "";
    QTest::newRow("empty separator, several columns")
            << QByteArray("ab\ncd\n") << "" << "" << "" << "Separator empty"
            << "SELECT count(*) FROM sqlite_master;" << "0";
    QTest::newRow("empty database name") << ab << "," << "-" << "" << "Database name empty"
                                         << "" << "";
    QTest::newRow("database directory missing")
            << ab << "," << "missing/dir/x.db" << "" << "Open database file failed!" << ""
            << "";
    QTest::newRow("view in the way")
            << ab << "," << "" << "CREATE VIEW table1 AS SELECT 1;" << "Create database fail"
            << "SELECT type FROM sqlite_master WHERE name = 'table1';" << "view";
    QTest::newRow("sequence cannot be reset")
            << ab << "," << "" << "CREATE TABLE table1 (a, b); INSERT INTO table1 VALUES (1, 2);"
            << "Create database fail" << "SELECT count(*) FROM table1;" << "0";
    QTest::newRow("rows cannot be deleted")
            << ab << "," << ""
            << "CREATE TABLE table1 (id INTEGER PRIMARY KEY AUTOINCREMENT, column1 TEXT ,"
               " column2 TEXT  ); INSERT INTO table1 VALUES (NULL, 'old', 'row');"
               " CREATE TRIGGER keep BEFORE DELETE ON table1 BEGIN SELECT RAISE(ABORT, 'no'); END;"
            << "Create database fail" << "SELECT column1 FROM table1;" << "old";
}

void tst_DatabaseGenerator::errors()
{
    QFETCH(QByteArray, bytes);
    QFETCH(QString, separator);
    QFETCH(QString, database);
    QFETCH(QString, setup);
    QFETCH(QString, log);
    QFETCH(QString, check);
    QFETCH(QString, checkResult);

    if (!bytes.isNull())
        QVERIFY(TestSupport::writeFile(m_source, bytes));
    if (!setup.isEmpty())
        QVERIFY(sqlite(m_database, setup));
    QString target = m_database;
    if (database == QLatin1String("-"))
        target.clear();
    else if (!database.isEmpty())
        target = m_dir->filePath(database);

    DatabaseGenerator generator;
    generator.setSeparator(separator);
    QVERIFY(!generator.importOriginalFile(m_source, target));
    QCOMPARE(generator.getLog(), log);
    if (!check.isEmpty())
        QCOMPARE(sqliteQuery(m_database, check), checkResult);
}

// A table of other columns is reused, and every insert into it fails on its own.
void tst_DatabaseGenerator::mismatchingTableLogsEveryRow()
{
    QVERIFY(sqlite(m_database, QStringLiteral(
            "CREATE TABLE table1 (id INTEGER PRIMARY KEY AUTOINCREMENT, column1 TEXT ,"
            " column2 TEXT  ); INSERT INTO table1 VALUES (NULL, 'old', 'row');")));
    DatabaseGenerator generator;
    QVERIFY(!importFile(generator, "a,b,c\nd,e,f\ng,h,i\n"));

    const QStringList lines = generator.getLog().split(QLatin1Char('\n'));
    QCOMPARE(lines.size(), 4);
    QCOMPARE(lines.first(), QString());
    for (int row = 1; row <= 3; ++row) {
        const QString prefix = QStringLiteral("Row = %1; ").arg(row);
        QVERIFY2(lines.at(row).startsWith(prefix), qPrintable(lines.at(row)));
        QVERIFY(lines.at(row).size() > prefix.size());
        QCOMPARE(lines.at(row).mid(prefix.size()), lines.at(1).mid(prefix.size()));
    }
    QCOMPARE(sqliteQuery(m_database, QStringLiteral("SELECT count(*) FROM table1;")),
             QStringLiteral("0"));
    QCOMPARE(sqliteQuery(m_database, QStringLiteral("SELECT sql FROM sqlite_master WHERE name = 'table1';")),
             QStringLiteral("CREATE TABLE table1 (id INTEGER PRIMARY KEY AUTOINCREMENT, column1 TEXT ,"
                            " column2 TEXT  )"));
}

// Rows before and after the failing one were written already when it fails: all are undone,
// and only the failing row is logged.
void tst_DatabaseGenerator::failingRowRollsBackBatch()
{
    QVERIFY(sqlite(m_database, QStringLiteral(
            "CREATE TABLE table1 (id INTEGER PRIMARY KEY AUTOINCREMENT,"
            " column1 TEXT CHECK (column1 <> 'bad'), column2 TEXT);")));
    DatabaseGenerator generator;
    QVERIFY(!importFile(generator, "a,b\nbad,c\nd,e\nbad,f\n"));
    const QStringList lines = generator.getLog().split(QLatin1Char('\n'));
    QCOMPARE(lines.size(), 3);
    QCOMPARE(lines.at(0), QString());
    QVERIFY2(lines.at(1).startsWith(QStringLiteral("Row = 2; ")), qPrintable(lines.at(1)));
    QVERIFY2(lines.at(1).contains(QStringLiteral("CHECK constraint failed")),
             qPrintable(lines.at(1)));
    QVERIFY2(lines.at(2).startsWith(QStringLiteral("Row = 4; ")), qPrintable(lines.at(2)));
    QCOMPARE(sqliteQuery(m_database, QStringLiteral("SELECT count(*) FROM table1;")),
             QStringLiteral("0"));

    // The table stays usable: the next clean import starts at id 1.
    QVERIFY2(importFile(generator, "x,y\n"), qPrintable(generator.getLog()));
    QCOMPARE(sqliteQuery(m_database, QStringLiteral("SELECT * FROM table1;")),
             QStringLiteral("1|x|y"));
}

void tst_DatabaseGenerator::failingBatchDoesNotStopNext()
{
    QVERIFY(sqlite(m_database, QStringLiteral(
            "CREATE TABLE table1 (id INTEGER PRIMARY KEY AUTOINCREMENT, column1 TEXT);")));
    DatabaseGenerator generator;
    QVERIFY(!importFile(generator, numberedLines(50001)));
    // The log tells the last batch's result, which was clean.
    QCOMPARE(generator.getLog(), QString());
    QCOMPARE(sqliteQuery(m_database, QStringLiteral("SELECT count(*) FROM table1;")),
             QStringLiteral("0"));
    QCOMPARE(sqliteQuery(m_database, QStringLiteral("SELECT * FROM table2;")),
             QStringLiteral("1|50001|a"));
}

void tst_DatabaseGenerator::batches_data()
{
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<QString>("tables"); // name:rows:value columns, in name order

    QTest::newRow("50,000 lines") << numberedLines(50000) << "table1:50000:2";
    QTest::newRow("50,001 lines") << numberedLines(50001) << "table1:50000:2\ntable2:1:2";
    QTest::newRow("wider line in the second batch")
            << numberedLines(50000) + "x,y,z\n" << "table1:50000:2\ntable2:1:3";
    QTest::newRow("wider line ends the first batch")
            << numberedLines(49999) + "x,y,z\n1,2\n" << "table1:50000:3\ntable2:1:3";
    QTest::newRow("skipped lines do not count")
            << numberedLines(25000) + repeatLines(",\n", 10) + numberedLines(25000)
            << "table1:50000:2";
}

void tst_DatabaseGenerator::batches()
{
    QFETCH(QByteArray, bytes);
    QFETCH(QString, tables);
    DatabaseGenerator generator;
    QVERIFY2(importFile(generator, bytes), qPrintable(generator.getLog()));

    QStringList found;
    const QStringList names = sqliteQuery(m_database, QStringLiteral(
            "SELECT name FROM sqlite_master WHERE type = 'table' AND name <> 'sqlite_sequence'"
            " ORDER BY name;")).split(QLatin1Char('\n'));
    for (const QString &name : names) {
        found << name + QLatin1Char(':')
                        + sqliteQuery(m_database, QStringLiteral("SELECT count(*), min(id), max(id) FROM %1;").arg(name))
                                  .section(QLatin1Char('|'), 0, 0)
                        + QLatin1Char(':')
                        + QString::number(sqliteQuery(m_database, QStringLiteral("SELECT count(*) - 1 FROM pragma_table_info('%1');").arg(name)).toInt());
        QCOMPARE(sqliteQuery(m_database, QStringLiteral("SELECT min(id) || '-' || max(id) = '1-' || count(*) FROM %1;").arg(name)),
                 QStringLiteral("1"));
    }
    QCOMPARE(found.join(QLatin1Char('\n')), tables);
    // Every table continues the file where the one before stopped.
    if (tables.contains(QStringLiteral("table2")))
        QCOMPARE(sqliteQuery(m_database, QStringLiteral("SELECT column1 FROM table2 WHERE id = 1;")),
                 QString::fromLatin1(bytes.split('\n').at(50000).split(',').first()));
}

void tst_DatabaseGenerator::reimportResetsIds()
{
    DatabaseGenerator generator;
    QVERIFY(importFile(generator, "a,b\nc,d\ne,f\n"));
    QVERIFY(importFile(generator, "a,b\nc,d\ne,f\n"));
    QCOMPARE(sqliteQuery(m_database, QStringLiteral("SELECT id, column1 FROM table1;")),
             QStringLiteral("1|a\n2|c\n3|e"));
    QCOMPARE(sqliteQuery(m_database, QStringLiteral("SELECT seq FROM sqlite_sequence WHERE name = 'table1';")),
             QStringLiteral("3"));
}

void tst_DatabaseGenerator::shorterReimportKeepsExtraTables()
{
    DatabaseGenerator generator;
    QVERIFY(importFile(generator, numberedLines(100002, ",first")));
    QVERIFY(importFile(generator, numberedLines(50001, ",second")));
    QCOMPARE(sqliteQuery(m_database, QStringLiteral(
                     "SELECT (SELECT count(*) || column2 FROM table1),"
                     " (SELECT count(*) || column2 FROM table2),"
                     " (SELECT count(*) || column2 FROM table3);")),
             QStringLiteral("50000second|1second|2first"));
}

void tst_DatabaseGenerator::gb2312Text()
{
    const QString text = QStringLiteral("北京,上海 路\n\"中文\",数据库--\n");
    DatabaseGenerator generator;
    QVERIFY(importFile(generator, TestSupport::iconvEncode(text, "GB2312")));
    QCOMPARE(sqliteQuery(m_database, QStringLiteral("SELECT column1, column2 FROM table1;")),
             QStringLiteral("北京|上海 路\n\"中文\"|数据库--"));
}

// The mark makes the first line UTF-8; every other line is still GB2312.
void tst_DatabaseGenerator::byteOrderMarkOnFirstLineOnly()
{
    const QByteArray bytes = QByteArray("\xef\xbb\xbf") + QStringLiteral("名字,值\r\n").toUtf8()
            + TestSupport::iconvEncode(QStringLiteral("北京,上海\r\n"), "GB2312");
    DatabaseGenerator generator;
    QVERIFY(importFile(generator, bytes));
    QCOMPARE(sqliteQuery(m_database, QStringLiteral("SELECT column1, column2 FROM table1;")),
             QStringLiteral("名字|值\n北京|上海"));
}

// Longer than one QTextStream chunk and than QIODevice's buffer.
void tst_DatabaseGenerator::longGb2312Line()
{
    const QString field = QString(12000, QChar(0x4e2d));
    DatabaseGenerator generator;
    QVERIFY(importFile(generator, TestSupport::iconvEncode(QStringLiteral("a,b\n") + field
                                                                   + QStringLiteral(",x\r\n"),
                                                           "GB2312")));
    QCOMPARE(sqliteQuery(m_database, QStringLiteral("SELECT length(column1), column2 FROM table1 WHERE id = 2;")),
             QStringLiteral("12000|x"));
    QCOMPARE(sqliteQuery(m_database, QStringLiteral("SELECT column1 = '%1' FROM table1 WHERE id = 2;").arg(field)),
             QStringLiteral("1"));
}

// Random lines mixing line ends, byte-order marks, GB2312, invalid bytes and long lines must
// give the rows that reading the file line by line with QIODevice::readLine() and a
// QTextStream per line gives.
void tst_DatabaseGenerator::matchesLineByLineReading()
{
    const QByteArray pieces[] = {",",  "\r",   "\r\n",   " ",        "\t",       "ab",
                                 "\"", "--",   "\xb0\xa1", "\xc4\xe3", "\xff",     "\x80",
                                 ",,", "\xfe\xff", "\xef\xbb\xbf", "\xa1\xa1", "\xb0", "x y"};
    QTextCodec *codec = QTextCodec::codecForName("GB2312");
    for (quint32 seed = 1; seed <= 3; ++seed) {
        QRandomGenerator random(seed);
        QByteArray bytes = repeatLines("h,h\n", 6);
        for (int line = 0; line < 3000; ++line) {
            if (random.bounded(200) == 0)
                bytes += QByteArray(random.bounded(30000), 'L');
            for (int n = random.bounded(10); n > 0; --n)
                bytes += pieces[random.bounded(int(sizeof pieces / sizeof pieces[0]))];
            bytes += random.bounded(3) ? "\n" : "\r\n";
        }
        QVERIFY(TestSupport::writeFile(m_source, bytes));

        QList<QStringList> expected;
        QFile file(m_source);
        QVERIFY(file.open(QIODevice::ReadOnly | QIODevice::Text));
        while (!file.atEnd()) {
            const QByteArray line = file.readLine();
            QTextStream stream(line);
            stream.setCodec(QTextCodec::codecForUtfText(line, codec));
            const QStringList fields = stream.readAll().trimmed().split(
                    QLatin1Char(','), Qt::SkipEmptyParts);
            if (!fields.isEmpty())
                expected.append(fields);
        }

        DatabaseGenerator generator;
        const QString imported = m_dir->filePath(QStringLiteral("imported%1.db").arg(seed));
        QVERIFY2(generator.importOriginalFile(m_source, imported), qPrintable(generator.getLog()));
        // The expected rows go through QSqlQuery's binding into a file of their own, so both
        // sides meet SQLite's own handling of odd UTF-16 text.
        const QString connection = QStringLiteral("tst_reader_%1").arg(seed);
        {
            QSqlDatabase db = QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"), connection);
            db.setDatabaseName(m_dir->filePath(QStringLiteral("expected%1.db").arg(seed)));
            QVERIFY(db.open());
            QSqlQuery query(db);
            QVERIFY_SQL(query, exec(QStringLiteral("ATTACH '%1' AS imported").arg(imported)));
            QVERIFY_SQL(query, exec(QStringLiteral("SELECT * FROM imported.table1 ORDER BY id")));
            const int columns = query.record().count() - 1;
            QStringList names;
            for (int column = 1; column <= columns; ++column)
                names << QStringLiteral("column%1").arg(column);
            QVERIFY_SQL(query, exec(QStringLiteral("CREATE TABLE expected (id INTEGER PRIMARY KEY, %1)")
                                            .arg(names.join(QLatin1Char(',')))));
            QVERIFY_SQL(query, exec(QStringLiteral("BEGIN")));
            for (QStringList values : qAsConst(expected)) {
                while (values.size() < columns)
                    values << QStringLiteral("");
                QVERIFY_SQL(query, prepare(QStringLiteral("INSERT INTO expected VALUES (NULL%1)")
                                                   .arg(QStringLiteral(",?").repeated(columns))));
                for (const QString &value : qAsConst(values))
                    query.addBindValue(value);
                QVERIFY_SQL(query, exec());
            }
            QVERIFY_SQL(query, exec(QStringLiteral("COMMIT")));
            QVERIFY_SQL(query, exec(QStringLiteral(
                    "SELECT (SELECT count(*) FROM expected), (SELECT count(*) FROM imported.table1),"
                    " (SELECT count(*) FROM (SELECT * FROM expected EXCEPT SELECT * FROM imported.table1))")));
            QVERIFY(query.next());
            QCOMPARE(query.value(1).toInt(), query.value(0).toInt());
            QCOMPARE(query.value(2).toInt(), 0);
            QVERIFY(query.value(0).toInt() > 2000);
        }
        QSqlDatabase::removeDatabase(connection);
    }
}

QTEST_GUILESS_MAIN(tst_DatabaseGenerator)

#include "tst_databasegenerator.moc"
