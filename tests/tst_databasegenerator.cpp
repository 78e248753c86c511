#include <database/databasegenerator.h>
#include <database/progressscope.h>
#include <database/sqlitehandle_p.h>

#include "testsupport.h"

#include <QtSql>
#include <QtTest>

#include <QTextCodec>

#include <dlfcn.h>
#include <fcntl.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstring>

// A file that vanishes between the importer's check and its parse: the second open of this path
// unlinks it and fails as a vanished file does. The definitions below take Qt's calls to open.
static std::atomic<const char *> vanishingPath{nullptr};
static std::atomic<int> vanishingOpens{0};

template<typename Open>
static int openOrVanish(const char *name, const char *path, int flags, va_list args)
{
    const mode_t mode = (flags & (O_CREAT | O_TMPFILE)) ? mode_t(va_arg(args, int)) : 0;
    const char *watched = vanishingPath.load();
    if (watched && std::strcmp(path, watched) == 0 && ++vanishingOpens == 2) {
        ::unlink(path);
        errno = ENOENT;
        return -1;
    }
    static const auto next = reinterpret_cast<Open>(dlsym(RTLD_NEXT, name));
    return next(path, flags, mode);
}

#define ZQ_OPEN(name)                                                                              \
    extern "C" __attribute__((visibility("default"))) int name(const char *path, int flags, ...)   \
    {                                                                                              \
        va_list args;                                                                              \
        va_start(args, flags);                                                                     \
        const int fd = openOrVanish<int (*)(const char *, int, mode_t)>(#name, path, flags, args); \
        va_end(args);                                                                              \
        return fd;                                                                                 \
    }
ZQ_OPEN(open)
ZQ_OPEN(open64)

// A line as a text stream with the line's codec reads it: GB2312 unless a byte-order mark says
// otherwise.
static QString readAsTextStream(const QByteArray &line)
{
    QTextCodec *codec = QTextCodec::codecForUtfText(line, QTextCodec::codecForName("GB2312"));
#if QT_VERSION < QT_VERSION_CHECK(6, 0, 0)
    QTextStream stream(line);
    stream.setCodec(codec);
    return stream.readAll();
#else
    // Qt 6's streams take no codec; Qt 5's converts in chunks of 16 KiB with one state.
    QTextCodec::ConverterState state;
    QString text;
    for (int offset = 0; offset < line.size(); offset += 16384)
        text += codec->toUnicode(line.constData() + offset, qMin(16384, int(line.size()) - offset),
                                 &state);
    return text;
#endif
}

using Database::DatabaseGenerator;

class tst_DatabaseGenerator : public QObject
{
    Q_OBJECT

private slots:
    // Nothing of the user's is touched, whatever the library looks up.
    void initTestCase() { QStandardPaths::setTestModeEnabled(true); }
    void import_data();
    void import();
    void matchesLineByLineReading_data();
    void matchesLineByLineReading();
    void sqliteGuard();
    void sourceVanishesAfterTheCheck();
    void databaseLockedByAnotherProcess();

private:
    QString query(const QString &sql) const { return TestSupport::sqliteQuery(m_database, sql); }
    QTemporaryDir m_dir;
    QString m_source = m_dir.filePath(QStringLiteral("source.txt"));
    QString m_database;
};

void tst_DatabaseGenerator::import_data()
{
    QTest::addColumn<QByteArray>("before"); // imported first with a generator of its own
    QTest::addColumn<QByteArray>("bytes"); // no source file when null
    // setup: run on the database first; log: a regular expression, "-" clean yet a batch failed;
    // tables: table1's CREATE statement when it is expected, then every table*: its rows
    // quote()d, or name|rows|value columns|min id|max id|last column1 for ten rows and more.
    for (const char *column : {"setup", "log", "tables"})
        QTest::addColumn<QString>(column);

    const auto row = [](const char *name, const QByteArray &bytes, const QString &tables,
                        const QString &log = QString(), const QString &setup = QString(),
                        const QByteArray &before = QByteArray()) {
        QTest::newRow(name) << before << bytes << setup << log << tables;
    };
    const auto numbered = [](int count, const QByteArray &suffix = ",a") { // "1,a", "2,a", ...
        QByteArray bytes;
        for (int i = 1; i <= count; ++i)
            bytes += QByteArray::number(i) + suffix + '\n';
        return bytes;
    };
    const QString table("CREATE TABLE table1 (id INTEGER PRIMARY KEY AUTOINCREMENT, column1 TEXT%1 "
                        ", column2 TEXT);");
    row("wider seventh line pads the head", QByteArray("a,b\n").repeated(6) + "1,2,3\n",
        "CREATE TABLE table1 (id INTEGER PRIMARY KEY AUTOINCREMENT, column1 TEXT , column2 TEXT , "
        "column3 TEXT  )\n1,'a','b',''\n2,'a','b',''\n3,'a','b',''\n4,'a','b',''\n5,'a','b',''\n"
        "6,'a','b',''\n7,'1','2','3'");
    row("separator-only lines skipped, counted toward the head",
        QByteArray(",,\n").repeated(5) + "a,b\na,b,c\n", "1,'a','b',''\n2,'a','b','c'");
    row("line trimmed, fields keep blanks, empty fields dropped", "x, y ,,z\n \tp,q,r\t \n",
        "1,'x',' y ','z'\n2,'p','q','r'");
    row("byte-order mark makes its own line UTF-8, the next stays GB2312",
        "\xef\xbb\xbf" + QStringLiteral("名字,值\r\n").toUtf8()
                + TestSupport::iconvEncode(QStringLiteral("北京,上 海\r\n"), "GB2312"),
        QStringLiteral("1,'名字','值'\n2,'北京','上 海'"));
    row("source missing", QByteArray(), "", "Open file fail");
    row("only separators", ",,\n,\n\n", "", "Source file empty");
    row("more columns than SQLite allows", QByteArray("a,").repeated(2001) + "\n", "",
        "Create database fail");
    row("sixth head line disagrees", QByteArray("a,b\n").repeated(5) + "a\n", "", "Content error");
    // Reused as it is, neither dropped nor widened: every row fails.
    row("existing table of other columns", "a,b,c\nd,e,f\n", "",
        "\nRow = 1; [^\n]+\nRow = 2; [^\n]+", table.arg(""));
    // The direct path has written rows when one fails: the exact path takes the batch over.
    const QString twoFail("\nRow = 2; [^\n]+\nRow = 4; [^\n]+");
    const QByteArray bad("a,b\nbad,c\nd,e\nbad,f\n");
    row("failing rows roll the batch back", bad, "", twoFail, table.arg(" CHECK (column1 <> 'bad')"));
    // SQLite ends the transaction itself: the rows after the failing one must not commit.
    row("constraint ends the transaction", "b,1\nb,2\nc,3\nc,4\n", "", twoFail,
        table.arg(" UNIQUE ON CONFLICT ROLLBACK"));
    row("trigger ends the transaction", bad, "", twoFail,
        table.arg("") + "CREATE TRIGGER t BEFORE INSERT ON table1 WHEN NEW.column1 = 'bad' "
                        "BEGIN SELECT RAISE(ROLLBACK, 'no'); END;");
    row("50,000 rows among skipped lines",
        numbered(25000) + QByteArray(",\n").repeated(10) + numbered(25000), "table1|50000|2|1|50000|25000");
    row("column count keeps growing across batches", numbered(49999) + "x,y,z\n1,2\n",
        "table1|50000|3|1|50000|x\n1,'1','2',''");
    row("failing first batch does not stop the second", numbered(50001), "\n1,'50001','a'", "-",
        "CREATE TABLE table1 (a);");
    row("cancelled in the second batch", numbered(100001), "table1|50000|2|1|50000|50000",
        "Import cancelled");
    row("re-import restarts ids, keeps extra tables", numbered(50001, ",b"),
        "table1|50000|2|1|50000|50000\n1,'50001','b'\n1,'100001','a'\n2,'100002','a'", "", "",
        numbered(100002));
}

void tst_DatabaseGenerator::import()
{
    QFETCH(QByteArray, before);
    QFETCH(QByteArray, bytes);
    QFETCH(QString, setup);
    QFETCH(QString, log);
    QFETCH(QString, tables);

    m_database = m_dir.filePath(QString(QTest::currentDataTag()) + ".db");
    QVERIFY(setup.isEmpty() || TestSupport::sqlite(m_database, setup));
    QVERIFY(before.isEmpty()
            || (TestSupport::writeFile(m_source, before)
                && DatabaseGenerator().importOriginalFile(m_source, m_database)));
    QFile::remove(m_source);
    QVERIFY(bytes.isNull() || TestSupport::writeFile(m_source, bytes));
    DatabaseGenerator generator;
    QList<qint64> done; // done, total, ...: from 0, never back, to the file's bytes
    Database::ProgressScope scope([&](qint64 value, qint64 total) {
        done << value << total;
        return log != "Import cancelled" || value <= total / 2;
    });
    QCOMPARE(generator.importOriginalFile(m_source, m_database), log.isEmpty());
    for (int i = 2; i < done.size(); i += 2)
        QVERIFY(done.at(i) >= done.at(i - 2) && done.at(i + 1) == bytes.size() && done.size() < 800);
    QVERIFY(done.isEmpty()
            || (done.first() == 0 && done.size() > bytes.count('\n') / 25000
                && (done.at(done.size() - 2) == bytes.size()) == (log != "Import cancelled")));
    const QRegularExpression expected(QRegularExpression::anchoredPattern(log == "-" ? "" : log));
    QVERIFY2(expected.match(generator.getLog()).hasMatch(), qPrintable(generator.getLog()));
    QStringList found;
    if (tables.startsWith(QLatin1String("CREATE")))
        found << query(QStringLiteral("SELECT sql FROM sqlite_master WHERE name = 'table1';"));
    for (const QString &name : query("SELECT name FROM sqlite_master WHERE name GLOB 'table*' "
                                     "ORDER BY name;").split(QLatin1Char('\n'))) {
        const bool big = query(QStringLiteral("SELECT count(*) >= 10 FROM %1;").arg(name)) == "1";
        found << query((big ? QStringLiteral("SELECT '%1', count(*), (SELECT count(*) - 1 FROM "
                                             "pragma_table_info('%1')), min(id), max(id), (SELECT "
                                             "column1 FROM %1 ORDER BY id DESC LIMIT 1) FROM %1;")
                            : QStringLiteral(".mode quote\nSELECT * FROM %1 ORDER BY rowid;")).arg(name));
    }
    QCOMPARE(found.join(QLatin1Char('\n')), tables);
}

// Crafted files put CRs and line ends at the edges of QIODevice's 16 KiB buffer and of the line
// reader's 1 MiB block; random ones mix line ends, byte-order marks, GB2312, invalid bytes,
// lone surrogates, U+FFFE / U+FFFF and long lines.
void tst_DatabaseGenerator::matchesLineByLineReading_data()
{
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<QString>("separator"); // ASCII, several bytes, and a GB2312 character
    const QByteArray head = QByteArray("h,h\n").repeated(6);
    const auto edge = [&](int size, const QByteArray &tail) {
        return head + QByteArray(size - head.size() - 1, 'x') + tail;
    };
    QTest::newRow("CRLF across buffer end") << edge(16384, "\r\nb\r1\r2\r\n") << QStringLiteral(",");
    QTest::newRow("LF at buffer end") << edge(16384, "\nb\rc\n") << QStringLiteral(",");
    QTest::newRow("CRLF across block end") << edge(1 << 20, "\r\nb\r\n") << QStringLiteral(",");
    // The reader hands the decoder an empty line for a lone CR that opens a new chunk.
    QTest::newRow("lone CR after a chunk") << edge(16384, "\n\r") << QStringLiteral("啊");
    QTest::newRow("lines longer than a block") << edge(3 << 20, "\r\n,\r\nend") << QStringLiteral(",");
    const QByteArray pieces[] = {",", "\r", "\r\n", " ", "\t", "ab", "\"", "--", "\xb0\xa1", "\xff",
                                 "\x80", ",,", "\xfe\xff", "\xef\xbb\xbf", "\xa1\xa1", "\xb0", "x y",
                                 "\xff\xfe", QByteArray("\0\xd8", 2), QByteArray("\0\xdc", 2), "\xff\xff"};
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
        QTest::addRow("random %u", seed)
                << bytes << QStringList{",", "--", QStringLiteral("啊")}.at(int(seed) - 1);
    }
}

