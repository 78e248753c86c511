// zqdb: drives the zqdatabase library from the command line.
#include "zqdb.h"

#include <core/settings.h>

#include <QCommandLineParser>
#include <QLoggingCategory>
#include <QTextStream>

#include <csignal>
#include <cstdio>
#include <limits>

using Zqdb::tr;
using Encoding = Database::CsvImporter::Encoding;

namespace {

// The synopsis names a command's arguments ([FILE]: optional) and its own options.
struct Command
{
    const char *synopsis;
    const char *description;
};

const Command Commands[] = {
        {"list",
         QT_TRANSLATE_NOOP("zqdb",
                           "Lists the catalogued databases, the default first (marked *).")},
        {"info NAME",
         QT_TRANSLATE_NOOP(
                 "zqdb", "Shows the tables, fields, field types and record count of a database.")},
        {"cat NAME [FILE] [--from ROW] [--count N|all] [--columns LIST] [--csv]",
         QT_TRANSLATE_NOOP("zqdb",
                           "Prints rows of a database, 50,000 rows per table, to standard output "
                           "or FILE.")},
        {"import SOURCE DATABASE [--csv] [--separator TEXT] [--encoding NAME] "
         "[--replace|--in-place]",
         QT_TRANSLATE_NOOP("zqdb",
                           "Imports a text file or an .xlsx/.xlsm spreadsheet (SOURCE - for "
                           "standard input) into a database file.")},
        {"export DATABASE CSVFILE",
         QT_TRANSLATE_NOOP("zqdb",
                           "Writes the first table of a database to a GBK CSV file (- for "
                           "standard output).")},
        {"memory FILE [--encoding NAME]",
         QT_TRANSLATE_NOOP("zqdb",
                           "Fills the memory table from \"@;!\"-joined lines and prints it by "
                           "walking the cursor.")},
};

QList<QCommandLineOption> globalOptions()
{
    return {{"sys-dir", tr("System database directory."), "dir"},
            {"user-dir", tr("User database directory."), "dir"},
            {"filter", tr("Database file name filter (default *.db)."), "pattern"},
            {"verbose", tr("Show the library's console lines on standard error.")}};
}

// The options commands name in their synopsis; import's --csv has its own description.
QList<QCommandLineOption> commandOptions(const QString &command)
{
    const QString csv = command == QLatin1String("import")
            ? tr("Read the text as CSV (RFC 4180): quoted fields may hold separators, quotes and "
                 "line breaks, and empty fields are kept. Without it each line is trimmed and "
                 "split as the library's importer does: empty fields dropped, quotes kept as "
                 "text.")
            : tr("Print CSV instead of aligned text.");
    return {{"from", tr("First row to print, counted from 0 (default 0)."), "row"},
            {"count", tr("Number of rows to print, or all (default 20)."), "n"},
            {"columns", tr("Comma-separated field names or 1-based field numbers to print."),
             "list"},
            {"csv", csv},
            {"separator",
             tr("Field separator of a text source (default \",\"; \\t or tab for a tab)."), "text"},
            {"encoding",
             tr("Encoding of a text source: gb2312 (the default without --csv; a line with a "
                "byte-order mark is read as UTF), utf-8, gb18030, or auto (the default with "
                "--csv: a byte-order mark, else UTF-8 when the whole file is UTF-8, else "
                "GB18030). memory takes gb2312 or utf-8."),
             "name"},
            {"replace",
             tr("Import into a new file that replaces DATABASE only when the import succeeds.")},
            {"in-place",
             tr("Import into DATABASE as it is: table1, table2, ... are emptied and refilled, "
                "other tables are kept.")}};
}

QString generalHelp(const QCommandLineParser &parser)
{
    QString text = parser.helpText() + QLatin1Char('\n') + tr("Commands:") + QLatin1Char('\n');
    for (const Command &command : Commands)
        text += QStringLiteral("  %1\n      %2\n")
                        .arg(QLatin1String(command.synopsis), tr(command.description));
    return text + QLatin1Char('\n')
            + tr("Run 'zqdb COMMAND --help' for the options of one command.") + QLatin1Char('\n');
}

// "gb2312" (the library's own per-line rule), "utf-8", "gb18030" or "auto", in any case and
// with or without the dash.
bool parseEncoding(const QString &name, Encoding *encoding)
{
    const QString key = name.toLower().remove(QLatin1Char('-'));
    const QStringList names{"gb2312", "utf8", "gb18030", "auto"};
    const Encoding encodings[]
            = {Encoding::PerLine, Encoding::Utf8, Encoding::Gb18030, Encoding::Automatic};
    const int index = names.indexOf(key);
    if (index >= 0)
        *encoding = encodings[index];
    return index >= 0;
}

bool parseCount(const QString &text, qint64 *value)
{
    bool ok = false;
    const qint64 number = text.toLongLong(&ok);
    if (ok && number >= 0)
        *value = number;
    return ok && number >= 0;
}

} // namespace

