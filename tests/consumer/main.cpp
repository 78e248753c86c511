// Imports a small text file and reads it back through the catalogue and a shared handler.
#include <database/databasegenerator.h>
#include <database/databasehandler.h>
#include <database/databasehandlerfactory.h>
#include <database/databasemanager.h>

#include <core/settings.h>

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include <cstdio>

namespace Database {
class DatabaseObject
{
};
} // namespace Database

int main(int argc, char *argv[])
{
    QCoreApplication app(argc, argv);
    QTemporaryDir dir;
    QDir(dir.path()).mkdir("system");
    const QString source = dir.filePath("cities.csv");
    QFile file(source);
    if (!file.open(QIODevice::WriteOnly))
        return 1;
    file.write("Hangzhou,Zhejiang\nSuzhou,Jiangsu\n");
    file.close();

    Database::DatabaseGenerator generator;
    if (!generator.importOriginalFile(source, dir.filePath("system/cities.db"))) {
        std::fprintf(stderr, "import failed: %s\n", qPrintable(generator.getLog()));
        return 1;
    }

    Core::Settings::instance().setDbSysDirPath(dir.filePath("system"));
    Core::Settings::instance().setDbUsrDirPath(dir.filePath("user"));
    Database::DatabaseManager::init();
    Database::DatabaseHandlerFactory::init();
    Database::DatabaseObject reader;
    Database::DatabaseHandler *handler
            = Database::DatabaseHandlerFactory::instance()->registSqlDatabase(&reader, "cities");
    const QString value = handler ? handler->recordValue(1, 1, 50000).toString() : QString();
    std::printf("%d %s\n", handler ? handler->getTableRecordCount() : -1, qPrintable(value));
    Database::DatabaseHandlerFactory::instance()->unregistSqlDatabase(&reader);
    Database::DatabaseHandlerFactory::destruct();
    Database::DatabaseManager::destruct();
    return value == QLatin1String("Jiangsu") ? 0 : 1;
}
