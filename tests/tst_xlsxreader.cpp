#include <core/xlsxreader.h>

#include "testsupport.h"
#include "xlsxfixture.h"

#include <quazip.h>
#include <quazipfile.h>

#include <QtTest>

using Core::XlsxReader;
using TestSupport::XlsxFixture;

namespace {

using Parts = QList<QPair<QString, QByteArray>>;

const QByteArray MainNs = "http://schemas.openxmlformats.org/spreadsheetml/2006/main";
const QByteArray RelNs = "http://schemas.openxmlformats.org/officeDocument/2006/relationships";
const QByteArray PackageRelNs = "http://schemas.openxmlformats.org/package/2006/relationships";

// Writes a zip archive of the given parts with QuaZip's writer.
bool writeZip(const QString &path, const Parts &parts)
{
    QuaZip zip(path);
    if (!zip.open(QuaZip::mdCreate))
        return false;
    for (const auto &part : parts) {
        QuaZipFile file(&zip);
        if (!file.open(QIODevice::WriteOnly, QuaZipNewInfo(part.first)))
            return false;
        file.write(part.second);
        file.close();
        if (file.getZipError() != UNZ_OK)
            return false;
    }
    zip.close();
    return zip.getZipError() == UNZ_OK;
}

QByteArray relationship(const QByteArray &id, const QByteArray &type, const QByteArray &target)
{
    return "<Relationship Id=\"" + id + "\" Type=\"" + RelNs + "/" + type + "\" Target=\"" + target
            + "\"/>";
}

QByteArray relationships(const QByteArray &body)
{
    return "<?xml version=\"1.0\" encoding=\"UTF-8\"?><Relationships xmlns=\"" + PackageRelNs
            + "\">" + body + "</Relationships>";
}

QByteArray worksheet(const QByteArray &body)
{
    return "<?xml version=\"1.0\" encoding=\"UTF-8\" standalone=\"yes\"?><worksheet xmlns=\""
            + MainNs + "\" xmlns:r=\"" + RelNs + "\">" + body + "</worksheet>";
}

// The smallest package real readers accept: a workbook with one sheet, plus optional shared
// strings (<si> items) and styles (<numFmts>/<cellXfs> content).
Parts package(const QByteArray &sheetBody, const QByteArray &sharedStrings = QByteArray(),
              const QByteArray &styles = QByteArray(), const QByteArray &workbookPr = QByteArray())
{
    QByteArray bookRels = relationship("rId1", "worksheet", "worksheets/sheet1.xml");
    Parts parts;
    parts << qMakePair(QStringLiteral("_rels/.rels"),
                       relationships(relationship("rId1", "officeDocument", "xl/workbook.xml")));
    parts << qMakePair(QStringLiteral("xl/workbook.xml"),
                       "<workbook xmlns=\"" + MainNs + "\" xmlns:r=\"" + RelNs + "\">"
                               + (workbookPr.isEmpty() ? QByteArray() : "<workbookPr " + workbookPr + "/>")
                               + "<sheets><sheet name=\"S\" sheetId=\"1\" r:id=\"rId1\"/></sheets>"
                                 "</workbook>");
    if (!sharedStrings.isNull()) {
        bookRels += relationship("rId2", "sharedStrings", "sharedStrings.xml");
        parts << qMakePair(QStringLiteral("xl/sharedStrings.xml"),
                           "<sst xmlns=\"" + MainNs + "\">" + sharedStrings + "</sst>");
    }
    if (!styles.isNull()) {
        bookRels += relationship("rId3", "styles", "styles.xml");
        parts << qMakePair(QStringLiteral("xl/styles.xml"),
                           "<styleSheet xmlns=\"" + MainNs + "\">" + styles + "</styleSheet>");
    }
    parts << qMakePair(QStringLiteral("xl/_rels/workbook.xml.rels"), relationships(bookRels));
    parts << qMakePair(QStringLiteral("xl/worksheets/sheet1.xml"), worksheet(sheetBody));
    return parts;
}

QByteArray rows(const QByteArray &body)
{
    return "<sheetData>" + body + "</sheetData>";
}

Parts replacePart(Parts parts, const QString &name, const QByteArray &content)
{
    for (auto &part : parts) {
        if (part.first == name)
            part.second = content;
    }
    return parts;
}

Parts removePart(Parts parts, const QString &name)
{
    for (int i = parts.size() - 1; i >= 0; --i) {
        if (parts.at(i).first == name)
            parts.removeAt(i);
    }
    return parts;
}

// The whole data area: cells joined by '|', rows by '\n'.
QString dump(const XlsxReader &reader)
{
    QStringList lines;
    for (int row = 0; row < reader.rowCount(); ++row) {
        QStringList cells;
        for (int column = 0; column < reader.columnCount(); ++column)
            cells << reader.textAt(row, column);
        lines << cells.join(QLatin1Char('|'));
    }
    return lines.join(QLatin1Char('\n'));
}

const QByteArray DateStyles = "<cellXfs count=\"2\"><xf numFmtId=\"0\"/><xf numFmtId=\"14\"/></cellXfs>";

} // namespace

