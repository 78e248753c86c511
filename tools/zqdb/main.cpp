// zqdb: drives the zqdatabase library from the command line.
#include "commands.h"
#include "importer.h"
#include "translate.h"

#include <core/settings.h>
#include <database/csvimporter.h>

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QLoggingCategory>
#include <QTextStream>

#include <csignal>
#include <cstdio>
#include <limits>

using Zqdb::tr;

namespace {

struct Command
{
    const char *name;
    const char *synopsis;
    const char *description;
    QStringList positional;    // names of the required positional arguments
    QStringList optional = {}; // names of optional positional arguments that may follow
};

const QList<Command> &commands()
{
    static const QList<Command> list = {
            {"list",
             "list",
             QT_TRANSLATE_NOOP("zqdb",
                               "Lists the catalogued databases, the default first (marked *)."),
             {}},
            {"info",
             "info NAME",
             QT_TRANSLATE_NOOP(
                     "zqdb",
                     "Shows the tables, fields, field types and record count of a database."),
             {"NAME"}},
            {"cat",
             "cat NAME [FILE] [--from ROW] [--count N|all] [--columns LIST] [--csv]",
             QT_TRANSLATE_NOOP("zqdb",
                               "Prints rows of a database, 50,000 rows per table, to standard "
                               "output or FILE."),
             {"NAME"},
             {"FILE"}},
            {"import",
             "import SOURCE DATABASE [--csv] [--separator TEXT] [--encoding NAME] [--replace|--in-place]",
             QT_TRANSLATE_NOOP("zqdb",
                               "Imports a text file or an .xlsx/.xlsm spreadsheet (SOURCE - for "
                               "standard input) into a database file."),
             {"SOURCE", "DATABASE"}},
            {"export",
             "export DATABASE CSVFILE",
             QT_TRANSLATE_NOOP("zqdb",
                               "Writes the first table of a database to a GBK CSV file (- for "
                               "standard output)."),
             {"DATABASE", "CSVFILE"}},
            {"memory",
             "memory FILE [--encoding NAME]",
             QT_TRANSLATE_NOOP("zqdb",
                               "Fills the memory table from \"@;!\"-joined lines and prints it by "
                               "walking the cursor."),
             {"FILE"}},
    };
    return list;
}

const Command *findCommand(const QString &name)
{
    for (const Command &command : commands()) {
        if (name == QLatin1String(command.name))
            return &command;
    }
    return nullptr;
}

QString generalHelp(const QCommandLineParser &parser)
{
    QString text = parser.helpText();
    text += QLatin1Char('\n') + tr("Commands:") + QLatin1Char('\n');
    for (const Command &command : commands())
        text += QStringLiteral("  %1\n      %2\n")
                        .arg(QLatin1String(command.synopsis), tr(command.description));
    text += QLatin1Char('\n') + tr("Run 'zqdb COMMAND --help' for the options of one command.")
            + QLatin1Char('\n');
    return text;
}

// Parses "\t", "tab" and other escapes a shell user would type for a separator.
QString unescapeSeparator(const QString &text)
{
    if (text == QLatin1String("tab") || text == QLatin1String("\\t"))
        return QStringLiteral("\t");
    QString result = text;
    result.replace(QLatin1String("\\t"), QLatin1String("\t"));
    return result;
}

using Encoding = Database::CsvImporter::Encoding;

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
    if (!ok || number < 0)
        return false;
    *value = number;
    return true;
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

