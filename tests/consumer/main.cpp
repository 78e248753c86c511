// Imports a small text file into the catalogue's system directory, as a host's import does.
#include <database/databasegenerator.h>

#include <core/settings.h>

#include <QCoreApplication>
#include <QDir>
#include <QFile>

#include <cstdio>

int main(int argc, char *argv[])
{
    QCoreApplication app(argc, argv);
    const QDir system(Core::Settings::instance().dbSysDirPath());
    QFile source(system.filePath("cities.csv"));
    if (!system.mkpath(".") || !source.open(QIODevice::WriteOnly))
        return 1;
    source.write("Hangzhou,Zhejiang\nSuzhou,Jiangsu\n");
    source.close();

    Database::DatabaseGenerator generator;
    if (generator.importOriginalFile(source.fileName(), system.filePath("cities.db")))
        return 0;
    std::fprintf(stderr, "import failed: %s\n", qPrintable(generator.getLog()));
    return 1;
}