Q_DECLARE_METATYPE(Parts)

class tst_XlsxReader : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();

    void writerValues_data();
    void writerValues();
    void writerSheetShape_data();
    void writerSheetShape();
    void writerFirstWorksheet();

    void handMade_data();
    void handMade();
    void workbookStructure_data();
    void workbookStructure();

    void malformed_data();
    void malformed();
    void truncatedArchive();
    void farSparseCellIsCheap();
    void reopenReplacesSheet();
    void outsideDataAreaIsEmpty();

private:
    QString path(const QString &name) const { return m_dir.filePath(name); }
    QTemporaryDir m_dir;
};

void tst_XlsxReader::initTestCase()
{
    QVERIFY(m_dir.isValid());
}

void tst_XlsxReader::writerValues_data()
{
    QTest::addColumn<QVariant>("value");
    QTest::addColumn<QString>("numberFormat");
    QTest::addColumn<QString>("expected");

    const QString none;
    QTest::newRow("string") << QVariant(QStringLiteral("hello")) << none << "hello";
    QTest::newRow("string keeps blanks") << QVariant(QStringLiteral("  a b ")) << none << "  a b ";
    QTest::newRow("chinese") << QVariant(QStringLiteral("中文数据")) << none << "中文数据";
    QTest::newRow("string with newline") << QVariant(QStringLiteral("a\nb")) << none << "a\nb";
    QTest::newRow("integer") << QVariant(1234567.0) << none << "1234567";
    QTest::newRow("negative") << QVariant(-42.0) << none << "-42";
    QTest::newRow("fraction") << QVariant(0.1) << none << "0.1";
    QTest::newRow("shortest") << QVariant(1.0 / 3) << none << "0.3333333333333333";
    QTest::newRow("fifteen digits") << QVariant(123456789012345.0) << none << "123456789012345";
    QTest::newRow("huge") << QVariant(1e20) << none << "1e+20";
    QTest::newRow("small") << QVariant(0.00015) << none << "0.00015";
    QTest::newRow("tiny") << QVariant(1.5e-7) << none << "1.5e-07";
    QTest::newRow("zero") << QVariant(0.0) << none << "0";
    QTest::newRow("true") << QVariant(true) << none << "TRUE";
    QTest::newRow("false") << QVariant(false) << none << "FALSE";
    QTest::newRow("percent stays number") << QVariant(0.25) << "0.00%" << "0.25";
    QTest::newRow("quoted d is no date") << QVariant(3.0) << "0\" days\"" << "3";
    QTest::newRow("escaped d is no date") << QVariant(3.0) << "0\\d" << "3";
    QTest::newRow("colour is no date") << QVariant(7.0) << "[Red]#,##0" << "7";
    QTest::newRow("date") << QVariant(QDate(2024, 2, 29)) << "yyyy-mm-dd" << "2024-02-29";
    QTest::newRow("date time")
            << QVariant(QDateTime(QDate(2024, 2, 29), QTime(13, 45, 30))) << none
            << "2024-02-29T13:45:30";
    QTest::newRow("date time at midnight")
            << QVariant(QDateTime(QDate(1999, 12, 31), QTime(0, 0))) << none << "1999-12-31";
    QTest::newRow("builtin 14") << QVariant(45351.0) << "14" << "2024-02-29";
    QTest::newRow("builtin 22") << QVariant(45351.75) << "22" << "2024-02-29T18:00:00";
    QTest::newRow("locale date") << QVariant(45351.0) << "yyyy\"年\"m\"月\"d\"日\"" << "2024-02-29";
    QTest::newRow("month name") << QVariant(45351.0) << "d-mmm-yy" << "2024-02-29";
    QTest::newRow("month only") << QVariant(45351.0) << "mmmm" << "2024-02-29";
    QTest::newRow("time") << QVariant(0.5) << "hh:mm:ss" << "12:00:00";
    QTest::newRow("time am pm") << QVariant(0.75) << "h:mm AM/PM" << "18:00:00";
    QTest::newRow("minutes seconds") << QVariant(1.0 / 1440) << "mm:ss" << "00:01:00";
    QTest::newRow("time of a date") << QVariant(45351.25) << "20" << "06:00:00";
    QTest::newRow("elapsed hours") << QVariant(1.5) << "[h]:mm:ss" << "36:00:00";
    QTest::newRow("date before leap bug") << QVariant(59.0) << "14" << "1900-02-28";
    QTest::newRow("phantom leap day") << QVariant(60.0) << "14" << "1900-02-29";
    QTest::newRow("after leap bug") << QVariant(61.0) << "14" << "1900-03-01";
    QTest::newRow("first day") << QVariant(1.0) << "14" << "1900-01-01";
    QTest::newRow("negative date as number") << QVariant(-5.0) << "14" << "-5";
    QTest::newRow("beyond year 9999 as number") << QVariant(3e6) << "14" << "3000000";
}

