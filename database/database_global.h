#ifndef DATABASE_GLOBAL_H
#define DATABASE_GLOBAL_H

#include <QtCore/qglobal.h>

#if defined(ZQDATABASE_LIBRARY)
#  define ZQDATABASE_EXPORT Q_DECL_EXPORT
#else
#  define ZQDATABASE_EXPORT Q_DECL_IMPORT
#endif

namespace Database {
// Defined by the host application; the library uses it only as a reader's identity.
class DatabaseObject;
}

#endif // DATABASE_GLOBAL_H
