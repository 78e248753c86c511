#include <database/databasechangelistener.h>
#include <database/databasemanager.h>

#include <core/databasequerydata.h>
#include <core/settings.h>

#include "testsupport.h"

#include <QtTest>

#include <functional>
#include <memory>

using Core::DatabaseQueryData;
using Database::DatabaseManager;
using Queries = QList<DatabaseQueryData>;

namespace {

// Counts its calls and runs an optional action inside the callback.
class Listener : public Database::DatabaseChangeListener
{
public:
    void onDBChanged() override
    {
        ++calls;
        if (action)
            action();
    }
    int calls = 0;
    std::function<void()> action;
};

} // namespace

class tst_DatabaseManager : public QObject
{
    Q_OBJECT

private slots:
    // A fresh pair of empty catalogue directories for every case.
    void init() { m_catalogue.reset(new TestSupport::TempCatalogue); }
    void initTestCase() { init(); }
    void cleanup() { DatabaseManager::destruct(); }
    void load_data();
    void load();
    void fileOperations_data();
    void fileOperations();
    void globals_data();
    void globals();
    void listenersChangedDuringNotification();

private:
    // Empty files (a trailing '/' makes a directory) in the system directory.
    bool create(const QStringList &entries, const QString &dir = QString());
    // "name=file" for each name, the file relative to the catalogue's root.
    QStringList entries(DatabaseManager &manager) const;
    std::unique_ptr<TestSupport::TempCatalogue> m_catalogue;
};

bool tst_DatabaseManager::create(const QStringList &entries, const QString &dir)
{
    for (const QString &entry : entries) {
        const QString path = QDir(dir.isNull() ? m_catalogue->sysDir() : dir).filePath(entry);
        if (entry.endsWith('/') ? !QDir().mkpath(path) : !TestSupport::writeFile(path, {}))
            return false;
    }
    return true;
}

QStringList tst_DatabaseManager::entries(DatabaseManager &manager) const
{
    QStringList entries;
    for (const QString &name : manager.names())
        entries << name + '=' + QDir(m_catalogue->filePath("")).relativeFilePath(manager.path(name));
    return entries;
}

void tst_DatabaseManager::load_data()
{
    QTest::addColumn<QStringList>("systemFiles");
    QTest::addColumn<QStringList>("userFiles");
    QTest::addColumn<QStringList>("catalogue"); // name=file, the default first

    QTest::newRow("default: first system file, case ignored")
            << QStringList{"Zeta.db", "alpha.db", "Beta.db", "notes.txt"}
            << QStringList{"a.db", "b.db/"}
            << QStringList{"alpha=system/alpha.db", "Beta=system/Beta.db", "Zeta=system/Zeta.db",
                           "a=user/a.db", "b=user/b.db"};
    QTest::newRow("name cut at the first dot")
            << QStringList{"x.y.db"} << QStringList() << QStringList{"x=system/x.y.db"};
    QTest::newRow("user file overrides") << QStringList{"a.db", "b.db"} << QStringList{"a.db"}
                                         << QStringList{"a=user/a.db", "b=system/b.db"};
}

void tst_DatabaseManager::load()
{
    QFETCH(QStringList, systemFiles);
    QFETCH(QStringList, userFiles);
    QFETCH(QStringList, catalogue);
    QVERIFY(create(systemFiles) && create(userFiles, m_catalogue->userDir()));

    DatabaseManager::init();
    DatabaseManager *manager = DatabaseManager::instance();
    QCOMPARE(manager->getDefaultDbName(), catalogue.first().section('=', 0, 0));
    QCOMPARE(entries(*manager), catalogue);
}

