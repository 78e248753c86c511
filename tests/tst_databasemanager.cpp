#include <database/databasechangelistener.h>
#include <database/databasemanager.h>

#include <core/databasequerydata.h>
#include <core/settings.h>

#include "testsupport.h"

#include <QtTest>

#include <functional>

using Database::DatabaseManager;
using TestSupport::TempCatalogue;

namespace {

// A listener that counts its calls and runs an optional action inside the callback.
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

bool touch(const QString &path)
{
    return TestSupport::writeFile(path, QByteArray());
}

const QString GlobalsKey = QStringLiteral("Database/globals");

} // namespace

class tst_DatabaseManager : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void cleanup();

    void load_data();
    void load();
    void userFileOverridesSystemFile();
    void defaultComesFromSystemDirectoryOnly();
    void missingDirectoriesGiveEmptyCatalogue();
    void subdirectoryMatchingPatternIsListed();
    void reloadPicksUpDiskChangesAndDropsManualEntries();

    void addDatabaseFile_data();
    void addDatabaseFile();
    void addDatabaseFilesFirstOfBaseNameWins();
    void addDatabaseFilesOfEmptyOrMissingPaths();
    void removeDatabaseFile_data();
    void removeDatabaseFile();
    void removalsKeepDefaultName();
    void clearKeepsDefaultName();

    void initCreatesNewCatalogueEveryCall();
    void destructTwiceIsHarmless();
    void copyDoesNotReload();

    void globalsEmptyWhenNothingStored();
    void globalsReplaceByNameOrAppend();
    void globalsIgnoreEmptyName();
    void globalsWithDuplicateNames();
    void globalsOfUnconvertibleType();
    void globalsMetaTypes();

    void listenerAddedOnceAndNullIgnored();
    void listenerRemoval();
    void catalogueOperationsDoNotNotify();
    void listenerRemovingItselfSkipsNext();
    void listenerAddedDuringNotificationIsCalled();

private:
    TempCatalogue *m_catalogue = nullptr;
};

void tst_DatabaseManager::init()
{
    m_catalogue = new TempCatalogue;
    QVERIFY(m_catalogue->isValid());
    Core::Settings::instance().removeRunValue(GlobalsKey);
}

void tst_DatabaseManager::cleanup()
{
    DatabaseManager::destruct();
    delete m_catalogue;
    m_catalogue = nullptr;
}

void tst_DatabaseManager::load_data()
{
    QTest::addColumn<QStringList>("systemFiles");
    QTest::addColumn<QStringList>("userFiles");
    QTest::addColumn<QString>("defaultName");
    QTest::addColumn<QStringList>("names");

    QTest::newRow("default moved to front")
            << QStringList{"a.db", "B.db"} << QStringList() << "a" << QStringList{"a", "B"};
    QTest::newRow("default first by name, case ignored")
            << QStringList{"Zeta.db", "alpha.db", "Beta.db"} << QStringList() << "alpha"
            << QStringList{"alpha", "Beta", "Zeta"};
    QTest::newRow("name cut at first dot")
            << QStringList{"x.y.db"} << QStringList() << "x" << QStringList{"x"};
    QTest::newRow("case-sensitive names are distinct")
            << QStringList{"orders.db", "Orders.db"} << QStringList() << "orders"
            << QStringList{"orders", "Orders"};
    QTest::newRow("user entries appended")
            << QStringList{"m.db"} << QStringList{"a.db", "z.db"} << "m"
            << QStringList{"m", "a", "z"};
    QTest::newRow("other suffixes ignored")
            << QStringList{"k.db", "notes.txt", "k.db-journal"} << QStringList{"u.sqlite"} << "k"
            << QStringList{"k"};
    QTest::newRow("no system entry, no default")
            << QStringList() << QStringList{"b.db", "a.db"} << QString() << QStringList{"a", "b"};
}

