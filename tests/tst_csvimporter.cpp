#include <database/csvimporter.h>
#include <database/databasegenerator.h>
#include <database/progressscope.h>

#include "testsupport.h"

#include <QtTest>

using Database::CsvImporter;
using Format = CsvImporter::Format;
using Encoding = CsvImporter::Encoding;

Q_DECLARE_METATYPE(CsvImporter::Format)
Q_DECLARE_METATYPE(CsvImporter::Encoding)

class tst_CsvImporter : public QObject
{
    Q_OBJECT

private slots:
    void import_data();
    void import();
    void recordsAcrossBlocks_data();
    void recordsAcrossBlocks();
    void unclosedQuote();
    void batchesAndCancel();
    void lineRuleMatchesGenerator();

private:
    // Every value column of the rows of table1 after the first skip, quote()d as SQLite stores
    // them, one row a line.
    QString rows(const QString &database, int columns, int skip = 0) const
    {
        QStringList quoted;
        for (int c = 1; c <= columns; ++c)
            quoted << QStringLiteral("quote(column%1)").arg(c);
        return TestSupport::sqliteQuery(database, QString("SELECT %1 FROM table1 WHERE id > %2 "
                                        "ORDER BY id;").arg(quoted.join(" || '|' || ")).arg(skip));
    }
    QTemporaryDir m_dir;
};

void tst_CsvImporter::import_data()
{
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<Format>("format");
    QTest::addColumn<Encoding>("encoding");
    QTest::addColumn<QString>("separator");
    QTest::addColumn<int>("columns");
    QTest::addColumn<QString>("expected"); // rows() of table1

    const QByteArray gb = TestSupport::iconvEncode(QString::fromUtf8("西安,陕西\n"), "GB18030");
    const auto row = [](const char *name, const QByteArray &bytes, const char *expected, int columns,
                        const QString &separator = ",", Encoding encoding = Encoding::Automatic,
                        Format format = Format::Rfc4180) {
        QTest::newRow(name) << bytes << format << encoding << separator << columns
                            << QString::fromUtf8(expected);
    };
    row("empty fields kept, short rows padded", "Li,,123,ok\na\n\n,\n",
        "'Li'|''|'123'|'ok'\n'a'|''|''|''\n''|''|''|''", 4);
    row("quoted separators, doubled quotes, spaces kept",
        "Zhao,\"Xi an, Shaanxi\",9\n \"a\"\"b\" ,\"\"\n", "'Zhao'|'Xi an, Shaanxi'|'9'\n' \"a\"\"b\" '|''|''", 3);
    row("line breaks in quotes, LF CRLF and CR ends", "\"1\n2\",x\r\n\"3\r\n4\"\ry\r\"z\"",
        "'1\n2'|'x'\n'3\r\n4'|''\n'y'|''\n'z'|''", 2);
    row("an empty line of CR ends", "a\r\rb\r", "'a'\n'b'", 1);
    row("text after a closing quote kept", "\"ab\"cd,e\n", "'abcd'|'e'", 2);
    row("several-character separator", "a::b::::c\n\"x::y\"::z\n", "'a'|'b'|''|'c'\n'x::y'|'z'|''|''", 4,
        QStringLiteral("::"));
    row("no separator: one field a line", "a,b\n\"c\n\"\n", "'a,b'\n'c\n'", 1, QString());
    row("automatic: UTF-8 without a mark", "名,值\n", "'名'|'值'", 2);
    row("automatic: UTF-8 mark dropped", "\xef\xbb\xbf\xe5\x90\x8d,v\n", "'名'|'v'", 2);
    row("automatic: GB18030 when not UTF-8", gb, "'西安'|'陕西'", 2);
    row("automatic: UTF-16 by its mark", QByteArray("\xff\xfe" "a\0,\0\x0d\x54\n\0", 10), "'a'|'名'", 2);

    row("automatic: an overlong form is not UTF-8", "\xe0\x80\xaf\n", "'鄝\xef\xbf\xbd'", 1);
    row("UTF-8 chosen: a cut sequence at the end replaced", "a,\xe5\x90",
        "'a'|'\xef\xbf\xbd\xef\xbf\xbd'", 2, ",", Encoding::Utf8);
    row("UTF-8 chosen: malformed bytes replaced", "a\xff,b\n", "'a\xef\xbf\xbd'|'b'", 2, ",",
        Encoding::Utf8);
    row("GB18030 chosen over valid UTF-8", "\xc3\xa9\n", "'茅'", 1, ",", Encoding::Gb18030);
    row("per-line: GB2312, UTF-8 after a mark", TestSupport::iconvEncode(QString::fromUtf8("啊,b\n"),
        "GB2312") + "\xef\xbb\xbf\xe5\x90\x8d,\"q\"\n", "'啊'|'b'\n'名'|'q'", 2, ",", Encoding::PerLine);
    row("line rule: trimmed, empty fields dropped, quotes kept, any UTF-8", " Li,,123,ok \nZhao,\"Xi an, "
        "Shaanxi\"\n\n,,\n\xf0\x9f\x98\x80,y,z\n", "'Li'|'123'|'ok'\n'Zhao'|'\"Xi an'|' Shaanxi\"'\n"
        "'\xf0\x9f\x98\x80'|'y'|'z'", 3, ",",
        Encoding::Automatic, Format::LineRule);
}

