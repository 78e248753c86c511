#include <database/databasegenerator.h>
#include <database/sqlitehandle_p.h>

#include "testsupport.h"

#include <QtSql>
#include <QtTest>

#include <dlfcn.h>

using Database::DatabaseGenerator;
using TestSupport::iconvEncode;

namespace {

// Lines "1,a", "2,a", ... so that every row of every table can be told apart.
QByteArray numberedLines(int count, const QByteArray &suffix = ",a")
{
    QByteArray bytes;
    for (int i = 1; i <= count; ++i)
        bytes += QByteArray::number(i) + suffix + '\n';
    return bytes;
}

// Run by SQLite on every connection it opens: foreign keys on, as an SQLite built with them on
// by default has it, so that a deferred key fails the COMMIT rather than an insert.
int enableForeignKeys(void *db, const char **, const void *)
{
    const auto exec = reinterpret_cast<int (*)(void *, const char *, void *, void *, char **)>(
            dlsym(RTLD_DEFAULT, "sqlite3_exec"));
    return exec(db, "PRAGMA foreign_keys = ON", nullptr, nullptr, nullptr);
}

} // namespace

class tst_DatabaseGenerator : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init();
    void import_data();
    void import();
    void batches_data();
    void batches();
    void matchesLineByLineReading_data();
    void matchesLineByLineReading();
    void sqliteGuard_data();
    void sqliteGuard();

private:
    bool importFile(DatabaseGenerator &generator, const QByteArray &bytes)
    {
        return TestSupport::writeFile(m_source, bytes)
                && generator.importOriginalFile(m_source, m_database);
    }
    QString query(const QString &sql) const { return TestSupport::sqliteQuery(m_database, sql); }

    QTemporaryDir m_dir;
    int m_run = 0;
    QString m_source;
    QString m_database;
};

void tst_DatabaseGenerator::initTestCase()
{
    // SQLite is the driver's library, which the test does not link itself.
    const auto autoExtension = reinterpret_cast<int (*)(void (*)())>(
            dlsym(RTLD_DEFAULT, "sqlite3_auto_extension"));
    QVERIFY(m_dir.isValid() && autoExtension && dlsym(RTLD_DEFAULT, "sqlite3_exec"));
    QCOMPARE(autoExtension(reinterpret_cast<void (*)()>(enableForeignKeys)), 0);
}

// Files of earlier tests stay: the shared import connection reopens the last one it used.
void tst_DatabaseGenerator::init()
{
    m_source = m_dir.filePath(QStringLiteral("source%1.txt").arg(++m_run));
    m_database = m_dir.filePath(QStringLiteral("import%1.db").arg(m_run));
}

// A row: importing bytes split by separator into a database file prepared with setup gives
// log (a regular expression, empty for success), table1 holding rows (every column quote()d,
// through the sqlite3 shell) and, when given, table1's CREATE statement.
void addImport(const char *name, const QString &separator, const QByteArray &bytes,
               const QString &rows, const QString &log = QString(),
               const QString &setup = QString(), const QString &statement = QString(),
               const QString &database = QString()) // "-" for none, else a relative path
{
    QTest::newRow(name) << bytes << separator << rows << log << setup << statement << database;
}

