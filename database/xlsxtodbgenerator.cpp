#include "xlsxtodbgenerator.h"

#include "databasehandler.h"

#include <core/xlsxreader.h>

#include <QFileInfo>
#include <QObject>
#include <QSqlDatabase>
#include <QSqlError>
#include <QSqlQuery>
#include <QVariant>

#include <memory>

namespace Database {

XlsxToDBGenerator::XlsxToDBGenerator() : m_columnCount(0) { }

XlsxToDBGenerator::XlsxToDBGenerator(const XlsxToDBGenerator &other) = default;
XlsxToDBGenerator &XlsxToDBGenerator::operator=(const XlsxToDBGenerator &other) = default;
XlsxToDBGenerator::~XlsxToDBGenerator() = default;

// Imports the first worksheet into table1, table2, ... of databaseFile; true when every batch
// was committed. On false, getLog() holds the message of the last failing step.
bool XlsxToDBGenerator::importOriginalFile(const QString &sourceFile, const QString &databaseFile)
{
    m_log.clear();
    return parserFromFile(sourceFile, databaseFile, 0, 50000);
}

QString XlsxToDBGenerator::getLog() const
{
    return m_log;
}

// Reads every row of the sheet's data area, the first one included, and writes it in batches
// of batchRows rows; a failed batch does not stop the following ones.
bool XlsxToDBGenerator::parserFromFile(const QString &sourceFile, const QString &databaseFile,
                                       qint64, int batchRows)
{
    std::unique_ptr<Core::XlsxReader> reader(new Core::XlsxReader);
    if (!reader->open(sourceFile)) {
        m_log = QObject::tr("Cannot open file %1 for reading.").arg(sourceFile);
        return false;
    }
    if (reader->isEmpty()) {
        m_log = QObject::tr("%1 has no valid data.").arg(sourceFile);
        return false;
    }

    m_values.clear();
    m_columnCount = reader->columnCount();
    bool result = true;
    int tableIndex = 1;
    int rowsInBatch = 0;
    bool pending = false;
    if (reader->rowCount() < 1)
        return true;

    for (int row = 0; row < reader->rowCount(); ++row) {
        QStringList values;
        values.reserve(m_columnCount);
        for (int column = 0; column < m_columnCount; ++column)
            values.append(reader->textAt(row, column));
        if (values.isEmpty())
            continue;
        m_values.append(values);
        ++rowsInBatch;
        pending = true;
        if (rowsInBatch >= batchRows) {
            result = generateDatabase(databaseFile, QStringLiteral("table") + QString::number(tableIndex))
                    && result;
            ++tableIndex;
            m_values.clear();
            pending = false;
            rowsInBatch = 0;
        }
    }
    if (pending)
        result = generateDatabase(databaseFile, QStringLiteral("table") + QString::number(tableIndex))
                && result;
    return result;
}

// Writes m_values into tableName inside one transaction; the first bad row rolls the whole
// batch back. True when every row went in.
bool XlsxToDBGenerator::generateDatabase(const QString &databaseFile, const QString &tableName)
{
    if (m_values.isEmpty()) {
        m_log = QObject::tr("The source file is empty");
        return false;
    }
    if (databaseFile.isEmpty()) {
        m_log = QObject::tr("Database name empty");
        return false;
    }
    if (tableName.isEmpty()) {
        m_log = QObject::tr("Table name empty");
        return false;
    }

    QSqlDatabase db = DatabaseHandler::createSqlDatabase(QStringLiteral("db_generator"));
    db.setDatabaseName(QFileInfo(databaseFile).absoluteFilePath());
    if (!db.open()) {
        m_log = QObject::tr("Open database file failed!");
        return false;
    }
    if (!makeDatabase(db, tableName, m_columnCount)) {
        db.close();
        return false;
    }

    QSqlQuery query(db);
    if (!query.exec(QStringLiteral("BEGIN TRANSACTION;"))) {
        db.close();
        m_log = QObject::tr("Database transaction error!");
        return false;
    }

    const int columnCount = m_columnCount;
    QStringList marks;
    for (int i = 0; i < columnCount; ++i)
        marks.append(QStringLiteral("?"));
    const QString statement = QStringLiteral("insert into %1 values (NULL,%2);")
                                      .arg(tableName, marks.join(QStringLiteral(", ")));

    // Prepared once: re-preparing the same text per row only costs time.
    bool ok = query.prepare(statement);
    if (!ok)
        m_log = QObject::tr("Row = %1; %2").arg(QString::number(1), query.lastError().text());
    int row = 0;
    for (auto it = m_values.constBegin(); ok && it != m_values.constEnd(); ++it) {
        const QStringList &values = *it;
        ++row;
        if (values.size() != columnCount) {
            m_log = QObject::tr("Row = %1; Imported values = %2; Table columns count = %3; "
                                "Values = (%4)")
                            .arg(QString::number(row), QString::number(values.size()),
                                 QString::number(columnCount), values.join(QStringLiteral(", ")));
            ok = false;
            break;
        }
        for (int i = 0; i < columnCount; ++i)
            query.bindValue(i, QVariant(values.at(i)), QSql::In);
        query.exec();
        if (query.lastError().isValid()) {
            m_log = QObject::tr("Row = %1; %2").arg(QString::number(row), query.lastError().text());
            ok = false;
        }
    }
    query.finish();

    QSqlQuery end(db);
    // A commit that fails (a full disk, a lock) leaves the batch unwritten, so it fails too.
    if (ok && !end.exec(QStringLiteral("COMMIT;")))
        ok = false;
    if (!ok) {
        end.exec(QStringLiteral("ROLLBACK;"));
        // Replaces the row message on purpose: a failed batch reads as a failed commit.
        m_log = QObject::tr("Database commit error");
    }
    end.finish();
    db.close();
    return ok;
}

// Makes sure tableName exists empty with the generated layout: an existing table is emptied
// and its id sequence reset, never dropped.
bool XlsxToDBGenerator::makeDatabase(QSqlDatabase &database, const QString &tableName,
                                     const int &columnCount)
{
    if (!database.isOpen()) {
        m_log = QObject::tr("Database not open");
        return false;
    }
    if (tableName.isEmpty()) {
        m_log = QObject::tr("Table name is empty");
        return false;
    }
    if (columnCount <= 0) {
        m_log = QObject::tr("Please check the src file!");
        return false;
    }

    QSqlQuery query(database);
    query.exec(QStringLiteral("SELECT COUNT(0) FROM sqlite_master WHERE type = \"table\" AND name = \"")
               + tableName + QLatin1Char('"'));
    if (query.next() && query.value(0).toInt() == 1) {
        query.finish();
        bool emptied = query.exec(QStringLiteral("DELETE FROM ") + tableName);
        if (emptied)
            emptied = query.exec(QStringLiteral("UPDATE sqlite_sequence set seq=0 where name='")
                                 + tableName + QLatin1Char('\''));
        if (!emptied)
            m_log = QObject::tr("Update database table error!");
        return emptied;
    }
    query.finish();

    QString creation = QStringLiteral("CREATE TABLE ") + tableName
            + QStringLiteral(" (id INTEGER PRIMARY KEY AUTOINCREMENT,");
    for (int i = 1; i <= columnCount; ++i) {
        if (i > 1)
            creation += QLatin1Char(',');
        creation += QStringLiteral(" columnA TEXT ").replace(QLatin1Char('A'), QString::number(i));
    }
    creation += QStringLiteral(" )");
    query.exec(creation);
    if (query.lastError().isValid()) {
        m_log = QObject::tr("Create database error");
        return false;
    }
    return true;
}

} // namespace Database