// Every value is written to B2 of both shared-string and inline-string workbooks.
void tst_XlsxReader::writerValues()
{
    QFETCH(QVariant, value);
    QFETCH(QString, numberFormat);
    QFETCH(QString, expected);

    for (const bool constantMemory : {false, true}) {
        const QString file = path(QStringLiteral("value%1.xlsx").arg(constantMemory));
        XlsxFixture fixture(file, constantMemory);
        fixture.write(1, 1, value, numberFormat);
        QVERIFY(fixture.close());

        XlsxReader reader;
        QVERIFY(reader.open(file));
        QVERIFY(!reader.isEmpty());
        QCOMPARE(reader.rowCount(), 2);
        QCOMPARE(reader.columnCount(), 2);
        QCOMPARE(reader.textAt(0, 0), QString());
        QCOMPARE(reader.textAt(1, 1), expected);
    }
}

void tst_XlsxReader::writerSheetShape_data()
{
    QTest::addColumn<QList<QVariantList>>("rows");
    QTest::addColumn<QString>("expected");

    const QVariant blank;
    QTest::newRow("header and rows")
            << QList<QVariantList>{{"name", "age"}, {"ann", 31.0}, {"bob", 4.5}}
            << "name|age\nann|31\nbob|4.5";
    QTest::newRow("empty middle row")
            << QList<QVariantList>{{"a", "b"}, {}, {"c", "d"}} << "a|b\n|\nc|d";
    QTest::newRow("leading empty rows and columns")
            << QList<QVariantList>{{}, {}, {blank, blank, "x"}} << "||\n||\n||x";
    QTest::newRow("ragged rows")
            << QList<QVariantList>{{"a"}, {"b", "c", "d"}, {"e", blank, blank}}
            << "a||\nb|c|d\ne||";
    QTest::newRow("empty strings do not widen")
            << QList<QVariantList>{{"a", QString()}, {QString(), QString()}} << "a";
}

void tst_XlsxReader::writerSheetShape()
{
    QFETCH(QList<QVariantList>, rows);
    QFETCH(QString, expected);

    const QString file = path(QStringLiteral("shape.xlsx"));
    XlsxFixture fixture(file);
    for (int row = 0; row < rows.size(); ++row)
        fixture.writeRow(row, rows.at(row));
    // Formatted blank cells beyond the values must not widen the data area.
    fixture.write(rows.size() + 3, 8, QVariant());
    fixture.write(0, 12, QVariant());
    QVERIFY(fixture.close());

    XlsxReader reader;
    QVERIFY(reader.open(file));
    QCOMPARE(dump(reader), expected);
}

void tst_XlsxReader::writerFirstWorksheet()
{
    const QString file = path(QStringLiteral("sheets.xlsx"));
    XlsxFixture fixture(file);
    fixture.addSheet(QStringLiteral("First"));
    fixture.write(0, 0, QStringLiteral("first"));
    fixture.writeFormula(0, 1, QStringLiteral("=1+1"), 2.0);
    fixture.writeFormula(0, 2, QStringLiteral("=\"a\"&\"b\""), QStringLiteral("ab"));
    fixture.writeRichString(0, 3, {QStringLiteral("bold "), QStringLiteral("and "),
                                   QStringLiteral("plain")});
    fixture.addSheet(QStringLiteral("Second"));
    fixture.write(0, 0, QStringLiteral("second"));
    QVERIFY(fixture.close());

    XlsxReader reader;
    QVERIFY(reader.open(file));
    QCOMPARE(dump(reader), QStringLiteral("first|2|ab|bold and plain"));
}