void tst_DatabaseGenerator::import_data()
{
    QTest::addColumn<QByteArray>("bytes"); // no source file when null
    for (const char *column : {"separator", "rows", "log", "setup", "statement", "database"})
        QTest::addColumn<QString>(column);

    const QString created("CREATE TABLE table1 (id INTEGER PRIMARY KEY AUTOINCREMENT,");
    addImport("wider seventh line pads the head with ''", ",",
              QByteArray("a,b,c\n").repeated(6) + "1,2,3,4\n",
              "1|'a'|'b'|'c'|''\n2|'a'|'b'|'c'|''\n3|'a'|'b'|'c'|''\n"
              "4|'a'|'b'|'c'|''\n5|'a'|'b'|'c'|''\n6|'a'|'b'|'c'|''\n7|'1'|'2'|'3'|'4'");
    addImport("separator-only lines skipped, counted toward the head", ",",
              QByteArray(",,\n").repeated(5) + "a,b\na,b,c\n", "1|'a'|'b'|''\n2|'a'|'b'|'c'", "",
              "", created + " column1 TEXT , column2 TEXT , column3 TEXT  )");
    addImport("blank lines skipped, other separator inside", ",", "\na;b\n \t \nc;d\n",
              "1|'a;b'\n2|'c;d'", "", "", created + " column1 TEXT  )");
    addImport("line trimmed, fields keep blanks, empty fields dropped", ",",
              "x, y ,,z\n \tp,q,r\t \n", "1|'x'|' y '|'z'\n2|'p'|'q'|'r'");
    addImport("quotes and comment sign verbatim", ",", "\"a,b\",--x,'y');\n",
              "1|'\"a'|'b\"'|'--x'|'''y'');'");
    addImport("CRLF, no final line end", ",", "a,b\r\nc,d", "1|'a'|'b'\n2|'c'|'d'");
    addImport("multi-character separator", "::", "a::b:c\n", "1|'a'|'b:c'");
    addImport("non-ASCII separator", QStringLiteral("\u00a7"), "a,b\n", "1|'a,b'");
    addImport("empty separator, one column", "", "a\nb\n", "1|'a'\n2|'b'");
    addImport("GB2312", ",", iconvEncode(QStringLiteral("北京,上海 路\n\"中文\",数据库--\n"), "GB2312"),
              QStringLiteral("1|'北京'|'上海 路'\n2|'\"中文\"'|'数据库--'"));
    addImport("byte-order mark makes its own line UTF-8, the next stays GB2312", ",",
              "\xef\xbb\xbf" + QStringLiteral("名字,值\r\n").toUtf8()
                      + iconvEncode(QStringLiteral("北京,上海\r\n"), "GB2312"),
              QStringLiteral("1|'名字'|'值'\n2|'北京'|'上海'"));
    // Longer than one QTextStream chunk and than QIODevice's buffer.
    const QString longField(12000, QChar(0x4e2d));
    addImport("GB2312 line longer than a chunk", ",",
              iconvEncode("a,b\n" + longField + ",x\r\n", "GB2312"),
              QStringLiteral("1|'a'|'b'\n2|'%1'|'x'").arg(longField));

    const QByteArray ab("a,b\n");
    const QString table = created + " column1 TEXT %1, column2 TEXT);";
    const QString oldRow(" INSERT INTO table1 VALUES (NULL, 'old', 'row');");
    addImport("source missing", ",", QByteArray(), "", "Open file fail");
    addImport("only separators", ",", ",,\n,\n\n", "", "Source file empty");
    addImport("sixth head line disagrees", ",", ab.repeated(5) + "a\n", "", "Content error");
    addImport("empty separator, several columns", "", "ab\ncd\n", "", "Separator empty");
    addImport("empty database name", ",", ab, "", "Database name empty", "", "", "-");
    addImport("database directory missing", ",", ab, "", "Open database file failed!", "", "",
              "missing/dir/x.db");
    addImport("view in the way", ",", ab, "1", "Create database fail",
              "CREATE VIEW table1 AS SELECT 1;", "CREATE VIEW table1 AS SELECT 1");
    addImport("sequence cannot be reset", ",", ab, "", "Create database fail",
              "CREATE TABLE table1 (a, b); INSERT INTO table1 VALUES (1, 2);");
    addImport("rows cannot be deleted", ",", ab, "1|'old'|'row'", "Create database fail",
              table.arg("") + oldRow
                      + "CREATE TRIGGER keep BEFORE DELETE ON table1 BEGIN SELECT RAISE(ABORT, 'no'); END;");
    // Reused as it is, neither dropped nor widened: every row fails.
    addImport("existing table of other columns", ",", "a,b,c\nd,e,f\ng,h,i\n", "",
              "\nRow = 1; [^\n]+\nRow = 2; [^\n]+\nRow = 3; [^\n]+", table.arg("") + oldRow,
              table.arg("").chopped(1));
    // The fast path has written row 1 when row 2 fails: the exact path takes the batch over.
    addImport("failing rows roll the batch back", ",", "a,b\nbad,c\nd,e\nbad,f\n", "",
              "\nRow = 2; [^\n]*CHECK constraint failed[^\n]*\nRow = 4; [^\n]+",
              table.arg("CHECK (column1 <> 'bad')"));
    // SQLite ends the transaction itself: the rows after the failing one must not commit.
    const QString twoFail("\nRow = 2; [^\n]+\nRow = 4; [^\n]+");
    addImport("constraint ends the transaction", ",", "b,1\nb,2\nc,3\nc,4\n", "", twoFail,
              table.arg("UNIQUE ON CONFLICT ROLLBACK"));
    addImport("trigger ends the transaction", ",", "a,b\nbad,c\nd,e\nbad,f\n", "", twoFail,
              table.arg("") + "CREATE TRIGGER t BEFORE INSERT ON table1 WHEN NEW.column1 = "
                              "'bad' BEGIN SELECT RAISE(ROLLBACK, 'no'); END;");
    addImport("commit fails", ",", ab, "", "FOREIGN KEY constraint failed[^\n]*",
              "CREATE TABLE parent (x PRIMARY KEY); "
                      + table.arg("REFERENCES parent DEFERRABLE INITIALLY DEFERRED"));
}

