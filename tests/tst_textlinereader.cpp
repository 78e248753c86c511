#include <database/textlinereader.h>

#include "testsupport.h"

#include <QtTest>

using Database::TextLineReader;

class tst_TextLineReader : public QObject
{
    Q_OBJECT

private slots:
    void matchesQIODevice_data();
    void matchesQIODevice();
};

// Crafted files put line ends and CRs at the edges of QIODevice's 16 KiB buffer and of the
// reader's 1 MiB block; random ones throw every kind of line at those edges somewhere.
void tst_TextLineReader::matchesQIODevice_data()
{
    QTest::addColumn<QByteArray>("bytes");

    const int chunk = 16384;
    const auto x = [](int size) { return QByteArray(size, 'x'); };
    QTest::newRow("empty") << QByteArray();
    QTest::newRow("CRLF, no final line end") << QByteArray("a,b\r\nc,d\r\ne");
    QTest::newRow("lone CRs, NUL bytes") << QByteArray("a\rb\0\nc\0\r\n\n\rd\r", 13);
    QTest::newRow("CRs before buffer end") << "a\n" + x(chunk - 5) + "\r1\r2\r3\r\nq\rq\r\n";
    QTest::newRow("CRLF across buffer end") << "a\n" + x(chunk - 3) + "\r\nb\r\n";
    QTest::newRow("LF exactly at buffer end") << "a\n" + x(chunk - 3) + "\nb\rc\n";
    QTest::newRow("line of one chunk ending in CRLF") << x(chunk - 1) + "\r\nz\r\n";
    QTest::newRow("line of one chunk then CRLF") << "a\n" + x(chunk) + "\r\nz\r\n";
    QTest::newRow("lines longer than two chunks")
            << "a\n" + x(2 * chunk + 100) + "\r\r\n" + x(3 * chunk) + "\rend";
    QTest::newRow("CRLF across block end") << "h\n" + x((1 << 20) - 3) + "\r\nb\r\n";
    QTest::newRow("lines longer than a block")
            << "h\n" + x((1 << 20) + 7) + "\r\n" + x(1 << 20) + "\r\n";

    const QByteArray pieces[] = {"\n", "\r", "\r\n", "\n\r", "ab", ",", "\xb1\xb1", "  "};
    for (quint32 seed = 1; seed <= 12; ++seed) {
        QRandomGenerator random(seed);
        QByteArray bytes;
        while (bytes.size() < 120000) {
            if (random.bounded(50) == 0)
                bytes += x(random.bounded(40000));
            bytes += pieces[random.bounded(int(sizeof pieces / sizeof *pieces))];
        }
        QTest::addRow("random %u", seed) << bytes;
    }
}

// The reader must give exactly the lines of QIODevice::readLine() in text mode.
void tst_TextLineReader::matchesQIODevice()
{
    QFETCH(QByteArray, bytes);
    QTemporaryDir dir;
    const QString path = dir.filePath(QStringLiteral("lines.txt"));
    QVERIFY(TestSupport::writeFile(path, bytes));
    QFile textMode(path), raw(path);
    QVERIFY(textMode.open(QIODevice::ReadOnly | QIODevice::Text) && raw.open(QIODevice::ReadOnly));

    TextLineReader reader(&raw);
    const char *data = nullptr;
    int size = 0;
    for (int line = 1; !textMode.atEnd(); ++line) {
        const QByteArray expected = textMode.readLine();
        QVERIFY2(reader.readLine(&data, &size), qPrintable(QString::number(line)));
        QCOMPARE(QByteArray(data, size), expected);
    }
    QVERIFY(reader.atEnd() && !reader.readLine(&data, &size));
}

QTEST_GUILESS_MAIN(tst_TextLineReader)

#include "tst_textlinereader.moc"