// Every line gives the row that QIODevice::readLine() and a QTextStream per line give, stored as
// QSQLITE stores it: the values are bound through QSQLITE to compare.
void tst_DatabaseGenerator::matchesLineByLineReading()
{
    QFETCH(QByteArray, bytes);
    QFETCH(QString, separator);
    m_database = m_dir.filePath(QString(QTest::currentDataTag()) + ".db");
    DatabaseGenerator generator;
    generator.setSeparator(separator);
    QVERIFY(TestSupport::writeFile(m_source, bytes)
            && generator.importOriginalFile(m_source, m_database));

    const QString names = query("SELECT group_concat(name) FROM pragma_table_info('table1');");
    const int columns = names.count(QLatin1Char(',')) + 1;
    QFile file(m_source);
    QSqlDatabase db = QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"), QTest::currentDataTag());
    db.setDatabaseName(m_database);
    QSqlQuery sql(db);
    QVERIFY(file.open(QIODevice::ReadOnly | QIODevice::Text) && db.open()
            && sql.prepare(QStringLiteral("SELECT count(*) FROM table1 WHERE (%1) = (%2)")
                                   .arg(names, QString("?,").repeated(columns).chopped(1))));
    int rows = 0;
    while (!file.atEnd()) {
        const QByteArray line = file.readLine();
        QStringList values = readAsTextStream(line).trimmed().split(separator, Qt::SkipEmptyParts);
        if (values.isEmpty())
            continue;
        values.prepend(QString::number(++rows));
        while (values.size() < columns)
            values << QStringLiteral("");
        for (const QString &value : qAsConst(values))
            sql.addBindValue(value);
        QVERIFY2(sql.exec() && sql.next() && sql.value(0).toInt() == 1, qPrintable(values.join(',')));
    }
    QCOMPARE(query(QStringLiteral("SELECT count(*) FROM table1;")), QString::number(rows));
}

