// An import's source and target as a host sees them before it imports.
#include <database/importsource.h>
#include <database/inplaceimport.h>

#include "testsupport.h"

#include <QBuffer>
#include <QtTest>

using namespace Database;

static const QStringList Before{"table1", "table2", "table3", "table01", "table2x", "notes"};

class tst_ImportSource : public QObject
{
    Q_OBJECT

private slots:
    void keptTables_data();
    void keptTables();
    void stage_data();
    void stage();
    void suggestedSeparator_data();
    void suggestedSeparator();
};

void tst_ImportSource::keptTables_data()
{
    QTest::addColumn<qint64>("rows");
    QTest::addColumn<QStringList>("kept");
    QTest::newRow("nothing imported") << qint64(0) << Before;
    QTest::newRow("one full table") << qint64(50000)
                                    << QStringList{"table2", "table3", "table01", "table2x", "notes"};
    QTest::newRow("one row more") << qint64(50001)
                                  << QStringList{"table3", "table01", "table2x", "notes"};
    QTest::newRow("more tables than before")
            << qint64(500000) << QStringList{"table01", "table2x", "notes"};
}

void tst_ImportSource::keptTables()
{
    QFETCH(qint64, rows);
    QFETCH(QStringList, kept);
    QCOMPARE(InPlaceImport::keptTables(Before, rows), kept);
}

void tst_ImportSource::stage_data()
{
    QTest::addColumn<QByteArray>("input");
    QTest::addColumn<bool>("spreadsheet");
    QTest::newRow("zip archive") << QByteArray("PK\x03\x04rest", 8) << true;
    QTest::newRow("zip prefix only") << QByteArray("PK\x03", 3) << false;
    QTest::newRow("empty") << QByteArray() << false;
}

void tst_ImportSource::stage()
{
    QFETCH(QByteArray, input);
    QFETCH(bool, spreadsheet);
    QTemporaryDir dir;
    QString staged;
    {
        ImportSource source(dir.filePath("named.xlsx"));
        QCOMPARE(source.isSpreadsheet(), true); // by name until staged
        QBuffer buffer(&input);
        QVERIFY(!source.stage(buffer)); // no file to stage in yet
        QVERIFY(source.createStage(dir.filePath("stdin-XXXXXX")));
        QVERIFY(buffer.open(QIODevice::ReadOnly));
        QVERIFY2(source.stage(buffer), qPrintable(source.errorString()));
        staged = source.stageFile();
        QCOMPARE(source.path(), staged);
        QCOMPARE(source.isSpreadsheet(), spreadsheet);
        QCOMPARE(TestSupport::readFile(staged), input);
    }
    QVERIFY(!QFile::exists(staged)); // the staged copy goes with the source
}

void tst_ImportSource::suggestedSeparator_data()
{
    QTest::addColumn<QByteArray>("text");
    QTest::addColumn<QString>("separator");
    QTest::addColumn<QString>("suggested");
    QTest::addColumn<int>("fields");
    QTest::newRow("tabs") << QByteArray("a\tb\tc\n1\t2\t3\n") << "," << "\t" << 3;
    QTest::newRow("the separator given is not suggested")
            << QByteArray("a;b\n1;2\n") << ";" << "" << 0;
    QTest::newRow("uneven widths") << QByteArray("a;b\n1;2;3\n") << "," << "" << 0;
    QTest::newRow("a line without it") << QByteArray("a|b\nplain\n") << "," << "" << 0;
    QTest::newRow("tab before comma") << QByteArray("a,b\tc\n1,2\t3\n") << ";" << "\t" << 2;
}

void tst_ImportSource::suggestedSeparator()
{
    QFETCH(QByteArray, text);
    QFETCH(QString, separator);
    QFETCH(QString, suggested);
    QFETCH(int, fields);
    QTemporaryDir dir;
    QVERIFY(TestSupport::writeFile(dir.filePath("source.txt"), text));
    int found = 0;
    QCOMPARE(ImportSource::suggestedSeparator(dir.filePath("source.txt"), separator, &found), suggested);
    QCOMPARE(found, fields);
}

QTEST_GUILESS_MAIN(tst_ImportSource)
#include "tst_importsource.moc"
