#include <database/textlinereader.h>

#include "testsupport.h"

#include <QRandomGenerator>
#include <QtTest>

using Database::TextLineReader;

namespace {

// The lines QIODevice::readLine() gives on the file in text mode: what the reader must match.
QList<QByteArray> qtLines(const QString &path)
{
    QList<QByteArray> lines;
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly | QIODevice::Text))
        return lines;
    while (!file.atEnd())
        lines.append(file.readLine());
    return lines;
}

QList<QByteArray> readerLines(const QString &path)
{
    QList<QByteArray> lines;
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return lines;
    TextLineReader reader(&file);
    const char *data = nullptr;
    int size = 0;
    while (!reader.atEnd() && reader.readLine(&data, &size))
        lines.append(QByteArray(data, size));
    return lines;
}

QByteArray filler(int size)
{
    return QByteArray(size, 'x');
}

} // namespace

class tst_TextLineReader : public QObject
{
    Q_OBJECT

private slots:
    void matchesQIODevice_data();
    void matchesQIODevice();
    void matchesQIODeviceOnRandomFiles();
    void lineEndsAsDocumented();
};

void tst_TextLineReader::matchesQIODevice_data()
{
    QTest::addColumn<QByteArray>("bytes");

    const int chunk = 16384;
    QTest::newRow("empty") << QByteArray();
    QTest::newRow("LF lines") << QByteArray("a,b\nc,d\n");
    QTest::newRow("CRLF lines") << QByteArray("a,b\r\nc,d\r\n");
    QTest::newRow("no final line end") << QByteArray("a\nb");
    QTest::newRow("lone CR inside and at the end") << QByteArray("a\rb\nc\rd\ne\r");
    QTest::newRow("only CRs") << QByteArray("\r\r\r");
    QTest::newRow("LF CR") << QByteArray("a\n\rb\n\r");
    QTest::newRow("NUL bytes") << QByteArray("a\0b\nc\0\r\n", 9);
    QTest::newRow("empty lines") << QByteArray("\n\n\r\n\n");
    QTest::newRow("CR before buffer end")
            << QByteArray("a\n") + filler(chunk - 5) + "\r1\r2\r3\r\nq\rq\r\n";
    QTest::newRow("CRLF across buffer end") << QByteArray("a\n") + filler(chunk - 3) + "\r\nb\r\n";
    QTest::newRow("line end exactly at buffer end")
            << QByteArray("a\n") + filler(chunk - 3) + "\nb\rc\n";
    QTest::newRow("line of one chunk ending in CR LF") << filler(chunk - 1) + "\r\nz\r\n";
    QTest::newRow("line of one chunk then CR LF")
            << QByteArray("a\n") + filler(chunk) + "\r\nz\r\n";
    QTest::newRow("lines longer than two chunks")
            << QByteArray("a\n") + filler(2 * chunk + 100) + "\r\r\n" + filler(3 * chunk)
                    + "\rend";
    QTest::newRow("longer than the reader's block")
            << QByteArray("h\n") + filler((1 << 20) + 7) + "\r\n" + filler(1 << 20) + "\r\n";
}

void tst_TextLineReader::matchesQIODevice()
{
    QFETCH(QByteArray, bytes);
    QTemporaryDir dir;
    const QString path = dir.filePath(QStringLiteral("lines.txt"));
    QVERIFY(TestSupport::writeFile(path, bytes));
    QCOMPARE(readerLines(path), qtLines(path));
}

// Line ends, CRs and line lengths thrown together, so that every kind of line meets the
// boundaries of QIODevice's buffer somewhere.
void tst_TextLineReader::matchesQIODeviceOnRandomFiles()
{
    QTemporaryDir dir;
    const QString path = dir.filePath(QStringLiteral("random.txt"));
    const QByteArray pieces[] = {"\n", "\r", "\r\n", "\n\r", "ab", ",", "\xb1\xb1", "  "};
    for (quint32 seed = 1; seed <= 12; ++seed) {
        QRandomGenerator random(seed);
        QByteArray bytes;
        while (bytes.size() < 120000) {
            if (random.bounded(50) == 0)
                bytes += filler(random.bounded(40000));
            bytes += pieces[random.bounded(int(sizeof pieces / sizeof pieces[0]))];
        }
        QVERIFY(TestSupport::writeFile(path, bytes));
        const QList<QByteArray> expected = qtLines(path);
        QVERIFY2(readerLines(path) == expected, qPrintable(QString::number(seed)));
    }
}

// Independent of Qt: what text mode makes of the line ends at the start of a file and later.
void tst_TextLineReader::lineEndsAsDocumented()
{
    QTemporaryDir dir;
    const QString path = dir.filePath(QStringLiteral("ends.txt"));
    QVERIFY(TestSupport::writeFile(path, "a\rb\r\nc\rd\r\ne\n\r"));
    const QList<QByteArray> expected = {"ab\n", "c\rd\n", "e\n", "\r"};
    QCOMPARE(readerLines(path), expected);
}

QTEST_GUILESS_MAIN(tst_TextLineReader)

#include "tst_textlinereader.moc"