void tst_DatabaseManager::load()
{
    QFETCH(QStringList, systemFiles);
    QFETCH(QStringList, userFiles);
    QFETCH(QString, defaultName);
    QFETCH(QStringList, names);

    for (const QString &file : systemFiles)
        QVERIFY(touch(QDir(m_catalogue->sysDir()).filePath(file)));
    for (const QString &file : userFiles)
        QVERIFY(touch(QDir(m_catalogue->userDir()).filePath(file)));

    DatabaseManager::init();
    DatabaseManager *manager = DatabaseManager::instance();
    QVERIFY(manager);
    QCOMPARE(manager->getDefaultDbName(), defaultName);
    QCOMPARE(manager->names(), names);
    for (const QString &name : names) {
        QVERIFY(manager->exists(name));
        QVERIFY(QFileInfo(manager->path(name)).isAbsolute());
    }
}

void tst_DatabaseManager::userFileOverridesSystemFile()
{
    const QString systemFile = QDir(m_catalogue->sysDir()).filePath("a.db");
    const QString userFile = QDir(m_catalogue->userDir()).filePath("a.db");
    QVERIFY(touch(systemFile));
    QVERIFY(touch(userFile));

    DatabaseManager manager;
    QCOMPARE(manager.path("a"), QFileInfo(userFile).absoluteFilePath());
    QCOMPARE(manager.names(), QStringList{"a"});
    // The default still comes from the system listing and now resolves to the user's file.
    QCOMPARE(manager.getDefaultDbName(), QString("a"));
}

void tst_DatabaseManager::defaultComesFromSystemDirectoryOnly()
{
    QVERIFY(touch(QDir(m_catalogue->sysDir()).filePath("s.db")));
    QVERIFY(touch(QDir(m_catalogue->userDir()).filePath("a.db")));
    DatabaseManager manager;
    QCOMPARE(manager.getDefaultDbName(), QString("s"));
    QCOMPARE(manager.names(), (QStringList{"s", "a"}));
}

void tst_DatabaseManager::missingDirectoriesGiveEmptyCatalogue()
{
    Core::Settings::instance().setDbSysDirPath(m_catalogue->filePath("no/such/system"));
    Core::Settings::instance().setDbUsrDirPath(m_catalogue->filePath("no/such/user"));
    DatabaseManager::init();
    QVERIFY(DatabaseManager::instance());
    QVERIFY(DatabaseManager::instance()->names().isEmpty());
    QVERIFY(DatabaseManager::instance()->getDefaultDbName().isEmpty());
    QVERIFY(DatabaseManager::instance()->path("anything").isEmpty());
}

void tst_DatabaseManager::subdirectoryMatchingPatternIsListed()
{
    QVERIFY(QDir(m_catalogue->sysDir()).mkdir("folder.db"));
    DatabaseManager manager;
    QCOMPARE(manager.names(), QStringList{"folder"});
}

void tst_DatabaseManager::reloadPicksUpDiskChangesAndDropsManualEntries()
{
    QVERIFY(touch(QDir(m_catalogue->sysDir()).filePath("a.db")));
    const QString outside = m_catalogue->filePath("outside.db");
    QVERIFY(touch(outside));

    DatabaseManager manager;
    QVERIFY(manager.addDatabaseFile(outside));
    QVERIFY(manager.removeDatabase("a"));
    QVERIFY(touch(QDir(m_catalogue->userDir()).filePath("new.db")));
    QCOMPARE(manager.names(), QStringList{"outside"});

    manager.reload();
    QCOMPARE(manager.names(), (QStringList{"a", "new"}));

    QVERIFY(manager.addDatabaseFile(outside));
    manager.updateFileList();
    QCOMPARE(manager.names(), (QStringList{"a", "new"}));
}

void tst_DatabaseManager::addDatabaseFile_data()
{
    QTest::addColumn<QString>("fileName");
    QTest::addColumn<bool>("create");
    QTest::addColumn<bool>("added");
    QTest::addColumn<QString>("name");

    QTest::newRow("new file outside the directories") << "extra.db" << true << true << "extra";
    QTest::newRow("suffix not compared") << "notes.txt" << true << true << "notes";
    QTest::newRow("missing file") << "missing.db" << false << false << "missing";
    QTest::newRow("name already catalogued") << "a.other.db" << true << false << "a";
}

