// Any bytes as a delimited text file, imported into a fresh database file. A failed import
// must say why, and a database must stay sound either way.
#include "fuzzsupport.h"

#include <database/databasegenerator.h>

#include <QSqlDatabase>
#include <QSqlQuery>
#include <QVariant>

#include <cstdio>
#include <cstdlib>

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
    if (!generator.importOriginalFile(source, target) && generator.getLog().isEmpty()) {
        std::fprintf(stderr, "failed import without a log\n");
        std::abort();
    }
    if (!QFile::exists(target))
        return 0;
    QSqlDatabase check = QSqlDatabase::contains(QStringLiteral("fuzzcheck"))
            ? QSqlDatabase::database(QStringLiteral("fuzzcheck"), false)
            : QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"), QStringLiteral("fuzzcheck"));
    check.setDatabaseName(target);
    bool sound = check.open();
    if (sound) {
        QSqlQuery integrity(check);
        sound = integrity.exec(QStringLiteral("PRAGMA integrity_check")) && integrity.first()
                && integrity.value(0).toString() == QLatin1String("ok");
    }
    check.close();
    if (!sound) {
        std::fprintf(stderr, "the database fails the integrity check\n");
        std::abort();
    }
    return 0;
}
