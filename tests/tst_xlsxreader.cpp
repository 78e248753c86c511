#include <core/xlsxreader.h>
#include <core/xlsxstyles_p.h>

#include "testsupport.h"
#include "xlsxfixture.h"
#include "xlsxparts.h"

#include <QtTest>

#include <sys/resource.h>

using namespace TestSupport;

namespace {

const QString Sheet = sheetPart();

} // namespace

class tst_XlsxReader : public QObject
{
    Q_OBJECT

private slots:
    // Nothing of the user's is touched, whatever the library looks up.
    void initTestCase() { QStandardPaths::setTestModeEnabled(true); }
    void sparseFarCell();
    void numberFormats_data();
    void numberFormats();
    void files_data();
    void files();
    void refusals_data();
    void refusals();

private:
    QTemporaryDir m_dir;
};

// A value far below A1 spans 2^26 cells, the most a sheet may span, stored sparsely (the first
// test, so that the peak memory of the process is its own).
void tst_XlsxReader::sparseFarCell()
{
    const QString file = m_dir.filePath("sparse.xlsx");
    QVERIFY(writeParts(file, package("<row>{:1}</row><row r='1048576'>{r='BL1048576':2}</row>")));
    const auto peakKb = [] {
        rusage usage = {};
        return getrusage(RUSAGE_SELF, &usage) == 0 ? usage.ru_maxrss : 0L;
    };
    const long before = peakKb();
    Core::XlsxReader reader;
    QVERIFY(reader.open(file));
    QCOMPARE(reader.rowCount() + reader.columnCount(), 1048576 + 64);
    QCOMPARE(reader.textAt(0, 0) + reader.textAt(5, 10) + reader.textAt(1048575, 63), "12");
    QVERIFY2(peakKb() - before < 64 * 1024, qPrintable(QString::number(peakKb() - before)));
}

void tst_XlsxReader::numberFormats_data()
{
    QTest::addColumn<QString>("format"); // a built-in format's number, or a format code
    QTest::addColumn<double>("value");
    QTest::addColumn<QString>("expected");
    const struct { const char *format, *expected; double value; } cases[] = {
        {"0", "0.3333333333333333", 1.0 / 3}, {"0", "123456789012345", 123456789012345},
        {"0", "1e+20", 1e20}, {"0", "1.5e-07", 1.5e-7}, {"0", "0.00015", 0.00015}, {"0", "0", -0.0},
        {"0.00%", "0.25", 0.25}, {"0\" days\"", "3", 3}, {"0\\d", "3", 3}, {"[Red]0", "7", 7},
        {"yyyy\"年\"m\"月\"d\"日\"", "2024-02-29", 45351}, {"22", "2024-02-29T18:00:00", 45351.75},
        {"mmmm", "2024-02-29", 45351}, {"57", "2024-02-29", 45351}, {"[h]:mm", "36:00:00", 1.5},
        {"[$-F400]h:mm:ss\\ AM/PM", "18:00:00", 0.75}, {"mm:ss", "00:01:00", 1.0 / 1440},
        {"20", "06:00:00", 45351.25}, {"14", "1900-02-29", 60}, {"14", "1900-03-01", 61},
        {"14", "-5", -5}, {"14", "3000000", 3e6}};
    for (const auto &c : cases)
        QTest::addRow("%s %g", c.format, c.value) << QString::fromUtf8(c.format) << c.value
                                                  << c.expected;
}

void tst_XlsxReader::numberFormats()
{
    QFETCH(QString, format);
    QFETCH(double, value);
    bool builtin = false;
    const int id = format.toInt(&builtin);
    using namespace Core::Xlsx;
    const Display display = builtin ? builtinDisplay(id) : customDisplay(format);
    QTEST(numberText(value, display, false), "expected");
}

