#include <database/databasechangelistener.h>
#include <database/databasemanager.h>

#include "testsupport.h"

#include <QtTest>

#include <functional>

using Core::DatabaseQueryData;
using Database::DatabaseManager;
using Queries = QList<DatabaseQueryData>;

// Counts its calls and runs its action inside the callback.
struct Listener : Database::DatabaseChangeListener
{
    void onDBChanged() override { ++calls, action(); }
    int calls = 0;
    std::function<void()> action = [] {};
};

class tst_DatabaseManager : public QObject
{
    Q_OBJECT

private slots:
    // Every case gets a pair of empty catalogue directories of its own.
    void initTestCase() { init(); }
    void init() { m_catalogue.reset(new TestSupport::TempCatalogue); }
    // A list left in the static settings would outlive Qt's meta types, which free it.
    void cleanupTestCase() { Core::Settings::instance().removeRunValue("Database/globals"); }

    // The default is the first system file by name with case ignored, a name is cut at the
    // first dot, and a user file overrides a system file of the same name.
    void load_data()
    {
        QTest::addColumn<QStringList>("files");
        QTest::addColumn<QString>("defaultName");
        QTest::addColumn<QStringList>("catalogue");
        QTest::newRow("both directories")
                << QStringList{"system/Zeta.db", "system/alpha.db", "system/Beta.db",
                               "system/notes.txt", "system/x.y.db", "user/a.db", "user/Zeta.db"}
                << "alpha"
                << QStringList{"alpha=system/alpha.db", "Beta=system/Beta.db", "Zeta=user/Zeta.db",
                               "a=user/a.db", "x=system/x.y.db"};
        // The default comes from the system directory only.
        QTest::newRow("empty system directory") << QStringList{"user/b.db", "user/A.db"} << ""
                                                << QStringList{"A=user/A.db", "b=user/b.db"};
    }
    void load()
    {
        QFETCH(QStringList, files);
        QVERIFY(create(files));
        DatabaseManager::init();
        QTEST(DatabaseManager::instance()->getDefaultDbName(), "defaultName");
        QTEST(entries(*DatabaseManager::instance()), "catalogue");
        DatabaseManager::destruct();
        QVERIFY(!DatabaseManager::instance());
    }

    void fileOperations_data()
    {
        QTest::addColumn<bool>("add");     // else remove
        QTest::addColumn<QString>("file"); // created unless it is below missing/
        QTest::addColumn<bool>("result");
        QTest::addColumn<QStringList>("catalogue"); // afterwards

        const QStringList a{"a=system/a.db"};
        QTest::newRow("add: file outside the directories")
                << true << "extra.db" << true << (a + QStringList{"extra=extra.db"});
        QTest::newRow("add: name taken, never overwritten") << true << "a.b.db" << false << a;
        QTest::newRow("remove: other file, same base name")
                << false << "other/a.sqlite" << true << QStringList();
        QTest::newRow("remove: missing file, name known") << false << "missing/a.db" << false << a;
    }

    // Adding and removing change the map only, and a reload starts from the disk again.
    void fileOperations()
    {
        QFETCH(bool, add);
        QFETCH(QString, file);
        QVERIFY(create({"system/a.db"}) && (file.startsWith("missing/") || create({file})));
        DatabaseManager manager;
        const QString path = m_catalogue->filePath(file);
        QTEST(add ? manager.addDatabaseFile(path) : manager.removeDatabaseFile(path), "result");
        QTEST(entries(manager), "catalogue");
        manager.reload();
        QCOMPARE(entries(manager), QStringList{"a=system/a.db"});
    }

    // The list lives in the settings, where another catalogue object finds it. A record
    // replaces the first one of its name, or else comes last; a lookup finds the first.
    void globals()
    {
        const Queries stored{{"q", "", "first"}, {"q", "", "second"}};
        Core::Settings::instance().setRunValue("Database/globals", QVariant::fromValue(stored));
        DatabaseManager writer;
        for (const DatabaseQueryData &data :
             Queries{{"n", "", "old"}, {"q", "", "third"}, {"n", "", "new"}})
            writer.appendGlobalQueryData(data);
        DatabaseManager reader;
        QStringList actual;
        for (const DatabaseQueryData &data : reader.globalQueryDatas())
            actual << data.name() + '=' + data.statement();
        QCOMPARE(actual, (QStringList{"q=third", "q=second", "n=new"}));
        QCOMPARE(reader.globalQueryData("q").statement(), QString("third"));
    }

    // The walk goes by index over the live list: a listener that removes itself makes the
    // next one miss this pass, and one added during the pass is called in it.
    void listenersChangedDuringNotification()
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
    }

private:
    // Empty files below the catalogue's root.
    bool create(const QStringList &paths)
    {
        for (const QString &path : paths) {
            if (!TestSupport::writeFile(m_catalogue->filePath(path), {}))
                return false;
        }
        return true;
    }

    // "name=file" for each of the catalogue's names, the file relative to the root.
    QStringList entries(DatabaseManager &manager)
    {
        QStringList entries;
        const QDir root(m_catalogue->filePath(""));
        for (const QString &name : manager.names())
            entries << name + '=' + root.relativeFilePath(manager.path(name));
        return entries;
    }

    QScopedPointer<TestSupport::TempCatalogue> m_catalogue;
};

QTEST_GUILESS_MAIN(tst_DatabaseManager)
#include "tst_databasemanager.moc"
