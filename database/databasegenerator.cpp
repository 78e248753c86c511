#include "databasegenerator.h"

#include "batchpipe_p.h"
#include "jobcontext_p.h"
#include "progressreport_p.h"
#include "tablewriter_p.h"
#include "textlinereader.h"
#include "utf8_p.h"

#include <cstring>
#include <QFile>
#include <QObject>
#include <QSqlDatabase>
#include <QTextCodec>
#include <QTextStream>

namespace Database {

namespace {

// Qt 5's QTextStream converts what it reads in chunks of this size.
const int StreamChunk = 16384;

// The separator's bytes when a byte search finds exactly what QString::split() finds; empty
// otherwise.
QByteArray asciiSeparator(const QString &separator)
{
    for (const QChar c : separator) {
        if (c.unicode() >= 0x80)
            return QByteArray();
    }
    return separator.toLatin1();
}

// Decodes one line as a Qt 5 QTextStream with the line's codec does: chunk by chunk with one
// converter state, which is one conversion with a fresh state when the line fits into a chunk.
// GB2312 is stateless and a line feed ends any sequence, so lines that end in one share
// gbState: opening a converter per line costs more than converting it.
QString decodeLine(const char *data, int size, QTextCodec *gb2312,
                   QTextCodec::ConverterState *gbState)
{
    QTextCodec *codec = QTextCodec::codecForUtfText(QByteArray::fromRawData(data, size), gb2312);
    if (!codec) // a stream without a codec reads with the locale's
        codec = QTextCodec::codecForLocale();
    if (codec == gb2312 && size > 0 && size <= StreamChunk && data[size - 1] == '\n')
        return codec->toUnicode(data, size, gbState);
    QTextCodec::ConverterState state;
    if (size <= StreamChunk)
        return codec->toUnicode(data, size, &state);
    QString text;
    for (int offset = 0; offset < size; offset += StreamChunk)
        text += codec->toUnicode(data + offset, qMin(StreamChunk, size - offset), &state);
    return text;
}

// The batch parserFromFile is filling, which generateDatabase writes; without one it writes
// m_values.
thread_local const RowBatch *currentBatch = nullptr;

struct CurrentBatch
{
    explicit CurrentBatch(const RowBatch *batch)
        : outer(currentBatch)
    {
        currentBatch = batch;
    }
    ~CurrentBatch() { currentBatch = outer; }
    const RowBatch *outer;
};

} // namespace

DatabaseGenerator::DatabaseGenerator()
    : m_errCode(NoError)
    , m_columnCount(0)
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
    const bool imported = code == NoError && parserFromFile(sourceFile, databaseFile, 0, 50000);
    // A job hands the code to its result; the class has no getter for it.
    JobContext::reportCode(m_errCode);
    return imported;
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

    // The lines come from a reader that reproduces QIODevice::readLine() in text mode on raw
    // blocks, which is what makes large files fast.
    file.setTextModeEnabled(false);
    m_columnCount = 0;
    // Bytes of the source; a cancel drops the batch being read, committed tables stay.
    ProgressReport progress(file.size());

    // A helper thread reads, decodes and splits while this one writes. It keeps its own copy
    // of the separator and follows generateDatabase's one change to it: an empty separator
    // becomes "," once a one-column batch is written to a named file.
    const QString initialSeparator = m_separator;
    const bool separatorBecomesComma = !databaseFile.isEmpty();
    BatchPipe pipe([&file, initialSeparator, separatorBecomesComma, batchRows](BatchPipe &out) {
        TextLineReader reader(&file);
        QTextCodec *gb2312 = QTextCodec::codecForName("GB2312");
        QTextCodec::ConverterState gbState;
        QString separator = initialSeparator;
        QByteArray byteSeparator = asciiSeparator(separator);
        int columnCount = 0;
        // ASCII lines are split on their bytes, which decode to the same characters in GB2312,
        // and kept as bytes; decoded lines are kept as UTF-8 where SQLite would store the same.
        BatchPipe::Batch batch;
        const char *line = nullptr;
        int lineSize = 0;
        while (!out.isStopped() && reader.readLine(&line, &lineSize)) {
            out.setPosition(reader.position());
            int fieldCount = 0;
            if (!byteSeparator.isEmpty() && isAscii(line, lineSize)) {
                fieldCount = batch.rows.appendAscii(line, lineSize, byteSeparator);
            } else {
                const QString text = decodeLine(line, lineSize, gb2312, &gbState).trimmed();
                fieldCount = separator.isEmpty() ? -1 : batch.rows.appendText(text, separator);
                if (fieldCount < 0) {
                    const QStringList fields
                            = text.split(separator, Qt::SkipEmptyParts, Qt::CaseSensitive);
                    fieldCount = fields.size();
                    if (fieldCount > 0)
                        batch.rows.append(fields);
                }
            }
            if (fieldCount == 0)
                continue;
            columnCount = qMax(columnCount, fieldCount);
            if (batch.rows.size() >= batchRows) {
                if (separator.isEmpty() && separatorBecomesComma && columnCount == 1) {
                    separator = QStringLiteral(",");
                    byteSeparator = asciiSeparator(separator);
                }
                batch.columnCount = columnCount;
                batch.end = reader.position();
                if (!out.push(&batch))
                    return;
            }
        }
        batch.columnCount = columnCount;
        batch.end = reader.position();
        batch.last = true;
        out.push(&batch);
    });

