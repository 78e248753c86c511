#include <database/databasegenerator.h>
#include <database/replacingimport.h>

#include "testsupport.h"

#include <QtTest>

using Database::ReplacingImport;

class tst_ReplacingImport : public QObject
{
    Q_OBJECT

private slots:
    void replacesOnlyOnCommit_data();
    void replacesOnlyOnCommit();
    void refusals();
};

void tst_ReplacingImport::replacesOnlyOnCommit_data()
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
void tst_ReplacingImport::replacesOnlyOnCommit()
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
void tst_ReplacingImport::refusals()
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

QTEST_MAIN(tst_ReplacingImport)
#include "tst_replacingimport.moc"
