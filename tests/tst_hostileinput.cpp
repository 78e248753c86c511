// Input nobody should send, sent anyway: every call must answer through its result and log,
// leave a sound database, and never crash or hang.
#include <database/databasegenerator.h>
#include <database/memorydatabasemanager.h>
#include <database/xlsxtodbgenerator.h>

#include "testsupport.h"

#include <QRandomGenerator>
#include <QtTest>

using TestSupport::sqliteQuery;

// The bytes of a literal, embedded NULs included.
template<int N>
QByteArray bytes(const char (&literal)[N])
{
    return QByteArray(literal, N - 1);
}

class tst_HostileInput : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void textImport_data();
    void textImport();
    void hugeSingleLine();
    void lineWiderThanSqliteAllows();
    void memoryLines_data();
    void memoryLines();
    void spreadsheets_data();
    void spreadsheets();

private:
    QTemporaryDir m_dir;
};

void tst_HostileInput::initTestCase()
{
    QVERIFY(m_dir.isValid());
    Database::MemoryDatabaseManager::init();
}

void tst_HostileInput::textImport_data()
{
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<int>("rows"); // rows table1 must hold when the import succeeds; -1: any

    QRandomGenerator random(20261122);
    QByteArray noise(256 * 1024, Qt::Uninitialized);
    for (char &byte : noise)
        byte = char(random.bounded(256));
    QTest::newRow("random bytes") << noise << -1;
    QTest::newRow("NUL bytes inside fields") << bytes("a\0b,c\nd,e\0\0f\n") << 2;
    QTest::newRow("only NUL bytes") << QByteArray(4096, '\0') << -1;
    QTest::newRow("invalid GB2312 sequences")
            << QByteArray("\xff\xfe\xfd,\x81\n\xa1,\xa1\xa1\xa1\n\x80\x80,x\n") << 3;
    QTest::newRow("UTF-8 mark then invalid UTF-8")
            << QByteArray("\xef\xbb\xbf\xc3\x28,\xe2\x82\n\xf0\x9f,ok\n") << 2;
    QTest::newRow("UTF-16LE mark") << bytes("\xff\xfe"
                                            "a\0,\0b\0\n\0c\0,\0d\0\n\0")
                                   << -1;
    QTest::newRow("UTF-16BE mark") << bytes("\xfe\xff\0a\0,\0b\0\n\0c\0,\0d\0\n") << -1;
    QTest::newRow("UTF-32LE mark") << bytes("\xff\xfe\0\0a\0\0\0,\0\0\0b\0\0\0\n\0\0\0") << -1;
    QTest::newRow("lone carriage returns") << QByteArray("a,b\rc,d\re,f\r") << 1;
    QTest::newRow("control characters") << QByteArray("\x01\x02,\x1b[31m\n\x7f,\x08\n") << 2;
}

void tst_HostileInput::textImport()
{
    QFETCH(QByteArray, bytes);
    QFETCH(int, rows);
    const QString source = m_dir.filePath(QString("hostile-%1.txt").arg(QTest::currentDataTag()));
    const QString database = m_dir.filePath(QString("hostile-%1.db").arg(QTest::currentDataTag()));
    QVERIFY(TestSupport::writeFile(source, bytes));

    Database::DatabaseGenerator generator;
    const bool ok = generator.importOriginalFile(source, database);
    if (!ok) {
        QVERIFY2(!generator.getLog().isEmpty(), "a failed import must say why");
        return;
    }
    QCOMPARE(sqliteQuery(database, "PRAGMA integrity_check;"), QString("ok"));
    const int stored = sqliteQuery(database, "SELECT COUNT(*) FROM table1;").toInt();
    if (rows >= 0)
        QCOMPARE(stored, rows);
    else
        QVERIFY(stored > 0);
}

