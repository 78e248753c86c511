// Imports one text file with DatabaseGenerator and reports the result and the peak memory.
#include <database/databasegenerator.h>

#include <QCoreApplication>
#include <QStringList>

#include <sys/resource.h>

#include <cstdio>

int main(int argc, char *argv[])
{
    QCoreApplication app(argc, argv);
    const QStringList args = app.arguments();
    if (args.size() < 3) {
        std::fprintf(stderr, "usage: %s SOURCE DATABASE [SEPARATOR]\n", argv[0]);
        return 2;
    }
    Database::DatabaseGenerator generator;
    if (args.size() > 3)
        generator.setSeparator(args.at(3));
    const bool ok = generator.importOriginalFile(args.at(1), args.at(2));

    rusage usage {};
    getrusage(RUSAGE_SELF, &usage);
    std::fprintf(stderr, "maxrss_kb %ld\n", usage.ru_maxrss);
    if (!ok) {
        std::fprintf(stderr, "import failed: %s\n", qPrintable(generator.getLog()));
        return 1;
    }
    return 0;
}
