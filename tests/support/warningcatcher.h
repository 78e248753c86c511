#ifndef WARNINGCATCHER_H
#define WARNINGCATCHER_H

#include <QStringList>
#include <QtGlobal>

namespace TestSupport {

// Collects every warning, critical and fatal message while alive, instead of printing it.
class WarningCatcher
{
public:
    WarningCatcher();
    ~WarningCatcher();
    WarningCatcher(const WarningCatcher &) = delete;
    WarningCatcher &operator=(const WarningCatcher &) = delete;

    QStringList warnings() const;

private:
    QtMessageHandler m_previous;
};

} // namespace TestSupport

#endif // WARNINGCATCHER_H
