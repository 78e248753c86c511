#include <database/databasehandler.h>
#include <database/databasehandlerfactory.h>
#include <database/databasemanager.h>

#include <core/consolesingleton.h>

#include "generateddatabase.h"
#include "testsupport.h"

#include <QtTest>

#include <QSqlDatabase>

// The host application's reader class; the library only compares its addresses.
namespace Database {
class DatabaseObject
{
};
} // namespace Database

using Database::DatabaseHandler;
using Database::DatabaseHandlerFactory;
using Database::DatabaseManager;
using Database::DatabaseObject;
using TestSupport::generatedCell;
using TestSupport::TempCatalogue;

namespace {

QString destructorLine(const QString &name)
{
    return QStringLiteral("DatabaseHandler::~DatabaseHandler:: ") + name;
}

QStringList history()
{
    return Core::ConsoleSingleton::instance().history();
}

// Qt messages are caught while a test watches for the moment a handler opens its database.
QStringList g_historyWhenOpening;
QtMessageHandler g_previousHandler = nullptr;

void watchOpening(QtMsgType type, const QMessageLogContext &context, const QString &message)
{
    if (message.contains(QLatin1String("unable to open database")))
        g_historyWhenOpening = history();
    else if (g_previousHandler)
        g_previousHandler(type, context, message);
}

} // namespace

class tst_DatabaseHandlerFactory : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void cleanup();

    void readPathFromStartToCell();
    void sharedHandlerLivesWhileUsed();
    void registerTwiceForSameName();
    void moveDeletesOldHandlerBeforeOpeningNew();
    void moveKeepsHandlerOfRemainingUsers();
    void invalidRegistrations_data();
    void invalidRegistrations();
    void unregisterUnknownObjects();
    void handlerKeptWhenDatabaseUnusable_data();
    void handlerKeptWhenDatabaseUnusable();
    void reopenAfterLastUserLeft();
    void createdHandlersShareConnection();
    void destructDeletesEveryHandler();
    void initTwiceLeavesOldFactoryAlive();

private:
    DatabaseHandlerFactory *factory() const { return DatabaseHandlerFactory::instance(); }

    QString addGenerated(const QList<int> &rowCounts, int columns)
    {
        return TestSupport::addGeneratedDatabase(*m_catalogue, rowCounts, columns);
    }
    QString sysFile(const QString &name) const
    {
        return TestSupport::systemDatabaseFile(*m_catalogue, name);
    }

    TempCatalogue *m_catalogue = nullptr;
    DatabaseObject m_objects[3];
};

void tst_DatabaseHandlerFactory::init()
{
    m_catalogue = new TempCatalogue;
    QVERIFY(m_catalogue->isValid());
    DatabaseManager::init();
    DatabaseHandlerFactory::init();
}

void tst_DatabaseHandlerFactory::cleanup()
{
    DatabaseHandlerFactory::destruct();
    DatabaseManager::destruct();
    delete m_catalogue;
    m_catalogue = nullptr;
}

// The application's usual sequence: register, read the shape and a cell, unregister.
void tst_DatabaseHandlerFactory::readPathFromStartToCell()
{
    const QString name = addGenerated({3, 3, 1}, 2);
    QVERIFY(!name.isEmpty());
    QVERIFY(!factory()->isOccupied(name));

    DatabaseHandler *handler = factory()->registSqlDatabase(&m_objects[0], name);
    QVERIFY(handler);
    QVERIFY(handler->isDatabaseOpen());
    QCOMPARE(handler->currentDatabaseName(), name);
    QCOMPARE(handler->getFieldNames(), (QStringList{"column1", "column2"}));
    QCOMPARE(handler->getTableRecordCount(), 7);
    QCOMPARE(handler->recordValue(6, 1, 3).toString(), generatedCell(3, 0, 2));
    QCOMPARE(handler->recordValue(6, 1, 3).toString(),
             TestSupport::sqliteQuery(sysFile(name), "SELECT column2 FROM table3;"));

    const int before = history().size();
    factory()->unregistSqlDatabase(&m_objects[0]);
    QCOMPARE(history().mid(before), QStringList{destructorLine(name)});
    QVERIFY(!factory()->isOccupied(name));
    QVERIFY(!factory()->databaseHandler(name));
    QVERIFY(!QSqlDatabase::database(name, false).isOpen());
}