// The direct path takes the driver's handle only when the plug-in calls this library's SQLite,
// not when it bundles its own (the fake module) or has none.
void tst_DatabaseGenerator::sqliteGuard()
{
    QVERIFY(dlopen(FAKE_SQLITE_MODULE, RTLD_NOW | RTLD_LOCAL) && dlopen(ZQCORE_FILE, RTLD_NOW));
    const QByteArray plugin =
            Database::driverModuleFile(QSqlDatabase::addDatabase("QSQLITE", "guard").driver());
    QVERIFY(plugin.contains("qsqlite") && Database::moduleSharesSqlite(plugin));
    QVERIFY(!Database::moduleSharesSqlite(FAKE_SQLITE_MODULE));
    QVERIFY(!Database::moduleSharesSqlite(ZQCORE_FILE));
}

// The parse opens the file anew: a file gone by then fails with its own message and code.
void tst_DatabaseGenerator::sourceVanishesAfterTheCheck()
{
    m_database = m_dir.filePath(QStringLiteral("vanished.db"));
    QVERIFY(TestSupport::writeFile(m_source, "a,b\nc,d\n"));
    const QByteArray path = QFile::encodeName(m_source);
    vanishingOpens = 0;
    vanishingPath = path.constData();
    DatabaseGenerator generator;
    const bool imported = generator.importOriginalFile(m_source, m_database);
    vanishingPath = nullptr;
    QCOMPARE(vanishingOpens.load(), 2);
    QVERIFY(!imported && !QFile::exists(m_source) && !QFile::exists(m_database));
    QCOMPARE(generator.getLog(), QString("Cannot open file %1 for reading.").arg(m_source));
}

