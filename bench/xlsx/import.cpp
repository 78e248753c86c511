// Imports a spreadsheet into a database file with XlsxToDBGenerator; prints the peak resident
// memory of the whole process in kilobytes.
#include <database/xlsxtodbgenerator.h>

#include <QCoreApplication>

#include <cstdio>
#include <sys/resource.h>

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    if (argc < 3) {
        std::fprintf(stderr, "usage: %s SHEET DATABASE\n", argv[0]);
        return 2;
    }
    Database::XlsxToDBGenerator generator;
    const bool ok = generator.importOriginalFile(QString::fromLocal8Bit(argv[1]),
                                                 QString::fromLocal8Bit(argv[2]));
    rusage usage = {};
    getrusage(RUSAGE_SELF, &usage);
    std::printf("peak_rss_kb %ld\n", usage.ru_maxrss);
    if (!ok)
        std::fprintf(stderr, "%s\n", qPrintable(generator.getLog()));
    return ok ? 0 : 1;
}
