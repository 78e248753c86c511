#ifndef TESTSUPPORT_ROWTABLES_H
#define TESTSUPPORT_ROWTABLES_H

#include <QString>

// The host application's reader class; the library only compares its addresses.
namespace Database {
class DatabaseObject {};
} // namespace Database

namespace TestSupport {

// Table t of n rows, its cells computed from the row number i (0-based).
inline QString table(int t, int rows, const char *columns, const QString &values)
{
    return QStringLiteral("CREATE TABLE table%1 (%2); WITH RECURSIVE r(i) AS (SELECT 0 UNION ALL "
                          "SELECT i + 1 FROM r WHERE i < %3) INSERT INTO table%1 SELECT %4 FROM r;")
            .arg(t)
            .arg(QLatin1String(columns))
            .arg(rows - 1)
            .arg(values);
}

// The importers' layout, with NULL, integer, real and text cells in column2.
inline QString generated(int t, int rows)
{
    return table(t, rows, "id INTEGER PRIMARY KEY, column1 TEXT, column2 TEXT",
                 QStringLiteral("NULL, 't%1r' || i, CASE i % 4 WHEN 0 THEN NULL WHEN 1 THEN i "
                                "WHEN 2 THEN i / 4.0 ELSE 'c' END")
                         .arg(t));
}

} // namespace TestSupport

#endif // TESTSUPPORT_ROWTABLES_H
