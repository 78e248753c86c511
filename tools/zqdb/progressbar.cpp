#include "zqdb.h"

#include <QByteArray>
#include <QFile>

#include <csignal>
#include <cstdio>
#include <cstring>
#include <unistd.h>

namespace Zqdb {

namespace {

volatile std::sig_atomic_t interruptCount = 0;
volatile std::sig_atomic_t cancelling = 0; // set once an operation can be asked to stop
// Files to delete before Ctrl-C ends the process, encoded beforehand: the handler only unlinks.
constexpr int MaxRemoved = 8;
char removeOnExit[MaxRemoved][4096] = {};
volatile std::sig_atomic_t removeCount = 0;

extern "C" void onInterrupt(int)
{
    if (cancelling && ++interruptCount < 2)
        return;
    // Nothing is listening for a cancel request, or it was not heeded: leave no file behind.
    for (int i = 0; i < removeCount; ++i)
        ::unlink(removeOnExit[i]);
    std::signal(SIGINT, SIG_DFL);
    std::raise(SIGINT);
}

constexpr int BarWidth = 24;
constexpr qint64 RedrawMs = 100;

QString clock(qint64 seconds)
{
    return QStringLiteral("%1:%2").arg(seconds / 60).arg(seconds % 60, 2, 10, QLatin1Char('0'));
}

} // namespace

ProgressBar::ProgressBar(const QString &label, Unit unit)
    : m_label(label)
    , m_unit(unit)
    , m_draw(::isatty(STDERR_FILENO) == 1)
{
    cancelling = 1;
    m_clock.start();
}

ProgressBar::~ProgressBar()
{
    clear();
}

void ProgressBar::installInterruptHandler()
{
    struct sigaction action;
    std::memset(&action, 0, sizeof(action));
    action.sa_handler = onInterrupt;
    sigemptyset(&action.sa_mask);
    sigaction(SIGINT, &action, nullptr);
}

void ProgressBar::removeOnInterrupt(const QString &path)
{
    const QByteArray name = QFile::encodeName(path);
    if (path.isEmpty() || removeCount >= MaxRemoved || name.size() >= int(sizeof(removeOnExit[0])))
        return;
    std::memcpy(removeOnExit[removeCount], name.constData(), size_t(name.size()) + 1);
    removeCount = removeCount + 1; // the entry is complete before the handler can see it
}

bool ProgressBar::interrupted()
{
    return interruptCount > 0;
}

QString ProgressBar::amount(double value) const
{
    if (m_unit == Rows)
        return QCoreApplication::translate("zqdb", "%1 rows").arg(qint64(value));
    if (value >= 1024.0 * 1024.0)
        return QStringLiteral("%1 MB").arg(value / (1024.0 * 1024.0), 0, 'f', 1);
    return QStringLiteral("%1 kB").arg(value / 1024.0, 0, 'f', 0);
}

bool ProgressBar::update(qint64 done, qint64 total)
{
    if (interrupted())
        return false;
    const qint64 now = m_clock.elapsed();
    if (!m_draw || total <= 0 || (now - m_lastDrawMs < RedrawMs && done < total))
        return true;
    m_lastDrawMs = now;
    const double fraction = qBound(0.0, double(done) / double(total), 1.0);
    const int filled = int(fraction * BarWidth);
    QString line = QStringLiteral("\r%1 [%2%3] %4%  %5 of %6")
                           .arg(m_label, QString(filled, QLatin1Char('#')),
                                QString(BarWidth - filled, QLatin1Char('.')))
                           .arg(int(fraction * 100), 3)
                           .arg(amount(double(done)), amount(double(total)));
    const double seconds = now / 1000.0;
    if (seconds > 0.2 && done > 0) {
        const double rate = done / seconds;
        line += QStringLiteral("  %1/s").arg(amount(rate));
        if (done < total)
            line += QCoreApplication::translate("zqdb", "  %1 left")
                            .arg(clock(qint64((total - done) / rate + 0.5)));
    }
    line += QStringLiteral("\033[K");
    const QByteArray bytes = line.toUtf8();
    std::fwrite(bytes.constData(), 1, size_t(bytes.size()), stderr);
    std::fflush(stderr);
    m_drawn = true;
    return true;
}

void ProgressBar::clear()
{
    if (!m_drawn)
        return;
    std::fputs("\r\033[K", stderr);
    std::fflush(stderr);
    m_drawn = false;
}

} // namespace Zqdb