void tst_XlsxReader::handMade_data()
{
    QTest::addColumn<Parts>("parts");
    QTest::addColumn<QString>("expected");

    QTest::newRow("inline strings")
            << package(rows("<row r=\"1\"><c r=\"A1\" t=\"inlineStr\"><is><t>abc</t></is></c>"
                            "<c r=\"B1\" t=\"inlineStr\"><is><t/></is></c>"
                            "<c r=\"C1\" t=\"inlineStr\"><is/></c>"
                            "<c r=\"D1\" t=\"inlineStr\"><is><r><t>x</t></r><r><rPr><b/></rPr>"
                            "<t xml:space=\"preserve\"> y </t></r></is></c></row>"))
            << "abc|||x y ";
    QTest::newRow("missing references")
            << package(rows("<row><c><v>1</v></c><c><v>2</v></c></row>"
                            "<row><c r=\"C2\"><v>3</v></c><c><v>4</v></c></row>"
                            "<row r=\"5\"><c><v>5</v></c></row>"
                            "<row><c t=\"inlineStr\"><is><t>6</t></is></c></row>"))
            << "1|2||\n||3|4\n|||\n|||\n5|||\n6|||";
    QTest::newRow("rich text without phonetic runs")
            << package(rows("<row r=\"1\"><c r=\"A1\" t=\"s\"><v>0</v></c>"
                            "<c r=\"B1\" t=\"s\"><v>1</v></c><c r=\"C1\" t=\"s\"><v>7</v></c></row>"),
                       "<si><r><t>東</t></r><r><rPr><b/></rPr><t>京</t></r>"
                       "<rPh sb=\"0\" eb=\"2\"><t>トウキョウ</t></rPh><phoneticPr fontId=\"1\"/></si>"
                       "<si><t>plain</t></si>")
            << "東京|plain";
    QTest::newRow("escaped characters")
            << package(rows("<row><c t=\"s\"><v>0</v></c><c t=\"s\"><v>1</v></c>"
                            "<c t=\"str\"><f>A1</f><v>x_x0009_y</v></c></row>"),
                       "<si><t>a_x000D_b</t></si><si><t>_x005F_x0041_</t></si>")
            << "a\rb|_x0041_|x\ty";
    QTest::newRow("value types")
            << package(rows("<row>"
                            "<c t=\"b\"><v>1</v></c><c t=\"b\"><v>0</v></c>"
                            "<c t=\"e\"><f>1/0</f><v>#DIV/0!</v></c>"
                            "<c t=\"str\"><f>\"a\"&amp;\"b\"</f><v>ab</v></c>"
                            "<c><f>1+1</f><v>2</v></c>"
                            "<c><f>SUM(A9:A10)</f></c>"
                            "<c t=\"n\"><v>1.5E+3</v></c>"
                            "<c><v>12345678.9</v></c>"
                            "<c t=\"s\"><v>99</v></c>"
                            "<c><v>-0</v></c>"
                            "<c t=\"e\"><v>#N/A</v></c>"
                            "</row>"),
                       QByteArray(""))
            << "TRUE|FALSE|#DIV/0!|ab|2||1500|12345678.9||0|#N/A";
    QTest::newRow("1900 dates")
            << package(rows("<row><c s=\"1\"><v>1</v></c><c s=\"1\"><v>60</v></c>"
                            "<c s=\"1\"><v>61</v></c><c s=\"1\"><v>45351.5</v></c>"
                            "<c s=\"0\"><v>45351</v></c><c s=\"9\"><v>45351</v></c></row>"),
                       QByteArray(), DateStyles)
            << "1900-01-01|1900-02-29|1900-03-01|2024-02-29T12:00:00|45351|45351";
    QTest::newRow("1904 dates")
            << package(rows("<row><c s=\"1\"><v>0</v></c><c s=\"1\"><v>1462.5</v></c>"
                            "<c s=\"1\"><v>43889</v></c></row>"),
                       QByteArray(), DateStyles, "date1904=\"1\"")
            << "1904-01-01|1908-01-02T12:00:00|2024-02-29";
    QTest::newRow("1904 written as true")
            << package(rows("<row><c s=\"1\"><v>0</v></c></row>"), QByteArray(), DateStyles,
                       "date1904=\"true\"")
            << "1904-01-01";
    QTest::newRow("custom formats override and cell style xfs ignored")
            << package(rows("<row><c s=\"0\"><v>45351</v></c><c s=\"1\"><v>45351</v></c>"
                            "<c s=\"2\"><v>0.25</v></c><c s=\"3\"><v>2</v></c></row>"),
                       QByteArray(),
                       "<numFmts><numFmt numFmtId=\"164\" formatCode=\"yyyy/m/d\"/>"
                       "<numFmt numFmtId=\"165\" formatCode=\"[$-F400]h:mm:ss\\ AM/PM\"/>"
                       "<numFmt numFmtId=\"14\" formatCode=\"0.0\"/></numFmts>"
                       "<cellStyleXfs><xf numFmtId=\"164\"/></cellStyleXfs>"
                       "<cellXfs><xf numFmtId=\"0\"/><xf numFmtId=\"164\"/><xf numFmtId=\"165\"/>"
                       "<xf numFmtId=\"14\"/></cellXfs>")
            << "45351|2024-02-29|06:00:00|2";
    QTest::newRow("cells out of order and repeated")
            << package(rows("<row r=\"2\"><c r=\"B2\"><v>4</v></c><c r=\"A2\"><v>3</v></c></row>"
                            "<row r=\"1\"><c r=\"A1\"><v>1</v></c><c r=\"A1\"><v>2</v></c></row>"
                            "<row r=\"2\"><c r=\"A2\"><v>5</v></c></row>"))
            << "2|\n5|4";
    QTest::newRow("dimension is ignored")
            << package("<dimension ref=\"A1:Z100\"/>"
                       + rows("<row r=\"1\" spans=\"1:3\"><c r=\"A1\"><v>1</v></c>"
                              "<c r=\"C1\" s=\"1\"/></row><row r=\"40\" customHeight=\"1\"/>")
                       + "<mergeCells count=\"1\"><mergeCell ref=\"A1:D4\"/></mergeCells>")
            << "1";
    QTest::newRow("markup inside text")
            << package(rows("<!-- note --><row r='1'><c r=\"A1\" t='inlineStr' x=\"a>b\"><is><t>"
                            "a&amp;b&lt;&#x41;&#20013;<![CDATA[<x>&amp;]]><!--c--></t></is></c>"
                            "<c r = \"B1\" ><v>1</v></c><?pi x?></row>"),
                       "<si><t>x\r\ny\rz</t></si>")
            << "a&b<A中<x>&amp;|1";
    QTest::newRow("shared string line ends")
            << package(rows("<row><c t=\"s\"><v>0</v></c></row>"), "<si><t>x\r\ny\rz</t></si>")
            << "x\ny\nz";
    QTest::newRow("document type declaration")
            << Parts(replacePart(package(QByteArray()), QStringLiteral("xl/worksheets/sheet1.xml"),
                                 "<?xml version=\"1.0\"?><!DOCTYPE worksheet><worksheet><sheetData>"
                                 "<row><c><v>7</v></c></row></sheetData></worksheet>"))
            << "7";
    const QString utf16 = QStringLiteral("<?xml version=\"1.0\" encoding=\"UTF-16\"?><worksheet>"
                                         "<sheetData><row><c t=\"inlineStr\"><is><t>十六</t></is>"
                                         "</c></row></sheetData></worksheet>");
    QByteArray utf16Bytes("\xFF\xFE", 2);
    utf16Bytes.append(reinterpret_cast<const char *>(utf16.utf16()), utf16.size() * 2);
    QTest::newRow("utf-16 sheet")
            << replacePart(package(QByteArray()), QStringLiteral("xl/worksheets/sheet1.xml"),
                           utf16Bytes)
            << "十六";
    QTest::newRow("empty sheet") << package(rows("")) << "";
    QTest::newRow("self-closed sheet data") << package("<sheetData/>") << "";
}

