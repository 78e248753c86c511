#ifndef TESTSUPPORT_H
#define TESTSUPPORT_H

#include <QByteArray>
#include <QList>
#include <QString>
#include <QTemporaryDir>

namespace TestSupport {

// A temporary system and user database directory, installed into Core::Settings together
// with the "*.db" filter for the lifetime of the object. Standard paths go to test mode.
class TempCatalogue
{
public:
    TempCatalogue();
    bool isValid() const { return m_dir.isValid(); }
    QString sysDir() const { return m_dir.filePath(QStringLiteral("system")); }
    QString userDir() const { return m_dir.filePath(QStringLiteral("user")); }
    // Path of a file in the temporary root (not in either catalogue directory).
    QString filePath(const QString &fileName) const { return m_dir.filePath(fileName); }

private:
    QTemporaryDir m_dir;
};

// A TempCatalogue with DatabaseManager loaded on it for the lifetime of the object. Its
// databases get names not used before in this process: Qt keeps a connection per name for
// good and reopens its last file on reuse.
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
    // Tables table1, table2, ... in the importers' layout (id, then column1..columnN TEXT);
    // table t holds rowCounts[t - 1] rows whose cells read generatedCell(t, row, column).
    QString addGenerated(const QList<int> &rowCounts, int columns);
};

QString uniqueDatabaseName(const QString &stem);
// Row 0-based, column 1-based.
QString generatedCell(int table, int row, int column);

// Writes raw bytes to a file, creating parent directories; false on any failure.
bool writeFile(const QString &path, const QByteArray &bytes);
QByteArray readFile(const QString &path);

// Runs SQL through the sqlite3 shell on a database file, independently of Qt's driver.
// Returns false when the shell fails; the shell's standard output goes to *output.
bool sqlite(const QString &databaseFile, const QString &sql, QString *output = nullptr);
// The shell's output of one query, one row per line, fields joined by '|', trailing newline
// removed. Empty on failure.
QString sqliteQuery(const QString &databaseFile, const QString &sql);

// Encodes text with iconv (an encoder independent of Qt's codecs), e.g. "GB2312", "GBK".
QByteArray iconvEncode(const QString &text, const char *encoding);

} // namespace TestSupport

#define QVERIFY_SQL(q, stmt) QVERIFY2((q).stmt, qPrintable((q).lastError().text()))

#endif // TESTSUPPORT_H