void tst_XlsxReader::files_data()
{
    QTest::addColumn<Parts>("parts");
    QTest::addColumn<QString>("expected"); // null: the file is refused

    QTest::newRow("strings") << package("<row>{t='s':0}{t='s':1}{\"a&amp;\"}<c t='inlineStr'><is>"
            "<r><t>x</t></r><r><rPr/><t> y </t></r></is></c><c t='inlineStr'><is><t>a<t>b</t></t>"
            "</is></c></row>", "<si><r><t>東</t></r><r><t>京</t></r><rPh><t>トウ</t></rPh></si>"
            "<si><t>a_x000D_b</t></si>") << "東京|a\rb|a&|x y |a";
    QTest::newRow("places") << package("<row>{:1}{:2}</row><row>{r='C2':3}{:4}</row><row r='4'>{:5}"
            "</row><row>{:9}</row><row r='3'>{r='B3':6}{r='A3':7}{r='A3':8}</row>")
            << "1|2||\n||3|4\n8|6||\n5|||\n9|||";
    QTest::newRow("lower-case references") << package("<row>{r='b1':2}</row><row>{r='c2':3}</row>")
                                           << "|2|\n||3";
    QTest::newRow("values") << package("<row>{t='b':1}{t='b':0}{t='e':#N/A}<c t='str'><f>A1</f><v>"
            "x_x0009_y</v></c><c><f>A1</f></c>{t='n':1.5E+3}{: +7 }{t='s':99}{t='d':2024-02-29}"
            "</row>")
            << "TRUE|FALSE|#N/A|x\ty||1500|7||2024-02-29";
    const Parts base = package("<row>{:1}</row>");
    const QByteArray sheet = base.value(Sheet);
    QTest::newRow("document type") << with(base, Sheet, "<!DOCTYPE w>" + sheet) << "1";
    Parts strict = base;
    for (QByteArray &part : strict)
        part.replace("schemas.openxmlformats.org/spreadsheetml/2006", "purl.oclc.org/ooxml/"
                     "spreadsheetml").replace("schemas.openxmlformats.org/officeDocument/2006",
                                              "purl.oclc.org/ooxml/officeDocument");
    QTest::newRow("strict") << strict << "1";
    QTest::newRow("other namespaces") << package("<row><x:c xmlns:x='u'><v>1</v></x:c><c xmlns='u'>"
            "<v>2</v></c>{:3}</row>") << "3";
    QTest::newRow("empty sheet") << package("") << "";
    QTest::newRow("1904 with extension") << package("<row>{s='1':43889.5}</row>", "", "<cellXfs>"
            "<xf/><xf numFmtId='14'/></cellXfs>", "<workbookPr date1904='true'/><extLst><ext "
            "xmlns:x='u'><x:workbookPr/></ext></extLst>") << "2024-02-29T12:00:00";
    QTest::newRow("dxfs") << package("<row>{s='1':45351}{s='7':1}</row>", "", "<numFmts><numFmt "
            "numFmtId='164' formatCode='yyyy-mm-dd'/></numFmts><cellXfs><xf/><xf numFmtId='164'/>"
            "</cellXfs><dxfs><dxf><numFmt numFmtId='164' formatCode='0.00'/></dxf></dxfs>")
            << "2024-02-29|1";
    // The first worksheet in workbook order, found through the relationships.
    QTest::newRow("first worksheet") << with(with(with(base, "xl/workbook.xml",
            QByteArray(base.value("xl/workbook.xml")).replace("<sheets>", "<sheets><sheet "
            "r:id='rId2'/><sheet r:id='rId4'/>")), "xl/_rels/workbook.xml.rels", rels({"worksheet",
            "x", "chartsheet", "worksheets/sheet1.xml", "worksheet", "/xl/a%20b.xml"})),
            "xl/a b.xml", QByteArray(sheet).replace(">1<", ">2<")) << "2";
    Parts moved = with(base, "_rels/.rels", rels({"officeDocument", "bk/m.xml"}));
    moved["bk/m.xml"] = moved.take("xl/workbook.xml");
    moved["bk/_rels/m.xml.rels"] =
            moved.take("xl/_rels/workbook.xml.rels").replace("t='", "t='../xl/");
    QTest::newRow("moved workbook") << moved << "1";
    QTest::newRow("usual workbook place") << with(base, "_rels/.rels", QByteArray()) << "1";

    const QString refused;
    for (const QString bomb : {"bomb-sharedstrings.xlsx", "bomb-sheet.xlsx"})
        QTest::newRow(qPrintable(bomb))
                << Parts{{"", TestSupport::readFile(ZQ_TEST_DATA_DIR "/" + bomb)}} << refused;
    const QString whole = m_dir.filePath("whole.xlsx");
    QVERIFY(writeParts(whole, package(QByteArray("<row>{:7}</row>").repeated(300))));
    QByteArray bytes = TestSupport::readFile(whole);
    QTest::newRow("truncated") << Parts{{QString(), bytes.left(bytes.size() - 30)}} << refused;
    QTest::newRow("damaged") << Parts{{QString(), bytes.replace("v>", "w>")}} << refused;
    // Damaged package relationships fall back to the usual workbook place, as other readers do.
    for (const QString &part : base.keys()) {
        const QString outcome = part == "_rels/.rels" ? "1" : refused;
        QTest::addRow("malformed %s", qPrintable(part)) << with(base, part, base.value(part) + "<")
                                                        << outcome;
        QTest::addRow("without %s", qPrintable(part))
                << with(base, part, part.startsWith('_') ? "" : QByteArray()) << outcome;
    }
    for (const char *bad : {"\xff", "&#1;", "\x01", "&#xFFFE;", "&nbsp;", "</c>", "<!--", "<y:t/>",
                            "<t a='1' a='2'/>"})
        QTest::addRow("bad %s", bad)
                << with(base, Sheet, QByteArray(sheet).replace(">1<", ">" + QByteArray(bad) + "<"))
                << refused;
    for (const char *rows : {"{r='XFE1':1}", "{r='XFD1':1}{:2}", "{r='ZZZZZZZZZZZZZZ999999':1}",
                             "</row><row r='1048577'>", "</row><row r='1048576'/><row>{:1}",
                             "</row><row r='0'>", "{r='AB':1}", "</row><row>{r='BM1048576':2}"})
        QTest::addRow("beyond %s", rows) << package("<row>{:1}" + QByteArray(rows) + "</row>")
                                         << refused;

    // 4 MB of text from a few hundred bytes, and 10^10 references to nothing.
    QByteArray laughs = "<!ENTITY a 'aaaa'>", nothing = "<!ENTITY a ''>";
    for (char level = 'b'; level <= 'k'; ++level) {
        const QByteArray entity = "<!ENTITY " + QByteArray(1, level) + " '"
                + ("&" + QByteArray(1, char(level - 1)) + ";").repeated(10) + "'>";
        laughs += level <= 'g' ? entity : QByteArray();
        nothing += entity;
    }
    for (const QByteArray &dtd : {laughs, nothing})
        QTest::addRow("entities %d", int(dtd.size())) << with(base, Sheet, "<!DOCTYPE w [" + dtd + "]>"
                + QByteArray(sheet).replace(">1<", dtd == laughs ? ">&g;<" : ">&k;<")) << refused;
}