void tst_DatabaseGenerator::import()
{
    QFETCH(QByteArray, bytes);
    QFETCH(QString, separator);
    QFETCH(QString, rows);
    QFETCH(QString, log);
    QFETCH(QString, setup);
    QFETCH(QString, statement);
    QFETCH(QString, database);

    QVERIFY(bytes.isNull() || TestSupport::writeFile(m_source, bytes));
    QVERIFY(setup.isEmpty() || TestSupport::sqlite(m_database, setup));
    DatabaseGenerator generator;
    if (separator != QLatin1String(",")) // the other rows rely on "," being the default
        generator.setSeparator(separator);
    const QString target = database == QLatin1String("-") ? QString()
            : database.isEmpty() ? m_database : m_dir.filePath(database);
    QCOMPARE(generator.importOriginalFile(m_source, target), log.isEmpty());
    QVERIFY2(QRegularExpression(QRegularExpression::anchoredPattern(log))
                     .match(generator.getLog()).hasMatch(),
             qPrintable(generator.getLog()));
    const QString columns = query(QStringLiteral(
            "SELECT group_concat('quote(' || name || ')') FROM pragma_table_info('table1');"));
    QCOMPARE(query(QStringLiteral("SELECT %1 FROM table1 ORDER BY rowid;").arg(columns)), rows);
    if (!statement.isEmpty())
        QCOMPARE(query(QStringLiteral("SELECT sql FROM sqlite_master WHERE name = 'table1';")),
                 statement);
    if (log.isEmpty())
        QCOMPARE(generator.getSeparator(), separator.isEmpty() ? QStringLiteral(",") : separator);
}

void tst_DatabaseGenerator::batches_data()
{
    QTest::addColumn<QByteArray>("before"); // imported into the database file first
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<QString>("tables"); // name|rows|value columns|min id|max id|last column1

    QTest::newRow("50,000 rows among skipped lines") << QByteArray()
            << numberedLines(25000) + QByteArray(",\n").repeated(10) + numberedLines(25000)
            << "table1|50000|2|1|50000|25000";
    QTest::newRow("column count keeps growing across batches")
            << QByteArray() << numberedLines(49999) + "x,y,z\n1,2\n"
            << "table1|50000|3|1|50000|x\ntable2|1|3|1|1|1";
    // The log tells the last batch's result, which is clean.
    QTest::newRow("failing first batch does not stop the second")
            << QByteArray("x\n") << numberedLines(50001)
            << "table1|0|1|||\ntable2|1|2|1|1|50001";
    QTest::newRow("re-import restarts ids, keeps extra tables")
            << numberedLines(100002) << numberedLines(50001, ",b")
            << "table1|50000|2|1|50000|50000\ntable2|1|2|1|1|50001\ntable3|2|2|1|2|100002";
}

void tst_DatabaseGenerator::batches()
{
    QFETCH(QByteArray, before);
    QFETCH(QByteArray, bytes);
    QFETCH(QString, tables);

    DatabaseGenerator generator;
    QVERIFY(before.isEmpty() || importFile(generator, before));
    // A table left empty is a batch that failed.
    QCOMPARE(importFile(generator, bytes), !tables.contains(QStringLiteral("|0|")));
    QCOMPARE(generator.getLog(), QString());
    QStringList found;
    const QString names = query(QStringLiteral(
            "SELECT name FROM sqlite_master WHERE name GLOB 'table*' ORDER BY name;"));
    for (const QString &name : names.split(QLatin1Char('\n')))
        found << query(QStringLiteral(
                "SELECT '%1', count(*), (SELECT count(*) - 1 FROM pragma_table_info('%1')), min(id),"
                " max(id), (SELECT column1 FROM %1 ORDER BY id DESC LIMIT 1) FROM %1;").arg(name));
    QCOMPARE(found.join(QLatin1Char('\n')), tables);
}