void tst_CsvImporter::import()
{
    QFETCH(QByteArray, bytes);
    QFETCH(Format, format);
    QFETCH(Encoding, encoding);
    QFETCH(QString, separator);
    QFETCH(int, columns);
    QFETCH(QString, expected);
    const QString source = m_dir.filePath(QTest::currentDataTag() + QStringLiteral(".csv"));
    const QString database = source + QStringLiteral(".db");
    QVERIFY(TestSupport::writeFile(source, bytes));
    CsvImporter importer({format, encoding, separator});
    QVERIFY2(importer.importFile(source, database), qPrintable(importer.log()));
    QCOMPARE(importer.log(), QString());
    QCOMPARE(TestSupport::sqliteQuery(database, "SELECT count(*) FROM pragma_table_info('table1');"),
             QString::number(columns + 1));
    QCOMPARE(rows(database, columns), expected);
}

// The file is read in blocks of 1 MiB: a record across their border reads as it does alone.
void tst_CsvImporter::recordsAcrossBlocks_data()
{
    QTest::addColumn<QByteArray>("record");
    QTest::addColumn<int>("columns");
    QTest::addColumn<QString>("expected");
    QTest::newRow("quoted field with a doubled quote and a CR LF")
            << QByteArray("\"a\"\"b\r\nc\"x,d\r\n") << 2 << QString::fromUtf8("'a\"b\r\ncx'|'d'");
    QTest::newRow("CR ends, an empty line, a quoted end") << QByteArray("p,q\r\r\n\"r\"\r") << 2
            << QString::fromUtf8("'p'|'q'\n'r'|''");
    QTest::newRow("UTF-8 characters and a long separator")
            << QByteArray("名::\"值::\"::end\n") << 3 << QString::fromUtf8("'名'|'值::'|'end'");
}

void tst_CsvImporter::recordsAcrossBlocks()
{
    QFETCH(QByteArray, record);
    QFETCH(int, columns);
    QFETCH(QString, expected);
    const QString separator = record.contains("::") ? QStringLiteral("::") : QStringLiteral(",");
    const QByteArray line = QByteArray(99, 'f') + '\n';
    for (int shift = 1; shift <= record.size(); ++shift) {
        const int filler = (1 << 20) - shift;
        const QByteArray bytes = line.repeated(filler / line.size()) + QByteArray(filler % line.size(), 'g')
                + '\n' + record;
        const QString source = m_dir.filePath("blocks.csv");
        const QString database
                = m_dir.filePath(QStringLiteral("%1-%2.db").arg(QTest::currentDataTag()).arg(shift));
        QVERIFY(TestSupport::writeFile(source, bytes));
        CsvImporter importer({Format::Rfc4180, Encoding::Automatic, separator});
        QVERIFY2(importer.importFile(source, database), qPrintable(importer.log()));
        QCOMPARE(rows(database, columns, filler / line.size() + 1), expected);
    }
}

