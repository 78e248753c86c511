#include <core/xlsxreader.h>

#include "testsupport.h"
#include "xlsxfixture.h"

#include <quazip.h>
#include <quazipfile.h>

#include <QtTest>

using Core::XlsxReader;
using TestSupport::xlsxCell;

namespace {

using Parts = QList<QPair<QString, QByteArray>>;

const QByteArray MainNs = "http://schemas.openxmlformats.org/spreadsheetml/2006/main";
const QByteArray RelNs = "http://schemas.openxmlformats.org/officeDocument/2006/relationships";
const QString SheetPart = QStringLiteral("xl/worksheets/sheet1.xml");

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
    return "<?xml version=\"1.0\" encoding=\"UTF-8\"?><Relationships xmlns=\"http://schemas."
           "openxmlformats.org/package/2006/relationships\">" + body + "</Relationships>";
}

QByteArray worksheet(const QByteArray &body)
{
    return "<?xml version=\"1.0\" encoding=\"UTF-8\" standalone=\"yes\"?><worksheet xmlns=\""
            + MainNs + "\">" + body + "</worksheet>";
}

QByteArray rows(const QByteArray &body)
{
    return "<sheetData>" + body + "</sheetData>";
}

QByteArray workbook(const QByteArray &body)
{
    return "<workbook xmlns=\"" + MainNs + "\" xmlns:r=\"" + RelNs + "\">" + body + "</workbook>";
}

// A workbook of one sheet, with shared strings (<si> items) and styles when given.
Parts package(const QByteArray &sheetBody, const QByteArray &sharedStrings = QByteArray(),
              const QByteArray &styles = QByteArray(), const QByteArray &workbookPr = QByteArray())
{
    QByteArray bookRels = relationship("rId1", "worksheet", "worksheets/sheet1.xml");
    Parts parts{{"_rels/.rels", relationships(relationship("rId1", "officeDocument",
                                                           "xl/workbook.xml"))},
                {"xl/workbook.xml", workbook("<workbookPr " + workbookPr + "/><sheets><sheet "
                                             "name=\"S\" sheetId=\"1\" r:id=\"rId1\"/></sheets>")},
                {SheetPart, worksheet(sheetBody)}};
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
    return parts;
}

// Replaces a part, adds it when missing, or removes it when content is null.
Parts withPart(Parts parts, const QString &name, const QByteArray &content)
{
    auto it = std::find_if(parts.begin(), parts.end(), [&](const auto &p) { return p.first == name; });
    if (it == parts.end() && !content.isNull())
        parts << qMakePair(name, content);
    else if (content.isNull() && it != parts.end())
        parts.erase(it);
    else if (it != parts.end())
        it->second = content;
    return parts;
}

// Adds a row, and again with a document type in every part: the fast scanner leaves such
// parts to the Qt XML parser, so both readers see every case.
template<typename Expected>
void addBoth(const char *name, const Parts &parts, const Expected &expected)
{
    QTest::newRow(name) << parts << expected;
    Parts typed = parts;
    for (auto &part : typed) {
        if (part.second.startsWith("<?xml"))
            part.second.insert(part.second.indexOf("?>") + 2, "<!DOCTYPE x>");
        else if (part.second.startsWith("<"))
            part.second.prepend("<!DOCTYPE x>");
    }
    QTest::newRow(QByteArray(name).append(" (Qt XML)").constData()) << typed << expected;
}

// The data area: cells joined by '|', rows by '\n'.
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

const QByteArray DateStyles = "<cellXfs><xf numFmtId=\"0\"/><xf numFmtId=\"14\"/></cellXfs>";

} // namespace

