#ifndef FUZZSUPPORT_H
#define FUZZSUPPORT_H

#include <QCoreApplication>
#include <QFile>
#include <QTemporaryDir>

#include <cstddef>
#include <cstdint>

namespace FuzzSupport {

// The SQL layer loads its driver plug-in through the application object.
inline void ensureApplication()
{
    static int argc = 1;
    static char name[] = "fuzz";
    static char *argv[] = {name, nullptr};
    static QCoreApplication *app
            = QCoreApplication::instance() ? nullptr : new QCoreApplication(argc, argv);
    Q_UNUSED(app);
}

// A scratch directory in memory-backed storage where there is one, so commits stay cheap.
inline const QTemporaryDir &scratch()
{
    static QTemporaryDir dir(QFile::exists(QStringLiteral("/dev/shm"))
                                     ? QStringLiteral("/dev/shm/zqfuzz-XXXXXX")
                                     : QString());
    return dir;
}

inline bool writeInput(const QString &path, const uint8_t *data, size_t size)
{
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate))
        return false;
    return file.write(reinterpret_cast<const char *>(data), qint64(size)) == qint64(size);
}

} // namespace FuzzSupport

#endif // FUZZSUPPORT_H
