#include <database/databasehandler.h>
#include <database/databasehandlerfactory.h>
#include <database/databasemanager.h>

#include <core/consolesingleton.h>

#include "generateddatabase.h"

#include <QtTest>

#include <QSqlDatabase>

#include <memory>

// The host application's reader class; the library only compares its addresses.
namespace Database {
class DatabaseObject {};
} // namespace Database

using Database::DatabaseHandler;
using Database::DatabaseHandlerFactory;
using Database::DatabaseObject;
using TestSupport::generatedCell;
using Users = QList<DatabaseObject *>;

namespace {

QString destructorLine(const QString &name)
{
    return QStringLiteral("DatabaseHandler::~DatabaseHandler:: ") + name;
}

QStringList history()
{
    return Core::ConsoleSingleton::instance().history();
}

} // namespace

class tst_DatabaseHandlerFactory : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void cleanup();

    void sharedHandlerLivesWhileUsed();
    void moveToAnotherDatabase();
    void invalidRegistrations();
    void createdHandlersAreTheCallers();
    void destructDeletesEveryHandler();
    void initTwiceLeavesOldFactoryAlive();

private:
    DatabaseHandlerFactory *factory() const { return DatabaseHandlerFactory::instance(); }
    DatabaseHandler *regist(int object, const QString &name)
    {
        return factory()->registSqlDatabase(&m_objects[object], name);
    }

    std::unique_ptr<TestSupport::LoadedCatalogue> m_db;
    DatabaseObject m_objects[3];
};

void tst_DatabaseHandlerFactory::init()
{
    m_db.reset(new TestSupport::LoadedCatalogue);
    QVERIFY(m_db->isValid());
    DatabaseHandlerFactory::init();
}

void tst_DatabaseHandlerFactory::cleanup()
{
    DatabaseHandlerFactory::destruct();
    m_db.reset();
}

void tst_DatabaseHandlerFactory::sharedHandlerLivesWhileUsed()
{
    const QString name = m_db->addGenerated({3, 3, 1}, 2);
    DatabaseHandler *handler = regist(0, name);
    QVERIFY(handler && handler->isDatabaseOpen());
    QCOMPARE(regist(0, name), handler);
    QCOMPARE(regist(1, name), handler);
    QCOMPARE(factory()->databaseHandler(name), handler);
    QCOMPARE(factory()->userList(name), (Users{&m_objects[0], &m_objects[1]}));
    QCOMPARE(handler->recordValue(6, 1, 3).toString(),
             TestSupport::sqliteQuery(m_db->file(name), "SELECT column2 FROM table3;"));

    const int before = history().size();
    factory()->unregistSqlDatabase(nullptr);
    factory()->unregistSqlDatabase(&m_objects[2]);
    factory()->unregistSqlDatabase(&m_objects[0]);
    QCOMPARE(factory()->userList(name), Users{&m_objects[1]});
    QCOMPARE(history().size(), before);
    factory()->unregistSqlDatabase(&m_objects[1]);
    QCOMPARE(history().mid(before), QStringList{destructorLine(name)});
    QVERIFY(!factory()->isOccupied(name) && !factory()->databaseHandler(name));
    // The connection outlives its handler and is reopened when the name is used again.
    QVERIFY(QSqlDatabase::contains(name) && !QSqlDatabase::database(name, false).isOpen());
    QCOMPARE(regist(2, name)->recordValue(0, 0, 3).toString(), generatedCell(1, 0, 1));
}

