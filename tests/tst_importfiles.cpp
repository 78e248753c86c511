// An import's source and target files as a host sees them around the import.
#include <database/databasegenerator.h>
#include <database/importsource.h>
#include <database/inplaceimport.h>
#include <database/replacingimport.h>

#include "testsupport.h"

#include <QBuffer>
#include <QtTest>

using namespace Database;

static const QStringList Before{"table1", "table2", "table3", "table01", "table2x", "notes"};

class tst_ImportFiles : public QObject
{
    Q_OBJECT

private slots:
    void replacesOnlyOnCommit_data();
    void replacesOnlyOnCommit();
    void refusals();
    void keptTables_data();
    void keptTables();
    void stage_data();
    void stage();
    void suggestedSeparator_data();
    void suggestedSeparator();
};

void tst_ImportFiles::replacesOnlyOnCommit_data()
{
    QTest::addColumn<bool>("targetExists");
    QTest::addColumn<bool>("importSucceeds");

    QTest::newRow("new file, imported") << false << true;
    QTest::newRow("new file, import failed") << false << false;
    QTest::newRow("existing file, imported") << true << true;
    QTest::newRow("existing file, import failed") << true << false;
}

// A real import into the work file: the target changes only on commit, keeps its permissions,
// and nothing else is left in the directory either way.
void tst_ImportFiles::replacesOnlyOnCommit()
{
    QFETCH(bool, targetExists);
    QFETCH(bool, importSucceeds);
    QTemporaryDir dir;
    const QString target = dir.filePath("target.db");
    const QString source = dir.filePath("source.txt");
    QVERIFY(TestSupport::writeFile(source, importSucceeds ? "a,b\n1,2\n" : "a,b\n1,2,3\n4\n"));
    if (targetExists) {
        QVERIFY(TestSupport::sqlite(target, "CREATE TABLE old (x); INSERT INTO old VALUES (7);"));
        QVERIFY(QFile::setPermissions(target,
                                      QFile::ReadOwner | QFile::WriteOwner | QFile::ReadOther));
    }
    const QFileDevice::Permissions permissions = QFile::permissions(target);
    const QByteArray before = TestSupport::readFile(target);
    {
        ReplacingImport replacing(target);
        QVERIFY2(replacing.begin(), qPrintable(replacing.errorString()));
        QCOMPARE(QFileInfo(replacing.workFile()).absolutePath(), QFileInfo(target).absolutePath());
        Database::DatabaseGenerator generator;
        const bool imported = generator.importOriginalFile(source, replacing.workFile());
        QCOMPARE(imported, importSucceeds);
        QCOMPARE(TestSupport::readFile(target), before); // untouched until the commit
        if (imported)
            QVERIFY2(replacing.commit(), qPrintable(replacing.errorString()));
    }
    QCOMPARE(QDir(dir.path()).entryList(QDir::Files | QDir::Hidden).size(),
             targetExists || importSucceeds ? 2 : 1);
    if (importSucceeds) {
        QCOMPARE(TestSupport::sqliteQuery(target, "SELECT column1, column2 FROM table1;"),
                 QStringLiteral("a|b\n1|2"));
        if (targetExists)
            QCOMPARE(QFile::permissions(target), permissions);
    } else {
        QCOMPARE(TestSupport::readFile(target), before);
    }
}

// Failures name the system's reason and leave no work file behind.
void tst_ImportFiles::refusals()
{
    QTemporaryDir dir;
    ReplacingImport nowhere(dir.filePath("missing/target.db"));
    QVERIFY(!nowhere.begin());
    QVERIFY(!nowhere.errorString().isEmpty() && nowhere.workFile().isEmpty());
    QVERIFY(!nowhere.commit());

    // A non-empty directory in the target's place cannot be renamed over.
    QVERIFY(QDir(dir.path()).mkpath("taken/inside"));
    ReplacingImport taken(dir.filePath("taken"));
    QVERIFY(taken.begin());
    const QString work = taken.workFile();
    QVERIFY(QFileInfo::exists(work));
    QVERIFY(!taken.commit());
    QVERIFY(!taken.errorString().isEmpty());
    QVERIFY(!QFileInfo::exists(work) && QFileInfo(dir.filePath("taken")).isDir());

    ReplacingImport dropped(dir.filePath("dropped.db"));
    QVERIFY(dropped.begin());
    const QString dropping = dropped.workFile();
    QVERIFY(TestSupport::writeFile(dropping + "-journal", "x"));
    dropped.discard();
    QVERIFY(!QFileInfo::exists(dropping) && !QFileInfo::exists(dropping + "-journal"));
    QVERIFY(!QFileInfo::exists(dir.filePath("dropped.db")));
}

void tst_ImportFiles::keptTables_data()
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

void tst_ImportFiles::keptTables()
{
    QFETCH(qint64, rows);
    QFETCH(QStringList, kept);
    QCOMPARE(InPlaceImport::keptTables(Before, rows), kept);
}

void tst_ImportFiles::stage_data()
{
    QTest::addColumn<QByteArray>("input");
    QTest::addColumn<bool>("spreadsheet");
    QTest::newRow("zip archive") << QByteArray("PK\x03\x04rest", 8) << true;
    QTest::newRow("zip prefix only") << QByteArray("PK\x03", 3) << false;
    QTest::newRow("empty") << QByteArray() << false;
}

void tst_ImportFiles::stage()
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

void tst_ImportFiles::suggestedSeparator_data()
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

void tst_ImportFiles::suggestedSeparator()
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

QTEST_MAIN(tst_ImportFiles)
#include "tst_importfiles.moc"