Q_DECLARE_METATYPE(Parts)

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
    QTest::addColumn<QList<QVariantList>>("rows");
    QTest::addColumn<QString>("expected");

    const QVariant blank;
    QTest::newRow("header and rows") << QList<QVariantList>{{"name", "age"}, {"ann", 31.0}}
                                     << "name|age\nann|31";
    QTest::newRow("empty middle row") << QList<QVariantList>{{"a", "b"}, {}, {"c", "d"}}
                                      << "a|b\n|\nc|d";
    QTest::newRow("leading empty rows and columns")
            << QList<QVariantList>{{}, {}, {blank, blank, "x"}} << "||\n||\n||x";
    QTest::newRow("ragged rows") << QList<QVariantList>{{"a"}, {"b", "c", "d"}, {"e"}}
                                 << "a||\nb|c|d\ne||";
    QTest::newRow("empty strings do not widen")
            << QList<QVariantList>{{"a", QString()}, {QString(), QString()}} << "a";
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

    addBoth("inline strings",
            package(rows("<row r=\"1\"><c r=\"A1\" t=\"inlineStr\"><is><t>abc</t></is></c>"
                         "<c r=\"B1\" t=\"inlineStr\"><is><t/></is></c><c r=\"C1\" t=\"inlineStr\">"
                         "<is/></c><c r=\"D1\" t=\"inlineStr\"><is><r><t>x</t></r><r><rPr><b/>"
                         "</rPr><t xml:space=\"preserve\"> y </t></r></is></c></row>")),
            "abc|||x y ");
    addBoth("missing references",
            package(rows("<row><c><v>1</v></c><c><v>2</v></c></row><row><c r=\"C2\"><v>3</v></c>"
                         "<c><v>4</v></c></row><row r=\"5\"><c><v>5</v></c></row>"
                         "<row><c t=\"inlineStr\"><is><t>6</t></is></c></row>")),
            "1|2||\n||3|4\n|||\n|||\n5|||\n6|||");
    addBoth("rich text without phonetic runs",
            package(rows("<row r=\"1\"><c r=\"A1\" t=\"s\"><v>0</v></c><c r=\"B1\" t=\"s\"><v>1</v>"
                         "</c><c r=\"C1\" t=\"s\"><v>7</v></c></row>"),
                    "<si><r><t>東</t></r><r><rPr><b/></rPr><t>京</t></r><rPh sb=\"0\" eb=\"2\">"
                    "<t>トウキョウ</t></rPh><phoneticPr fontId=\"1\"/></si><si><t>plain</t></si>"),
            "東京|plain");
    addBoth("escaped characters",
            package(rows("<row><c t=\"s\"><v>0</v></c><c t=\"s\"><v>1</v></c>"
                         "<c t=\"str\"><f>A1</f><v>x_x0009_y</v></c></row>"),
                    "<si><t>a_x000D_b</t></si><si><t>_x005F_x0041_</t></si>"),
            "a\rb|_x0041_|x\ty");
    addBoth("value types",
            package(rows("<row><c t=\"b\"><v>1</v></c><c t=\"b\"><v>0</v></c><c t=\"e\"><f>1/0</f>"
                         "<v>#DIV/0!</v></c><c t=\"str\"><f>\"a\"&amp;\"b\"</f><v>ab</v></c><c>"
                         "<f>1+1</f><v>2</v></c><c><f>SUM(A9:A10)</f></c><c t=\"n\"><v>1.5E+3</v>"
                         "</c><c><v>12345678.9</v></c><c t=\"s\"><v>99</v></c><c><v>-0</v></c>"
                         "<c t=\"e\"><v>#N/A</v></c></row>"), ""),
            "TRUE|FALSE|#DIV/0!|ab|2||1500|12345678.9||0|#N/A");
    addBoth("dates in 1900 and out of range styles",
            package(rows("<row><c s='1'><v>45351.5</v></c><c s='9'><v>45351</v></c></row>"),
                    QByteArray(), DateStyles), "2024-02-29T12:00:00|45351");
    addBoth("1904 dates", package(rows("<row><c s='1'><v>0</v></c><c s='1'><v>43889.5</v></c>"
                                       "</row>"), QByteArray(), DateStyles, "date1904='1'"),
            "1904-01-01|2024-02-29T12:00:00");
    addBoth("1904 written as true", package(rows("<row><c s='1'><v>0</v></c></row>"), QByteArray(),
                                            DateStyles, "date1904='true'"), "1904-01-01");
    addBoth("custom formats override and cell style xfs ignored",
            package(rows("<row><c s=\"0\"><v>45351</v></c><c s=\"1\"><v>45351</v></c><c s=\"2\">"
                         "<v>0.25</v></c><c s=\"3\"><v>2</v></c></row>"), QByteArray(),
                    "<numFmts><numFmt numFmtId=\"164\" formatCode=\"yyyy/m/d\"/><numFmt numFmtId="
                    "\"165\" formatCode=\"[$-F400]h:mm:ss\\ AM/PM\"/><numFmt numFmtId=\"14\" "
                    "formatCode=\"0.0\"/></numFmts><cellStyleXfs><xf numFmtId=\"164\"/>"
                    "</cellStyleXfs><cellXfs><xf numFmtId=\"0\"/><xf numFmtId=\"164\"/><xf "
                    "numFmtId=\"165\"/><xf numFmtId=\"14\"/></cellXfs>"),
            "45351|2024-02-29|06:00:00|2");
    addBoth("cells out of order and repeated",
            package(rows("<row r=\"2\"><c r=\"B2\"><v>4</v></c><c r=\"A2\"><v>3</v></c></row>"
                         "<row r=\"1\"><c r=\"A1\"><v>1</v></c><c r=\"A1\"><v>2</v></c></row>"
                         "<row r=\"2\"><c r=\"A2\"><v>5</v></c></row>")),
            "2|\n5|4");
    addBoth("dimension, spans and merges ignored",
            package("<dimension ref=\"A1:Z100\"/>" + rows("<row r=\"1\" spans=\"1:3\"><c r=\"A1\">"
                    "<v>1</v></c><c r=\"C1\" s=\"1\"/></row><row r=\"40\" customHeight=\"1\"/>")
                    + "<mergeCells count=\"1\"><mergeCell ref=\"A1:D4\"/></mergeCells>"),
            "1");
    addBoth("markup inside text",
            package(rows("<!-- note --><row r='1'><c r=\"A1\" t='inlineStr' x=\"a>b\"><is><t>a&amp;"
                         "b&lt;&#x41;&#20013;<![CDATA[<x>&amp;]]><!--c--></t></is></c><c r = \"B1\""
                         " ><v>1</v></c><?pi x?></row><row><c t=\"s\"><v>0</v></c></row>"),
                    "<si><t>x\r\ny\rz</t></si>"),
            "a&b<A中<x>&amp;|1\nx\ny\nz|");
    const QString utf16 = QStringLiteral("<?xml version=\"1.0\" encoding=\"UTF-16\"?><worksheet>"
                                         "<sheetData><row><c t=\"inlineStr\"><is><t>十六</t></is>"
                                         "</c></row></sheetData></worksheet>");
    const QByteArray utf16Bytes = QByteArray("\xFF\xFE", 2)
            + QByteArray(reinterpret_cast<const char *>(utf16.utf16()), utf16.size() * 2);
    QTest::newRow("utf-16 sheet") << withPart(package(""), SheetPart, utf16Bytes) << "十六";
    addBoth("empty sheet", package(rows("")), "");
    addBoth("self-closed sheet data", package("<sheetData/>"), "");

    // Which part is the first worksheet comes from the workbook and its relationships.
    const QByteArray sheetA = worksheet(rows("<row><c t=\"inlineStr\"><is><t>A</t></is></c></row>"));
    const QByteArray sheetB = worksheet(rows("<row><c t=\"inlineStr\"><is><t>B</t></is></c></row>"));
    const QString bookRels = QStringLiteral("xl/_rels/workbook.xml.rels");
    const Parts twoSheets = withPart(withPart(package(""), "xl/workbook.xml", workbook(
            "<sheets><sheet name=\"Data\" sheetId=\"2\" r:id=\"rId7\"/><sheet name=\"Other\" "
            "sheetId=\"1\" r:id=\"rId1\"/></sheets>")), SheetPart, sheetB);
    addBoth("first sheet is not sheet1.xml",
            withPart(withPart(twoSheets, bookRels, relationships(
                    relationship("rId1", "worksheet", "worksheets/sheet1.xml")
                    + relationship("rId7", "worksheet", "worksheets/sheet2.xml"))),
                     "xl/worksheets/sheet2.xml", sheetA), "A");
    addBoth("chart sheet first", withPart(twoSheets, bookRels, relationships(
                    relationship("rId7", "chartsheet", "chartsheets/sheet1.xml")
                    + relationship("rId1", "worksheet", "worksheets/sheet1.xml"))), "B");
    addBoth("absolute target", withPart(withPart(package(""), bookRels, relationships(
                    relationship("rId1", "worksheet", "/xl/data/one.xml"))),
                                        "xl/data/one.xml", sheetA), "A");
    addBoth("workbook found through package relationships",
            Parts{{"_rels/.rels", relationships(relationship("r", "officeDocument", "bk/m.xml"))},
                  {"bk/m.xml", workbook("<sheets><sheet name=\"S\" sheetId=\"1\" r:id=\"x\"/>"
                                        "</sheets>")},
                  {"bk/_rels/m.xml.rels", relationships(relationship("x", "worksheet",
                                                                     "../sheets/s%201.xml"))},
                  {"sheets/s 1.xml", sheetA}}, "A");
    addBoth("usual workbook place without package relationships",
            withPart(withPart(package(""), "_rels/.rels", QByteArray()), SheetPart, sheetB), "B");
    Parts strict = package(rows("<row><c><v>1</v></c></row>"));
    for (auto &part : strict) {
        QString xml = QString::fromUtf8(part.second.replace(MainNs, "http://purl.oclc.org/ooxml/"
                "spreadsheetml/main").replace(RelNs, "http://purl.oclc.org/ooxml/officeDocument/"
                "relationships").replace("r:id", "rel:id").replace(":r=", ":rel="));
        if (!part.first.contains(QLatin1String("_rels")))
            xml.replace("xmlns=", "xmlns:x=").replace(QRegularExpression("<(/?)(?=\\w)"), "<\\1x:");
        part.second = xml.toUtf8();
    }
    addBoth("strict namespaces and prefixes", strict, "1");
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

