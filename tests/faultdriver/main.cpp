// Runs one library operation in a process of its own, so that a test can give it a small
// file-size limit, kill it half-way, drop privileges, or make a file vanish between opens.
//
//   faultdriver [--fsize BYTES] [--as-nobody] [--vanish-on-open N PATH] text SOURCE DB [SEP]
//   faultdriver [...] xlsx SOURCE DB
//   faultdriver [...] export DB CSV
//
// Prints "result=0|1", "code=N" (text import) and the log, and exits 0 when it ran.
#include <database/databaseexport.h>
#include <database/databasegenerator.h>
#include <database/xlsxtodbgenerator.h>

#include <QCoreApplication>
#include <QTextStream>

#include <atomic>
#include <csignal>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <dlfcn.h>
#include <fcntl.h>
#include <pwd.h>
#include <sys/resource.h>
#include <unistd.h>

namespace {

const char *g_vanishPath = nullptr;
int g_vanishOnOpen = 0;
std::atomic<int> g_opens{0};

// Deletes the watched file just before its Nth opening, as another program might.
void maybeVanish(const char *path)
{
    if (g_vanishPath && path && std::strcmp(path, g_vanishPath) == 0 && ++g_opens == g_vanishOnOpen)
        ::unlink(path);
}

using OpenFunction = int (*)(const char *, int, ...);

// Passes an open call on to the C library's function of that name, after the vanishing trick.
int forwardOpen(OpenFunction *real, const char *symbol, const char *path, int flags, va_list args)
{
    const mode_t mode = (flags & (O_CREAT | O_TMPFILE)) ? mode_t(va_arg(args, int)) : 0;
    maybeVanish(path);
    if (!*real)
        *real = reinterpret_cast<OpenFunction>(dlsym(RTLD_NEXT, symbol));
    return (*real)(path, flags, mode);
}

} // namespace

// Interposed over the C library for every shared object of this process; exported, since
// the project builds with hidden visibility.
extern "C" Q_DECL_EXPORT int open(const char *path, int flags, ...)
{
    static OpenFunction real = nullptr;
    va_list args;
    va_start(args, flags);
    const int fd = forwardOpen(&real, "open", path, flags, args);
    va_end(args);
    return fd;
}

extern "C" Q_DECL_EXPORT int open64(const char *path, int flags, ...)
{
    static OpenFunction real = nullptr;
    va_list args;
    va_start(args, flags);
    const int fd = forwardOpen(&real, "open64", path, flags, args);
    va_end(args);
    return fd;
}

int main(int argc, char *argv[])
{
    QCoreApplication app(argc, argv);
    QStringList args = app.arguments().mid(1);
    QTextStream out(stdout);

    while (!args.isEmpty() && args.first().startsWith(QLatin1String("--"))) {
        const QString option = args.takeFirst();
        if (option == QLatin1String("--fsize") && !args.isEmpty()) {
            // Writes past the limit fail with EFBIG instead of killing the process.
            std::signal(SIGXFSZ, SIG_IGN);
            const rlim_t limit = args.takeFirst().toULongLong();
            const rlimit value{limit, limit};
            if (setrlimit(RLIMIT_FSIZE, &value) != 0)
                return 3;
        } else if (option == QLatin1String("--as-nobody")) {
            if (geteuid() == 0) {
                const passwd *nobody = getpwnam("nobody");
                if (!nobody || setgid(nobody->pw_gid) != 0 || setuid(nobody->pw_uid) != 0)
                    return 3;
            }
        } else if (option == QLatin1String("--vanish-on-open") && args.size() >= 2) {
            g_vanishOnOpen = args.takeFirst().toInt();
            static QByteArray path;
            path = args.takeFirst().toLocal8Bit();
            g_vanishPath = path.constData();
        } else {
            return 2;
        }
    }
    if (args.size() < 3)
        return 2;

    const QString mode = args.at(0);
    if (mode == QLatin1String("text")) {
        Database::DatabaseGenerator generator;
        if (args.size() > 3)
            generator.setSeparator(args.at(3));
        const bool ok = generator.importOriginalFile(args.at(1), args.at(2));
        out << "result=" << int(ok) << "\n" << generator.getLog() << "\n";
    } else if (mode == QLatin1String("xlsx")) {
        Database::XlsxToDBGenerator generator;
        const bool ok = generator.importOriginalFile(args.at(1), args.at(2));
        out << "result=" << int(ok) << "\n" << generator.getLog() << "\n";
    } else if (mode == QLatin1String("export")) {
        out << "result=" << int(Database::DatabaseExport::toCSV(args.at(1), args.at(2))) << "\n";
    } else {
        return 2;
    }
    return 0;
}
