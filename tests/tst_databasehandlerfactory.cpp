#include <database/databasehandler.h>
#include <database/databasehandlerfactory.h>

#include <core/consolesingleton.h>

#include "testsupport.h"

#include <QtTest>

// The host application's reader class; the library only compares its addresses.
namespace Database {
class DatabaseObject {};
} // namespace Database

using Database::DatabaseHandler;
using Database::DatabaseHandlerFactory;
using Database::DatabaseObject;
using Users = QList<DatabaseObject *>;

namespace {

// The console lines of the handlers deleted since the history had `since` lines.
QStringList deleted(int since)
{
    QStringList names;
    for (const QString &line : Core::ConsoleSingleton::instance().history().mid(since))
        names << line.section(QStringLiteral("DatabaseHandler::~DatabaseHandler:: "), 1);
    return names;
}

int historySize()
{
    return Core::ConsoleSingleton::instance().history().size();
}

} // namespace

class tst_DatabaseHandlerFactory : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase() { QVERIFY(m_db.isValid()); }
    void init() { DatabaseHandlerFactory::init(); }
    void cleanup() { DatabaseHandlerFactory::destruct(); }
    void sharedHandlerLivesWhileUsed();
    void unknownNameUnregistersFirst();
    void destructDeletesEveryHandler();

private:
    DatabaseHandler *regist(int object, const QString &name)
    {
        return DatabaseHandlerFactory::instance()->registSqlDatabase(&m_objects[object], name);
    }

    TestSupport::LoadedCatalogue m_db;
    DatabaseObject m_objects[3];
};

void tst_DatabaseHandlerFactory::sharedHandlerLivesWhileUsed()
{
    DatabaseHandlerFactory *factory = DatabaseHandlerFactory::instance();
    const QString name = m_db.addGenerated({3, 3, 1}, 2);
    DatabaseHandler *handler = regist(0, name);
    QVERIFY(handler && handler->isDatabaseOpen());
    QCOMPARE(regist(0, name), handler);
    QCOMPARE(regist(1, name), handler);
    QCOMPARE(factory->userList(name), (Users{&m_objects[0], &m_objects[1]}));
    QCOMPARE(handler->recordValue(6, 1, 3).toString(),
             TestSupport::sqliteQuery(m_db.file(name), "SELECT column2 FROM table3;"));

    const int before = historySize();
    factory->unregistSqlDatabase(&m_objects[0]);
    QCOMPARE(deleted(before), QStringList());
    QVERIFY(factory->isOccupied(name));
    factory->unregistSqlDatabase(&m_objects[1]);
    QCOMPARE(deleted(before), QStringList{name});
    QVERIFY(!factory->isOccupied(name) && !factory->databaseHandler(name));
}

// The object leaves its database before the unknown name is refused.
void tst_DatabaseHandlerFactory::unknownNameUnregistersFirst()
{
    const QString name = m_db.addGenerated({1}, 1);
    QVERIFY(regist(0, name));
    const int before = historySize();
    QVERIFY(!regist(0, "nosuch"));
    QCOMPARE(deleted(before), QStringList{name});
    QVERIFY(!DatabaseHandlerFactory::instance()->isOccupied(name));
}

void tst_DatabaseHandlerFactory::destructDeletesEveryHandler()
{
    const QString a = m_db.addGenerated({1}, 1);
    const QString b = m_db.addGenerated({1}, 1);
    QVERIFY(regist(0, b) && regist(1, a) && regist(2, a));
    const int before = historySize();
    DatabaseHandlerFactory::destruct();
    QVERIFY(!DatabaseHandlerFactory::instance());
    QCOMPARE(deleted(before), (QStringList{a, b}));
}

QTEST_GUILESS_MAIN(tst_DatabaseHandlerFactory)
#include "tst_databasehandlerfactory.moc"