int main(int argc, char *argv[])
{
    QCoreApplication app(argc, argv);
    // Past a file size limit a write should fail and be reported, not end the process.
    std::signal(SIGXFSZ, SIG_IGN);
    QCoreApplication::setApplicationName(QStringLiteral("zqdb"));
    QCoreApplication::setApplicationVersion(QStringLiteral(ZQDB_VERSION));

    QTextStream out(stdout);
    QTextStream err(stderr);
#if QT_VERSION < QT_VERSION_CHECK(6, 0, 0) // Qt 6 streams write UTF-8 already
    out.setCodec("UTF-8");
    err.setCodec("UTF-8");
#endif

    // First pass: find the command; everything after it is left for the second pass.
    QCommandLineParser parser;
    parser.setApplicationDescription(tr("Lists, reads, imports and exports zqdatabase databases."));
    // Not addHelpOption(): its --help-all would promise Qt-specific options zqdb does not have.
    const QCommandLineOption help({QStringLiteral("h"), QStringLiteral("help")},
                                  tr("Displays this help."));
    parser.addOption(help);
    const QCommandLineOption version = parser.addVersionOption();
    parser.addOptions(globalOptions());
    parser.addPositionalArgument(QStringLiteral("command"), tr("One of the commands below."),
                                 QStringLiteral("COMMAND"));
    parser.setOptionsAfterPositionalArgumentsMode(QCommandLineParser::ParseAsPositionalArguments);
    const auto generalUsage = [&](const QString &message) {
        err << message << '\n' << tr("Try 'zqdb --help'.") << '\n';
        return int(Zqdb::Usage);
    };
    if (!parser.parse(app.arguments()))
        return generalUsage("zqdb: " + parser.errorText());
    const QStringList firstPass = parser.positionalArguments();
    if (parser.isSet(version) || (firstPass.isEmpty() && parser.isSet(help))) {
        out << (parser.isSet(version) ? "zqdb " + QCoreApplication::applicationVersion() + '\n'
                                      : generalHelp(parser));
        return Zqdb::Success;
    }
    if (firstPass.isEmpty())
        return generalUsage(tr("zqdb: no command given."));
    const Command *command = nullptr;
    for (const Command &known : Commands) {
        if (QString::fromLatin1(known.synopsis).section(QLatin1Char(' '), 0, 0) == firstPass[0])
            command = &known;
    }
    if (!command)
        return generalUsage(tr("zqdb: unknown command '%1'.").arg(firstPass.first()));
    QStringList words = QString::fromLatin1(command->synopsis).split(QLatin1Char(' '));
    QStringList positional, optional, own;
    const QString name = words.takeFirst();
    for (const QString &word : qAsConst(words)) {
        if (word.startsWith(QLatin1String("[--")))
            own << word.mid(3).remove(QLatin1Char(']')).split(QStringLiteral("|--"));
        else if (word.startsWith(QLatin1Char('[')))
            optional << word.mid(1).chopped(1);
        else if (!word.endsWith(QLatin1Char(']'))) // not an option's value
            positional << word;
    }

    // Second pass: the command's own options and arguments, anywhere on the line.
    QCommandLineParser commandParser;
    commandParser.setApplicationDescription(tr(command->description));
    commandParser.addOption(help);
    commandParser.addOptions(globalOptions());
    for (const QCommandLineOption &option : commandOptions(name)) {
        if (own.contains(option.names().first()))
            commandParser.addOption(option);
    }
    commandParser.addPositionalArgument(name, tr("The command."), name);
    for (const QString &argument : qAsConst(positional))
        commandParser.addPositionalArgument(argument, QString(), argument);
    for (const QString &argument : qAsConst(optional))
        commandParser.addPositionalArgument(argument, QString(),
                                            QStringLiteral("[%1]").arg(argument));
    const auto usage = [&](const QString &message) {
        err << "zqdb " << name << ": " << message << '\n'
            << tr("Try 'zqdb %1 --help'.").arg(name) << '\n';
        return int(Zqdb::Usage);
    };
    if (!commandParser.parse(app.arguments()))
        return usage(commandParser.errorText());
    if (commandParser.isSet(help)) {
        out << commandParser.helpText();
        return Zqdb::Success;
    }
    const QStringList args = commandParser.positionalArguments().mid(1);
    if (args.size() < positional.size() || args.size() > positional.size() + optional.size()) {
        const QString expected
                = positional.isEmpty() ? tr("no arguments") : positional.join(QLatin1Char(' '));
        return usage(tr("expected %1, got %2 argument(s).").arg(expected).arg(args.size()));
    }
    // isSet() and value() warn about an option the command does not have.
    const auto isSet = [&](const char *option) {
        return own.contains(QLatin1String(option)) && commandParser.isSet(option);
    };
    const auto value = [&](const char *option) {
        return isSet(option) ? commandParser.value(option) : QString();
    };

    // The library's console lines are for diagnosis; a user asks for them.
    if (!commandParser.isSet(QStringLiteral("verbose")))
        QLoggingCategory::setFilterRules(QStringLiteral("zq.console.info=false"));
    Core::Settings &settings = Core::Settings::instance();
    if (commandParser.isSet(QStringLiteral("sys-dir")))
        settings.setDbSysDirPath(commandParser.value(QStringLiteral("sys-dir")));
    if (commandParser.isSet(QStringLiteral("user-dir")))
        settings.setDbUsrDirPath(commandParser.value(QStringLiteral("user-dir")));
    if (commandParser.isSet(QStringLiteral("filter")))
        settings.setDbFileSuffixWithFilter(commandParser.value(QStringLiteral("filter")));

    const bool isImport = name == QLatin1String("import");
    if (isSet("replace") && isSet("in-place"))
        return usage(tr("choose one of --replace and --in-place."));
    Encoding encoding = Encoding::PerLine;
    const bool parsed = !isSet("encoding") || parseEncoding(value("encoding"), &encoding);
    if (isImport && !parsed)
        return usage(tr("--encoding takes gb2312, utf-8, gb18030 or auto, not '%1'.")
                             .arg(value("encoding")));
    // The memory table's lines are read here, in the importer's rule or as UTF-8.
    if (!isImport && (!parsed || (encoding != Encoding::PerLine && encoding != Encoding::Utf8)))
        return usage(tr("--encoding takes gb2312 or utf-8 for memory, not '%1'.")
                             .arg(value("encoding")));

    int result = Zqdb::Usage;
    if (name == QLatin1String("list")) {
        result = Zqdb::listDatabases(out, err);
    } else if (name == QLatin1String("info")) {
        result = Zqdb::showInfo(args.at(0), out, err);
    } else if (name == QLatin1String("cat")) {
        Zqdb::CatOptions options;
        if (isSet("from") && !parseCount(value("from"), &options.from))
            return usage(
                    tr("--from takes a row number of 0 or more, not '%1'.").arg(value("from")));
        if (value("count") == QLatin1String("all"))
            options.count = std::numeric_limits<qint64>::max() - options.from;
        else if (isSet("count") && !parseCount(value("count"), &options.count))
            return usage(tr("--count takes a number of 0 or more, or all, not '%1'.")
                                 .arg(value("count")));
        options.columns = value("columns").split(QLatin1Char(','), Qt::SkipEmptyParts);
        options.csv = isSet("csv");
        options.output = args.value(1, options.output);
        result = Zqdb::catRows(args.at(0), options, out, err);
    } else if (isImport) {
        Zqdb::Importer::Options options;
        // "\t" and "tab" are what a shell user types for a tab.
        if (isSet("separator"))
            options.separator = value("separator") == QLatin1String("tab")
                    ? QStringLiteral("\t")
                    : value("separator").replace(QLatin1String("\\t"), QLatin1String("\t"));
        options.separatorSet = isSet("separator");
        options.csv = isSet("csv");
        options.encoding = isSet("encoding") || !options.csv ? encoding : Encoding::Automatic;
        options.encodingSet = isSet("encoding");
        options.mode = isSet("replace") ? Zqdb::Importer::Replace
                : isSet("in-place")     ? Zqdb::Importer::InPlace
                                        : Zqdb::Importer::NewOnly;
        result = Zqdb::Importer(options, err).run(args.at(0), args.at(1));
    } else if (name == QLatin1String("export")) {
        result = Zqdb::exportCsv(args.at(0), args.at(1), out, err);
    } else if (name == QLatin1String("memory")) {
        result = Zqdb::walkMemoryTable(args.at(0), encoding == Encoding::Utf8, isSet("encoding"),
                                       out, err);
    }
    // Every command has flushed standard output and reported a refused write.
    err.flush();
    return result;
}
