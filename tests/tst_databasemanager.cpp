#include <database/databasechangelistener.h>
#include <database/databasemanager.h>

#include <core/databasequerydata.h>
#include <core/settings.h>

#include "testsupport.h"

#include <QtTest>

#include <functional>

using Core::DatabaseQueryData;
using Database::DatabaseManager;

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

const QString GlobalsKey = QStringLiteral("Database/globals");

// "name=statement" for each record, to compare lists in one go.
QStringList describe(const QList<DatabaseQueryData> &list)
{
    QStringList result;
    for (const DatabaseQueryData &data : list)
        result << data.name() + '=' + data.statement();
    return result;
}

} // namespace

class tst_DatabaseManager : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void cleanup();

    void load_data();
    void load();
    void reloadStartsFromDisk();
    void fileOperations_data();
    void fileOperations();
    void addDatabaseFiles();
    void removalsKeepDefaultName();
    void singletonLifecycle();

    void globals_data();
    void globals();
    void globalsMetaTypes();

    void listenersAddedOnceAndRemoved();
    void listenersChangedDuringNotification();

private:
    // Creates files (a trailing '/' makes a directory) below a catalogue directory.
    bool create(const QString &dir, const QStringList &entries);
    TestSupport::TempCatalogue *m_catalogue = nullptr;
};

bool tst_DatabaseManager::create(const QString &dir, const QStringList &entries)
{
    for (const QString &entry : entries) {
        const QString path = QDir(dir).filePath(entry);
        if (entry.endsWith('/') ? !QDir().mkpath(path)
                                : !TestSupport::writeFile(path, QByteArray()))
            return false;
    }
    return true;
}

void tst_DatabaseManager::init()
{
    m_catalogue = new TestSupport::TempCatalogue;
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
    QTest::newRow("default from the system directory only")
            << QStringList{"m.db"} << QStringList{"a.db", "z.db"} << "m"
            << QStringList{"m", "a", "z"};
    QTest::newRow("other suffixes ignored") << QStringList{"k.db", "notes.txt", "k.db-journal"}
                                            << QStringList{"u.sqlite"} << "k" << QStringList{"k"};
    QTest::newRow("user file wins over system file")
            << QStringList{"a.db"} << QStringList{"a.db"} << "a" << QStringList{"a"};
    QTest::newRow("subdirectory matching the pattern")
            << QStringList{"folder.db/"} << QStringList() << "folder" << QStringList{"folder"};
    QTest::newRow("no system entry, no default")
            << QStringList() << QStringList{"b.db", "a.db"} << QString() << QStringList{"a", "b"};
}

void tst_DatabaseManager::load()
{
    QFETCH(QStringList, systemFiles);
    QFETCH(QStringList, userFiles);
    QFETCH(QString, defaultName);
    QFETCH(QStringList, names);
    QVERIFY(create(m_catalogue->sysDir(), systemFiles));
    QVERIFY(create(m_catalogue->userDir(), userFiles));

    DatabaseManager::init();
    DatabaseManager *manager = DatabaseManager::instance();
    QVERIFY(manager);
    QCOMPARE(manager->getDefaultDbName(), defaultName);
    QCOMPARE(manager->names(), names);
    for (const QString &name : names) {
        const bool inUser = !QDir(m_catalogue->userDir()).entryList({name + ".*"}).isEmpty();
        const QString dir = inUser ? m_catalogue->userDir() : m_catalogue->sysDir();
        const QFileInfo path(manager->path(name));
        QCOMPARE(path.absolutePath(), QFileInfo(dir).absoluteFilePath());
        QCOMPARE(path.baseName(), name);
        QVERIFY(manager->exists(name));
    }
}

void tst_DatabaseManager::reloadStartsFromDisk()
{
    QVERIFY(create(m_catalogue->sysDir(), {"a.db"}));
    const QString outside = m_catalogue->filePath("outside.db");
    QVERIFY(TestSupport::writeFile(outside, QByteArray()));

    DatabaseManager manager;
    QVERIFY(manager.addDatabaseFile(outside));
    QVERIFY(manager.removeDatabase("a"));
    QVERIFY(create(m_catalogue->userDir(), {"new.db"}));
    QCOMPARE(manager.names(), QStringList{"outside"});
    manager.reload();
    QCOMPARE(manager.names(), (QStringList{"a", "new"}));
    QVERIFY(manager.addDatabaseFile(outside));
    manager.updateFileList();
    QCOMPARE(manager.names(), (QStringList{"a", "new"}));

    Core::Settings::instance().setDbSysDirPath(m_catalogue->filePath("no/such/system"));
    Core::Settings::instance().setDbUsrDirPath(m_catalogue->filePath("no/such/user"));
    manager.reload();
    QVERIFY(manager.names().isEmpty());
}

