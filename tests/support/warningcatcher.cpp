#include "warningcatcher.h"

namespace TestSupport {

namespace {

QStringList caught;

void catchWarning(QtMsgType type, const QMessageLogContext &, const QString &message)
{
    if (type != QtDebugMsg && type != QtInfoMsg)
        caught << message;
}

} // namespace

WarningCatcher::WarningCatcher()
{
    caught.clear();
    m_previous = qInstallMessageHandler(catchWarning);
}

WarningCatcher::~WarningCatcher()
{
    qInstallMessageHandler(m_previous);
}

QStringList WarningCatcher::warnings() const
{
    return caught;
}

} // namespace TestSupport
