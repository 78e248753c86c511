// Times one screen of 30 rows x 10 columns at given depths: through DatabaseTableModel (a new
// model each round, so every screen is read from the database) and through one recordValue
// per cell, as a host's own model over the handler would. Both must show the same cells.
//
// usage: bench_model <catalogue dir> <database name> <rounds> <first row>...
// Prints "depth model_ms handler_ms" per depth, medians over the rounds; peak memory last.
#include <database/databasehandler.h>
#include <database/databasehandlerfactory.h>
#include <database/databasemanager.h>
#include <database/databasetablemodel.h>

#include <core/settings.h>

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QVector>

#include <algorithm>
#include <cstdio>

#include <sys/resource.h>

namespace Database {
class DatabaseObject
{
};
} // namespace Database

namespace {

constexpr int ScreenRows = 30;
constexpr int ScreenColumns = 10;

double median(QVector<double> values)
{
    std::sort(values.begin(), values.end());
    return values.isEmpty() ? 0 : values.at(values.size() / 2);
}

} // namespace

int main(int argc, char *argv[])
{
    QCoreApplication app(argc, argv);
    const QStringList args = app.arguments();
    if (args.size() < 5) {
        std::fprintf(stderr, "usage: %s <catalogue dir> <database name> <rounds> <first row>...\n",
                     argv[0]);
        return 2;
    }
    Core::Settings &settings = Core::Settings::instance();
    settings.setDbSysDirPath(args.at(1));
    settings.setDbUsrDirPath(args.at(1) + QStringLiteral("/no-user-dir"));
    Database::DatabaseManager::init();
    Database::DatabaseHandlerFactory::init();
    Database::DatabaseObject reader;
    Database::DatabaseHandler *handler
            = Database::DatabaseHandlerFactory::instance()->registSqlDatabase(&reader, args.at(2));
    if (!handler || !handler->isDatabaseOpen()) {
        std::fprintf(stderr, "cannot open database %s\n", qPrintable(args.at(2)));
        return 1;
    }
    const int rounds = args.at(3).toInt();

    int status = 0;
    for (int a = 4; a < args.size(); ++a) {
        const int first = args.at(a).toInt();
        QVector<double> modelMs;
        QVector<double> handlerMs;
        for (int round = 0; round < rounds; ++round) {
            Database::DatabaseTableModel model;
            model.setDatabaseName(args.at(2));
            QVector<QVariant> shown;
            QElapsedTimer timer;
            timer.start();
            for (int row = first; row < first + ScreenRows; ++row) {
                for (int column = 0; column < ScreenColumns; ++column)
                    shown << model.data(model.index(row, column));
            }
            modelMs << timer.nsecsElapsed() / 1e6;

            QVector<QVariant> read;
            timer.restart();
            for (int row = first; row < first + ScreenRows; ++row) {
                for (int column = 0; column < ScreenColumns; ++column)
                    read << handler->recordValue(row, column, 50000);
            }
            handlerMs << timer.nsecsElapsed() / 1e6;
            if (read != shown) {
                std::fprintf(stderr, "the model's cells at row %d differ from recordValue's\n",
                             first);
                status = 1;
            }
        }
        std::printf("%d %.2f %.2f\n", first, median(modelMs), median(handlerMs));
    }

    Database::DatabaseHandlerFactory::instance()->unregistSqlDatabase(&reader);
    Database::DatabaseHandlerFactory::destruct();
    Database::DatabaseManager::destruct();
    struct rusage usage;
    getrusage(RUSAGE_SELF, &usage);
    std::printf("maxrss_kb %ld\n", usage.ru_maxrss);
    return status;
}
