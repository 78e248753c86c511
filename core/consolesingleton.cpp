#include "consolesingleton.h"

#include <QLoggingCategory>

#include <cstdarg>

Q_LOGGING_CATEGORY(lcConsole, "zq.console")

namespace Core {

namespace {
constexpr int HistoryLimit = 1000;
}

ConsoleSingleton::ConsoleSingleton() = default;

ConsoleSingleton &ConsoleSingleton::instance()
{
    static ConsoleSingleton console;
    return console;
}

// Formats one printf-style line, emits it through the "zq.console" category and keeps
// it in the history (the oldest line goes once the history is full).
void ConsoleSingleton::log(const char *format, ...)
{
    if (!format)
        return;
    va_list args;
    va_start(args, format);
    const QString line = QString::vasprintf(format, args);
    va_end(args);

    qCInfo(lcConsole).noquote() << line;
    if (m_history.size() >= HistoryLimit)
        m_history.removeFirst();
    m_history.append(line);
}

QStringList ConsoleSingleton::history() const
{
    return m_history;
}

} // namespace Core
