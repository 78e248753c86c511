#include <core/xlsxreader.h>
#include <core/xlsxstyles_p.h>

#include "testsupport.h"
#include "xlsxfixture.h"

#include <quazip.h>
#include <quazipfile.h>

#include <QTextCodec>
#include <QtTest>

#include <sys/resource.h>

using namespace TestSupport::Xlsx;

namespace {

const QString Sheet = QStringLiteral("xl/worksheets/sheet1.xml");

// parts with one part replaced; null content removes it.
Parts with(Parts parts, const QString &name, const QByteArray &content)
{
    content.isNull() ? void(parts.remove(name)) : void(parts.insert(name, content));
    return parts;
}

bool writeParts(const QString &path, const Parts &parts)
{
    if (parts.contains(QString()))
        return TestSupport::writeFile(path, parts.value(QString()));
    QuaZip zip(path);
    bool ok = zip.open(QuaZip::mdCreate);
    for (auto it = parts.cbegin(); ok && it != parts.cend(); ++it) {
        QuaZipFile file(&zip);
        ok = file.open(QIODevice::WriteOnly, QuaZipNewInfo(it.key())) && file.write(*it) == it->size();
    }
    zip.close();
    return ok && zip.getZipError() == UNZ_OK;
}

long peakKb()
{
    rusage usage = {};
    getrusage(RUSAGE_SELF, &usage);
    return usage.ru_maxrss;
}

} // namespace

class tst_XlsxReader : public QObject
{
    Q_OBJECT

private slots:
    void sparseFarCell();
    void numberFormats_data();
    void numberFormats();
    void files_data();
    void files();

private:
    QTemporaryDir m_dir;
};

// A value far below A1 spans 2^26 cells, the most a sheet may span, stored sparsely (the first
// test, so that the peak memory of the process is its own).
void tst_XlsxReader::sparseFarCell()
{
    const QString file = m_dir.filePath("sparse.xlsx");
    QVERIFY(writeParts(file, package("<row>{r='A1':1}</row><row r='1048576'>{r='BL1048576':2}</row>")));
    const long before = peakKb();
    Core::XlsxReader reader;
    QVERIFY(reader.open(file));
    QCOMPARE(reader.rowCount() + reader.columnCount(), 1048576 + 64);
    QCOMPARE(reader.textAt(0, 0) + reader.textAt(524288, 10) + reader.textAt(1048575, 63), "12");
    QVERIFY2(peakKb() - before < 64 * 1024, qPrintable(QString::number(peakKb() - before)));
}

void tst_XlsxReader::numberFormats_data()
{
    QTest::addColumn<QString>("format"); // a built-in format's number, or a format code
    QTest::addColumn<double>("value");
    QTest::addColumn<QString>("expected");
    const struct { const char *format; double value; const char *expected; } cases[] = {
        {"0", -1234567, "-1234567"}, {"0", 1.0 / 3, "0.3333333333333333"}, {"0", -0.0, "0"},
        {"0", 123456789012345, "123456789012345"}, {"0", 1e20, "1e+20"}, {"0", 1.5e-7, "1.5e-07"},
        {"0", 0.00015, "0.00015"}, {"0.00%", 0.25, "0.25"}, {"0\" days\"", 3, "3"}, {"0\\d", 3, "3"},
        {"[Red]#,##0", 7, "7"}, {"yyyy/m/d", 45351, "2024-02-29"}, {"mmmm", 45351, "2024-02-29"},
        {"22", 45351.75, "2024-02-29T18:00:00"}, {"yyyy\"年\"m\"月\"d\"日\"", 45351, "2024-02-29"},
        {"hh:mm:ss", 0.5, "12:00:00"}, {"[$-F400]h:mm:ss\\ AM/PM", 0.75, "18:00:00"},
        {"mm:ss", 1.0 / 1440, "00:01:00"}, {"20", 45351.25, "06:00:00"}, {"57", 45351, "2024-02-29"},
        {"[h]:mm:ss", 1.5, "36:00:00"}, {"14", 59, "1900-02-28"}, {"14", 60, "1900-02-29"},
        {"14", 61, "1900-03-01"}, {"14", -5, "-5"}, {"14", 3e6, "3000000"}};
    for (const auto &c : cases)
        QTest::addRow("%s %g", c.format, c.value) << QString::fromUtf8(c.format) << c.value << c.expected;
}

void tst_XlsxReader::numberFormats()
{
    QFETCH(QString, format);
    QFETCH(double, value);
    bool builtin = false;
    const int id = format.toInt(&builtin);
    const auto display = builtin ? Core::Xlsx::builtinDisplay(id) : Core::Xlsx::customDisplay(format);
    QTEST(Core::Xlsx::numberText(value, display, false), "expected");
}