// A move takes the old handler along only with its last user, and then deletes it (logged,
// connection closed) before the new one opens. The new name's connection is left on a file
// that cannot be opened, so Qt warns at the very moment the handler opens it, and that is
// when the console history is taken; the catalogued file then opens.
void tst_DatabaseHandlerFactory::moveToAnotherDatabase()
{
    const QString a = m_db->addGenerated({1}, 1);
    const QString b = m_db->addGenerated({2}, 1);
    const QString c = m_db->addGenerated({1}, 1);
    DatabaseHandler *handlerA = regist(0, a);
    QCOMPARE(regist(1, a), handlerA);
    const int before = history().size();
    QCOMPARE(regist(1, b)->getTableRecordCount(), 2);
    QCOMPARE(history().size(), before);
    QCOMPARE(factory()->userList(a), Users{&m_objects[0]});
    QCOMPARE(handlerA->recordValue(0, 0, 1).toString(), generatedCell(1, 0, 1));

    QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"), c)
            .setDatabaseName(m_db->filePath("gone/nothing.db"));
    static QStringList historyWhenOpening;
    historyWhenOpening.clear();
    const QtMessageHandler previous = qInstallMessageHandler(
            [](QtMsgType, const QMessageLogContext &, const QString &message) {
                if (message.contains(QLatin1String("unable to open database")))
                    historyWhenOpening = history();
            });
    DatabaseHandler *handlerC = regist(0, c);
    qInstallMessageHandler(previous);
    QCOMPARE(historyWhenOpening.value(historyWhenOpening.size() - 1), destructorLine(a));
    QVERIFY(!factory()->isOccupied(a) && !QSqlDatabase::database(a, false).isOpen());
    QVERIFY(handlerC && handlerC->isDatabaseOpen());
    QCOMPARE(factory()->userList(c), Users{&m_objects[0]});
}

// Null objects and unknown names are refused; an unusable database is not the factory's
// concern: its handler is kept and shared all the same.
void tst_DatabaseHandlerFactory::invalidRegistrations()
{
    const QString name = m_db->addGenerated({1}, 1);
    QVERIFY(regist(0, name));
    QVERIFY(!factory()->registSqlDatabase(nullptr, name));
    QCOMPARE(factory()->userList(name), Users{&m_objects[0]});
    // The object leaves its database before the unknown name is refused.
    QVERIFY(!regist(0, "nosuch"));
    QVERIFY(!factory()->isOccupied(name) && !factory()->isOccupied("nosuch"));
    QCOMPARE(history().last(), destructorLine(name));

    const QString junk = TestSupport::uniqueDatabaseName("junk");
    QVERIFY(TestSupport::writeFile(m_db->file(junk), QByteArray(2048, 'x')));
    Database::DatabaseManager::instance()->reload();
    DatabaseHandler *handler = regist(0, junk);
    QVERIFY(handler && handler->getFieldNames().isEmpty());
    QCOMPARE(regist(1, junk), handler);
}

// Handlers made on request are the caller's: the factory neither lists nor deletes them.
// They share one connection, so deleting one closes it under the other.
void tst_DatabaseHandlerFactory::createdHandlersAreTheCallers()
{
    const QString name = m_db->addGenerated({2}, 1);
    QVERIFY(!factory()->createDatabaseHandler("nosuch"));
    std::unique_ptr<DatabaseHandler> first(factory()->createDatabaseHandler(name));
    std::unique_ptr<DatabaseHandler> second(factory()->createDatabaseHandler(name));
    QVERIFY(first && second && first != second);
    QVERIFY(!factory()->isOccupied(name));
    QCOMPARE(second->recordValue(1, 0, 2).toString(), generatedCell(1, 1, 1));
    first.reset();
    QVERIFY(!second->recordValue(1, 0, 2).isValid());
    QCOMPARE(QSqlDatabase::connectionNames().count(name), 1);
}

void tst_DatabaseHandlerFactory::destructDeletesEveryHandler()
{
    const QString a = m_db->addGenerated({1}, 1);
    const QString b = m_db->addGenerated({1}, 1);
    QVERIFY(regist(0, b) && regist(1, a) && regist(2, a));
    const int before = history().size();
    DatabaseHandlerFactory::destruct();
    QVERIFY(!DatabaseHandlerFactory::instance());
    // In name order, one line per handler.
    QCOMPARE(history().mid(before), (QStringList{destructorLine(a), destructorLine(b)}));
}

void tst_DatabaseHandlerFactory::initTwiceLeavesOldFactoryAlive()
{
    const QString name = m_db->addGenerated({1}, 1);
    std::unique_ptr<DatabaseHandlerFactory> old(factory());
    DatabaseHandler *handler = regist(0, name);
    DatabaseHandlerFactory::init();
    QVERIFY(factory() && factory() != old.get());
    QVERIFY(!factory()->isOccupied(name));
    QCOMPARE(handler->recordValue(0, 0, 1).toString(), generatedCell(1, 0, 1));
    old.reset(); // the orphan is ours to delete
    QCOMPARE(history().last(), destructorLine(name));
}

QTEST_GUILESS_MAIN(tst_DatabaseHandlerFactory)
#include "tst_databasehandlerfactory.moc"
