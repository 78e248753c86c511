#ifndef ZQDB_TRANSLATE_H
#define ZQDB_TRANSLATE_H

#include <QCoreApplication>
#include <QDir>
#include <QString>

namespace Zqdb {

// zqdb's messages share one translation context.
inline QString tr(const char *text, const char *disambiguation = nullptr, int n = -1)
{
    return QCoreApplication::translate("zqdb", text, disambiguation, n);
}

// A path as the user's shell would show it.
inline QString shown(const QString &path)
{
    return QDir::toNativeSeparators(path);
}

} // namespace Zqdb

#endif // ZQDB_TRANSLATE_H