void tst_DatabaseManager::addDatabaseFile()
{
    QFETCH(QString, fileName);
    QFETCH(bool, create);
    QFETCH(bool, added);
    QFETCH(QString, name);

    const QString systemA = QDir(m_catalogue->sysDir()).filePath("a.db");
    QVERIFY(touch(systemA));
    DatabaseManager manager;

    const QString file = m_catalogue->filePath(fileName);
    if (create)
        QVERIFY(touch(file));
    QCOMPARE(manager.addDatabaseFile(file), added);
    if (added)
        QCOMPARE(manager.path(name), QFileInfo(file).absoluteFilePath());
    else if (name == "a")
        QCOMPARE(manager.path(name), QFileInfo(systemA).absoluteFilePath());
    else
        QVERIFY(!manager.exists(name));
}

void tst_DatabaseManager::addDatabaseFilesFirstOfBaseNameWins()
{
    const QString first = m_catalogue->filePath("one/dup.db");
    const QString second = m_catalogue->filePath("two/dup.db");
    QVERIFY(touch(first));
    QVERIFY(touch(second));
    DatabaseManager manager;
    QVERIFY(manager.addDatabaseFiles({first, second}));
    QCOMPARE(manager.path("dup"), QFileInfo(first).absoluteFilePath());
}

void tst_DatabaseManager::addDatabaseFilesOfEmptyOrMissingPaths()
{
    DatabaseManager manager;
    QVERIFY(!manager.addDatabaseFiles(QStringList()));
    QVERIFY(manager.addDatabaseFiles({m_catalogue->filePath("x.db"), m_catalogue->filePath("y.db")}));
    QVERIFY(manager.names().isEmpty());
}

void tst_DatabaseManager::removeDatabaseFile_data()
{
    QTest::addColumn<QString>("fileName");
    QTest::addColumn<bool>("create");
    QTest::addColumn<bool>("removed");

    QTest::newRow("existing file elsewhere, same base name") << "other/a.sqlite" << true << true;
    QTest::newRow("missing file, catalogued name") << "a.db" << false << false;
    QTest::newRow("existing file, unknown name") << "b.db" << true << false;
}

void tst_DatabaseManager::removeDatabaseFile()
{
    QFETCH(QString, fileName);
    QFETCH(bool, create);
    QFETCH(bool, removed);

    const QString systemA = QDir(m_catalogue->sysDir()).filePath("a.db");
    QVERIFY(touch(systemA));
    DatabaseManager manager;
    const QString file = m_catalogue->filePath(fileName);
    if (create)
        QVERIFY(touch(file));

    QCOMPARE(manager.removeDatabaseFile(file), removed);
    QCOMPARE(manager.exists("a"), !removed);
    QVERIFY(QFile::exists(systemA));
    if (create)
        QVERIFY(QFile::exists(file));
}

void tst_DatabaseManager::removalsKeepDefaultName()
{
    QVERIFY(touch(QDir(m_catalogue->sysDir()).filePath("a.db")));
    QVERIFY(touch(QDir(m_catalogue->sysDir()).filePath("b.db")));
    DatabaseManager manager;
    QVERIFY(manager.removeDatabase("a"));
    QVERIFY(!manager.removeDatabase("a"));
    QCOMPARE(manager.names(), QStringList{"b"});
    QCOMPARE(manager.getDefaultDbName(), QString("a"));
}

void tst_DatabaseManager::clearKeepsDefaultName()
{
    QVERIFY(touch(QDir(m_catalogue->sysDir()).filePath("a.db")));
    DatabaseManager manager;
    manager.clear();
    QVERIFY(manager.names().isEmpty());
    QVERIFY(manager.path("a").isEmpty());
    QVERIFY(!manager.exists("a"));
    QCOMPARE(manager.getDefaultDbName(), QString("a"));
}

void tst_DatabaseManager::initCreatesNewCatalogueEveryCall()
{
    QVERIFY(!DatabaseManager::instance());
    QVERIFY(touch(QDir(m_catalogue->sysDir()).filePath("a.db")));
    DatabaseManager::init();
    DatabaseManager *first = DatabaseManager::instance();
    first->addDatabaseFile(m_catalogue->filePath("a.db")); // refused: name taken
    QVERIFY(touch(QDir(m_catalogue->sysDir()).filePath("b.db")));

    DatabaseManager::init();
    DatabaseManager *second = DatabaseManager::instance();
    QVERIFY(second != first);
    // The new catalogue loaded the directories afresh; the old one is untouched.
    QCOMPARE(second->names(), (QStringList{"a", "b"}));
    QCOMPARE(first->names(), QStringList{"a"});
    delete first; // left alive by design; the test owns it now
}

