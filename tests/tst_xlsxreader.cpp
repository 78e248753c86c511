#include <core/xlsxreader.h>

#include "testsupport.h"
#include "xlsxfixture.h"

#include <quazip.h>
#include <quazipfile.h>

#include <QTextCodec>
#include <QtTest>

using Core::XlsxReader;
using TestSupport::xlsxCell;
using namespace TestSupport::Xlsx;

namespace {

bool writeZip(const QString &path, const Parts &parts)
{
    QuaZip zip(path);
    if (!zip.open(QuaZip::mdCreate))
        return false;
    for (auto it = parts.cbegin(); it != parts.cend(); ++it) {
        QuaZipFile file(&zip);
        if (!file.open(QIODevice::WriteOnly, QuaZipNewInfo(it.key())))
            return false;
        file.write(*it);
        file.close();
    }
    zip.close();
    return zip.getZipError() == UNZ_OK;
}

// Adds a row, and again with a document type in every part: the fast scanner leaves such
// parts to the Qt XML parser, so both readers see every case.
void addBoth(const char *name, const Parts &parts, const QString &expected)
{
    QTest::newRow(name) << parts << expected;
    QTest::addRow("%s (Qt XML)", name) << withDoctype(parts) << expected;
}

const QByteArray DateStyles = "<cellXfs><xf numFmtId='0'/><xf numFmtId='14'/></cellXfs>";

} // namespace

class tst_XlsxReader : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase() { QVERIFY(m_dir.isValid()); }
    void writerValues_data();
    void writerValues();
    void writerShape_data();
    void writerShape();
    void handMade_data();
    void handMade();
    void malformed_data();
    void malformed();
    void farSparseCellIsCheap();

private:
    QString path(const QString &name) const { return m_dir.filePath(name); }
    QTemporaryDir m_dir;
};

void tst_XlsxReader::writerValues_data()
{
    QTest::addColumn<QVariant>("value");
    QTest::addColumn<QString>("format");
    QTest::addColumn<QString>("expected");

    const QString none;
    QTest::newRow("string keeps blanks and breaks") << QVariant(" 中文\na ") << none << " 中文\na ";
    QTest::newRow("whole number") << QVariant(-1234567.0) << none << "-1234567";
    QTest::newRow("shortest round trip") << QVariant(1.0 / 3) << none << "0.3333333333333333";
    QTest::newRow("fifteen digits") << QVariant(123456789012345.0) << none << "123456789012345";
    QTest::newRow("huge") << QVariant(1e20) << none << "1e+20";
    QTest::newRow("small") << QVariant(0.00015) << none << "0.00015";
    QTest::newRow("tiny") << QVariant(1.5e-7) << none << "1.5e-07";
    QTest::newRow("percent stays number") << QVariant(0.25) << "0.00%" << "0.25";
    QTest::newRow("quoted d is no date") << QVariant(3.0) << "0\" days\"" << "3";
    QTest::newRow("escaped d is no date") << QVariant(3.0) << "0\\d" << "3";
    QTest::newRow("colour is no date") << QVariant(7.0) << "[Red]#,##0" << "7";
    QTest::newRow("date") << QVariant(QDate(2024, 2, 29)) << "yyyy-mm-dd" << "2024-02-29";
    QTest::newRow("date time") << QVariant(QDateTime(QDate(2024, 2, 29), QTime(13, 45, 30)))
                               << none << "2024-02-29T13:45:30";
    QTest::newRow("date time at midnight")
            << QVariant(QDateTime(QDate(1999, 12, 31), QTime(0, 0))) << none << "1999-12-31";
    QTest::newRow("builtin 14") << QVariant(45351.0) << "14" << "2024-02-29";
    QTest::newRow("builtin 22") << QVariant(45351.75) << "22" << "2024-02-29T18:00:00";
    QTest::newRow("locale date") << QVariant(45351.0) << "yyyy\"年\"m\"月\"d\"日\"" << "2024-02-29";
    QTest::newRow("month only") << QVariant(45351.0) << "mmmm" << "2024-02-29";
    QTest::newRow("time") << QVariant(0.5) << "hh:mm:ss" << "12:00:00";
    QTest::newRow("time am pm") << QVariant(0.75) << "h:mm AM/PM" << "18:00:00";
    QTest::newRow("minutes seconds") << QVariant(1.0 / 1440) << "mm:ss" << "00:01:00";
    QTest::newRow("time of a date") << QVariant(45351.25) << "20" << "06:00:00";
    QTest::newRow("elapsed hours") << QVariant(1.5) << "[h]:mm:ss" << "36:00:00";
    QTest::newRow("before the phantom leap day") << QVariant(59.0) << "14" << "1900-02-28";
    QTest::newRow("phantom leap day") << QVariant(60.0) << "14" << "1900-02-29";
    QTest::newRow("after the phantom leap day") << QVariant(61.0) << "14" << "1900-03-01";
    QTest::newRow("negative date as number") << QVariant(-5.0) << "14" << "-5";
    QTest::newRow("beyond year 9999 as number") << QVariant(3e6) << "14" << "3000000";
}

