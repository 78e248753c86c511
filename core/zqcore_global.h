#ifndef ZQCORE_GLOBAL_H
#define ZQCORE_GLOBAL_H

#include <QtCore/qglobal.h>

#if defined(ZQCORE_LIBRARY)
#  define ZQCORE_EXPORT Q_DECL_EXPORT
#else
#  define ZQCORE_EXPORT Q_DECL_IMPORT
#endif

#endif // ZQCORE_GLOBAL_H
