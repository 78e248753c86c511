// zqdb: drives the zqdatabase library from the command line.
#include <database/databasemanager.h>

#include <core/settings.h>

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QTextStream>

#include <cstdio>

namespace {

enum ExitCode { Success = 0, Failure = 1, Usage = 2 };

QTextStream &out()
{
    static QTextStream stream(stdout);
    return stream;
}

QTextStream &err()
{
    static QTextStream stream(stderr);
    return stream;
}

int runList()
{
    Database::DatabaseManager::init();
    Database::DatabaseManager *manager = Database::DatabaseManager::instance();
    const QStringList names = manager->names();
    if (names.isEmpty()) {
        out() << QCoreApplication::translate("zqdb", "No databases found.") << '\n';
    }
    int width = 0;
    for (const QString &name : names)
        width = qMax(width, name.size());
    for (const QString &name : names) {
        const QString marker = name == manager->getDefaultDbName() ? QStringLiteral("*") : QStringLiteral(" ");
        out() << marker << ' ' << name.leftJustified(width) << "  " << manager->path(name) << '\n';
    }
    Database::DatabaseManager::destruct();
    return Success;
}

} // namespace

int main(int argc, char *argv[])
{
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("zqdb"));

    QCommandLineParser parser;
    parser.setApplicationDescription(QCoreApplication::translate("zqdb", "Lists, reads, imports and exports zqdatabase databases."));
    parser.addHelpOption();
    const QCommandLineOption sysDir(QStringLiteral("sys-dir"), QCoreApplication::translate("zqdb", "System database directory."), QStringLiteral("dir"));
    const QCommandLineOption userDir(QStringLiteral("user-dir"), QCoreApplication::translate("zqdb", "User database directory."), QStringLiteral("dir"));
    const QCommandLineOption filter(QStringLiteral("filter"), QCoreApplication::translate("zqdb", "Database file name filter, e.g. *.db."), QStringLiteral("pattern"));
    parser.addOptions({sysDir, userDir, filter});
    parser.addPositionalArgument(QStringLiteral("command"), QCoreApplication::translate("zqdb", "list"));
    if (!parser.parse(app.arguments())) {
        err() << parser.errorText() << '\n';
        return Usage;
    }
    if (parser.isSet(QStringLiteral("help")))
        parser.showHelp(Success);

    Core::Settings &settings = Core::Settings::instance();
    if (parser.isSet(sysDir))
        settings.setDbSysDirPath(parser.value(sysDir));
    if (parser.isSet(userDir))
        settings.setDbUsrDirPath(parser.value(userDir));
    if (parser.isSet(filter))
        settings.setDbFileSuffixWithFilter(parser.value(filter));

    const QStringList args = parser.positionalArguments();
    const QString command = args.value(0);
    if (command == QLatin1String("list"))
        return runList();
    err() << QCoreApplication::translate("zqdb", "zqdb: unknown command '%1'. Try 'zqdb --help'.").arg(command) << '\n';
    return Usage;
}