// An OLE2 compound file of one directory sector holding the root and the named streams.
QByteArray compoundFile(const QStringList &streams)
{
    const auto le = [](QByteArray *bytes, int at, quint32 value, int size) {
        for (int i = 0; i < size; ++i)
            (*bytes)[at + i] = char(value >> (8 * i));
    };
    QByteArray header(512, '\0'), table(512, '\xff'), directory(512, '\0');
    header.replace(0, 8, QByteArray::fromHex("d0cf11e0a1b11ae1"));
    le(&header, 24, 0x3e, 2), le(&header, 26, 3, 2), le(&header, 28, 0xfffe, 2);
    le(&header, 30, 9, 2), le(&header, 32, 6, 2), le(&header, 44, 1, 4), le(&header, 48, 1, 4);
    le(&header, 56, 4096, 4), le(&header, 60, 0xfffffffe, 4), le(&header, 68, 0xfffffffe, 4);
    header.replace(76, 436, QByteArray(436, '\xff'));
    le(&header, 76, 0, 4); // the allocation table is sector 0, the directory sector 1
    le(&table, 0, 0xfffffffd, 4), le(&table, 4, 0xfffffffe, 4);
    const QStringList names = QStringList{"Root Entry"} + streams;
    for (int i = 0; i < names.size(); ++i) {
        for (int c = 0; c < names.at(i).size(); ++c)
            le(&directory, 128 * i + 2 * c, names.at(i).at(c).unicode(), 2);
        le(&directory, 128 * i + 64, 2 * (names.at(i).size() + 1), 2);
        directory[128 * i + 66] = char(i == 0 ? 5 : 2);
    }
    return header + table + directory;
}