void tst_DatabaseManager::destructTwiceIsHarmless()
{
    DatabaseManager::init();
    DatabaseManager::destruct();
    QVERIFY(!DatabaseManager::instance());
    DatabaseManager::destruct();
    QVERIFY(!DatabaseManager::instance());
}

void tst_DatabaseManager::copyDoesNotReload()
{
    QVERIFY(touch(QDir(m_catalogue->sysDir()).filePath("a.db")));
    DatabaseManager manager;
    manager.clear();
    Listener listener;
    manager.addDBChangeListener(&listener);

    DatabaseManager copy(manager);
    QVERIFY(copy.names().isEmpty());
    QCOMPARE(copy.getDefaultDbName(), QString("a"));
    copy.notifyDBChangeListener();
    QCOMPARE(listener.calls, 1);

    DatabaseManager assigned;
    QCOMPARE(assigned.names(), QStringList{"a"});
    assigned = manager;
    QVERIFY(assigned.names().isEmpty());
}

void tst_DatabaseManager::globalsEmptyWhenNothingStored()
{
    DatabaseManager manager;
    QVERIFY(manager.globalQueryDatas().isEmpty());
    QVERIFY(manager.globalQueryData("q1").name().isEmpty());
    QVERIFY(!Core::Settings::instance().hasRunValue(GlobalsKey));
}

void tst_DatabaseManager::globalsReplaceByNameOrAppend()
{
    DatabaseManager writer;
    writer.appendGlobalQueryData(Core::DatabaseQueryData("q1", "db", "old"));
    writer.appendGlobalQueryData(Core::DatabaseQueryData("q2", "db", "two"));
    writer.appendGlobalQueryData(Core::DatabaseQueryData("q1", "db", "new"));

    // Another catalogue object sees the same list: it lives in the settings.
    DatabaseManager reader;
    const QList<Core::DatabaseQueryData> list = reader.globalQueryDatas();
    QCOMPARE(list.size(), 2);
    QCOMPARE(list.at(0).name(), QString("q1"));
    QCOMPARE(list.at(0).statement(), QString("new"));
    QCOMPARE(list.at(1).name(), QString("q2"));
    QCOMPARE(reader.globalQueryData("q2").statement(), QString("two"));
    QVERIFY(reader.globalQueryData("Q2").name().isEmpty());
}

void tst_DatabaseManager::globalsIgnoreEmptyName()
{
    DatabaseManager manager;
    manager.appendGlobalQueryData(Core::DatabaseQueryData(QString(), "db", "x"));
    QVERIFY(!Core::Settings::instance().hasRunValue(GlobalsKey));

    // A stored record with an empty name is never found by an empty lookup.
    const QList<Core::DatabaseQueryData> stored{Core::DatabaseQueryData(QString(), "db", "x")};
    Core::Settings::instance().setRunValue(GlobalsKey, QVariant::fromValue(stored));
    manager.appendGlobalQueryData(Core::DatabaseQueryData(QString(), "db", "y"));
    QCOMPARE(manager.globalQueryDatas().size(), 1);
    QCOMPARE(manager.globalQueryDatas().at(0).statement(), QString("x"));
    QVERIFY(manager.globalQueryData(QString()).statement().isEmpty());
}

void tst_DatabaseManager::globalsWithDuplicateNames()
{
    const QList<Core::DatabaseQueryData> stored{Core::DatabaseQueryData("q", "", "first"),
                                                 Core::DatabaseQueryData("q", "", "second")};
    Core::Settings::instance().setRunValue(GlobalsKey, QVariant::fromValue(stored));
    DatabaseManager manager;
    QCOMPARE(manager.globalQueryData("q").statement(), QString("first"));

    manager.appendGlobalQueryData(Core::DatabaseQueryData("q", "", "third"));
    const QList<Core::DatabaseQueryData> list = manager.globalQueryDatas();
    QCOMPARE(list.size(), 2);
    QCOMPARE(list.at(0).statement(), QString("third"));
    QCOMPARE(list.at(1).statement(), QString("second"));
}

