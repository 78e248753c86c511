#include <database/progressscope.h>
#include <database/xlsxtodbgenerator.h>
#include <core/xlsxreader.h>

#include "testsupport.h"
#include "xlsxfixture.h"
#include "xlsxparts.h"

#include <QtTest>

#include <malloc.h>

using Database::XlsxToDBGenerator;
using TestSupport::sqliteQuery;

class tst_XlsxToDBGenerator : public QObject
{
    Q_OBJECT

private slots:
    // Nothing of the user's is touched, whatever the library looks up.
    void initTestCase() { QStandardPaths::setTestModeEnabled(true); }
    void import_data();
    void import();
    void sheets_data();
    void sheets();
    void byteOrderMarks();
    void largeSharedStrings_data();
    void largeSharedStrings();
    void memoryIsFlat();

private:
    QTemporaryDir m_dir;
};

void tst_XlsxToDBGenerator::import_data()
{
    // rows: of a sheet of 3 "r<row>c<column>" cells each, -1 no file; setup: run on the database
    // first, "garbage" not a database; tables: table1's rows|min id|min column1; the tables.
    QTest::addColumn<int>("rows");
    for (const char *column : {"setup", "log", "tables"})
        QTest::addColumn<QString>(column);

    const QString table("CREATE TABLE table1 (id INTEGER PRIMARY KEY AUTOINCREMENT, column1 TEXT, "
                        "column2 TEXT%1); INSERT INTO table1 (column1) VALUES ('old');");
    QTest::newRow("every row, the first one included") << 3 << "" << "" << "3|1|r1c1;table1";
    QTest::newRow("narrower table, next batch commits") << 50001 << table.arg("")
            << "Database commit error" << "0||;table1,table2";
    // The trigger ends the transaction, so a row tried after it would commit on its own.
    QTest::newRow("stops at the first bad row") << 3
            << table.arg(", column3 TEXT") + "CREATE TRIGGER bad BEFORE INSERT ON table1 WHEN "
                                             "NEW.column1 = 'r2c1' BEGIN SELECT RAISE(ROLLBACK, 'bad'); END;"
            << "Database commit error" << "0||;table1";
    // Cancelled at the first report past half the rows: the committed table stays whole.
    QTest::newRow("cancelled") << 100001 << "" << "Import cancelled" << "50000|1|r10000c1;table1";
    QTest::newRow("missing file") << -1 << "" << "Cannot open file %1 for reading." << ";";
    QTest::newRow("empty sheet") << 0 << "" << "%1 has no valid data." << ";";
    QTest::newRow("not a database") << 2 << "garbage" << "Create database error" << ";";
}

// A failed batch is rolled back whole and the log tells only that; later batches still commit.
// Reports start at 0, never go back and end at the sheet's rows, at least one per batch.
void tst_XlsxToDBGenerator::import()
{
    QFETCH(int, rows);
    QFETCH(QString, setup);
    QFETCH(QString, log);
    QFETCH(QString, tables);

    const QString file = m_dir.filePath(QString(QTest::currentDataTag()) + ".xlsx");
    const QString database = m_dir.filePath(QString(QTest::currentDataTag()) + ".db");
    QVERIFY(rows < 0 || TestSupport::writeXlsxGrid(file, rows, 3));
    QVERIFY(setup != "garbage" || TestSupport::writeFile(database, QByteArray(4096, 'x')));
    QVERIFY(setup.isEmpty() || setup == "garbage" || TestSupport::sqlite(database, setup));
    XlsxToDBGenerator generator;
    QList<qint64> done; // done, total, done, total, ...
    Database::ProgressScope scope([&](qint64 value, qint64 total) {
        done << value << total;
        return log != "Import cancelled" || value <= total / 2;
    });
    QCOMPARE(generator.importOriginalFile(file, database), log.isEmpty());
    for (int i = 2; i < done.size(); i += 2)
        QVERIFY(done.at(i) >= done.at(i - 2) && done.at(i + 1) == rows && done.size() < 800);
    QVERIFY(done.isEmpty()
            || (done.first() == 0 && done.size() > rows / 25000
                && (done.at(done.size() - 2) == rows) == (log != "Import cancelled")));
    QCOMPARE(generator.getLog(), log.arg(file));
    QCOMPARE(sqliteQuery(database, "SELECT count(*), min(id), min(column1) FROM table1;") + ';'
                     + sqliteQuery(database, "SELECT group_concat(name) FROM sqlite_master WHERE "
                                             "name GLOB 'table*';"),
             tables);
}
void tst_XlsxToDBGenerator::sheets_data()
{
    QTest::addColumn<QByteArray>("rows"); // as TestSupport::package takes them; "@N": N rows
    QTest::addColumn<QByteArray>("tail"); // after the last row, inside <worksheet>
    QTest::addColumn<bool>("imported");

    // Shared strings: 0 "s0", 1 "", 2 an emoji, 3 "a_x0009_b".
    QTest::newRow("gaps and blanks") << QByteArray("<row r='2'>{:1}{r='D2':2}</row><row/><row r='5'>"
            "{t='s':1}{r='C5' t='s':0}</row>") << QByteArray() << true;
    QTest::newRow("same place twice") << QByteArray("<row>{:1}{r='A1':2}{r='B1':3}{r='B1' t='s':1}"
            "</row><row>{r='C2':4}{r='C2' \"\"}</row>") << QByteArray() << true;
    QTest::newRow("out of order") << QByteArray("<row r='3'>{:3}</row><row r='1'>{r='B1':1}{r='A1':0}"
            "</row><row r='2'>{r='C2':2}</row><row r='1'>{r='A1':9}</row>") << QByteArray() << true;
    QTest::newRow("texts and numbers") << QByteArray("<row>{t='s':2}{t='s':3}{\"x_x0009_y\"}"
            "{:0.1}{:-0}{t='b':1}{t='e':#N/A}{s='1':45351.75}</row>") << QByteArray() << true;
    // Checked whole before the first of its two batches is written.
    QTest::newRow("malformed after the last row") << QByteArray("@50001") << QByteArray("<x>")
                                                  << false;
    QTest::newRow("beyond the grid after the last row") << QByteArray("@50001")
            << QByteArray("<sheetData><row r='1048577'/></sheetData>") << false;
}

