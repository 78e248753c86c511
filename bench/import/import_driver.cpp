// Imports one text file with DatabaseGenerator, or with CsvImporter as RFC 4180 in the automatic
// encoding (--csv), and reports the result and the peak memory.
#include <database/csvimporter.h>
#include <database/databasegenerator.h>

#include <QCoreApplication>
#include <QStringList>

#include <sys/resource.h>

#include <cstdio>

int main(int argc, char *argv[])
{
    QCoreApplication app(argc, argv);
    QStringList args = app.arguments();
    const bool csv = args.removeAll(QStringLiteral("--csv")) > 0;
    if (args.size() < 3) {
        std::fprintf(stderr, "usage: %s [--csv] SOURCE DATABASE [SEPARATOR]\n", argv[0]);
        return 2;
    }
    Database::DatabaseGenerator generator;
    Database::CsvImporter importer;
    if (args.size() > 3) {
        generator.setSeparator(args.at(3));
        importer.setOptions({Database::CsvImporter::Format::Rfc4180,
                             Database::CsvImporter::Encoding::Automatic, args.at(3)});
    }
    const bool ok = csv ? importer.importFile(args.at(1), args.at(2))
                        : generator.importOriginalFile(args.at(1), args.at(2));

    rusage usage {};
    getrusage(RUSAGE_SELF, &usage);
    std::fprintf(stderr, "maxrss_kb %ld\n", usage.ru_maxrss);
    if (!ok) {
        std::fprintf(stderr, "import failed: %s\n", qPrintable(csv ? importer.log() : generator.getLog()));
        return 1;
    }
    return 0;
}