void tst_DatabaseHandlerFactory::sharedHandlerLivesWhileUsed()
{
    const QString name = addGenerated({2}, 1);
    QVERIFY(!name.isEmpty());
    DatabaseHandler *first = factory()->registSqlDatabase(&m_objects[0], name);
    DatabaseHandler *second = factory()->registSqlDatabase(&m_objects[1], name);
    QVERIFY(first);
    QCOMPARE(second, first);
    QCOMPARE(factory()->databaseHandler(name), first);
    QCOMPARE(factory()->userList(name), (QList<DatabaseObject *>{&m_objects[0], &m_objects[1]}));

    const int before = history().size();
    factory()->unregistSqlDatabase(&m_objects[0]);
    QVERIFY(factory()->isOccupied(name));
    QCOMPARE(factory()->userList(name), QList<DatabaseObject *>{&m_objects[1]});
    QCOMPARE(first->recordValue(1, 0, 2).toString(), generatedCell(1, 1, 1));
    QCOMPARE(history().size(), before);

    factory()->unregistSqlDatabase(&m_objects[1]);
    QVERIFY(!factory()->isOccupied(name));
    QVERIFY(factory()->userList(name).isEmpty());
    QCOMPARE(history().last(), destructorLine(name));
}

void tst_DatabaseHandlerFactory::registerTwiceForSameName()
{
    const QString name = addGenerated({1}, 1);
    QVERIFY(!name.isEmpty());
    DatabaseHandler *handler = factory()->registSqlDatabase(&m_objects[0], name);
    QVERIFY(handler);
    QCOMPARE(factory()->registSqlDatabase(&m_objects[0], name), handler);
    QCOMPARE(factory()->userList(name), QList<DatabaseObject *>{&m_objects[0]});
    // One unregistration is enough to take it off.
    factory()->unregistSqlDatabase(&m_objects[0]);
    QVERIFY(!factory()->isOccupied(name));
}

// The old handler is gone (its line logged, its connection closed) before the new one
// opens. Opening the new one through a connection whose open fails makes Qt warn at that
// very moment, which is when the console history is taken.
void tst_DatabaseHandlerFactory::moveDeletesOldHandlerBeforeOpeningNew()
{
    const QString oldName = addGenerated({1}, 1);
    const QString newName = addGenerated({1}, 1);
    QVERIFY(!oldName.isEmpty() && !newName.isEmpty());
    QVERIFY(factory()->registSqlDatabase(&m_objects[0], oldName));

    // Close the new name's connection so that reusing it reopens it, in a directory that
    // no longer exists: the reopen fails and warns.
    {
        QSqlDatabase db = QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"), newName);
        db.setDatabaseName(m_catalogue->filePath("gone/nothing.db"));
    }
    g_historyWhenOpening.clear();
    g_previousHandler = qInstallMessageHandler(watchOpening);
    DatabaseHandler *handler = factory()->registSqlDatabase(&m_objects[0], newName);
    qInstallMessageHandler(g_previousHandler);

    QVERIFY(!g_historyWhenOpening.isEmpty());
    QCOMPARE(g_historyWhenOpening.last(), destructorLine(oldName));
    QVERIFY(!factory()->isOccupied(oldName));
    QVERIFY(!QSqlDatabase::database(oldName, false).isOpen());
    // The reused connection then opens the catalogued file.
    QVERIFY(handler);
    QVERIFY(handler->isDatabaseOpen());
    QCOMPARE(handler->recordValue(0, 0, 1).toString(), generatedCell(1, 0, 1));
    QCOMPARE(factory()->userList(newName), QList<DatabaseObject *>{&m_objects[0]});
}