    const QCommandLineOption sysDir(QStringLiteral("sys-dir"), tr("System database directory."),
                                    QStringLiteral("dir"));
    const QCommandLineOption userDir(QStringLiteral("user-dir"), tr("User database directory."),
                                     QStringLiteral("dir"));
    const QCommandLineOption filter(QStringLiteral("filter"),
                                    tr("Database file name filter (default *.db)."),
                                    QStringLiteral("pattern"));
    const QCommandLineOption verbose(QStringLiteral("verbose"),
                                     tr("Show the library's console lines on standard error."));
    const QCommandLineOption from(QStringLiteral("from"),
                                  tr("First row to print, counted from 0 (default 0)."),
                                  QStringLiteral("row"));
    const QCommandLineOption count(QStringLiteral("count"),
                                   tr("Number of rows to print, or all (default 20)."),
                                   QStringLiteral("n"));
    const QCommandLineOption columns(
            QStringLiteral("columns"),
            tr("Comma-separated field names or 1-based field numbers to print."),
            QStringLiteral("list"));
    const QCommandLineOption csv(QStringLiteral("csv"), tr("Print CSV instead of aligned text."));
    const QCommandLineOption separator(
            QStringLiteral("separator"),
            tr("Field separator of a text source (default \",\"; \\t or tab for a tab)."),
            QStringLiteral("text"));
    const QCommandLineOption encoding(
            QStringLiteral("encoding"),
            tr("Encoding of a text source: gb2312 (the default without --csv; a line with a "
               "byte-order mark is read as UTF), utf-8, gb18030, or auto (the default with --csv: "
               "a byte-order mark, else UTF-8 when the whole file is UTF-8, else GB18030). "
               "memory takes gb2312 or utf-8."),
            QStringLiteral("name"));
    const QCommandLineOption csvImport(
            QStringLiteral("csv"),
            tr("Read the text as CSV (RFC 4180): quoted fields may hold separators, quotes and "
               "line breaks, and empty fields are kept. Without it each line is trimmed and split "
               "as the library's importer does: empty fields dropped, quotes kept as text."));
    const QCommandLineOption replace(
            QStringLiteral("replace"),
            tr("Import into a new file that replaces DATABASE only when the import succeeds."));
    const QCommandLineOption inPlace(
            QStringLiteral("in-place"),
            tr("Import into DATABASE as it is: table1, table2, ... are emptied and refilled, "
               "other tables are kept."));

    // First pass: find the command; everything after it is left for the second pass.
    QCommandLineParser parser;
    parser.setApplicationDescription(tr("Lists, reads, imports and exports zqdatabase databases."));
    // Not addHelpOption(): its --help-all would promise Qt-specific options zqdb does not have.
    const QCommandLineOption help({QStringLiteral("h"), QStringLiteral("help")},
                                  tr("Displays this help."));
    parser.addOption(help);
    const QCommandLineOption version = parser.addVersionOption();
    parser.addOptions({sysDir, userDir, filter, verbose});
    parser.addPositionalArgument(QStringLiteral("command"), tr("One of the commands below."),
                                 QStringLiteral("COMMAND"));
    parser.setOptionsAfterPositionalArgumentsMode(QCommandLineParser::ParseAsPositionalArguments);
    if (!parser.parse(app.arguments())) {
        err << "zqdb: " << parser.errorText() << '\n' << tr("Try 'zqdb --help'.") << '\n';
        return Zqdb::Usage;
    }
    const QStringList firstPass = parser.positionalArguments();
    if (parser.isSet(version)) {
        out << "zqdb " << QCoreApplication::applicationVersion() << '\n';
        return Zqdb::Success;
    }
    if (firstPass.isEmpty()) {
        if (parser.isSet(help)) {
            out << generalHelp(parser);
            return Zqdb::Success;
        }
        err << tr("zqdb: no command given.") << '\n' << tr("Try 'zqdb --help'.") << '\n';
        return Zqdb::Usage;
    }
    const Command *command = findCommand(firstPass.first());
    if (!command) {
        err << tr("zqdb: unknown command '%1'.").arg(firstPass.first()) << '\n'
            << tr("Try 'zqdb --help'.") << '\n';
        return Zqdb::Usage;
    }

    // Second pass: the command's own options and arguments, anywhere on the line.
    const QString name = QLatin1String(command->name);
    QCommandLineParser commandParser;
    commandParser.setApplicationDescription(tr(command->description));
    commandParser.addOption(help);
    commandParser.addOptions({sysDir, userDir, filter, verbose});
    if (name == QLatin1String("cat"))
        commandParser.addOptions({from, count, columns, csv});
    if (name == QLatin1String("import"))
        commandParser.addOptions({csvImport, separator, encoding, replace, inPlace});
    if (name == QLatin1String("memory"))
        commandParser.addOption(encoding);
    commandParser.addPositionalArgument(name, tr("The command."), name);
    for (const QString &argument : command->positional)
        commandParser.addPositionalArgument(argument, QString(), argument);
    for (const QString &argument : command->optional)
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
    if (args.size() < command->positional.size()
        || args.size() > command->positional.size() + command->optional.size()) {
        const QString expected = command->positional.isEmpty()
                ? tr("no arguments")
                : command->positional.join(QLatin1Char(' '));
        return usage(tr("expected %1, got %2 argument(s).").arg(expected).arg(args.size()));
    }

