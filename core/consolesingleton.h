#ifndef CORE_CONSOLESINGLETON_H
#define CORE_CONSOLESINGLETON_H

#include <core/zqcore_global.h>

#include <QStringList>

namespace Core {

class ZQCORE_EXPORT ConsoleSingleton
{
public:
    static ConsoleSingleton &instance();

    void log(const char *format, ...) Q_ATTRIBUTE_FORMAT_PRINTF(2, 3);
    QStringList history() const;

private:
    ConsoleSingleton();
    ConsoleSingleton(const ConsoleSingleton &) = delete;
    ConsoleSingleton &operator=(const ConsoleSingleton &) = delete;

    QStringList m_history;
};

} // namespace Core

#endif // CORE_CONSOLESINGLETON_H