    bool result = true;
    int tableIndex = 1;
    BatchPipe::Batch batch;
    const auto report = [&progress](qint64 position) { return progress.advance(position); };
    while (pipe.next(&batch, report)) {
        m_columnCount = batch.columnCount;
        if (batch.last) {
            if (progress.advance(batch.end) && progress.finish() && !batch.rows.isEmpty()) {
                const CurrentBatch current(&batch.rows);
                result = generateDatabase(databaseFile,
                                          QStringLiteral("table") + QString::number(tableIndex))
                        && result;
            }
            break;
        }
        if (!progress.advance(batch.end, true))
            break;
        {
            const CurrentBatch current(&batch.rows);
            result = generateDatabase(databaseFile,
                                      QStringLiteral("table") + QString::number(tableIndex))
                    && result;
        }
        ++tableIndex;
        pipe.recycle(&batch);
    }
    pipe.stop();
    file.close();
    // The rows of the last, partial batch stay until the next parse.
    m_values = batch.last ? batch.rows.toList() : QList<QStringList>();
    if (progress.isCancelled()) {
        m_log = QObject::tr("Import cancelled");
        return false;
    }
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

    QSqlDatabase db;
    if (!TableWriter::openConnection(&db, databaseFile)) {
        m_errCode = OpenDatabaseFileFailed;
        m_log = QObject::tr("Open database file failed!");
        return false;
    }
    m_log = QString(QLatin1String(""));

    if (!makeDatabase(db, tableName, m_columnCount)) {
        m_log = QObject::tr("Create database fail");
        return false;
    }

    const RowBatch values = currentBatch ? RowBatch() : RowBatch(m_values);
    const RowBatch &rows = currentBatch ? *currentBatch : values;
    TableWriter writer(db, tableName, m_columnCount, TableWriter::Rows::PadAndTryEvery);
    TableWriter::Insert inserted = TableWriter::Insert::BeginFailed;
    if (writer.begin())
        inserted = writer.insert(rows);
    if (inserted == TableWriter::Insert::BeginFailed) {
        m_log = QObject::tr("Database transaction error!");
        m_errCode = TransactionError;
        return false;
    }
    bool ok = inserted == TableWriter::Insert::Inserted;

    if (rows.isEmpty()) {
        ok = false;
        m_log = QObject::tr("The source file is empty");
    }
    QString commitError;
    // A batch whose commit failed (a full disk, a lock) was not written: say so.
    if (ok && !writer.commit(&commitError))
        ok = false;
    if (!ok) {
        QString rollbackError;
        const QStringList rowErrors = writer.rowErrors();
        if (!writer.rollback(&rollbackError) && commitError.isEmpty()) {
            m_log = rollbackError;
        } else if (!commitError.isEmpty()) {
            m_log = commitError;
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
    // No message: the caller's own replaces any on failure.
    switch (TableWriter::prepareTable(database, tableName, columnCount)) {
    case TableWriter::Table::Created:
        return true;
    case TableWriter::Table::Emptied:
        m_errCode = NoError;
        return true;
    case TableWriter::Table::NotOpen:
        m_errCode = DatabaseNotOpen;
        break;
    case TableWriter::Table::NoName:
        m_errCode = TableNameEmpty;
        break;
    case TableWriter::Table::NoColumns:
        m_errCode = SourceFileEmpty;
        break;
    case TableWriter::Table::NotEmptied:
    case TableWriter::Table::NotCreated:
        m_errCode = CreateDatabaseError;
        break;
    }
    return false;
}

} // namespace Database