// Another process holds the database: the batch fails with a described message, and the other
// process's rows stay as they were.
void tst_DatabaseGenerator::databaseLockedByAnotherProcess()
{
    m_database = m_dir.filePath(QStringLiteral("locked.db"));
    QVERIFY(TestSupport::sqlite(m_database, "CREATE TABLE table1 (id INTEGER PRIMARY KEY "
            "AUTOINCREMENT, column1 TEXT); INSERT INTO table1 (column1) VALUES ('theirs');"));
    QProcess holder;
    holder.start(QStringLiteral("sqlite3"), {m_database});
    holder.write("BEGIN IMMEDIATE;\nSELECT 'locked';\n");
    QVERIFY(holder.waitForReadyRead(10000) && holder.readAll().contains("locked"));
    QVERIFY(TestSupport::writeFile(m_source, "mine\n"));
    DatabaseGenerator generator;
    const bool imported = generator.importOriginalFile(m_source, m_database);
    holder.write("COMMIT;\n.quit\n");
    holder.closeWriteChannel();
    QVERIFY(holder.waitForFinished(10000) && !imported);
    QVERIFY2(QRegularExpression("^(Create database fail|Database transaction error!|Open database "
                                "file failed!|Database commit error)").match(generator.getLog()).hasMatch(),
             qPrintable(generator.getLog()));
    QCOMPARE(query("SELECT group_concat(column1) FROM table1;"), QString("theirs"));
}

QTEST_GUILESS_MAIN(tst_DatabaseGenerator)

#include "tst_databasegenerator.moc"
