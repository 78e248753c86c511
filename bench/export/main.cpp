// Exports the first table of a database to CSV and reports the process's peak memory.
#include <database/databaseexport.h>

#include <QCoreApplication>

#include <sys/resource.h>

#include <cstdio>

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    if (argc < 3) {
        std::fprintf(stderr, "usage: %s DATABASE CSV [RSS_FILE]\n", argv[0]);
        return 2;
    }
    if (!Database::DatabaseExport::toCSV(QString::fromLocal8Bit(argv[1]),
                                         QString::fromLocal8Bit(argv[2]))) {
        std::fprintf(stderr, "export failed\n");
        return 1;
    }
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    if (argc > 3) {
        if (FILE *out = std::fopen(argv[3], "w")) {
            std::fprintf(out, "%ld\n", usage.ru_maxrss);
            std::fclose(out);
        }
    }
    return 0;
}
