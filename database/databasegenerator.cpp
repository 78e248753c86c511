#include "databasegenerator.h"

#include "databasehandler.h"

#include <QFile>
#include <QFileInfo>
#include <QObject>
#include <QSqlDatabase>
#include <QSqlError>
#include <QSqlQuery>
#include <QTextCodec>
#include <QTextStream>
#include <QVariant>

namespace Database {

namespace {

const QString ConnectionName = QStringLiteral("db_generator");

// The creation statement of the generated layout; its spacing is part of the file format.
QString createStatement(const QString &tableName, int columnCount)
{
    const QString columnTemplate = QStringLiteral(" columnA TEXT ");
    QString sql = QStringLiteral("CREATE TABLE ") + tableName + QStringLiteral(" (")
            + QStringLiteral("id") + QStringLiteral(" INTEGER PRIMARY KEY AUTOINCREMENT,");
    for (int column = 1; column < columnCount; ++column) {
        sql += QString(columnTemplate).replace(QLatin1Char('A'), QString::number(column))
                + QLatin1Char(',');
    }
    sql += QString(columnTemplate).replace(QLatin1Char('A'), QString::number(columnCount));
    sql += QStringLiteral(" )");
    return sql;
}

QString insertStatement(const QString &tableName, int columnCount)
{
    QStringList marks;
    for (int column = 0; column < columnCount; ++column)
        marks << QStringLiteral("?");
    return QStringLiteral("insert into %1 values (NULL,%2);")
            .arg(tableName, marks.join(QStringLiteral(", ")));
}

} // namespace

DatabaseGenerator::DatabaseGenerator()
    : m_errCode(NoError), m_columnCount(0)
{
    init();
}

DatabaseGenerator::DatabaseGenerator(const DatabaseGenerator &other) = default;
DatabaseGenerator &DatabaseGenerator::operator=(const DatabaseGenerator &other) = default;
DatabaseGenerator::~DatabaseGenerator() = default;

void DatabaseGenerator::init()
{
    m_separators.clear();
    m_separators << QStringLiteral("|") << QStringLiteral(",") << QStringLiteral(";")
                 << QStringLiteral("\t");
    m_separator = QStringLiteral(",");
}

void DatabaseGenerator::setSeparator(const QString &separator)
{
    if (m_separator != separator)
        m_separator = separator;
}

QString DatabaseGenerator::getSeparator() const
{
    return m_separator;
}

QString DatabaseGenerator::getLog() const
{
    return m_log;
}

QList<QStringList> DatabaseGenerator::getValues() const
{
    return m_values;
}

// Checks the separator against the head of the file, then writes every batch; true when
// every batch was written. getLog() tells what went wrong otherwise.
bool DatabaseGenerator::importOriginalFile(const QString &sourceFile, const QString &databaseFile)
{
    m_errCode = NoError;
    const ErrCode code = checkDefaultSeparator(sourceFile, m_separator);
    m_errCode = code;
    if (code != NoError)
        return false;
    return parserFromFile(sourceFile, databaseFile, 0, 50000);
}

// Splits at most six non-empty head lines and requires the same field count in all of them;
// sets m_columnCount to that count.
DatabaseGenerator::ErrCode DatabaseGenerator::checkDefaultSeparator(const QString &sourceFile,
                                                                     const QString &separator)
{
    QFile file(sourceFile);
    if (!file.open(QIODevice::ReadOnly | QIODevice::Text)) {
        m_log = QObject::tr("Open file fail");
        return OpenFileFail;
    }

    QTextStream stream(&file);
    int nonEmpty = 0;
    int fieldLines = 0;
    QList<int> counts;
    while (!stream.atEnd()) {
        const QString line = stream.readLine();
        if (line.isEmpty())
            continue;
        ++nonEmpty;
        const QStringList fields = line.split(separator, Qt::SkipEmptyParts, Qt::CaseSensitive);
        if (fields.isEmpty())
            continue;
        counts.append(fields.size());
        ++fieldLines;
        if (nonEmpty > 5)
            break;
    }
    file.close();

    if (fieldLines == 0) {
        m_log = QObject::tr("Source file empty");
        return SourceFileEmpty;
    }
    if (counts.isEmpty() || counts.size() != fieldLines) {
        m_columnCount = 1;
        m_log = QObject::tr("Separator empty");
        return SeparatorEmpty;
    }
    for (int i = 1; i < counts.size(); ++i) {
        if (counts.at(i - 1) != counts.at(i)) {
            m_log = QObject::tr("Content error");
            return ContentError;
        }
    }
    m_columnCount = counts.first();
    return NoError;
}

// Parses every line of the file and writes each batch of batchRows rows as its own table;
// a failed batch makes the result false without stopping the parse.
bool DatabaseGenerator::parserFromFile(const QString &sourceFile, const QString &databaseFile,
                                       qint64, int batchRows)
{
    m_values.clear();
    QFile file(sourceFile);
    if (!file.open(QIODevice::ReadOnly | QIODevice::Text)) {
        m_log = QObject::tr("Cannot open file %1 for reading.").arg(sourceFile);
        m_values.clear();
        m_errCode = ReadFileError;
        return false;
    }

    QTextStream fileStream(&file);
    QTextCodec *gb2312 = QTextCodec::codecForName("GB2312");
    bool result = true;
    int tableIndex = 1;
    int rowsInBatch = 0;
    bool pending = false;
    m_columnCount = 0;

    while (!fileStream.atEnd()) {
        const QByteArray line = file.readLine();
        QTextStream lineStream(line);
        if (QTextCodec *codec = QTextCodec::codecForUtfText(line, gb2312))
            lineStream.setCodec(codec);
        const QStringList fields = lineStream.readAll().trimmed().split(
                m_separator, Qt::SkipEmptyParts, Qt::CaseSensitive);
        if (fields.isEmpty())
            continue;
        if (fields.size() > m_columnCount)
            m_columnCount = fields.size();
        if (m_columnCount == 0) {
            result = false;
            m_log = QStringLiteral("Source file empty");
            m_errCode = SourceFileEmpty;
            break;
        }
        m_values.append(fields);
        ++rowsInBatch;
        pending = true;
        if (rowsInBatch >= batchRows) {
            result = generateDatabase(databaseFile, QStringLiteral("table")
                                                            + QString::number(tableIndex))
                    && result;
            ++tableIndex;
            m_values.clear();
            pending = false;
            rowsInBatch = 0;
        }
    }
    if (pending) {
        result = generateDatabase(databaseFile,
                                  QStringLiteral("table") + QString::number(tableIndex))
                && result;
    }
    file.close();
    return result;
}

// Writes m_values into tableName of databaseFile in one transaction; true when every row
// was inserted and committed. A failing row rolls the whole batch back.
bool DatabaseGenerator::generateDatabase(const QString &databaseFile, const QString &tableName)
{
    if (databaseFile.isEmpty()) {
        m_log = QObject::tr("Database name empty");
        m_errCode = DatabaseNameEmpty;
        return false;
    }
    if (tableName.isEmpty()) {
        m_log = QObject::tr("Table name empty");
        m_errCode = TableNameEmpty;
        return false;
    }
    if (m_separator.isEmpty()) {
        if (m_columnCount == 1) {
            m_separator = QStringLiteral(",");
        } else {
            m_log = QObject::tr("Separator empty");
            m_errCode = SeparatorEmpty;
            return false;
        }
    }

    QSqlDatabase db = DatabaseHandler::createSqlDatabase(ConnectionName);
    db.setDatabaseName(QFileInfo(databaseFile).absoluteFilePath());
    if (!db.open()) {
        m_errCode = OpenDatabaseFileFailed;
        m_log = QObject::tr("Open database file failed!");
        return false;
    }
    m_log = QString(QLatin1String(""));
    bool ok = true;

    if (!makeDatabase(db, tableName, m_columnCount)) {
        m_log = QObject::tr("Create database fail");
        return false;
    }

    const int columnCount = m_columnCount;
    const QString insertSql = insertStatement(tableName, columnCount);
    QSqlQuery query(db);
    if (!query.exec(QStringLiteral("BEGIN TRANSACTION;"))) {
        m_log = QObject::tr("Database transaction error!");
        m_errCode = TransactionError;
        return false;
    }

    QStringList rowErrors;
    const QList<QStringList> rows = m_values;
    int rowNumber = 0;
    for (QStringList values : rows) {
        ++rowNumber;
        while (values.size() < columnCount)
            values.append(QStringLiteral(""));
        query.prepare(insertSql);
        for (int column = 0; column < columnCount; ++column)
            query.addBindValue(QVariant(values.at(column)), QSql::In);
        query.exec();
        if (query.lastError().isValid()) {
            rowErrors.append(QObject::tr("Row = %1; %2")
                                     .arg(rowNumber)
                                     .arg(query.lastError().text()));
            ok = false;
        }
    }

    if (m_values.isEmpty()) {
        ok = false;
        m_log = QObject::tr("The source file is empty");
    }
    if (ok) {
        query.exec(QStringLiteral("COMMIT;"));
    } else {
        query.exec(QStringLiteral("ROLLBACK;"));
        if (query.lastError().isValid()) {
            m_log = query.lastError().text();
        } else if (rowErrors.isEmpty()) {
            m_log = QObject::tr("Database commit error");
        } else {
            for (const QString &entry : rowErrors)
                m_log += QLatin1Char('\n') + entry;
        }
        m_errCode = CommitError;
    }
    db.close();
    return ok;
}

// Leaves an empty table of the generated layout named tableName: an existing one is emptied
// and its id sequence reset, never dropped. True on success.
bool DatabaseGenerator::makeDatabase(QSqlDatabase &database, const QString &tableName,
                                     const int &columnCount)
{
    if (!database.isOpen()) {
        m_errCode = DatabaseNotOpen;
        m_log = QObject::tr("Database not open");
        return false;
    }
    if (tableName.isEmpty()) {
        m_errCode = TableNameEmpty;
        m_log = QObject::tr("Table name is empty");
        return false;
    }
    if (columnCount <= 0) {
        m_errCode = SourceFileEmpty;
        m_log = QObject::tr("Please check the src file!");
        return false;
    }

    QSqlQuery query(database);
    query.exec(QStringLiteral("SELECT COUNT(0) FROM sqlite_master WHERE type = \"table\" AND name = \"")
               + tableName + QLatin1Char('"'));
    if (query.next() && query.value(0).toInt() == 1) {
        bool ok = query.exec(QStringLiteral("DELETE FROM ") + tableName);
        if (ok) {
            ok = query.exec(QStringLiteral("UPDATE sqlite_sequence set seq=0 where name='")
                            + tableName + QLatin1Char('\''));
        }
        m_errCode = ok ? NoError : CreateDatabaseError;
        return ok;
    }

    query.exec(createStatement(tableName, columnCount));
    if (query.lastError().isValid()) {
        m_log = QObject::tr("Create database error");
        m_errCode = CreateDatabaseError;
        return false;
    }
    return true;
}

} // namespace Database