// The value goes to B2 of the first of two sheets, with shared and with inline strings.
void tst_XlsxReader::writerValues()
{
    QFETCH(QVariant, value);
    QFETCH(QString, format);
    QFETCH(QString, expected);

    for (const bool constantMemory : {false, true}) {
        const QString file = path(QStringLiteral("value%1.xlsx").arg(constantMemory));
        QVERIFY(TestSupport::writeXlsxSheets(
                file, {{"First", {xlsxCell(1, 1, value, format)}},
                       {"Second", {xlsxCell(0, 0, "second"), xlsxCell(4, 4, 1.0)}}},
                constantMemory));
        XlsxReader reader;
        QVERIFY(reader.open(file));
        QCOMPARE(dump(reader), "|\n|" + expected);
    }
}

void tst_XlsxReader::writerShape_data()
{
    using Rows = QList<QVariantList>;
    QTest::addColumn<Rows>("rows");
    QTest::addColumn<QString>("expected");

    const QVariant blank;
    QTest::newRow("header and rows") << Rows{{"name", "age"}, {"ann", 31.0}} << "name|age\nann|31";
    QTest::newRow("empty middle row") << Rows{{"a", "b"}, {}, {"c", "d"}} << "a|b\n|\nc|d";
    QTest::newRow("leading empty rows and columns") << Rows{{}, {}, {blank, blank, "x"}}
                                                    << "||\n||\n||x";
    QTest::newRow("ragged rows") << Rows{{"a"}, {"b", "c", "d"}, {"e"}} << "a||\nb|c|d\ne||";
    QTest::newRow("empty strings do not widen")
            << Rows{{"a", QString()}, {QString(), QString()}} << "a";
}

// Formatted blank cells beyond the values must not widen the data area, and a reader that
// held a larger sheet shows only the new one.
void tst_XlsxReader::writerShape()
{
    QFETCH(QList<QVariantList>, rows);
    QFETCH(QString, expected);

    const QString file = path(QStringLiteral("shape.xlsx"));
    rows << QVariantList{} << QVariantList{} << QVector<QVariant>(9).toList();
    QVERIFY(TestSupport::writeXlsx(file, rows));
    const QString large = path(QStringLiteral("large.xlsx"));
    QVERIFY(TestSupport::writeXlsxGrid(large, 20, 20));

    XlsxReader reader;
    QVERIFY(reader.open(large));
    QVERIFY(reader.open(file));
    QCOMPARE(dump(reader), expected);
    QCOMPARE(reader.textAt(-1, 0) + reader.textAt(0, -1), QString());
    QCOMPARE(reader.textAt(reader.rowCount(), 0) + reader.textAt(0, reader.columnCount()), QString());
    QVERIFY(!reader.open(path(QStringLiteral("missing.xlsx"))));
    QVERIFY(reader.isEmpty());
    QCOMPARE(reader.rowCount() + reader.columnCount(), 0);
}