void tst_XlsxReader::files_data()
{
    QTest::addColumn<Parts>("parts");
    QTest::addColumn<QString>("expected"); // null: the file is refused

    QTest::newRow("shared, inline, rich strings") << package("<row>{t='s':0}{t='s':1}{\"a\"}<c "
            "t='inlineStr'><is><r><t>x</t></r><r><rPr/><t> y </t></r></is></c><c t='inlineStr'><is>"
            "<t>a<t>b</t></t></is></c></row>", "<si><r><t>東</t></r><r><t>京</t></r><rPh><t>トウ</t>"
            "</rPh></si><si><t>a_x000D_b</t></si>") << "東京|a\rb|a|x y |a";
    QTest::newRow("references") << package("<row>{:1}{:2}</row><row>{r='C2':3}{:4}</row><row "
            "r='4'>{:5}</row><row>{:9}</row><row r='3'>{r='B3':6}{r='A3':7}{r='A3':8}</row>")
            << "1|2||\n||3|4\n8|6||\n5|||\n9|||";
    QTest::newRow("value types") << package("<row>{t='b':1}{t='b':0}<c t='e'><f>1/0</f><v>#DIV/0!"
            "</v></c><c t='str'><f>A1</f><v>x_x0009_y</v></c><c><f>A1</f></c>{t='n':1.5E+3}{: +7 }"
            "{t='s':99}<c t='d'><v>2024-02-29</v></c></row>") << "TRUE|FALSE|#DIV/0!|x\ty||1500|7||2024-02-29";
    QTest::newRow("markup in text") << package("<!-- n --><row><c t='inlineStr' x=\"a>b\"><is><t>a&amp;"
            "&#x41;&#20013;<![CDATA[<x>&amp;]]><!--c--></t></is></c><?pi x?>{t='s':0}</row>",
            "<si><t>x\r\ny\rz</t></si>") << "a&A中<x>&amp;|x\ny\nz";
    const Parts base = package("<row>{:1}</row>");
    const QByteArray sheet = base.value(Sheet);
    QTest::newRow("utf-16, document type") << with(base, Sheet, QTextCodec::codecForName("UTF-16")
            ->fromUnicode(QString::fromUtf8("<?xml version='1.0' encoding='UTF-16'?><!DOCTYPE w>" + sheet)))
            << "1";
    Parts strict = base;
    for (QByteArray &part : strict)
        part.replace("schemas.openxmlformats.org/spreadsheetml/2006", "purl.oclc.org/ooxml/spreadsheetml")
                .replace("schemas.openxmlformats.org/officeDocument/2006", "purl.oclc.org/ooxml/officeDocument");
    QTest::newRow("strict namespaces") << strict << "1";
    QTest::newRow("other namespaces") << package("<row><x:c xmlns:x='u'><v>1</v></x:c><c xmlns='u'>"
            "<v>2</v></c>{:3}</row>") << "3";
    QTest::newRow("empty sheet") << package("") << "";
    QTest::newRow("1904 and an extension element") << package("<row>{s='1':43889.5}</row>", "",
            "<cellXfs><xf/><xf numFmtId='14'/></cellXfs>", "<workbookPr date1904='true'/><extLst>"
            "<ext xmlns:x='u'><x:workbookPr/></ext></extLst>") << "2024-02-29T12:00:00";
    QTest::newRow("dxfs keep cell formats") << package("<row>{s='1':45351}{s='7':1}</row>", "",
            "<numFmts><numFmt numFmtId='164' formatCode='yyyy-mm-dd'/></numFmts><cellXfs><xf/><xf "
            "numFmtId='164'/></cellXfs><dxfs><dxf><numFmt numFmtId='164' formatCode='0.00'/></dxf>"
            "</dxfs>") << "2024-02-29|1";
    QTest::newRow("first worksheet through relationships") << with(with(with(base, "xl/workbook.xml",
            QByteArray(base.value("xl/workbook.xml")).replace("<sheets>", "<sheets><sheet r:id="
            "'rId2'/><sheet r:id='rId4'/>")), "xl/_rels/workbook.xml.rels", rels({"worksheet", "x",
            "chartsheet", "worksheets/sheet1.xml", "worksheet", "/xl/a%20b.xml"})), "xl/a b.xml",
            QByteArray(sheet).replace("1", "2")) << "2";
    Parts moved = with(base, "_rels/.rels", rels({"officeDocument", "bk/m.xml"}));
    moved["bk/m.xml"] = moved.take("xl/workbook.xml");
    moved["bk/_rels/m.xml.rels"] = moved.take("xl/_rels/workbook.xml.rels").replace("t='", "t='../xl/");
    QTest::newRow("workbook through package relationships") << moved << "1";
    QTest::newRow("usual workbook place") << with(base, "_rels/.rels", QByteArray()) << "1";

    const QString refused;
    QTest::newRow("text file") << Parts{{QString(), "a,b\n1,2\n"}} << refused;
    QTest::newRow("zip of other files") << Parts{{"readme.txt", "hello"}} << refused;
    for (const QString bomb : {"bomb-sharedstrings.xlsx", "bomb-sheet.xlsx"})
        QTest::newRow(qPrintable(bomb)) << Parts{{"", TestSupport::readFile(ZQ_TEST_DATA_DIR "/" + bomb)}} << refused;
    QVERIFY(TestSupport::writeXlsxGrid(m_dir.filePath("whole.xlsx"), 200, 2));
    QByteArray bytes = TestSupport::readFile(m_dir.filePath("whole.xlsx"));
    for (const int size : {bytes.size() - 30, bytes.size() / 2, 22})
        QTest::addRow("cut to %d bytes", size) << Parts{{QString(), bytes.left(size)}} << refused;
    for (int i = bytes.indexOf("sheet1.xml") + 100; i < bytes.indexOf("sheet1.xml") + 400; i += 7)
        bytes[i] = char(bytes.at(i) ^ 0x5a);
    QTest::newRow("damaged sheet data") << Parts{{QString(), bytes}} << refused;
    for (const QString &part : base.keys()) {
        QTest::addRow("malformed %s", qPrintable(part)) << with(base, part, base.value(part) + "<") << refused;
        QTest::addRow("without %s", qPrintable(part)) << with(base, part, part.startsWith('_') ? "" : QByteArray()) << refused;
    }
    QTest::newRow("no worksheet listed") << with(base, "xl/workbook.xml", QByteArray(base.value(
            "xl/workbook.xml")).replace("<sheet ", "<chartsheet ")) << refused;
    QTest::newRow("no sheet data") << with(base, Sheet, QByteArray(sheet).replace("sheetData", "x")) << refused;
    for (const char *bad : {"\xff", "&#1;", "\x01", "&#xFFFE;", "&nbsp;", "</c>", "<!--", "<y:t/>",
                            "<t a='1' a='2'/>"})
        QTest::addRow("bad text %s", bad) << with(base, Sheet, QByteArray(sheet).replace(">1<", ">" + QByteArray(bad) + "<")) << refused;
    for (const char *rows : {"{r='XFE1':1}", "{r='XFD1':1}{:2}", "{r='ZZZZZZZZZZZZZZZZZ99999999':1}",
            "</row><row r='1048577'>", "</row><row r='1048576'></row><row>{:1}", "</row><row r='0'>",
            "{r='AB':1}", "</row><row r='1048576'>{r='BM1048576':2}"})
        QTest::addRow("beyond the grid %s", rows) << package("<row>{:1}" + QByteArray(rows) + "</row>") << refused;

    // 4 MB of text from a few hundred bytes, and 10^10 references to nothing.
    QByteArray laughs = "<!ENTITY a 'aaaa'>", nothing = "<!ENTITY a ''>";
    for (char level = 'b'; level <= 'k'; ++level) {
        const QByteArray name(1, level), previous = "&" + QByteArray(1, char(level - 1)) + ";";
        laughs += level <= 'g' ? "<!ENTITY " + name + " '" + previous.repeated(10) + "'>" : "";
        nothing += "<!ENTITY " + name + " '" + previous.repeated(10) + "'>";
    }
    for (const QByteArray &entities : {laughs, nothing})
        QTest::addRow("entities %d", entities.size()) << with(base, Sheet, "<!DOCTYPE w [" + entities
                + "]>" + QByteArray(sheet).replace(">1<", entities == laughs ? ">&g;<" : ">&k;<")) << refused;
}

// Every file is read the same from any reader: the refused ones leave it empty.
void tst_XlsxReader::files()
{
    QFETCH(Parts, parts);
    QFETCH(QString, expected);
    const QString file = m_dir.filePath("hand.xlsx");
    QVERIFY(writeParts(file, parts));
    Core::XlsxReader reader;
    QVERIFY(reader.open(m_dir.filePath("whole.xlsx")));
    QCOMPARE(reader.open(file), !expected.isNull());
    QCOMPARE(dump(reader), expected);
    QCOMPARE(reader.isEmpty(), expected.isEmpty());
}

QTEST_GUILESS_MAIN(tst_XlsxReader)
#include "tst_xlsxreader.moc"