// An unclosed quote names the line it opened on; the tables already written stay whole.
void tst_CsvImporter::unclosedQuote()
{
    const QString source = m_dir.filePath("unclosed.csv");
    const QString database = m_dir.filePath("unclosed.db");
    QByteArray bytes;
    for (int i = 1; i <= 50002; ++i)
        bytes += QByteArray::number(i) + (i == 4 ? ",\"two\nlines\"\n" : ",x\n");
    bytes += "last,\"open\nand on";
    QVERIFY(TestSupport::writeFile(source, bytes));
    CsvImporter importer;
    QVERIFY(!importer.importFile(source, database));
    QCOMPARE(importer.errorLine(), 50004);
    QVERIFY2(importer.log().startsWith("Line 50004: a quoted field is not closed."),
             qPrintable(importer.log()));
    QVERIFY(TestSupport::writeFile(source, "a\n"));
    QVERIFY(importer.importFile(source, m_dir.filePath("after.db")));
    QCOMPARE(importer.errorLine(), 0);
    QCOMPARE(TestSupport::sqliteQuery(database, "SELECT count(*), max(id), (SELECT count(*) FROM "
                                      "sqlite_master WHERE name = 'table2') FROM table1;"),
             QString("50000|50000|0"));
}

// Tables of 50,000 rows, as wide as the widest row so far; a cancel keeps whole tables only.
void tst_CsvImporter::batchesAndCancel()
{
    const QString source = m_dir.filePath("batches.csv");
    QByteArray bytes;
    for (int i = 1; i <= 120000; ++i)
        bytes += QByteArray::number(i) + (i == 60000 ? ",a,b\n" : ",a\n");
    QVERIFY(TestSupport::writeFile(source, bytes));

    const QString database = m_dir.filePath("batches.db");
    CsvImporter importer;
    QVERIFY(importer.importFile(source, database));
    QCOMPARE(TestSupport::sqliteQuery(database,
                                      "SELECT (SELECT count(*) FROM table1), (SELECT count(*) FROM "
                                      "table3), (SELECT count(*) FROM pragma_table_info('table1')), "
                                      "(SELECT count(*) FROM pragma_table_info('table2')), "
                                      "(SELECT column1 FROM table3 WHERE id = 20000);"),
             QString("50000|20000|3|4|120000"));

    const QString cancelled = m_dir.filePath("cancelled.db");
    qint64 last = 0;
    Database::ProgressScope scope([&](qint64 done, qint64 total) {
        last = done;
        return done < total / 2;
    });
    QVERIFY(!importer.importFile(source, cancelled));
    QCOMPARE(importer.log(), QString("Import cancelled"));
    QVERIFY(last >= bytes.size() / 2);
    QCOMPARE(TestSupport::sqliteQuery(cancelled, "SELECT group_concat(name) FROM sqlite_master "
                                                 "WHERE name LIKE 'table%';"),
             QString("table1"));
}

// The line rule reads what DatabaseGenerator reads, with its per-line decoding.
void tst_CsvImporter::lineRuleMatchesGenerator()
{
    const QString source = m_dir.filePath("rule.txt");
    QByteArray bytes = QByteArray("a,b,c\n").repeated(6);
    bytes += TestSupport::iconvEncode(QString::fromUtf8(" 中,,文 \n\t\"q\",x\r\n"), "GB2312");
    bytes += "\xef\xbb\xbf\xe5\x90\x8d,\xff\n,,,\nz\rz,\xa1\n";
    QVERIFY(TestSupport::writeFile(source, bytes));
    Database::DatabaseGenerator generator;
    QVERIFY(generator.importOriginalFile(source, m_dir.filePath("generator.db")));
    CsvImporter importer({Format::LineRule, Encoding::PerLine, QStringLiteral(",")});
    QVERIFY(importer.importFile(source, m_dir.filePath("rule.db")));
    QCOMPARE(rows(m_dir.filePath("rule.db"), 3), rows(m_dir.filePath("generator.db"), 3));
}

QTEST_GUILESS_MAIN(tst_CsvImporter)

#include "tst_csvimporter.moc"