void tst_HostileInput::hugeSingleLine()
{
    // One field of 50 MB: stored whole, as one value.
    const int size = 50 * 1024 * 1024;
    const QString source = m_dir.filePath("huge-line.txt");
    {
        QFile file(source);
        QVERIFY(file.open(QIODevice::WriteOnly));
        const QByteArray block(1024 * 1024, 'x');
        for (int i = 0; i < size / block.size(); ++i)
            QVERIFY(file.write(block) == block.size());
        file.write("\n");
    }
    const QString database = m_dir.filePath("huge-line.db");
    Database::DatabaseGenerator generator;
    QVERIFY2(generator.importOriginalFile(source, database), qPrintable(generator.getLog()));
    QCOMPARE(sqliteQuery(database, "SELECT COUNT(*), length(column1) FROM table1;"),
             QString("1|%1").arg(size));
}

void tst_HostileInput::lineWiderThanSqliteAllows()
{
    // 100,000 fields on one line: more columns than SQLite accepts in a table.
    QByteArray line;
    for (int i = 0; i < 100000; ++i)
        line += "v,";
    line += '\n';
    const QString source = m_dir.filePath("wide.txt");
    QVERIFY(TestSupport::writeFile(source, line));
    const QString database = m_dir.filePath("wide.db");
    Database::DatabaseGenerator generator;
    QVERIFY(!generator.importOriginalFile(source, database));
    QCOMPARE(generator.getLog(), QString("Create database fail"));
    QCOMPARE(sqliteQuery(database, "PRAGMA integrity_check;"), QString("ok"));
}

void tst_HostileInput::memoryLines_data()
{
    QTest::addColumn<QStringList>("lines");
    QTest::addColumn<bool>("generated");

    QTest::newRow("SQL in values")
            << QStringList{"a@;!b", "x'); DROP TABLE TestTable; --@;!y"} << true;
    QTest::newRow("quotes everywhere") << QStringList{"'@;!'", "''@;!''''"} << true;
    QTest::newRow("only separators") << QStringList{"@;!@;!@;!"} << false;
    QTest::newRow("first line empty") << QStringList{"", "a@;!b"} << false;
    QTest::newRow("NUL characters")
            << QStringList{QString::fromLatin1("a\0b@;!c", 7), "d@;!e"} << true;
    QTest::newRow("three thousand columns") << QStringList{QString("v@;!").repeated(3000)} << false;
}

void tst_HostileInput::memoryLines()
{
    QFETCH(QStringList, lines);
    QFETCH(bool, generated);
    Database::MemoryDatabaseManager *memory = Database::MemoryDatabaseManager::instance();
    QCOMPARE(memory->generateDatabase("TestTable", lines), generated);
    // Whatever happened, the cursor walk and the readers stay well-behaved.
    memory->doReset();
    int visited = 0;
    do {
        memory->recordValue(1);
        memory->doNext();
    } while (!memory->isEnd() && ++visited < 100);
    QVERIFY(!memory->recordValue(-1, 0).isValid());
    QVERIFY(!memory->recordValue(0, 1 << 20).isValid());
}

void tst_HostileInput::spreadsheets_data()
{
    QTest::addColumn<QString>("fileName"); // made by tests/data/make_hostile_xlsx.py
    QTest::addColumn<QString>("log");

    QTest::newRow("shared string inflating to 1.2 GB") << "bomb-sharedstrings.xlsx"
                                                       << "Cannot open file %1 for reading.";
    QTest::newRow("sheet inflating to 1.2 GB") << "bomb-sheet.xlsx"
                                               << "Cannot open file %1 for reading.";
    QTest::newRow("500,000 nested elements") << "deep-nesting.xlsx"
                                             << "%1 has no valid data.";
    QTest::newRow("500,000 nested elements, Qt reader") << "deep-nesting-doctype.xlsx"
                                                        << "%1 has no valid data.";
}

// Refused or read as empty, through the importer's log, without exhausting memory.
void tst_HostileInput::spreadsheets()
{
    QFETCH(QString, fileName);
    QFETCH(QString, log);
    const QString source = QStringLiteral(ZQ_TEST_DATA_DIR "/") + fileName;
    QVERIFY(QFile::exists(source));
    Database::XlsxToDBGenerator generator;
    QVERIFY(!generator.importOriginalFile(source, m_dir.filePath("bomb.db")));
    QCOMPARE(generator.getLog(), log.arg(source));
}

QTEST_GUILESS_MAIN(tst_HostileInput)
#include "tst_hostileinput.moc"
