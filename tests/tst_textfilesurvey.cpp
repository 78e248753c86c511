#include <database/textfilesurvey.h>

#include "testsupport.h"

#include <QtTest>

using Database::TextFileSurvey;

class tst_TextFileSurvey : public QObject
{
    Q_OBJECT

private slots:
    void looksLikeUtf8_data();
    void looksLikeUtf8();
    void headAndRows();
    void stagesUtf8AndStandardInput();
    void lineRuleChanges_data();
    void lineRuleChanges();

private:
    QString write(const QByteArray &bytes)
    {
        const QString path = m_dir.filePath(QString::number(++m_files));
        return TestSupport::writeFile(path, bytes) ? path : QString();
    }
    QTemporaryDir m_dir;
    int m_files = 0;
};

void tst_TextFileSurvey::looksLikeUtf8_data()
{
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<bool>("utf8");

    const QByteArray head(64 * 1024 - 1, 'a'); // the first 64 KiB are looked at
    QTest::newRow("byte-order mark") << QByteArray("\xEF\xBB\xBFplain") << true;
    QTest::newRow("ASCII only") << QByteArray("a,b\n") << false;
    QTest::newRow("two-byte text") << QByteArray("caf\xC3\xA9,1\n") << true;
    QTest::newRow("GB2312 text") << QByteArray("\xce\xf7\xb0\xb2,1\n") << false;
    QTest::newRow("cut at the head's end") << "\xC3\xA9" + head.mid(2) + "\xE2\x82\xAC" << true;
    QTest::newRow("only a cut sequence") << head + "\xE2\x82\xAC" << false;
    QTest::newRow("surrogate") << QByteArray("\xED\xA1\xB0,\xC3\xA9") << false;
    QTest::newRow("overlong") << QByteArray("\xE0\x80\xAF,\xC3\xA9") << false;
}

void tst_TextFileSurvey::looksLikeUtf8()
{
    QFETCH(QByteArray, bytes);
    QFETCH(bool, utf8);
    QCOMPARE(TextFileSurvey::looksLikeUtf8(write(bytes)), utf8);
}

// The separator check's lines skip empty lines and those that yield no field; rows count every
// line that yields one, past the head too.
void tst_TextFileSurvey::headAndRows()
{
    const QString path = write("a,b\n\n,,\nc\n1,2,3\n4,5\n6\n7,8\n9,9\n");
    QList<int> numbers, fields;
    for (const TextFileSurvey::HeadLine &line : TextFileSurvey::head(path, ","))
        numbers << line.number, fields << line.fields;
    QCOMPARE(numbers, (QList<int>{1, 4, 5, 6, 7}));
    QCOMPARE(fields, (QList<int>{2, 1, 3, 2, 1}));
    QCOMPARE(TextFileSurvey::countRows(path, ","), 7);
}

// A UTF-8 file staged for the per-line rule reads back as the same lines; a device is copied
// whole into a file.
void tst_TextFileSurvey::stagesUtf8AndStandardInput()
{
    const QByteArray text("\xEF\xBB\xBF\xe5\x90\x8d,b\n\r\nx,\xc3\xa9\n");
    const QString staged = m_dir.filePath("staged");
    QString error;
    QVERIFY(TextFileSurvey::writeUtf8Copy(write(text), staged, &error));
    QCOMPARE(TestSupport::readFile(staged),
             QByteArray("\xEF\xBB\xBF\xe5\x90\x8d,b\n\r\n"
                        "\xEF\xBB\xBFx,\xc3\xa9\n"));
    QVERIFY(!TextFileSurvey::writeUtf8Copy(write(text), "/dev/full", &error) && !error.isEmpty());
    const QString bigStaged = m_dir.filePath("big-staged"); // written in blocks of 1 MiB
    QVERIFY(TextFileSurvey::writeUtf8Copy(write(QByteArray("x\n").repeated(600000)), bigStaged, &error));
    QCOMPARE(TestSupport::readFile(bigStaged), QByteArray("\xEF\xBB\xBFx\n").repeated(600000));
    error.clear();
    const QStringList lines{QString::fromUtf8("\xe5\x90\x8d,b"), "",
                            QString::fromUtf8("x,\xc3\xa9")};
    QCOMPARE(TextFileSurvey::readLines(staged, false, &error), lines);
    QCOMPARE(TextFileSurvey::readLines(write(text), true, &error), lines);
    QVERIFY(error.isEmpty());
    QVERIFY(TextFileSurvey::readLines(m_dir.filePath("missing"), true, &error).isEmpty());
    QVERIFY(!error.isEmpty());

    QByteArray big(3 << 20, 'x');
    QBuffer source(&big);
    QFile target(m_dir.filePath("copy"));
    QVERIFY(source.open(QIODevice::ReadOnly) && target.open(QIODevice::WriteOnly));
    QVERIFY(TextFileSurvey::copy(source, target, &error));
    QCOMPARE(TestSupport::readFile(target.fileName()), big);
}

// Lines across the 1 MiB read blocks, and a separator beyond ASCII in UTF-8 and ASCII lines.
void tst_TextFileSurvey::lineRuleChanges_data()
{
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<QString>("separator");
    QTest::addColumn<int>("encoding");
    QTest::addColumn<int>("firstLine"); // 0: no change found
    const QByteArray filler = QByteArray(1023, 'f') + '\n';
    QTest::newRow("empty field across the blocks")
            << filler.repeated(1023) + QByteArray(1020, 'g') + "\na,,b\n" << "," << 0 << 1025;
    const QString wide = QString::fromUtf8("\xef\xbc\x8c"); // a full-width comma
    QTest::newRow("UTF-8 separator") << QByteArray("a\xef\xbc\x8c\xef\xbc\x8c\xc3\xa9\n") << wide
                                     << int(Database::CsvImporter::Encoding::Utf8) << 1;
    QTest::newRow("ASCII line under it") << QByteArray("a??b\n") << wide
                                         << int(Database::CsvImporter::Encoding::Utf8) << 0;
}

void tst_TextFileSurvey::lineRuleChanges()
{
    QFETCH(QByteArray, bytes);
    QFETCH(QString, separator);
    QFETCH(int, encoding);
    const TextFileSurvey::LineRuleChanges changes = TextFileSurvey::lineRuleChanges(
            write(bytes), separator, Database::CsvImporter::Encoding(encoding));
    QTEST(int(changes.firstLine), "firstLine");
    QCOMPARE(changes.droppedEmpty, changes.firstLine ? 1 : 0);
}

QTEST_MAIN(tst_TextFileSurvey)
#include "tst_textfilesurvey.moc"