void tst_XlsxReader::malformed_data()
{
    QTest::addColumn<Parts>("parts");
    QTest::addColumn<QByteArray>("bytes");

    const Parts base = package(rows("<row><c><v>1</v></c></row>"));
    const QByteArray zip;
    QTest::newRow("empty file") << Parts() << QByteArray("");
    QTest::newRow("text file") << Parts() << QByteArray("a,b,c\n1,2,3\n");
    QTest::newRow("zip signature only") << Parts() << QByteArray("PK\x03\x04garbage", 11);
    // A writer's archive cut short, or damaged inside the sheet's compressed data.
    const QString whole = path(QStringLiteral("whole.xlsx"));
    QList<QVariantList> data;
    for (int row = 0; row < 200; ++row)
        data << QVariantList{QStringLiteral("text %1").arg(row), double(row)};
    QVERIFY(TestSupport::writeXlsx(whole, data));
    const QByteArray bytes = TestSupport::readFile(whole);
    for (const int size : {bytes.size() - 30, bytes.size() / 2, 100, 22})
        QTest::addRow("cut to %d bytes", size) << Parts() << bytes.left(size);
    QByteArray damaged = bytes;
    const int sheet = bytes.indexOf("xl/worksheets/sheet1.xml");
    for (int i = sheet + 100; sheet > 0 && i < sheet + 400; i += 7)
        damaged[i] = char(damaged.at(i) ^ 0x5a);
    QTest::newRow("damaged sheet data") << Parts() << damaged;

    addBoth("zip of other files", Parts{{"readme.txt", "hello"}}, zip);
    addBoth("no workbook", withPart(base, "xl/workbook.xml", QByteArray()), zip);
    addBoth("no workbook relationships", withPart(base, "xl/_rels/workbook.xml.rels", QByteArray()),
            zip);
    addBoth("no sheet part", withPart(base, SheetPart, QByteArray()), zip);
    addBoth("workbook lists no sheet", withPart(base, "xl/workbook.xml", workbook("<sheets/>")), zip);
    addBoth("broken workbook xml", withPart(base, "xl/workbook.xml", "<workbook><sheets>"), zip);
    addBoth("truncated sheet xml", package("<sheetData><row><c><v>1</v></c></row><row><c><v>2"), zip);
    addBoth("sheet xml is binary", withPart(base, SheetPart, QByteArray(64, '\x01')), zip);
    addBoth("no sheet data", package("<dimension ref=\"A1\"/>"), zip);
    addBoth("broken shared strings", package(rows("<row><c t=\"s\"><v>0</v></c></row>"),
                                             "<si><t>a</si>"), zip);
    addBoth("missing shared strings part",
            withPart(package(rows(""), "<si><t>a</t></si>"), "xl/sharedStrings.xml", QByteArray()),
            zip);
    const QList<QPair<const char *, QByteArray>> badRows = {
        {"column beyond the grid", "<row><c r=\"XFE1\"><v>1</v></c></row>"},
        {"row beyond the grid", "<row r=\"1048577\"><c><v>1</v></c></row>"},
        {"reference beyond the grid", "<row><c r=\"A1048577\"><v>1</v></c></row>"},
        {"reference overflowing int", "<row><c r=\"ZZZZZZZZZZZZ99999999999999999\"><v>1</v></c></row>"},
        {"area too large to walk", "<row><c r=\"A1\"><v>1</v></c></row><row r=\"1048576\">"
                                   "<c r=\"XFD1048576\"><v>1</v></c></row>"},
        {"counted cells beyond the last column", "<row><c r=\"XFD1\"><v>1</v></c><c><v>2</v></c></row>"},
        {"counted rows beyond the last row",
         "<row r=\"1048576\"><c><v>1</v></c></row><row><c><v>2</v></c></row>"},
        {"mismatched end tag", "<row><c><v>1</c></v></row>"},
        {"unknown entity", "<row><c t=\"inlineStr\"><is><t>&nbsp;</t></is></c></row>"},
        {"unterminated comment", "<!-- <row>"},
        {"row number zero", "<row r=\"0\"><c><v>1</v></c></row>"},
        {"row number not a number", "<row r=\"x\"><c><v>1</v></c></row>"},
        {"reference without row", "<row><c r=\"AB\"><v>1</v></c></row>"},
        {"reference with row first", "<row><c r=\"1A\"><v>1</v></c></row>"}};
    for (const auto &bad : badRows)
        addBoth(bad.first, package(rows(bad.second)), zip);
    // Ten levels of ten-fold entity references: 10^10 characters if expanded.
    QByteArray laughs = "<?xml version=\"1.0\"?><!DOCTYPE w [<!ENTITY a \"aaaaaaaaaa\">";
    for (char level = 'b'; level <= 'k'; ++level)
        laughs += QByteArray("<!ENTITY ") + level + " \"" + (QByteArray("&") + char(level - 1)
                                                             + ";").repeated(10) + "\">";
    laughs += "]><worksheet><sheetData><row><c t=\"inlineStr\"><is><t>&k;</t></is></c></row>"
              "</sheetData></worksheet>";
    QTest::newRow("entity expansion") << withPart(base, SheetPart, laughs) << zip;
}

