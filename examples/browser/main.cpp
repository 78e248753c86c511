// A small desktop browser over zqdatabase: the catalogue, a database in a table view, import
// and export with progress and cancel. With --self-test ROW it shows the default database at
// that row, saves a screenshot, prints the cells shown and quits; with --import FILE it imports
// FILE, saves a screenshot while the import runs, prints the cells then shown and quits.
#include "browserwindow.h"

#include <database/databasehandlerfactory.h>
#include <database/databasemanager.h>

#include <QApplication>
#include <QCommandLineParser>

#include <cstdio>

int main(int argc, char *argv[])
{
    QApplication app(argc, argv);
    QCommandLineParser parser;
    parser.setApplicationDescription(QObject::tr("Browses the databases of the catalogue."));
    parser.addHelpOption();
    const QCommandLineOption selfTest(QStringLiteral("self-test"),
                                      QObject::tr("Show the default database at ROW and quit."),
                                      QStringLiteral("ROW"));
    const QCommandLineOption import(QStringLiteral("import"),
                                    QObject::tr("Import the text file FILE, show it and quit."),
                                    QStringLiteral("FILE"));
    const QCommandLineOption screenshot(
            QStringLiteral("screenshot"),
            QObject::tr("Save the window to FILE (with --self-test, or during --import)."),
            QStringLiteral("FILE"));
    parser.addOptions({selfTest, import, screenshot});
    parser.process(app);

    Database::DatabaseManager::init();
    Database::DatabaseHandlerFactory::init();
    int status = 0;
    {
        BrowserWindow window;
        window.resize(1000, 640);
        window.show();
        if (parser.isSet(import)) {
            QApplication::processEvents();
            status = window.importForSelfTest(parser.value(import), parser.value(screenshot))
                    ? 0
                    : 1;
            std::fputs(qPrintable(window.visibleCells()), stdout);
        } else if (parser.isSet(selfTest)) {
            QApplication::processEvents();
            status = window.showDefaultAt(parser.value(selfTest).toInt()) ? 0 : 1;
            QApplication::processEvents();
            if (parser.isSet(screenshot) && !window.grab().save(parser.value(screenshot)))
                status = 1;
            std::fputs(qPrintable(window.visibleCells()), stdout);
        } else {
            status = app.exec();
        }
    }
    Database::DatabaseHandlerFactory::destruct();
    Database::DatabaseManager::destruct();
    return status;
}