void tst_DatabaseManager::fileOperations_data()
{
    QTest::addColumn<bool>("add"); // else remove
    QTest::addColumn<QString>("fileName");
    QTest::addColumn<bool>("create");
    QTest::addColumn<bool>("result");
    QTest::addColumn<QStringList>("names"); // the catalogue afterwards, system file a.db first

    QTest::newRow("add: file outside the directories")
            << true << "extra.db" << true << true << QStringList{"a", "extra"};
    QTest::newRow("add: suffix not compared")
            << true << "notes.txt" << true << true << QStringList{"a", "notes"};
    QTest::newRow("add: missing file")
            << true << "missing.db" << false << false << QStringList{"a"};
    QTest::newRow("add: name taken, never overwritten")
            << true << "a.other.db" << true << false << QStringList{"a"};
    QTest::newRow("remove: other file, same base name")
            << false << "other/a.sqlite" << true << true << QStringList();
    QTest::newRow("remove: missing file, catalogued name")
            << false << "a.db" << false << false << QStringList{"a"};
    QTest::newRow("remove: existing file, unknown name")
            << false << "b.db" << true << false << QStringList{"a"};
}

void tst_DatabaseManager::fileOperations()
{
    QFETCH(bool, add);
    QFETCH(QString, fileName);
    QFETCH(bool, create);
    QFETCH(bool, result);
    QFETCH(QStringList, names);
    QVERIFY(this->create(m_catalogue->sysDir(), {"a.db"}));
    DatabaseManager manager;
    const QString file = m_catalogue->filePath(fileName);
    if (create)
        QVERIFY(TestSupport::writeFile(file, QByteArray()));

    QCOMPARE(add ? manager.addDatabaseFile(file) : manager.removeDatabaseFile(file), result);
    QCOMPARE(manager.names(), names);
    if (manager.exists("a"))
        QCOMPARE(manager.path("a"), QFileInfo(m_catalogue->sysDir() + "/a.db").absoluteFilePath());
    if (add && result)
        QCOMPARE(manager.path(names.last()), QFileInfo(file).absoluteFilePath());
    // Files are never touched.
    QVERIFY(QFile::exists(m_catalogue->sysDir() + "/a.db"));
    QCOMPARE(QFile::exists(file), create);
}

void tst_DatabaseManager::addDatabaseFiles()
{
    const QString first = m_catalogue->filePath("one/dup.db");
    const QString second = m_catalogue->filePath("two/dup.db");
    QVERIFY(TestSupport::writeFile(first, QByteArray()));
    QVERIFY(TestSupport::writeFile(second, QByteArray()));
    DatabaseManager manager;
    QVERIFY(!manager.addDatabaseFiles(QStringList()));
    QVERIFY(manager.addDatabaseFiles(
            {m_catalogue->filePath("x.db"), m_catalogue->filePath("y.db")}));
    QVERIFY(manager.names().isEmpty());
    // The first file of a base name wins: adding never overwrites.
    QVERIFY(manager.addDatabaseFiles({first, second}));
    QCOMPARE(manager.path("dup"), QFileInfo(first).absoluteFilePath());
}

void tst_DatabaseManager::removalsKeepDefaultName()
{
    QVERIFY(create(m_catalogue->sysDir(), {"a.db", "b.db"}));
    DatabaseManager manager;
    QVERIFY(manager.removeDatabase("a"));
    QVERIFY(!manager.removeDatabase("a"));
    QCOMPARE(manager.names(), QStringList{"b"});
    manager.clear();
    QVERIFY(manager.names().isEmpty());
    QVERIFY(!manager.exists("b"));
    QCOMPARE(manager.getDefaultDbName(), QString("a"));
}

void tst_DatabaseManager::singletonLifecycle()
{
    QVERIFY(!DatabaseManager::instance());
    QVERIFY(create(m_catalogue->sysDir(), {"a.db"}));
    DatabaseManager::init();
    DatabaseManager *first = DatabaseManager::instance();
    QVERIFY(create(m_catalogue->sysDir(), {"b.db"}));

    // Every init builds and loads a new catalogue; the old one is left as it was.
    DatabaseManager::init();
    QVERIFY(DatabaseManager::instance() != first);
    QCOMPARE(DatabaseManager::instance()->names(), (QStringList{"a", "b"}));
    QCOMPARE(first->names(), QStringList{"a"});
    delete first;

    DatabaseManager::destruct();
    QVERIFY(!DatabaseManager::instance());
    DatabaseManager::destruct();
    QVERIFY(!DatabaseManager::instance());
}

