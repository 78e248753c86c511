#include "sqlitehandle_p.h"

#include <QSqlDatabase>
#include <QSqlDriver>
#include <QVariant>

#include <sqlite3.h>

#include <dlfcn.h>

namespace Database {

QByteArray driverModuleFile(const QSqlDriver *driver)
{
    if (!driver)
        return QByteArray();
    // The vtable of the driver's own class lies in the plug-in that defines it.
    const void *vtable = *reinterpret_cast<const void *const *>(driver);
    Dl_info info{};
    if (!dladdr(vtable, &info) || !info.dli_fname)
        return QByteArray();
    return QByteArray(info.dli_fname);
}

bool moduleSharesSqlite(const QByteArray &moduleFile)
{
    if (moduleFile.isEmpty())
        return false;
    void *module = dlopen(moduleFile.constData(), RTLD_LAZY | RTLD_NOLOAD);
    if (!module)
        return false;
    // Looked up in the module and its dependencies, as the module's own calls are bound.
    const void *theirs = dlsym(module, "sqlite3_libversion");
    dlclose(module);
    return theirs == reinterpret_cast<const void *>(&sqlite3_libversion);
}

sqlite3 *sqliteHandle(const QSqlDatabase &database)
{
    const QSqlDriver *driver = database.driver();
    const QVariant handle = driver ? driver->handle() : QVariant();
    if (!handle.isValid() || qstrcmp(handle.typeName(), "sqlite3*") != 0)
        return nullptr;
    if (!moduleSharesSqlite(driverModuleFile(driver)))
        return nullptr;
    return *static_cast<sqlite3 *const *>(handle.constData());
}

} // namespace Database
