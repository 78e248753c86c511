#ifndef GENERATEDDATABASE_H
#define GENERATEDDATABASE_H

#include "testsupport.h"

#include <QList>
#include <QString>

namespace TestSupport {

// A temporary catalogue with DatabaseManager loaded on it for the lifetime of the object.
// The databases it adds get names not used before in this process: Qt keeps a connection
// per name for good and reopens its last file on reuse.
class LoadedCatalogue : public TempCatalogue
{
public:
    LoadedCatalogue();
    ~LoadedCatalogue();

    // The file of a database name in the system directory.
    QString file(const QString &name) const;
    // Runs SQL through the sqlite3 shell into a new database and reloads the catalogue.
    // Returns the name, or an empty string when the shell failed.
    QString addWithSql(const QString &sql);
    // Tables table1, table2, ... in the importers' layout (id, then column1..columnN TEXT).
    // Table t holds rowCounts[t - 1] rows; its cell in row r (0-based) and column c
    // (1-based) reads generatedCell(t, r, c).
    QString addGenerated(const QList<int> &rowCounts, int columns);
};

QString uniqueDatabaseName(const QString &stem);
QString generatedCell(int table, int row, int column);

} // namespace TestSupport

#endif // GENERATEDDATABASE_H