void tst_XlsxReader::handMade()
{
    QFETCH(Parts, parts);
    QFETCH(QString, expected);

    const QString file = path(QStringLiteral("hand.xlsx"));
    QVERIFY(writeZip(file, parts));
    XlsxReader reader;
    QVERIFY(reader.open(file));
    QCOMPARE(dump(reader), expected);
    QCOMPARE(reader.isEmpty(), expected.isEmpty());
}

void tst_XlsxReader::workbookStructure()
{
    handMade();
}

void tst_XlsxReader::workbookStructure_data()
{
    QTest::addColumn<Parts>("parts");
    QTest::addColumn<QString>("expected");

    const QByteArray sheetA = worksheet(rows("<row><c t=\"inlineStr\"><is><t>A</t></is></c></row>"));
    const QByteArray sheetB = worksheet(rows("<row><c t=\"inlineStr\"><is><t>B</t></is></c></row>"));
    const QByteArray twoSheets = "<workbook xmlns=\"" + MainNs + "\" xmlns:r=\"" + RelNs
            + "\"><sheets><sheet name=\"Data\" sheetId=\"2\" r:id=\"rId7\"/>"
              "<sheet name=\"Other\" sheetId=\"1\" r:id=\"rId1\"/></sheets></workbook>";
    const Parts base = package(rows(""));

    Parts order = replacePart(base, QStringLiteral("xl/workbook.xml"), twoSheets);
    order = replacePart(order, QStringLiteral("xl/_rels/workbook.xml.rels"),
                        relationships(relationship("rId1", "worksheet", "worksheets/sheet1.xml")
                                      + relationship("rId7", "worksheet", "worksheets/sheet2.xml")));
    order = replacePart(order, QStringLiteral("xl/worksheets/sheet1.xml"), sheetB);
    order << qMakePair(QStringLiteral("xl/worksheets/sheet2.xml"), sheetA);
    QTest::newRow("first sheet is not sheet1.xml") << order << "A";

    Parts absolute = replacePart(base, QStringLiteral("xl/_rels/workbook.xml.rels"),
                                 relationships(relationship("rId1", "worksheet", "/xl/data/one.xml")));
    absolute << qMakePair(QStringLiteral("xl/data/one.xml"), sheetA);
    QTest::newRow("absolute target") << absolute << "A";

    Parts chart = replacePart(base, QStringLiteral("xl/workbook.xml"), twoSheets);
    chart = replacePart(chart, QStringLiteral("xl/_rels/workbook.xml.rels"),
                        relationships(relationship("rId7", "chartsheet", "chartsheets/sheet1.xml")
                                      + relationship("rId1", "worksheet", "worksheets/sheet1.xml")));
    chart = replacePart(chart, QStringLiteral("xl/worksheets/sheet1.xml"), sheetB);
    QTest::newRow("chart sheet first") << chart << "B";

    Parts moved;
    moved << qMakePair(QStringLiteral("_rels/.rels"),
                       relationships(relationship("rId1", "officeDocument", "book/main.xml")));
    moved << qMakePair(QStringLiteral("book/main.xml"),
                       "<workbook xmlns=\"" + MainNs + "\" xmlns:r=\"" + RelNs
                               + "\"><sheets><sheet name=\"S\" sheetId=\"1\" r:id=\"x\"/></sheets>"
                                 "</workbook>");
    moved << qMakePair(QStringLiteral("book/_rels/main.xml.rels"),
                       relationships(relationship("x", "worksheet", "../sheets/s%201.xml")));
    moved << qMakePair(QStringLiteral("sheets/s 1.xml"), sheetA);
    QTest::newRow("workbook found through package relationships") << moved << "A";

    Parts noPackageRels = removePart(base, QStringLiteral("_rels/.rels"));
    noPackageRels = replacePart(noPackageRels, QStringLiteral("xl/worksheets/sheet1.xml"), sheetB);
    QTest::newRow("usual workbook place without package relationships") << noPackageRels << "B";

    const QByteArray strictMain = "http://purl.oclc.org/ooxml/spreadsheetml/main";
    const QByteArray strictRel = "http://purl.oclc.org/ooxml/officeDocument/relationships";
    Parts strict;
    strict << qMakePair(QStringLiteral("_rels/.rels"),
                        relationships("<Relationship Id=\"r\" Type=\"" + strictRel
                                      + "/officeDocument\" Target=\"xl/workbook.xml\"/>"));
    strict << qMakePair(QStringLiteral("xl/workbook.xml"),
                        "<x:workbook xmlns:x=\"" + strictMain + "\" xmlns:rel=\"" + strictRel
                                + "\"><x:workbookPr date1904=\"true\"/><x:sheets>"
                                  "<x:sheet name=\"S\" sheetId=\"1\" rel:id=\"s\"/></x:sheets>"
                                  "</x:workbook>");
    strict << qMakePair(QStringLiteral("xl/_rels/workbook.xml.rels"),
                        relationships("<Relationship Id=\"s\" Type=\"" + strictRel
                                      + "/worksheet\" Target=\"worksheets/sheet1.xml\"/>"));
    strict << qMakePair(QStringLiteral("xl/worksheets/sheet1.xml"),
                        "<x:worksheet xmlns:x=\"" + strictMain + "\"><x:sheetData><x:row>"
                        "<x:c><x:v>1</x:v></x:c><x:c t=\"inlineStr\"><x:is><x:t>s</x:t></x:is>"
                        "</x:c></x:row></x:sheetData></x:worksheet>");
    QTest::newRow("strict namespaces and prefixes") << strict << "1|s";
}