// Whatever the order of the cells, every cell of table1 is the reader's text of it; a refused
// sheet writes nothing.
void tst_XlsxToDBGenerator::sheets()
{
    QFETCH(QByteArray, rows);
    QFETCH(QByteArray, tail);
    QFETCH(bool, imported);
    if (rows.startsWith('@')) {
        const int count = rows.mid(1).toInt();
        rows.clear();
        for (int row = 1; row <= count; ++row)
            rows += "<row>{:" + QByteArray::number(row) + "}</row>";
    }
    Parts parts = TestSupport::package(rows, QByteArray("<si><t>s0</t></si><si><t/></si><si><t>"
            "\xf0\x9f\x98\x80</t></si><si><t>a_x0009_b</t></si>"), "<cellXfs><xf/><xf numFmtId='22'/>"
            "</cellXfs>");
    parts[TestSupport::sheetPart()].replace("</worksheet>", tail + "</worksheet>");
    const QString file = m_dir.filePath(QString(QTest::currentDataTag()) + ".xlsx");
    const QString database = m_dir.filePath(QString(QTest::currentDataTag()) + ".db");
    QVERIFY(TestSupport::writeParts(file, parts));

    XlsxToDBGenerator generator;
    QCOMPARE(generator.importOriginalFile(file, database), imported);
    QCOMPARE(generator.getLog(), imported ? QString() : "Cannot open file " + file + " for reading.");
    if (!imported) {
        QVERIFY(!QFile::exists(database) || sqliteQuery(database, "SELECT count(*) FROM "
                                                                  "sqlite_master;") == "0");
        return;
    }
    Core::XlsxReader reader;
    QVERIFY(reader.open(file));
    QCOMPARE(sqliteQuery(database, "SELECT * FROM table1;"), TestSupport::readerText(reader, true));
}

// A text is stored as the UTF-16 that the connection binds: SQLite takes a leading U+FEFF or
// U+FFFE for a byte-order mark and drops it, and writes a lone surrogate as three bytes, whichever
// way the row is written.
void tst_XlsxToDBGenerator::byteOrderMarks()
{
    const QString file = m_dir.filePath("marks.xlsx");
    const QString database = m_dir.filePath("marks.db");
    QVERIFY(TestSupport::writeParts(file, TestSupport::package("<row>{t='s':0}</row><row>{t='s':1}"
            "</row><row>{t='s':2}</row><row>{t='s':3}</row><row>{t='s':4}</row>", "<si><t>_xFFFE_</t>"
            "</si><si><t>a_xFFFE_b</t></si><si><t>_xFFFF_</t></si><si><t>_xFEFF_x</t></si><si><t>"
            "a_xD83D_</t></si>")));
    XlsxToDBGenerator generator;
    QVERIFY2(generator.importOriginalFile(file, database), qPrintable(generator.getLog()));
    QCOMPARE(sqliteQuery(database, "SELECT group_concat(hex(column1), ',') FROM table1;"),
             QString(",61EFBFBE62,EFBFBF,78,61EDA0BD"));
}

void tst_XlsxToDBGenerator::largeSharedStrings_data()
{
    QTest::addColumn<bool>("tempFolder");
    QTest::newRow("in a temporary file") << true;
    QTest::newRow("without a temporary folder") << false;
}