void tst_DatabaseHandlerFactory::moveKeepsHandlerOfRemainingUsers()
{
    const QString a = addGenerated({1}, 1);
    const QString b = addGenerated({2}, 1);
    QVERIFY(!a.isEmpty() && !b.isEmpty());
    DatabaseHandler *handlerA = factory()->registSqlDatabase(&m_objects[0], a);
    QCOMPARE(factory()->registSqlDatabase(&m_objects[1], a), handlerA);

    const int before = history().size();
    DatabaseHandler *handlerB = factory()->registSqlDatabase(&m_objects[0], b);
    QVERIFY(handlerB && handlerB != handlerA);
    QCOMPARE(history().size(), before);
    QCOMPARE(factory()->userList(a), QList<DatabaseObject *>{&m_objects[1]});
    QCOMPARE(factory()->userList(b), QList<DatabaseObject *>{&m_objects[0]});
    QCOMPARE(handlerA->recordValue(0, 0, 1).toString(), generatedCell(1, 0, 1));
    QCOMPARE(handlerB->getTableRecordCount(), 2);
}

void tst_DatabaseHandlerFactory::invalidRegistrations_data()
{
    QTest::addColumn<bool>("nullObject");
    QTest::addColumn<bool>("knownName");
    QTest::addColumn<bool>("staysRegistered"); // on the database it read before

    QTest::newRow("unknown name") << false << false << false;
    QTest::newRow("empty name") << false << false << false;
    QTest::newRow("null object") << true << true << true;
}

// An unknown name returns null after the object has left its previous database.
void tst_DatabaseHandlerFactory::invalidRegistrations()
{
    QFETCH(bool, nullObject);
    QFETCH(bool, knownName);
    QFETCH(bool, staysRegistered);

    const QString before = addGenerated({1}, 1);
    const QString other = addGenerated({1}, 1);
    QVERIFY(!before.isEmpty() && !other.isEmpty());
    QVERIFY(factory()->registSqlDatabase(&m_objects[0], before));

    QString name = knownName ? other : QStringLiteral("nosuch");
    if (QByteArray(QTest::currentDataTag()) == "empty name")
        name = QString();
    DatabaseObject *object = nullObject ? nullptr : &m_objects[0];
    QVERIFY(!factory()->registSqlDatabase(object, name));

    QCOMPARE(factory()->isOccupied(before), staysRegistered);
    QCOMPARE(factory()->userList(before).size(), staysRegistered ? 1 : 0);
    QVERIFY(!factory()->isOccupied(name));
    QVERIFY(factory()->userList(name).isEmpty());
    if (!staysRegistered)
        QCOMPARE(history().last(), destructorLine(before));
}

void tst_DatabaseHandlerFactory::unregisterUnknownObjects()
{
    const QString name = addGenerated({1}, 1);
    QVERIFY(!name.isEmpty());
    DatabaseHandler *handler = factory()->registSqlDatabase(&m_objects[0], name);
    QVERIFY(handler);
    factory()->unregistSqlDatabase(nullptr);
    factory()->unregistSqlDatabase(&m_objects[1]);
    QCOMPARE(factory()->databaseHandler(name), handler);
    QCOMPARE(factory()->userList(name), QList<DatabaseObject *>{&m_objects[0]});
    QVERIFY(!factory()->databaseHandler("nosuch"));
}

void tst_DatabaseHandlerFactory::handlerKeptWhenDatabaseUnusable_data()
{
    QTest::addColumn<QByteArray>("content");
    QTest::addColumn<bool>("open");
    QTest::newRow("not a database") << QByteArray(2048, 'x') << true;
    QTest::newRow("empty file, no table") << QByteArray() << true;
    QTest::newRow("open fails") << QByteArray() << false;
}

// The factory ignores whether the database opened: the handler is kept and handed out.
void tst_DatabaseHandlerFactory::handlerKeptWhenDatabaseUnusable()
{
    QFETCH(QByteArray, content);
    QFETCH(bool, open);

    const QString name = TestSupport::uniqueDatabaseName(QStringLiteral("unusable"));
    QVERIFY(TestSupport::writeFile(sysFile(name), content));
    DatabaseManager::instance()->reload();
    if (!open) {
        QTest::ignoreMessage(QtWarningMsg, QRegularExpression("not loaded"));
        QTest::ignoreMessage(QtWarningMsg, QRegularExpression("available drivers"));
        QSqlDatabase::addDatabase(QStringLiteral("QNOSUCHDRIVER"), name);
    }

    DatabaseHandler *handler = factory()->registSqlDatabase(&m_objects[0], name);
    QVERIFY(handler);
    QCOMPARE(handler->isDatabaseOpen(), open);
    QVERIFY(handler->getFieldNames().isEmpty());
    QVERIFY(!handler->recordValue(0, 0, 1).isValid());
    QVERIFY(factory()->isOccupied(name));
    QCOMPARE(factory()->registSqlDatabase(&m_objects[1], name), handler);
    QCOMPARE(factory()->userList(name).size(), 2);

    factory()->unregistSqlDatabase(&m_objects[0]);
    factory()->unregistSqlDatabase(&m_objects[1]);
    QVERIFY(!factory()->isOccupied(name));
    if (!open)
        QSqlDatabase::removeDatabase(name);
}