void tst_XlsxReader::malformed_data()
{
    QTest::addColumn<Parts>("parts");
    QTest::addColumn<QByteArray>("rawBytes");

    const Parts none;
    const QByteArray zip;
    QTest::newRow("empty file") << none << QByteArray("");
    QTest::newRow("text file") << none << QByteArray("a,b,c\n1,2,3\n");
    QTest::newRow("zip signature only") << none << QByteArray("PK\x03\x04garbage", 11);

    const Parts base = package(rows("<row><c><v>1</v></c></row>"));
    QTest::newRow("zip of other files")
            << Parts{qMakePair(QStringLiteral("readme.txt"), QByteArray("hello"))} << zip;
    QTest::newRow("no workbook") << removePart(base, QStringLiteral("xl/workbook.xml")) << zip;
    QTest::newRow("no workbook relationships")
            << removePart(base, QStringLiteral("xl/_rels/workbook.xml.rels")) << zip;
    QTest::newRow("no sheet part") << removePart(base, QStringLiteral("xl/worksheets/sheet1.xml"))
                                   << zip;
    QTest::newRow("workbook lists no sheet")
            << replacePart(base, QStringLiteral("xl/workbook.xml"),
                           "<workbook xmlns=\"" + MainNs + "\"><sheets/></workbook>")
            << zip;
    QTest::newRow("broken workbook xml")
            << replacePart(base, QStringLiteral("xl/workbook.xml"), "<workbook><sheets>") << zip;
    QTest::newRow("truncated sheet xml")
            << package("<sheetData><row><c><v>1</v></c></row><row><c><v>2") << zip;
    QTest::newRow("sheet xml is binary")
            << replacePart(base, QStringLiteral("xl/worksheets/sheet1.xml"), QByteArray(64, '\x01'))
            << zip;
    QTest::newRow("no sheet data") << package("<dimension ref=\"A1\"/>") << zip;
    QTest::newRow("broken shared strings")
            << package(rows("<row><c t=\"s\"><v>0</v></c></row>"), "<si><t>a</si>") << zip;
    QTest::newRow("missing shared strings part")
            << removePart(package(rows(""), "<si><t>a</t></si>"),
                          QStringLiteral("xl/sharedStrings.xml"))
            << zip;
    QTest::newRow("column beyond the grid")
            << package(rows("<row><c r=\"XFE1\"><v>1</v></c></row>")) << zip;
    QTest::newRow("row beyond the grid")
            << package(rows("<row r=\"1048577\"><c><v>1</v></c></row>")) << zip;
    QTest::newRow("reference beyond the grid")
            << package(rows("<row><c r=\"A1048577\"><v>1</v></c></row>")) << zip;
    QTest::newRow("reference overflowing int")
            << package(rows("<row><c r=\"ZZZZZZZZZZZZ99999999999999999\"><v>1</v></c></row>"))
            << zip;
    QTest::newRow("far corner of the grid")
            << package(rows("<row r=\"1\"><c r=\"A1\"><v>1</v></c></row><row r=\"1048576\">"
                            "<c r=\"XFD1048576\"><v>1</v></c></row>"))
            << zip;
    QTest::newRow("counted cells beyond the last column")
            << package(rows("<row><c r=\"XFD1\"><v>1</v></c><c><v>2</v></c></row>")) << zip;
    QTest::newRow("counted rows beyond the last row")
            << package(rows("<row r=\"1048576\"><c><v>1</v></c></row><row><c><v>2</v></c></row>"))
            << zip;
    QTest::newRow("mismatched end tag")
            << package(rows("<row><c><v>1</c></v></row>")) << zip;
    QTest::newRow("unknown entity")
            << package(rows("<row><c t=\"inlineStr\"><is><t>&nbsp;</t></is></c></row>")) << zip;
    QTest::newRow("unterminated comment") << package(rows("<!-- <row>")) << zip;
    QTest::newRow("row number zero") << package(rows("<row r=\"0\"><c><v>1</v></c></row>")) << zip;
    QTest::newRow("row number not a number")
            << package(rows("<row r=\"x\"><c><v>1</v></c></row>")) << zip;
    QTest::newRow("reference without row")
            << package(rows("<row><c r=\"AB\"><v>1</v></c></row>")) << zip;
    QTest::newRow("reference with row first")
            << package(rows("<row><c r=\"1A\"><v>1</v></c></row>")) << zip;
    // Ten levels of ten-fold entity references: 10^10 characters if expanded.
    QByteArray laughs = "<?xml version=\"1.0\"?><!DOCTYPE w [<!ENTITY a \"aaaaaaaaaa\">";
    for (char level = 'b'; level <= 'k'; ++level) {
        const QByteArray previous = QByteArray("&") + char(level - 1) + ";";
        laughs += QByteArray("<!ENTITY ") + level + " \"" + previous.repeated(10) + "\">";
    }
    laughs += "]><worksheet xmlns=\"" + MainNs + "\"><sheetData><row><c t=\"inlineStr\"><is><t>&k;"
              "</t></is></c></row></sheetData></worksheet>";
    QTest::newRow("entity expansion")
            << replacePart(base, QStringLiteral("xl/worksheets/sheet1.xml"), laughs) << zip;
}