// Shared strings beyond a few megabytes are read from a file, in any order the cells use them,
// or from memory when there is no folder for the file.
void tst_XlsxToDBGenerator::largeSharedStrings()
{
    QFETCH(bool, tempFolder);
    const int count = 200000;
    QByteArray strings;
    for (int i = 0; i < count; ++i)
        strings += "<si><t>" + QByteArray::number(i).rightJustified(24, '~') + "</t></si>";
    QByteArray rows;
    for (int row = 0; row < 4000; ++row) { // past one block of 65,536 cells held
        rows += "<row>";
        for (int column = 0; column < 20; ++column)
            rows += "{t='s':" + QByteArray::number((row * 7919 + column * 104729) % count) + "}";
        rows += "</row>";
    }
    const QString file = m_dir.filePath("strings.xlsx");
    QVERIFY(TestSupport::writeParts(file, TestSupport::package(rows, strings)));
    const QByteArray tmp = qgetenv("TMPDIR");
    if (!tempFolder)
        qputenv("TMPDIR", file.toLocal8Bit()); // no folder
    XlsxToDBGenerator generator;
    const QString database = m_dir.filePath(QString("strings%1.db").arg(tempFolder));
    const bool imported = generator.importOriginalFile(file, database);
    qputenv("TMPDIR", tmp);
    QVERIFY2(imported, qPrintable(generator.getLog()));
    Core::XlsxReader reader;
    QVERIFY(reader.open(file));
    QCOMPARE(sqliteQuery(database, "SELECT * FROM table1;"), TestSupport::readerText(reader, true));
}

// The resident memory while a sheet is imported does not grow with its rows: 400,000 rows of
// eight cells take no more than 100,000, which fill the reading ahead and a batch (kept in
// memory until the sheet is checked, they took 115 MB more; the margin allows for the heap's
// own keeping when the suite runs in parallel). Without a usable temporary folder for the rows read ahead, the sheet is
// read twice, in as little memory and with the same rows.
void tst_XlsxToDBGenerator::memoryIsFlat()
{
#if defined(__SANITIZE_ADDRESS__)
    QSKIP("AddressSanitizer keeps freed memory in quarantine, so resident memory grows anyway");
#endif
    // The resident memory now, or its peak since the last reset ("VmHWM:"), in KB.
    const auto statusKb = [](const QByteArray &field) {
        QFile status("/proc/self/status");
        const QByteArray text = status.open(QIODevice::ReadOnly) ? status.readAll() : QByteArray();
        const int at = text.indexOf(field);
        return at < 0 ? 0 : text.mid(at + field.size()).trimmed().split(' ').first().toLongLong();
    };
    const QList<int> sizes{100000, 400000};
    QByteArray strings;
    for (char c = 'a'; c < 'i'; ++c)
        strings += "<si><t>" + QByteArray(40, c) + "</t></si>";
    strings += "<si><t>_xD83D_</t></si>"; // a lone surrogate, in a row kept in the file
    for (int rows : sizes) {
        const QByteArray row = "<row>" + QByteArray("{t='s':0}{t='s':1}{t='s':2}{t='s':3}{t='s':4}"
                                                    "{t='s':5}{t='s':6}{t='s':7}") + "</row>";
        QVERIFY(TestSupport::writeParts(m_dir.filePath(QString("flat%1.xlsx").arg(rows)),
                TestSupport::package(row.repeated(rows / 2) + QByteArray(row).replace(":0}", ":8}")
                                             + row.repeated(rows / 2 - 1), strings)));
    }
    QList<qint64> peaks; // above the resident memory before the import
    for (int rows : {100000, 400000, -400000}) {
        const QByteArray tmp = qgetenv("TMPDIR");
        if (rows < 0)
            qputenv("TMPDIR", m_dir.filePath("flat100000.xlsx").toLocal8Bit()); // no folder
        rows = qAbs(rows);
        const QString database = m_dir.filePath(QString("flat%1-%2.db").arg(rows).arg(peaks.size()));
        malloc_trim(0); // the heap pages freed before are no longer counted
        QFile peak("/proc/self/clear_refs");
        QVERIFY(peak.open(QIODevice::WriteOnly) && peak.write("5") == 1); // the peak starts anew
        peak.close();
        const qint64 before = statusKb("VmRSS:");
        XlsxToDBGenerator generator;
        const bool imported = generator.importOriginalFile(
                m_dir.filePath(QString("flat%1.xlsx").arg(rows)), database);
        qputenv("TMPDIR", tmp);
        QVERIFY2(imported, qPrintable(generator.getLog()));
        peaks << statusKb("VmHWM:") - before;
        const QString last = QString("table%1").arg(rows / 50000);
        QCOMPARE(sqliteQuery(database, "SELECT sum(seq) FROM sqlite_sequence;") + ' '
                         + sqliteQuery(database, "SELECT max(id), column8 FROM " + last + ";"),
                 QString("%1 50000|%2").arg(rows).arg(QString(40, 'h')));
    }
    QVERIFY2(peaks.at(0) > 0 && peaks.at(1) - peaks.at(0) < 20 * 1024
                     && peaks.at(2) - peaks.at(0) < 20 * 1024,
             qPrintable(QString("%1 KB, then %2 KB, %3 KB").arg(peaks.at(0)).arg(peaks.at(1))
                                .arg(peaks.at(2))));
}

QTEST_GUILESS_MAIN(tst_XlsxToDBGenerator)
#include "tst_xlsxtodbgenerator.moc"
