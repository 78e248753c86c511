// Runs a fuzz target once on every input it is given, without libFuzzer, so that the corpus
// (seeds and hostile inputs alike) is replayed as a test in the normal and the sanitizer build.
// Usage: replay_TARGET FILE_OR_DIRECTORY...
#include <QByteArray>
#include <QDirIterator>
#include <QFile>
#include <QFileInfo>
#include <QStringList>

#include <cstdint>
#include <cstdio>
#include <sys/resource.h>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);

// An input may cost memory, but none may inflate to anything near a gigabyte.
static const long PeakMemoryLimitKiB = 1024L * 1024;

int main(int argc, char *argv[])
{
    QStringList files;
    for (int i = 1; i < argc; ++i) {
        const QString path = QString::fromLocal8Bit(argv[i]);
        if (!QFileInfo(path).isDir())
            files << path;
        for (QDirIterator it(path, QDir::Files, QDirIterator::Subdirectories); it.hasNext();)
            files << it.next();
    }
    files.sort();
    if (files.isEmpty()) {
        std::fprintf(stderr, "replay: no inputs\n");
        return 2;
    }
    for (const QString &file : files) {
        QFile input(file);
        if (!input.open(QIODevice::ReadOnly)) {
            std::fprintf(stderr, "replay: cannot read %s\n", qPrintable(file));
            return 2;
        }
        const QByteArray bytes = input.readAll();
        std::printf("%s (%d bytes)\n", qPrintable(file), int(bytes.size()));
        std::fflush(stdout);
        LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t *>(bytes.constData()),
                               size_t(bytes.size()));
        rusage usage{};
        getrusage(RUSAGE_SELF, &usage);
        if (usage.ru_maxrss > PeakMemoryLimitKiB) {
            std::fprintf(stderr, "replay: %s took the peak memory to %ld MiB\n", qPrintable(file),
                         usage.ru_maxrss / 1024);
            return 1;
        }
    }
    std::printf("replay: %d inputs\n", int(files.size()));
    return 0;
}
