// Reads cells at given global rows through the factory's shared handler, as an application
// would: catalogue, factory, registration, then one recordValue per cell.
//
// usage: bench_read_cells <catalogue dir> <database name> <cells file> <rows per table>
// The cells file holds one "row column" pair per line. Values go to stdout, one per line;
// the read time and peak memory go to stderr.
#include <database/databasehandler.h>
#include <database/databasehandlerfactory.h>
#include <database/databasemanager.h>

#include <core/settings.h>

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QFile>
#include <QVector>

#include <cstdio>

#include <sys/resource.h>

namespace Database {
class DatabaseObject
{
};
} // namespace Database

int main(int argc, char *argv[])
{
    QCoreApplication app(argc, argv);
    const QStringList args = app.arguments();
    if (args.size() != 5) {
        std::fprintf(stderr, "usage: %s <catalogue dir> <database name> <cells file> "
                             "<rows per table>\n", argv[0]);
        return 2;
    }

    QFile cellsFile(args.at(3));
    if (!cellsFile.open(QIODevice::ReadOnly | QIODevice::Text)) {
        std::fprintf(stderr, "cannot read %s\n", qPrintable(args.at(3)));
        return 2;
    }
    QVector<QPair<int, int>> cells;
    while (!cellsFile.atEnd()) {
        const QList<QByteArray> fields = cellsFile.readLine().simplified().split(' ');
        if (fields.size() == 2)
            cells.append({fields.at(0).toInt(), fields.at(1).toInt()});
    }
    const int rowsPerTable = args.at(4).toInt();

    Core::Settings &settings = Core::Settings::instance();
    settings.setDbSysDirPath(args.at(1));
    settings.setDbUsrDirPath(args.at(1) + QStringLiteral("/no-user-dir"));
    settings.setDbFileSuffixWithFilter(QStringLiteral("*.db"));
    Database::DatabaseManager::init();
    Database::DatabaseHandlerFactory::init();

    QElapsedTimer timer;
    timer.start();
    Database::DatabaseObject reader;
    Database::DatabaseHandler *handler =
            Database::DatabaseHandlerFactory::instance()->registSqlDatabase(&reader, args.at(2));
    if (!handler || !handler->isDatabaseOpen()) {
        std::fprintf(stderr, "cannot open database %s\n", qPrintable(args.at(2)));
        return 1;
    }
    const qint64 openNs = timer.nsecsElapsed();

    timer.restart();
    QByteArray out;
    for (const auto &cell : qAsConst(cells)) {
        out += handler->recordValue(cell.first, cell.second, rowsPerTable).toString().toUtf8();
        out += '\n';
    }
    const qint64 readNs = timer.nsecsElapsed();
    std::fwrite(out.constData(), 1, size_t(out.size()), stdout);

    Database::DatabaseHandlerFactory::instance()->unregistSqlDatabase(&reader);
    Database::DatabaseHandlerFactory::destruct();
    Database::DatabaseManager::destruct();

    struct rusage usage;
    getrusage(RUSAGE_SELF, &usage);
    std::fprintf(stderr, "open_s=%.3f read_s=%.3f records=%d maxrss_kb=%ld\n", openNs / 1e9,
                 readNs / 1e9, int(cells.size()), usage.ru_maxrss);
    return 0;
}
