// The library's guard as it answers for a driver on an SQLite of its own: no handle.
#include "../database/sqlitehandle_p.h"

namespace Database {

sqlite3 *sqliteHandle(const QSqlDatabase &)
{
    return nullptr;
}

} // namespace Database