void tst_DatabaseManager::globalsOfUnconvertibleType()
{
    Core::Settings::instance().setRunValue(GlobalsKey, QVariant(42));
    DatabaseManager manager;
    QVERIFY(manager.globalQueryDatas().isEmpty());
    manager.appendGlobalQueryData(Core::DatabaseQueryData("q"));
    QCOMPARE(manager.globalQueryDatas().size(), 1);
    QCOMPARE(manager.globalQueryDatas().at(0).name(), QString("q"));
}

void tst_DatabaseManager::globalsMetaTypes()
{
    DatabaseManager manager;
    manager.appendGlobalQueryData(Core::DatabaseQueryData("q1"));
    manager.appendGlobalQueryData(Core::DatabaseQueryData("q2"));
    const QVariant stored = Core::Settings::instance().runValue(GlobalsKey);
    QCOMPARE(QByteArray(stored.typeName()), QByteArray("QList<Core::DatabaseQueryData>"));
    QCOMPARE(QByteArray(QMetaType::typeName(qMetaTypeId<Core::DatabaseQueryData>())),
             QByteArray("Core::DatabaseQueryData"));
    QVERIFY(stored.canConvert<QVariantList>());
    QStringList names;
    for (const QVariant &element : stored.value<QSequentialIterable>())
        names << element.value<Core::DatabaseQueryData>().name();
    QCOMPARE(names, (QStringList{"q1", "q2"}));
}

void tst_DatabaseManager::listenerAddedOnceAndNullIgnored()
{
    DatabaseManager manager;
    Listener listener;
    manager.addDBChangeListener(&listener);
    manager.addDBChangeListener(&listener);
    manager.addDBChangeListener(nullptr);
    manager.notifyDBChangeListener();
    QCOMPARE(listener.calls, 1);
}

void tst_DatabaseManager::listenerRemoval()
{
    DatabaseManager manager;
    Listener kept, removed, stranger;
    manager.addDBChangeListener(&kept);
    manager.addDBChangeListener(&removed);
    manager.removeDBChangeListener(&stranger);
    manager.removeDBChangeListener(nullptr);
    manager.removeDBChangeListener(&removed);
    manager.notifyDBChangeListener();
    QCOMPARE(kept.calls, 1);
    QCOMPARE(removed.calls, 0);
    QCOMPARE(stranger.calls, 0);
}

void tst_DatabaseManager::catalogueOperationsDoNotNotify()
{
    QVERIFY(touch(QDir(m_catalogue->sysDir()).filePath("a.db")));
    const QString outside = m_catalogue->filePath("o.db");
    QVERIFY(touch(outside));
    DatabaseManager manager;
    Listener listener;
    manager.addDBChangeListener(&listener);

    manager.reload();
    manager.updateFileList();
    manager.addDatabaseFile(outside);
    manager.addDatabaseFiles({outside});
    manager.removeDatabaseFile(outside);
    manager.removeDatabase("a");
    manager.clear();
    manager.appendGlobalQueryData(Core::DatabaseQueryData("q"));
    QCOMPARE(listener.calls, 0);
}

void tst_DatabaseManager::listenerRemovingItselfSkipsNext()
{
    DatabaseManager manager;
    Listener first, second, third;
    first.action = [&] { manager.removeDBChangeListener(&first); };
    manager.addDBChangeListener(&first);
    manager.addDBChangeListener(&second);
    manager.addDBChangeListener(&third);

    manager.notifyDBChangeListener();
    QCOMPARE(first.calls, 1);
    QCOMPARE(second.calls, 0);
    QCOMPARE(third.calls, 1);

    manager.notifyDBChangeListener();
    QCOMPARE(first.calls, 1);
    QCOMPARE(second.calls, 1);
    QCOMPARE(third.calls, 2);
}

void tst_DatabaseManager::listenerAddedDuringNotificationIsCalled()
{
    DatabaseManager manager;
    Listener first, late;
    first.action = [&] { manager.addDBChangeListener(&late); };
    manager.addDBChangeListener(&first);
    manager.notifyDBChangeListener();
    QCOMPARE(first.calls, 1);
    QCOMPARE(late.calls, 1);
}

QTEST_GUILESS_MAIN(tst_DatabaseManager)
#include "tst_databasemanager.moc"