void tst_XlsxReader::handMade_data()
{
    QTest::addColumn<Parts>("parts");
    QTest::addColumn<QString>("expected");

    auto onSheet = [](const QByteArray &xml) { return with(package(""), {{SheetPart, xml}}); };
    addBoth("inline strings",
            package("<row r='1'>{r='A1'\"abc\"}<c r='B1' t='inlineStr'><is><t/></is></c><c r='C1' "
                    "t='inlineStr'><is/></c><c r='D1' t='inlineStr'><is><r><t>x</t></r><r><rPr><b/>"
                    "</rPr><t xml:space='preserve'> y </t></r></is></c></row>"), "abc|||x y ");
    addBoth("missing references", package("<row>{:1}{:2}</row><row>{r='C2':3}{:4}</row><row r='5'>"
                                          "{:5}</row><row>{\"6\"}</row>"),
            "1|2||\n||3|4\n|||\n|||\n5|||\n6|||");
    addBoth("rich text without phonetic runs",
            package("<row>{t='s':0}{t='s':1}{t='s':7}</row>",
                    "<si><r><t>東</t></r><r><rPr><b/></rPr><t>京</t></r><rPh sb='0' eb='2'><t>トウ"
                    "キョウ</t></rPh><phoneticPr fontId='1'/></si><si><t>plain</t></si>"),
            "東京|plain");
    addBoth("escaped characters",
            package("<row>{t='s':0}{t='s':1}<c t='str'><f>A1</f><v>x_x0009_y</v></c></row>",
                    "<si><t>a_x000D_b</t></si><si><t>_x005F_x0041_</t></si>"), "a\rb|_x0041_|x\ty");
    addBoth("value types",
            package("<row>{t='b':1}{t='b':0}<c t='e'><f>1/0</f><v>#DIV/0!</v></c><c t='str'><f>"
                    "\"a\"&amp;\"b\"</f><v>ab</v></c><c><f>1+1</f><v>2</v></c><c><f>SUM(A9:A10)"
                    "</f></c>{t='n':1.5E+3}{:12345678.9}{t='s':99}{:-0}{t='e':#N/A}</row>", ""),
            "TRUE|FALSE|#DIV/0!|ab|2||1500|12345678.9||0|#N/A");
    addBoth("dates in 1900 and out of range styles", package("<row>{s='1':45351.5}{s='9':45351}"
            "</row>", {}, DateStyles), "2024-02-29T12:00:00|45351");
    addBoth("1904 dates", package("<row>{s='1':0}{s='1':43889.5}</row>", {}, DateStyles,
                                  "date1904='1'"), "1904-01-01|2024-02-29T12:00:00");
    addBoth("1904 written as true",
            package("<row>{s='1':0}</row>", {}, DateStyles, "date1904='true'"), "1904-01-01");
    addBoth("custom formats override and cell style xfs ignored",
            package("<row>{s='0':45351}{s='1':45351}{s='2':0.25}{s='3':2}</row>", {},
                    "<numFmts><numFmt numFmtId='164' formatCode='yyyy/m/d'/><numFmt numFmtId='165' "
                    "formatCode='[$-F400]h:mm:ss\\ AM/PM'/><numFmt numFmtId='14' formatCode='0.0'/>"
                    "</numFmts><cellStyleXfs><xf numFmtId='164'/></cellStyleXfs><cellXfs><xf "
                    "numFmtId='0'/><xf numFmtId='164'/><xf numFmtId='165'/><xf numFmtId='14'/>"
                    "</cellXfs>"), "45351|2024-02-29|06:00:00|2");
    addBoth("cells out of order and repeated",
            package("<row r='2'>{r='B2':4}{r='A2':3}</row><row r='1'>{r='A1':1}{r='A1':2}</row>"
                    "<row r='2'>{r='A2':5}</row>"), "2|\n5|4");
    addBoth("dimension, spans and merges ignored", onSheet(worksheet("<dimension ref='A1:Z100'/>"
            "<sheetData><row r='1' spans='1:3'>{r='A1':1}<c r='C1' s='1'/></row><row r='40' "
            "customHeight='1'/></sheetData><mergeCells count='1'><mergeCell ref='A1:D4'/>"
            "</mergeCells>")), "1");
    addBoth("markup inside text",
            package("<!-- note --><row r='1'><c r=\"A1\" t='inlineStr' x=\"a>b\"><is><t>a&amp;b&lt;"
                    "&#x41;&#20013;<![CDATA[<x>&amp;]]><!--c--></t></is></c><c r = \"B1\" ><v>1</v>"
                    "</c><?pi x?></row><row>{t='s':0}</row>", "<si><t>x\r\ny\rz</t></si>"),
            "a&b<A中<x>&amp;|1\nx\ny\nz|");
    QTest::newRow("utf-16 sheet") << onSheet(QTextCodec::codecForName("UTF-16")->fromUnicode(
            "<?xml version='1.0' encoding='UTF-16'?><worksheet><sheetData><row><c t='inlineStr'>"
            "<is><t>十六</t></is></c></row></sheetData></worksheet>")) << "十六";
    addBoth("empty sheet", package(""), "");
    addBoth("self-closed sheet data", onSheet(worksheet("<sheetData/>")), "");

    // Which part is the first worksheet comes from the workbook and its relationships.
    const QByteArray sheetA = sheet("<row>{\"A\"}</row>"), sheetB = sheet("<row>{\"B\"}</row>");
    const Parts twoSheets = with(onSheet(sheetB), {{"xl/workbook.xml", workbook("<sheets><sheet "
            "name='Data' sheetId='2' r:id='rId7'/><sheet name='Other' sheetId='1' r:id='rId1'/>"
            "</sheets>")}});
    addBoth("first sheet is not sheet1.xml", with(twoSheets, {{"xl/worksheets/sheet2.xml", sheetA},
            {BookRels, rels(rel("rId1", "worksheet", "worksheets/sheet1.xml")
                            + rel("rId7", "worksheet", "worksheets/sheet2.xml"))}}), "A");
    addBoth("chart sheet first", with(twoSheets, {{BookRels, rels(rel("rId7", "chartsheet",
            "chartsheets/sheet1.xml") + rel("rId1", "worksheet", "worksheets/sheet1.xml"))}}), "B");
    addBoth("absolute target", with(package(""), {{BookRels, rels(rel("rId1", "worksheet",
            "/xl/data/one.xml"))}, {"xl/data/one.xml", sheetA}}), "A");
    addBoth("workbook found through package relationships",
            Parts{{"_rels/.rels", rels(rel("r", "officeDocument", "bk/m.xml"))},
                  {"bk/m.xml", workbook("<sheets><sheet name='S' sheetId='1' r:id='x'/></sheets>")},
                  {"bk/_rels/m.xml.rels", rels(rel("x", "worksheet", "../sheets/s%201.xml"))},
                  {"sheets/s 1.xml", sheetA}}, "A");
    addBoth("usual workbook place without package relationships",
            with(package(""), {{"_rels/.rels", {}}, {SheetPart, sheetB}}), "B");
    addBoth("strict namespaces and prefixes", strict(package("<row>{:1}</row>")), "1");
}

