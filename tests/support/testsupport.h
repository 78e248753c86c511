#ifndef TESTSUPPORT_H
#define TESTSUPPORT_H

#include <QByteArray>
#include <QString>
#include <QStringList>
#include <QTemporaryDir>

namespace TestSupport {

// A temporary system and user database directory, installed into Core::Settings
// together with the "*.db" filter for the lifetime of the object.
class TempCatalogue
{
public:
    TempCatalogue();
    bool isValid() const;
    QString root() const;
    QString sysDir() const;
    QString userDir() const;
    // Path of a file in the temporary root (not in either catalogue directory).
    QString filePath(const QString &fileName) const;

private:
    QTemporaryDir m_dir;
};

// Writes raw bytes to a file, creating parent directories; false on any failure.
bool writeFile(const QString &path, const QByteArray &bytes);
QByteArray readFile(const QString &path);

// Runs SQL through the sqlite3 shell on a database file, independently of Qt's driver.
// Returns false when the shell fails; the shell's standard output goes to *output.
bool sqlite(const QString &databaseFile, const QString &sql, QString *output = nullptr);
// Convenience: the shell's output of one query, one row per line, fields joined by '|',
// trailing newline removed. Empty on failure.
QString sqliteQuery(const QString &databaseFile, const QString &sql);

// Encodes text with iconv (an encoder independent of Qt's codecs), e.g. "GB2312", "GBK".
QByteArray iconvEncode(const QString &text, const char *encoding);

} // namespace TestSupport

#define QVERIFY_SQL(q, stmt) QVERIFY2((q).stmt, qPrintable((q).lastError().text()))

#endif // TESTSUPPORT_H