void tst_XlsxReader::refusals_data()
{
    QTest::addColumn<Parts>("parts");
    QTest::addColumn<QString>("reason");

    QTest::newRow("text") << Parts{{QString(), "a,b\n1,2\n"}}
                          << "The file is not a zip archive, so it is no .xlsx or .xlsm workbook.";
    QTest::newRow("password") << Parts{{QString(), compoundFile({"\x06" "DataSpaces", "EncryptionInfo",
            "EncryptedPackage"})}} << "The workbook is protected by a password; save a copy "
                                      "without the password to import it.";
    QTest::newRow("legacy") << Parts{{QString(), compoundFile({"\x05SummaryInformation", "Workbook"})}}
            << "The file is a legacy binary .xls workbook; save it as .xlsx to import it.";
    QTest::newRow("other compound") << Parts{{QString(), compoundFile({"WordDocument"})}}
            << "The file is an OLE2 compound document, not an .xlsx workbook.";
    QTest::newRow("OpenDocument") << Parts{{"mimetype", "application/vnd.oasis.opendocument."
            "spreadsheet"}, {"content.xml", "<office:document-content/>"}} << "The file is an "
            "OpenDocument file, not an .xlsx workbook; save it as .xlsx to import it.";
    const Parts base = package("<row>{:1}</row>");
    const QByteArray sheet = base.value(Sheet);
    QTest::newRow("zip of other files") << Parts{{"readme.txt", "hello"}}
                                        << "The workbook has no part xl/workbook.xml.";
    QTest::newRow("no worksheet") << with(base, "xl/workbook.xml", QByteArray(base.value(
            "xl/workbook.xml")).replace("<sheet ", "<chartsheet ")) << "The workbook has no worksheet.";
    QTest::newRow("malformed") << with(base, Sheet, QByteArray(sheet).replace("<row>", "\n\n<row>")
                                                  .replace("</row>", "</rows>"))
            << "The part " + Sheet + " is not well-formed XML at line 3: mismatched tag.";
    QTest::newRow("damaged") << package("<row>{r='A-1':1}</row>")
            << "The part " + Sheet + " is damaged at line 1: the cell reference 'A-1'.";
    QTest::newRow("no sheet data") << with(base, Sheet, QByteArray(sheet).replace("sheetData", "x"))
            << "The part " + Sheet + " is damaged: it holds no sheetData element.";
    QTest::newRow("grid") << package("<row>{r='XFE1':1}</row>")
            << "The part " + Sheet + " passes a limit at line 1: a cell beyond the grid of "
               "1,048,576 rows by 16,384 columns.";
    QTest::newRow("sparse area") << package("<row>{:1}</row><row r='4097'>{r='XFD4097':1}</row>")
            << "The part " + Sheet + " passes a limit: a data area over 67,108,864 cells, fewer "
               "than one in 16 of them holding a value.";
    QTest::newRow("entities") << with(base, Sheet, "<!DOCTYPE w [<!ENTITY a '" + QByteArray(64, 'a')
            + "'><!ENTITY b '" + QByteArray("&a;").repeated(40000) + "'>]>\n"
            + QByteArray(sheet).replace(">1<", ">&b;<"))
            << "The part " + Sheet + " passes a limit at line 2: entities multiply the text.";
}

// Every refusal says why, in the words a user reads.
void tst_XlsxReader::refusals()
{
    QFETCH(Parts, parts);
    const QString file = m_dir.filePath("refused.xlsx");
    QVERIFY(writeParts(file, parts));
    Core::XlsxReader reader;
    QVERIFY(!reader.open(file));
    QTEST(reader.errorString(), "reason");
    // The check an importer makes, holding no cells, gives the same reason.
    Core::XlsxReader checker;
    QVERIFY(!checker.check(file));
    QTEST(checker.errorString(), "reason");
}

// Hand-made packages: a refused file leaves the reader empty, whatever it held before.
void tst_XlsxReader::files()
{
    QFETCH(Parts, parts);
    QFETCH(QString, expected);
    const QString file = m_dir.filePath("hand.xlsx");
    QVERIFY(writeParts(file, parts));
    Core::XlsxReader reader;
    QVERIFY(reader.open(m_dir.filePath("whole.xlsx")));
    QCOMPARE(reader.open(file), !expected.isNull());
    QCOMPARE(reader.errorString().isEmpty(), !expected.isNull());
    Core::XlsxReader checker;
    QCOMPARE(checker.check(file), !expected.isNull());
    QCOMPARE(readerText(reader), expected);
    QCOMPARE(reader.isEmpty(), expected.isEmpty());
}

QTEST_GUILESS_MAIN(tst_XlsxReader)
#include "tst_xlsxreader.moc"
