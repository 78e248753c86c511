#include "progressbar.h"

#include <QByteArray>
#include <QCoreApplication>

#include <csignal>
#include <cstring>
#include <unistd.h>

namespace Zqdb {

namespace {

volatile std::sig_atomic_t interruptCount = 0;
char removeOnExit[4096] = {0};
char removeJournalOnExit[4096 + 8] = {0};

extern "C" void onInterrupt(int)
{
    if (++interruptCount < 2)
        return;
    // The operation did not stop at the first request: leave no half-written file behind.
    if (removeOnExit[0]) {
        ::unlink(removeOnExit);
        ::unlink(removeJournalOnExit);
    }
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
    m_clock.start();
}

ProgressBar::~ProgressBar()
{
    clear();
}

void ProgressBar::installInterruptHandler(const char *removeOnSecondInterrupt)
{
    removeOnExit[0] = 0;
    if (removeOnSecondInterrupt) {
        std::strncpy(removeOnExit, removeOnSecondInterrupt, sizeof(removeOnExit) - 1);
        // SQLite's rollback journal beside it goes too.
        std::strcpy(removeJournalOnExit, removeOnExit);
        std::strcat(removeJournalOnExit, "-journal");
    }
    struct sigaction action;
    std::memset(&action, 0, sizeof(action));
    action.sa_handler = onInterrupt;
    sigemptyset(&action.sa_mask);
    sigaction(SIGINT, &action, nullptr);
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
