// An import's source and target files as a host sees them around the import.
#include <database/databasegenerator.h>
#include <database/importsource.h>
#include <database/inplaceimport.h>
#include <database/replacingimport.h>
#include <database/textfilesurvey.h>

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
    int found = 0;
    QCOMPARE(ImportSource::suggestedSeparator(write(text), separator, &found), suggested);
    QCOMPARE(found, fields);
}

void tst_ImportFiles::looksLikeUtf8_data()
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

void tst_ImportFiles::looksLikeUtf8()
{
    QFETCH(QByteArray, bytes);
    QFETCH(bool, utf8);
    QCOMPARE(TextFileSurvey::looksLikeUtf8(write(bytes)), utf8);
}

// The separator check's lines skip empty lines and those that yield no field; rows count every
// line that yields one, past the head too.
void tst_ImportFiles::headAndRows()
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
void tst_ImportFiles::stagesUtf8AndStandardInput()
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
void tst_ImportFiles::lineRuleChanges_data()
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

void tst_ImportFiles::lineRuleChanges()
{
    QFETCH(QByteArray, bytes);
    QFETCH(QString, separator);
    QFETCH(int, encoding);
    const TextFileSurvey::LineRuleChanges changes = TextFileSurvey::lineRuleChanges(
            write(bytes), separator, Database::CsvImporter::Encoding(encoding));
    QTEST(int(changes.firstLine), "firstLine");
    QCOMPARE(changes.droppedEmpty, changes.firstLine ? 1 : 0);
}

QTEST_MAIN(tst_ImportFiles)
#include "tst_importfiles.moc"
