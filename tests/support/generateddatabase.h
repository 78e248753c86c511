#ifndef GENERATEDDATABASE_H
#define GENERATEDDATABASE_H

#include <QList>
#include <QString>

namespace TestSupport {

class TempCatalogue;

// Writes tables table1, table2, ... in the importers' layout (id, then column1..columnN TEXT)
// through the sqlite3 shell. Table t holds rowCounts[t - 1] rows, and the cell of its row r
// (0-based) in column c (1-based) reads generatedCell(t, r, c). False when the shell fails.
bool writeGeneratedDatabase(const QString &path, const QList<int> &rowCounts, int columns);
QString generatedCell(int table, int row, int column);

// A database name not used before in this process. Qt keeps a connection per name for
// good and reopens its last file on reuse, so each test opens fresh names.
QString uniqueDatabaseName(const QString &stem);

// The file of a database name in the catalogue's system directory.
QString systemDatabaseFile(const TempCatalogue &catalogue, const QString &name);
// Writes a generated database under a fresh name into the system directory and reloads
// DatabaseManager's catalogue. Returns the name, or an empty string when the shell failed.
QString addGeneratedDatabase(const TempCatalogue &catalogue, const QList<int> &rowCounts,
                             int columns);

} // namespace TestSupport

#endif // GENERATEDDATABASE_H