    // The library's console lines are for diagnosis; a user asks for them.
    if (!commandParser.isSet(verbose))
        QLoggingCategory::setFilterRules(QStringLiteral("zq.console.info=false"));

    Core::Settings &settings = Core::Settings::instance();
    if (commandParser.isSet(sysDir))
        settings.setDbSysDirPath(commandParser.value(sysDir));
    if (commandParser.isSet(userDir))
        settings.setDbUsrDirPath(commandParser.value(userDir));
    if (commandParser.isSet(filter))
        settings.setDbFileSuffixWithFilter(commandParser.value(filter));

    // isSet() warns about an option the command does not have.
    const bool isImport = name == QLatin1String("import");
    const bool encodingSet
            = (isImport || name == QLatin1String("memory")) && commandParser.isSet(encoding);
    if (isImport && commandParser.isSet(replace) && commandParser.isSet(inPlace))
        return usage(tr("choose one of --replace and --in-place."));
    Encoding textEncoding = Encoding::PerLine;
    const bool parsed = !encodingSet || parseEncoding(commandParser.value(encoding), &textEncoding);
    if (isImport && !parsed)
        return usage(tr("--encoding takes gb2312, utf-8, gb18030 or auto, not '%1'.")
                             .arg(commandParser.value(encoding)));
    // The memory table's lines are read here, in the importer's rule or as UTF-8.
    if (!isImport
        && (!parsed || (textEncoding != Encoding::PerLine && textEncoding != Encoding::Utf8)))
        return usage(tr("--encoding takes gb2312 or utf-8 for memory, not '%1'.")
                             .arg(commandParser.value(encoding)));

    int result = Zqdb::Usage;
    if (name == QLatin1String("list")) {
        result = Zqdb::listDatabases(out, err);
    } else if (name == QLatin1String("info")) {
        result = Zqdb::showInfo(args.at(0), out, err);
    } else if (name == QLatin1String("cat")) {
        Zqdb::CatOptions options;
        if (commandParser.isSet(from) && !parseCount(commandParser.value(from), &options.from))
            return usage(tr("--from takes a row number of 0 or more, not '%1'.")
                                 .arg(commandParser.value(from)));
        if (commandParser.value(count) == QLatin1String("all"))
            options.count = std::numeric_limits<qint64>::max() - options.from;
        else if (commandParser.isSet(count)
                 && !parseCount(commandParser.value(count), &options.count))
            return usage(tr("--count takes a number of 0 or more, or all, not '%1'.")
                                 .arg(commandParser.value(count)));
        if (commandParser.isSet(columns))
            options.columns
                    = commandParser.value(columns).split(QLatin1Char(','), Qt::SkipEmptyParts);
        options.csv = commandParser.isSet(csv);
        if (args.size() > 1)
            options.output = args.at(1);
        result = Zqdb::catRows(args.at(0), options, out, err);
    } else if (isImport) {
        Zqdb::Importer::Options options;
        if (commandParser.isSet(separator))
            options.separator = unescapeSeparator(commandParser.value(separator));
        options.separatorSet = commandParser.isSet(separator);
        options.csv = commandParser.isSet(csvImport);
        options.encoding = encodingSet || !options.csv ? textEncoding : Encoding::Automatic;
        options.encodingSet = encodingSet;
        options.mode = commandParser.isSet(replace) ? Zqdb::Importer::Replace
                : commandParser.isSet(inPlace)      ? Zqdb::Importer::InPlace
                                                    : Zqdb::Importer::NewOnly;
        result = Zqdb::Importer(options, err).run(args.at(0), args.at(1));
    } else if (name == QLatin1String("export")) {
        result = Zqdb::exportCsv(args.at(0), args.at(1), out, err);
    } else if (name == QLatin1String("memory")) {
        result = Zqdb::walkMemoryTable(args.at(0), textEncoding == Encoding::Utf8, encodingSet, out,
                                       err);
    }
    out.flush();
    if (result == Zqdb::Success && out.status() != QTextStream::Ok) {
        err << tr("zqdb: cannot write to standard output.") << '\n';
        result = Zqdb::Failure;
    }
    err.flush();
    return result;
}