// Crafted files put CRs and line ends at the edges of QIODevice's 16 KiB buffer and of the line
// reader's 1 MiB block; random ones mix line ends, byte-order marks, GB2312, invalid bytes,
// lone surrogates, U+FFFE / U+FFFF and long lines.
void tst_DatabaseGenerator::matchesLineByLineReading_data()
{
    QTest::addColumn<QByteArray>("bytes");
    const QByteArray head = QByteArray("h,h\n").repeated(6);
    const auto edge = [&](int size, int before, const QByteArray &tail) {
        return head + QByteArray(size - head.size() - before, 'x') + tail;
    };
    const int chunk = 16384;
    QTest::newRow("CRs before buffer end") << edge(chunk, 5, "\r1\r2\r3\r\nq\rq\r\n");
    QTest::newRow("CRLF across buffer end") << edge(chunk, 1, "\r\nb\r\n");
    QTest::newRow("LF at buffer end") << edge(chunk, 1, "\nb\rc\n");
    QTest::newRow("chunk-long line, CRLF") << edge(2 * chunk + head.size(), 0, "\r\r\nz\r\n");
    QTest::newRow("CRLF across block end") << edge(1 << 20, 1, "\r\nb\r\n");
    QTest::newRow("lines longer than a block") << edge(3 << 20, 0, "\r\n,\r\nend");

    const QByteArray pieces[] = {",", "\r", "\r\n", " ", "\t", "ab", "\"", "--", "\xb0\xa1",
                                 "\xc4\xe3", "\xff", "\x80", ",,", "\xfe\xff", "\xef\xbb\xbf",
                                 "\xa1\xa1", "\xb0", "x y", "\xff\xfe", QByteArray("\0\xd8", 2),
                                 QByteArray("\0\xdc", 2), "\xff\xff", "\xfe\xff\xff"};
    for (quint32 seed = 1; seed <= 3; ++seed) {
        QRandomGenerator random(seed);
        QByteArray bytes = head;
        for (int line = 0; line < 5000; ++line) {
            if (random.bounded(200) == 0)
                bytes += QByteArray(random.bounded(30000), 'L');
            for (int n = random.bounded(10); n > 0; --n)
                bytes += pieces[random.bounded(int(sizeof pieces / sizeof *pieces))];
            bytes += random.bounded(3) ? "\n" : "\r\n";
        }
        QTest::addRow("random %u", seed) << bytes;
    }
}

// Every line gives the row that QIODevice::readLine() and a QTextStream per line give, stored as
// QSQLITE stores it: the values are bound through QSQLITE to compare.
void tst_DatabaseGenerator::matchesLineByLineReading()
{
    QFETCH(QByteArray, bytes);
    DatabaseGenerator generator;
    QVERIFY2(importFile(generator, bytes), qPrintable(generator.getLog()));

    QStringList conditions{QStringLiteral("id = ?")};
    const int columns = query(QStringLiteral("SELECT count(*) FROM pragma_table_info('table1');")).toInt();
    for (int column = 1; column < columns; ++column)
        conditions << QStringLiteral("column%1 = ?").arg(column);
    QFile file(m_source);
    QVERIFY(file.open(QIODevice::ReadOnly | QIODevice::Text));
    int rows = 0;
    {
        QSqlDatabase db = QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"), QStringLiteral("tst_reading"));
        db.setDatabaseName(m_database);
        QSqlQuery sql(db);
        QVERIFY(db.open() && sql.prepare("SELECT count(*) FROM table1 WHERE " + conditions.join(" AND ")));
        while (!file.atEnd()) {
            const QByteArray line = file.readLine();
            QTextStream stream(line);
            stream.setCodec(QTextCodec::codecForUtfText(line, QTextCodec::codecForName("GB2312")));
            QStringList values = stream.readAll().trimmed().split(QLatin1Char(','), Qt::SkipEmptyParts);
            if (values.isEmpty())
                continue;
            values.prepend(QString::number(++rows));
            while (values.size() < columns)
                values << QStringLiteral("");
            for (const QString &value : qAsConst(values))
                sql.addBindValue(value);
            QVERIFY_SQL(sql, exec());
            QVERIFY2(sql.next() && sql.value(0).toInt() == 1, qPrintable(values.join(',')));
        }
    }
    QSqlDatabase::removeDatabase(QStringLiteral("tst_reading"));
    QVERIFY(rows > 6);
    QCOMPARE(query(QStringLiteral("SELECT count(*) FROM table1;")), QString::number(rows));
}

void tst_DatabaseGenerator::sqliteGuard_data()
{
    QTest::addColumn<QByteArray>("module"); // empty: the QSQLITE plug-in
    QTest::addColumn<bool>("shares");
    QTest::newRow("plug-in on the system SQLite") << QByteArray() << true;
    QTest::newRow("module bundling its own SQLite") << QByteArray(FAKE_SQLITE_MODULE) << false;
    QTest::newRow("module without SQLite") << QByteArray(ZQCORE_LIBRARY_FILE) << false;
    QTest::newRow("module not loaded") << QByteArray("/nonexistent/libqsqlite.so") << false;
}

// The C API path takes the driver's handle only when the plug-in calls our SQLite.
void tst_DatabaseGenerator::sqliteGuard()
{
    QFETCH(QByteArray, module);
    QFETCH(bool, shares);
    const QSqlDatabase db = QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"), QStringLiteral("guard"));
    void *loaded = module.isEmpty() || module.startsWith("/nonexistent")
            ? nullptr : dlopen(module.constData(), RTLD_NOW | RTLD_LOCAL);
    if (module.isEmpty())
        module = Database::driverModuleFile(db.driver());
    QVERIFY(module.contains("libqsqlite") || loaded);
    QCOMPARE(Database::moduleSharesSqlite(module), shares);
    if (loaded)
        dlclose(loaded);
}

QTEST_GUILESS_MAIN(tst_DatabaseGenerator)

#include "tst_databasegenerator.moc"