void tst_XlsxReader::malformed()
{
    QFETCH(Parts, parts);
    QFETCH(QByteArray, rawBytes);

    const QString file = path(QStringLiteral("bad.xlsx"));
    QFile::remove(file);
    if (parts.isEmpty())
        QVERIFY(TestSupport::writeFile(file, rawBytes));
    else
        QVERIFY(writeZip(file, parts));
    XlsxReader reader;
    QVERIFY(!reader.open(file));
    QVERIFY(reader.isEmpty());
    QCOMPARE(reader.rowCount(), 0);
    QCOMPARE(reader.columnCount(), 0);
    QCOMPARE(reader.textAt(0, 0), QString());
}

// A writer's archive cut short anywhere must read as no workbook, never as a crash.
void tst_XlsxReader::truncatedArchive()
{
    const QString file = path(QStringLiteral("whole.xlsx"));
    QList<QVariantList> data;
    for (int row = 0; row < 200; ++row)
        data << QVariantList{QStringLiteral("text %1").arg(row), double(row)};
    QVERIFY(TestSupport::writeXlsx(file, data));
    const QByteArray whole = TestSupport::readFile(file);
    QVERIFY(whole.size() > 1000);

    const QString cut = path(QStringLiteral("cut.xlsx"));
    for (const int size : {whole.size() - 30, whole.size() / 2, 100, 22}) {
        QVERIFY(TestSupport::writeFile(cut, whole.left(size)));
        XlsxReader reader;
        QVERIFY2(!reader.open(cut), qPrintable(QString::number(size)));
        QVERIFY(reader.isEmpty());
    }
    // Damage inside the sheet's compressed data must fail the checksum or the parse.
    const int sheet = whole.indexOf("xl/worksheets/sheet1.xml");
    QVERIFY(sheet > 0);
    QByteArray damaged = whole;
    for (int i = sheet + 100; i < sheet + 400; i += 7)
        damaged[i] = char(damaged.at(i) ^ 0x5a);
    QVERIFY(TestSupport::writeFile(cut, damaged));
    XlsxReader reader;
    QVERIFY(!reader.open(cut));
}