// The connection outlives its handler and is reopened when the name is used again.
void tst_DatabaseHandlerFactory::reopenAfterLastUserLeft()
{
    const QString name = addGenerated({2}, 1);
    QVERIFY(!name.isEmpty());
    QVERIFY(factory()->registSqlDatabase(&m_objects[0], name));
    factory()->unregistSqlDatabase(&m_objects[0]);
    QVERIFY(QSqlDatabase::contains(name));

    DatabaseHandler *handler = factory()->registSqlDatabase(&m_objects[1], name);
    QVERIFY(handler);
    QVERIFY(handler->isDatabaseOpen());
    QCOMPARE(handler->recordValue(1, 0, 2).toString(), generatedCell(1, 1, 1));
}

// Handlers made on request are the caller's: the factory neither lists nor deletes them.
void tst_DatabaseHandlerFactory::createdHandlersShareConnection()
{
    const QString name = addGenerated({2}, 1);
    QVERIFY(!name.isEmpty());
    QVERIFY(!factory()->createDatabaseHandler("nosuch"));

    DatabaseHandler *first = factory()->createDatabaseHandler(name);
    DatabaseHandler *second = factory()->createDatabaseHandler(name);
    QVERIFY(first && second && first != second);
    QVERIFY(!factory()->isOccupied(name));
    QVERIFY(!factory()->databaseHandler(name));
    QCOMPARE(first->recordValue(0, 0, 2).toString(), generatedCell(1, 0, 1));
    QCOMPARE(second->recordValue(1, 0, 2).toString(), generatedCell(1, 1, 1));

    delete first;
    QVERIFY(!QSqlDatabase::database(name, false).isOpen());
    QVERIFY(second->isDatabaseOpen());
    QVERIFY(!second->recordValue(1, 0, 2).isValid());
    delete second;
    QCOMPARE(QSqlDatabase::connectionNames().count(name), 1);
}

void tst_DatabaseHandlerFactory::destructDeletesEveryHandler()
{
    const QString a = addGenerated({1}, 1);
    const QString b = addGenerated({1}, 1);
    QVERIFY(!a.isEmpty() && !b.isEmpty());
    QVERIFY(factory()->registSqlDatabase(&m_objects[0], b));
    QVERIFY(factory()->registSqlDatabase(&m_objects[1], a));
    QVERIFY(factory()->registSqlDatabase(&m_objects[2], a));

    const int before = history().size();
    DatabaseHandlerFactory::destruct();
    QVERIFY(!DatabaseHandlerFactory::instance());
    // In name order, one line per handler.
    QCOMPARE(history().mid(before), (QStringList{destructorLine(a), destructorLine(b)}));
    DatabaseHandlerFactory::destruct();
    QVERIFY(!DatabaseHandlerFactory::instance());
}

void tst_DatabaseHandlerFactory::initTwiceLeavesOldFactoryAlive()
{
    const QString name = addGenerated({1}, 1);
    QVERIFY(!name.isEmpty());
    DatabaseHandlerFactory *old = factory();
    DatabaseHandler *handler = old->registSqlDatabase(&m_objects[0], name);
    QVERIFY(handler);

    DatabaseHandlerFactory::init();
    QVERIFY(factory() && factory() != old);
    QVERIFY(!factory()->isOccupied(name));
    QCOMPARE(handler->recordValue(0, 0, 1).toString(), generatedCell(1, 0, 1));
    // The orphan is ours to delete.
    delete old;
    QCOMPARE(history().last(), destructorLine(name));
}

QTEST_GUILESS_MAIN(tst_DatabaseHandlerFactory)
#include "tst_databasehandlerfactory.moc"