void tst_XlsxReader::malformed()
{
    QFETCH(Parts, parts);
    QFETCH(QByteArray, bytes);

    const QString file = path(QStringLiteral("bad.xlsx"));
    QFile::remove(file);
    QVERIFY(parts.isEmpty() ? TestSupport::writeFile(file, bytes) : writeZip(file, parts));
    XlsxReader reader;
    QVERIFY(!reader.open(file));
    QVERIFY(reader.isEmpty());
    QCOMPARE(reader.rowCount() + reader.columnCount(), 0);
    QCOMPARE(reader.textAt(0, 0), QString());
}

// One value far down the sheet spans a data area that must be stored sparsely.
void tst_XlsxReader::farSparseCellIsCheap()
{
    const QString file = path(QStringLiteral("sparse.xlsx"));
    QVERIFY(writeZip(file, package(rows("<row r=\"1\"><c r=\"A1\"><v>1</v></c></row>"
                                        "<row r=\"1048576\"><c r=\"T1048576\"><v>2</v></c></row>"))));
    XlsxReader reader;
    QVERIFY(reader.open(file));
    QCOMPARE(reader.rowCount(), 1048576);
    QCOMPARE(reader.columnCount(), 20);
    QCOMPARE(reader.textAt(0, 0) + reader.textAt(524288, 10) + reader.textAt(1048575, 19),
             QStringLiteral("12"));
}

QTEST_GUILESS_MAIN(tst_XlsxReader)
#include "tst_xlsxreader.moc"