// One value far down the sheet spans a large data area that must be stored sparsely.
void tst_XlsxReader::farSparseCellIsCheap()
{
    const QString file = path(QStringLiteral("sparse.xlsx"));
    QVERIFY(writeZip(file, package(rows("<row r=\"1\"><c r=\"A1\"><v>1</v></c></row>"
                                        "<row r=\"1048576\"><c r=\"T1048576\"><v>2</v></c></row>"))));
    XlsxReader reader;
    QVERIFY(reader.open(file));
    QCOMPARE(reader.rowCount(), 1048576);
    QCOMPARE(reader.columnCount(), 20);
    QCOMPARE(reader.textAt(0, 0), QStringLiteral("1"));
    QCOMPARE(reader.textAt(524288, 10), QString());
    QCOMPARE(reader.textAt(1048575, 19), QStringLiteral("2"));
}

void tst_XlsxReader::reopenReplacesSheet()
{
    const QString first = path(QStringLiteral("first.xlsx"));
    const QString second = path(QStringLiteral("second.xlsx"));
    QVERIFY(TestSupport::writeXlsx(first, {{"a", "b", "c"}, {"d"}}));
    QVERIFY(TestSupport::writeXlsx(second, {{"x"}}));

    XlsxReader reader;
    QVERIFY(reader.open(first));
    QCOMPARE(dump(reader), QStringLiteral("a|b|c\nd||"));
    QVERIFY(reader.open(second));
    QCOMPARE(dump(reader), QStringLiteral("x"));
    QVERIFY(!reader.open(path(QStringLiteral("missing.xlsx"))));
    QVERIFY(reader.isEmpty());
    QCOMPARE(dump(reader), QString());
}

void tst_XlsxReader::outsideDataAreaIsEmpty()
{
    const QString file = path(QStringLiteral("small.xlsx"));
    QVERIFY(TestSupport::writeXlsx(file, {{"a", "b"}}));
    XlsxReader reader;
    QVERIFY(reader.open(file));
    QCOMPARE(reader.textAt(-1, 0), QString());
    QCOMPARE(reader.textAt(0, -1), QString());
    QCOMPARE(reader.textAt(1, 0), QString());
    QCOMPARE(reader.textAt(0, 2), QString());
    QCOMPARE(reader.textAt(0, 1), QStringLiteral("b"));

    XlsxReader unopened;
    QVERIFY(unopened.isEmpty());
    QCOMPARE(unopened.textAt(0, 0), QString());
}

QTEST_GUILESS_MAIN(tst_XlsxReader)
#include "tst_xlsxreader.moc"