// A null expectation means the reader rejects the file and holds nothing; a part without a
// name is the whole file.
void tst_XlsxReader::handMade()
{
    QFETCH(Parts, parts);
    QFETCH(QString, expected);

    const QString file = path(QStringLiteral("hand.xlsx"));
    QVERIFY(parts.contains(QString()) ? TestSupport::writeFile(file, parts.value(QString()))
                                      : writeZip(file, parts));
    XlsxReader reader;
    QCOMPARE(reader.open(file), !expected.isNull());
    QCOMPARE(dump(reader), expected);
    QCOMPARE(reader.isEmpty(), expected.isEmpty());
    QCOMPARE(reader.rowCount() + reader.columnCount() == 0, expected.isEmpty());
    QCOMPARE(reader.textAt(0, 0), expected.section(QLatin1Char('|'), 0, 0).section('\n', 0, 0));
}

void tst_XlsxReader::malformed_data()
{
    QTest::addColumn<Parts>("parts");
    QTest::addColumn<QString>("expected");

    const Parts base = package("<row>{:1}</row>");
    const QString rejected;
    QTest::newRow("empty file") << Parts{{QString(), ""}} << rejected;
    QTest::newRow("text file") << Parts{{QString(), "a,b,c\n1,2,3\n"}} << rejected;
    QTest::newRow("zip signature only") << Parts{{QString(), {"PK\x03\x04junk", 8}}} << rejected;
    // A writer's archive cut short, or damaged inside the sheet's compressed data.
    const QString whole = path(QStringLiteral("whole.xlsx"));
    QVERIFY(TestSupport::writeXlsxGrid(whole, 200, 2));
    QByteArray bytes = TestSupport::readFile(whole);
    for (const int size : {bytes.size() - 30, bytes.size() / 2, 100, 22})
        QTest::addRow("cut to %d bytes", size) << Parts{{QString(), bytes.left(size)}} << rejected;
    const int sheet = bytes.indexOf("xl/worksheets/sheet1.xml");
    for (int i = sheet + 100; sheet > 0 && i < sheet + 400; i += 7)
        bytes[i] = char(bytes.at(i) ^ 0x5a);
    QTest::newRow("damaged sheet data") << Parts{{QString(), bytes}} << rejected;

    auto onSheet = [&](const QByteArray &xml) { return with(base, {{SheetPart, xml}}); };
    const QList<QPair<const char *, Parts>> bad = {
        {"zip of other files", {{"readme.txt", "hello"}}},
        {"no workbook", with(base, {{"xl/workbook.xml", {}}})},
        {"no workbook relationships", with(base, {{BookRels, {}}})},
        {"no sheet part", onSheet({})},
        {"workbook lists no sheet", with(base, {{"xl/workbook.xml", workbook("<sheets/>")}})},
        {"broken workbook xml", with(base, {{"xl/workbook.xml", "<workbook><sheets>"}})},
        {"truncated sheet xml", onSheet(worksheet("<sheetData><row>{:1}</row><row><c><v>2"))},
        {"sheet xml is binary", onSheet(QByteArray(64, '\x01'))},
        {"no sheet data", onSheet(worksheet("<dimension ref='A1'/>"))},
        {"broken shared strings", package("<row>{t='s':0}</row>", "<si><t>a</si>")},
        {"missing shared strings part", with(package("", "<si/>"), {{"xl/sharedStrings.xml", {}}})},
        {"column beyond the grid", package("<row>{r='XFE1':1}</row>")},
        {"row beyond the grid", package("<row r='1048577'>{:1}</row>")},
        {"reference beyond the grid", package("<row>{r='A1048577':1}</row>")},
        {"reference overflowing int", package("<row>{r='ZZZZZZZZZZZZ99999999999999999':1}</row>")},
        {"area too large to walk",
         package("<row>{r='A1':1}</row><row r='1048576'>{r='XFD1048576':1}</row>")},
        {"counted cells beyond the last column", package("<row>{r='XFD1':1}{:2}</row>")},
        {"counted rows beyond the last row", package("<row r='1048576'>{:1}</row><row>{:2}</row>")},
        {"mismatched end tag", package("<row><c><v>1</c></v></row>")},
        {"unknown entity", package("<row>{\"&nbsp;\"}</row>")},
        {"unterminated comment", package("<!-- <row>")},
        {"row number zero", package("<row r='0'>{:1}</row>")},
        {"row number not a number", package("<row r='x'>{:1}</row>")},
        {"reference without row", package("<row>{r='AB':1}</row>")},
        {"reference with row first", package("<row>{r='1A':1}</row>")}};
    for (const auto &row : bad)
        addBoth(row.first, row.second, rejected);
    // Ten levels of ten-fold entity references: 10^10 characters if expanded.
    QByteArray laughs = "<?xml version='1.0'?><!DOCTYPE w [<!ENTITY a 'aaaaaaaaaa'>";
    for (char level = 'b'; level <= 'k'; ++level)
        laughs += "<!ENTITY " + QByteArray(1, level) + " '"
                + ("&" + QByteArray(1, char(level - 1)) + ";").repeated(10) + "'>";
    QTest::newRow("entity expansion") << onSheet(laughs + "]><worksheet><sheetData><row><c t="
            "'inlineStr'><is><t>&k;</t></is></c></row></sheetData></worksheet>") << rejected;
}

void tst_XlsxReader::malformed()
{
    handMade();
}

// One value far down the sheet spans a data area that must be stored sparsely.
void tst_XlsxReader::farSparseCellIsCheap()
{
    const QString file = path(QStringLiteral("sparse.xlsx"));
    QVERIFY(writeZip(file, package("<row>{r='A1':1}</row><row r='1048576'>{r='T1048576':2}"
                                   "</row>")));
    XlsxReader reader;
    QVERIFY(reader.open(file));
    QCOMPARE(reader.rowCount(), 1048576);
    QCOMPARE(reader.columnCount(), 20);
    QCOMPARE(reader.textAt(0, 0) + reader.textAt(524288, 10) + reader.textAt(1048575, 19),
             QStringLiteral("12"));
}

QTEST_GUILESS_MAIN(tst_XlsxReader)
#include "tst_xlsxreader.moc"