void tst_DatabaseManager::globals_data()
{
    QTest::addColumn<QVariant>("stored"); // invalid: nothing stored
    QTest::addColumn<QList<DatabaseQueryData>>("appended");
    QTest::addColumn<QStringList>("expected"); // empty and no value stored when unchanged

    using L = QList<DatabaseQueryData>;
    QTest::newRow("nothing stored") << QVariant() << L() << QStringList();
    QTest::newRow("replace by name, else append")
            << QVariant() << L{{"q1", "", "old"}, {"q2", "", "two"}, {"q1", "", "new"}}
            << QStringList{"q1=new", "q2=two"};
    QTest::newRow("unnamed record ignored") << QVariant() << L{{"", "", "x"}} << QStringList();
    QTest::newRow("duplicates: only the first replaced")
            << QVariant::fromValue(L{{"q", "", "first"}, {"q", "", "second"}})
            << L{{"q", "", "third"}} << QStringList{"q=third", "q=second"};
    QTest::newRow("unconvertible value read as empty")
            << QVariant(42) << L{{"q", "", "s"}} << QStringList{"q=s"};
}

void tst_DatabaseManager::globals()
{
    QFETCH(QVariant, stored);
    QFETCH(QList<DatabaseQueryData>, appended);
    QFETCH(QStringList, expected);
    Core::Settings &settings = Core::Settings::instance();
    if (stored.isValid())
        settings.setRunValue(GlobalsKey, stored);

    DatabaseManager writer;
    for (const DatabaseQueryData &data : appended)
        writer.appendGlobalQueryData(data);
    // The list lives in the settings, so another catalogue object sees it.
    DatabaseManager reader;
    QCOMPARE(describe(reader.globalQueryDatas()), expected);
    QCOMPARE(settings.hasRunValue(GlobalsKey), stored.isValid() || !expected.isEmpty());
    if (!expected.isEmpty()) { // lookup finds the first record of a name, case-sensitively
        const QString name = expected.first().section('=', 0, 0);
        QCOMPARE(reader.globalQueryData(name).statement(), expected.first().section('=', 1));
        QVERIFY(reader.globalQueryData(name.toUpper()).name().isEmpty());
    }
    // An empty name is never looked up, not even when an unnamed record is stored.
    settings.setRunValue(GlobalsKey, QVariant::fromValue(QList<DatabaseQueryData>{{"", "", "x"}}));
    QVERIFY(reader.globalQueryData(QString()).statement().isEmpty());
}

void tst_DatabaseManager::globalsMetaTypes()
{
    DatabaseManager manager;
    manager.appendGlobalQueryData(DatabaseQueryData("q1"));
    manager.appendGlobalQueryData(DatabaseQueryData("q2"));
    const QVariant stored = Core::Settings::instance().runValue(GlobalsKey);
    QCOMPARE(QByteArray(stored.typeName()), QByteArray("QList<Core::DatabaseQueryData>"));
    QCOMPARE(QByteArray(QMetaType::typeName(qMetaTypeId<DatabaseQueryData>())),
             QByteArray("Core::DatabaseQueryData"));
    QStringList names;
    for (const QVariant &element : stored.value<QSequentialIterable>())
        names << element.value<DatabaseQueryData>().name();
    QCOMPARE(names, (QStringList{"q1", "q2"}));
}

void tst_DatabaseManager::listenersAddedOnceAndRemoved()
{
    DatabaseManager manager;
    Listener kept, removed, stranger;
    manager.addDBChangeListener(&kept);
    manager.addDBChangeListener(&kept);
    manager.addDBChangeListener(nullptr);
    manager.addDBChangeListener(&removed);
    manager.removeDBChangeListener(&stranger);
    manager.removeDBChangeListener(nullptr);
    manager.removeDBChangeListener(&removed);
    // Changing the catalogue calls nobody: telling the listeners is the caller's decision.
    QVERIFY(create(m_catalogue->sysDir(), {"a.db"}));
    manager.reload();
    manager.updateFileList();
    manager.addDatabaseFile(m_catalogue->sysDir() + "/a.db");
    manager.removeDatabase("a");
    manager.clear();
    manager.appendGlobalQueryData(DatabaseQueryData("q"));
    QCOMPARE(kept.calls, 0);
    manager.notifyDBChangeListener();
    QCOMPARE(kept.calls, 1);
    QCOMPARE(removed.calls, 0);
    QCOMPARE(stranger.calls, 0);
}

// The walk goes by index over the live list: a listener that removes itself makes the next
// one miss this pass, and one added during the pass is called in it.
void tst_DatabaseManager::listenersChangedDuringNotification()
{
    DatabaseManager manager;
    Listener first, second, third, late;
    first.action = [&] { manager.removeDBChangeListener(&first); };
    third.action = [&] { manager.addDBChangeListener(&late); };
    for (Listener *listener : {&first, &second, &third})
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