void tst_DatabaseManager::fileOperations_data()
{
    QTest::addColumn<bool>("add"); // else remove
    QTest::addColumn<QString>("fileName");
    QTest::addColumn<bool>("create");
    QTest::addColumn<bool>("result");
    QTest::addColumn<QStringList>("catalogue"); // afterwards; the system directory holds a.db

    const QStringList a{"a=system/a.db"};
    QTest::newRow("add: file outside the directories")
            << true << "extra.db" << true << true << (a + QStringList{"extra=extra.db"});
    QTest::newRow("add: missing file") << true << "missing.db" << false << false << a;
    QTest::newRow("add: name taken, never overwritten")
            << true << "a.other.db" << true << false << a;
    QTest::newRow("remove: other file, same base name")
            << false << "other/a.sqlite" << true << true << QStringList();
    QTest::newRow("remove: missing file, catalogued name")
            << false << "a.db" << false << false << a;
}

// Adding and removing change the map only, and a reload starts from the disk again.
void tst_DatabaseManager::fileOperations()
{
    QFETCH(bool, add);
    QFETCH(QString, fileName);
    QFETCH(bool, create);
    QVERIFY(this->create({"a.db"}));
    DatabaseManager manager;
    const QString file = m_catalogue->filePath(fileName);
    QVERIFY(!create || TestSupport::writeFile(file, {}));

    QTEST(add ? manager.addDatabaseFile(file) : manager.removeDatabaseFile(file), "result");
    QTEST(entries(manager), "catalogue");
    manager.reload();
    QCOMPARE(entries(manager), QStringList{"a=system/a.db"});
    QCOMPARE(QFile::exists(file), create);
}

void tst_DatabaseManager::globals_data()
{
    QTest::addColumn<Queries>("stored");
    QTest::addColumn<Queries>("appended");
    QTest::addColumn<QStringList>("expected"); // "name=statement"

    QTest::newRow("replace by name, else append")
            << Queries() << Queries{{"q1", "", "old"}, {"q2", "", "two"}, {"q1", "", "new"}}
            << QStringList{"q1=new", "q2=two"};
    QTest::newRow("unnamed record ignored") << Queries() << Queries{{"", "", "x"}}
                                            << QStringList();
    QTest::newRow("duplicates: only the first replaced")
            << Queries{{"q", "", "first"}, {"q", "", "second"}} << Queries{{"q", "", "third"}}
            << QStringList{"q=third", "q=second"};
}

// The list lives in the settings, so another catalogue object sees it.
void tst_DatabaseManager::globals()
{
    QFETCH(Queries, stored);
    QFETCH(Queries, appended);
    QFETCH(QStringList, expected);
    const QString key = QStringLiteral("Database/globals");
    Core::Settings::instance().removeRunValue(key);
    if (!stored.isEmpty())
        Core::Settings::instance().setRunValue(key, QVariant::fromValue(stored));

    DatabaseManager writer;
    for (const DatabaseQueryData &data : appended)
        writer.appendGlobalQueryData(data);
    DatabaseManager reader;
    QStringList actual;
    for (const DatabaseQueryData &data : reader.globalQueryDatas())
        actual << data.name() + '=' + data.statement();
    QCOMPARE(actual, expected);
    QCOMPARE(Core::Settings::instance().hasRunValue(key), !expected.isEmpty());
    const QString first = expected.value(0).section('=', 0, 0);
    QCOMPARE(reader.globalQueryData(first).statement(), expected.value(0).section('=', 1));
}

// The walk goes by index over the live list: a listener that removes itself makes the next
// one miss this pass, and one added during the pass is called in it.
void tst_DatabaseManager::listenersChangedDuringNotification()
{
    DatabaseManager manager;
    Listener first, second, third, late;
    first.action = [&] { manager.removeDBChangeListener(&first); };
    third.action = [&] { manager.addDBChangeListener(&late); };
    for (Listener *listener : {&first, &second, &third, &third})
        manager.addDBChangeListener(listener);

    manager.notifyDBChangeListener();
    QCOMPARE((QList<int>{first.calls, second.calls, third.calls, late.calls}),
             (QList<int>{1, 0, 1, 1}));
    manager.notifyDBChangeListener();
    QCOMPARE((QList<int>{first.calls, second.calls, third.calls, late.calls}),
             (QList<int>{1, 1, 2, 2}));
}

QTEST_GUILESS_MAIN(tst_DatabaseManager)
#include "tst_databasemanager.moc"
