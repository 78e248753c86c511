// Any bytes as a delimited text file, imported into a fresh database file.
#include "fuzzsupport.h"

#include <database/databasegenerator.h>

#include <QLoggingCategory>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    FuzzSupport::ensureApplication();
    static const QString source = FuzzSupport::scratch().filePath(QStringLiteral("source.txt"));
    static const QString target = FuzzSupport::scratch().filePath(QStringLiteral("target.db"));
    if (size == 0 || !FuzzSupport::writeInput(source, data + 1, size - 1))
        return 0;
    QFile::remove(target);

    // The first byte picks the separator, so every candidate gets exercised.
    static const char *const separators[] = {",", "|", ";", "\t", "@;!", ""};
    Database::DatabaseGenerator generator;
    generator.setSeparator(QString::fromLatin1(separators[data[0] % 6]));
    generator.importOriginalFile(source, target);
    generator.getLog();
    return 0;
}
