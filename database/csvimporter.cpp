#include "csvimporter.h"

#include "batchpipe_p.h"
#include "progressreport_p.h"
#include "tablewriter_p.h"
#include "utf8_p.h"

#include <QFile>
#include <QObject>
#include <QSqlDatabase>
#include <QTextCodec>

#include <cstring>

namespace Database {

namespace {

constexpr int BatchRows = 50000;
constexpr int BlockSize = 1 << 20;
// A quoted field may hold line breaks, but one record never grows past this: an unclosed quote
// is reported instead of the rest of the file being held.
constexpr int MaxRecordSize = 64 << 20;

// The source file as UTF-8 text, block by block, decoded as the options say.
class Utf8Source
{
public:
    Utf8Source(QFile *file, CsvImporter::Encoding encoding) : m_file(file)
    {
        m_gb2312 = QTextCodec::codecForName("GB2312");
        switch (encoding) {
        case CsvImporter::Encoding::Automatic:
            m_mode = detect();
            break;
        case CsvImporter::Encoding::Utf8:
            m_mode = Mode::Utf8;
            break;
        case CsvImporter::Encoding::Gb18030:
            m_mode = Mode::Codec;
            m_codec = QTextCodec::codecForName("GB18030");
            break;
        case CsvImporter::Encoding::PerLine:
            m_mode = Mode::PerLine;
            break;
        }
        if (m_mode == Mode::Utf8) {
            const QByteArray mark = m_file->peek(3);
            if (mark == "\xef\xbb\xbf")
                m_file->read(3);
        }
    }

    // Appends the next piece of text to *text; false at the end of the file or on a read error.
    bool read(QByteArray *text)
    {
        m_block.resize(BlockSize);
        const qint64 size = m_file->read(m_block.data(), BlockSize);
        if (size <= 0) {
            // What is left is an incomplete sequence or a last line without a line feed.
            if (m_carry.isEmpty())
                return false;
            appendDecoded(text, m_carry.constData(), m_carry.size(), true);
            m_carry.clear();
            return true;
        }
        m_block.resize(int(size));
        if (!m_carry.isEmpty()) {
            m_block.prepend(m_carry);
            m_carry.clear();
        }
        appendDecoded(text, m_block.constData(), m_block.size(), false);
        return true;
    }

    qint64 position() const { return m_file->pos(); }

private:
    enum class Mode { Utf8, PerLine, Codec };

    Mode detect()
    {
        const QByteArray head = m_file->peek(4);
        if (head.startsWith("\xef\xbb\xbf"))
            return Mode::Utf8;
        if (QTextCodec *codec = QTextCodec::codecForUtfText(head, nullptr)) {
            m_codec = codec; // UTF-16 or UTF-32, whose mark the codec drops
            return Mode::Codec;
        }
        QByteArray block(BlockSize, Qt::Uninitialized);
        bool valid = true;
        int tail = 0;
        for (qint64 size; valid && (size = m_file->read(block.data() + tail, BlockSize - tail)) > 0;) {
            const int length = tail + int(size);
            valid = isValidUtf8(block.constData(), length, &tail);
            std::memmove(block.data(), block.constData() + length - tail, size_t(tail));
        }
        valid = valid && tail == 0;
        m_file->seek(0);
        if (valid)
            return Mode::Utf8;
        m_codec = QTextCodec::codecForName("GB18030");
        return Mode::Codec;
    }

    void appendDecoded(QByteArray *text, const char *data, int size, bool last)
    {
        switch (m_mode) {
        case Mode::Utf8: {
            int tail = 0;
            if (isValidUtf8(data, size, last ? nullptr : &tail)) {
                text->append(data, size - tail);
                m_carry = QByteArray(data + size - tail, tail);
            } else {
                // Whole lines go to the decoder, so that no sequence is cut.
                const int end = last ? size : lastLineEnd(data, size);
                text->append(QString::fromUtf8(data, end).toUtf8());
                m_carry = QByteArray(data + end, size - end);
            }
            break;
        }
        case Mode::PerLine: {
            const int end = last ? size : lastLineEnd(data, size);
            for (int from = 0; from < end;) {
                const char *feed = static_cast<const char *>(std::memchr(data + from, '\n', size_t(end - from)));
                const int to = feed ? int(feed - data) + 1 : end;
                appendLine(text, data + from, to - from);
                from = to;
            }
            m_carry = QByteArray(data + end, size - end);
            break;
        }
        case Mode::Codec:
            text->append(m_codec->toUnicode(data, size, &m_state).toUtf8());
            break;
        }
    }

    // A line in the rule's own decoding: as UTF after a byte-order mark, else GB2312.
    void appendLine(QByteArray *text, const char *data, int size)
    {
        if (isAscii(data, size)) {
            text->append(data, size);
            return;
        }
        QTextCodec *codec = QTextCodec::codecForUtfText(QByteArray::fromRawData(data, size), m_gb2312);
        QTextCodec::ConverterState state;
        text->append(codec->toUnicode(data, size, &state).toUtf8());
    }

    // One past the last line feed, or 0 when there is none.
    static int lastLineEnd(const char *data, int size)
    {
        for (int i = size; i > 0; --i) {
            if (data[i - 1] == '\n')
                return i;
        }
        return 0;
    }

    QFile *m_file;
    Mode m_mode = Mode::Utf8;
    QTextCodec *m_gb2312 = nullptr;
    QTextCodec *m_codec = nullptr;
    QTextCodec::ConverterState m_state;
    QByteArray m_block;
    QByteArray m_carry;
};

// Splits UTF-8 text into rows of a batch, record by record.
class RecordParser
{
public:
    enum class Step { Record, NeedMore, Unclosed };

    RecordParser(const CsvImporter::Options &options, RowBatch *batch)
        : m_rfc(options.format == CsvImporter::Format::Rfc4180)
        , m_separator(options.separator)
        , m_bytes(options.separator.toUtf8())
        , m_batch(batch)
    { }

    // Reads one record from data; NeedMore when it may go on past the end and atEnd is false.
    // *used is the bytes it took, *fields the fields it added (0 for a line without any).
    Step next(const char *data, int size, bool atEnd, int *used, int *fields)
    {
        m_batch->beginRow();
        const Step step = m_rfc ? nextRecord(data, size, atEnd, used) : nextLine(data, size, atEnd, used);
        if (step != Step::Record) {
            m_batch->dropRow();
            return step;
        }
        *fields = m_rfc ? m_batch->endRow() : m_lineFields;
        return step;
    }

    // Physical lines consumed, and the line where the record being read began.
    int lines() const { return m_lines; }
    int recordLine() const { return m_recordLine; }

private:
    bool separatorAt(const char *p, const char *end) const
    {
        return !m_bytes.isEmpty() && end - p >= m_bytes.size()
                && std::memcmp(p, m_bytes.constData(), size_t(m_bytes.size())) == 0;
    }

    // The first separator, CR or LF from p, or end.
    const char *fieldEnd(const char *p, const char *end) const
    {
        const char head = m_bytes.isEmpty() ? '\n' : m_bytes.at(0);
        for (; p < end; ++p) {
            if (*p == '\n' || *p == '\r' || (*p == head && separatorAt(p, end)))
                return p;
        }
        return end;
    }

    Step nextRecord(const char *data, int size, bool atEnd, int *used)
    {
        const char *const end = data + size;
        const char *p = data;
        m_recordLine = m_lines + 1;
        int lines = 0;
        // Most lines hold no quote and no CR but the one of a CR LF: split them in place.
        const char *feed = static_cast<const char *>(std::memchr(p, '\n', size_t(size)));
        if (feed) {
            const char *lineEnd = feed > p && feed[-1] == '\r' ? feed - 1 : feed;
            if (!std::memchr(p, '"', size_t(lineEnd - p)) && !std::memchr(p, '\r', size_t(lineEnd - p))) {
                if (lineEnd > p)
                    splitPlain(p, lineEnd);
                ++m_lines;
                *used = int(feed + 1 - data);
                return Step::Record;
            }
        }
        if (p == end)
            return atEnd ? (*used = 0, Step::Record) : Step::NeedMore;
        if (*p == '\n' || *p == '\r') { // an empty line: no row
            const int length = *p == '\r' && p + 1 < end && p[1] == '\n' ? 2 : 1;
            if (*p == '\r' && p + 1 == end && !atEnd)
                return Step::NeedMore;
            ++m_lines;
            *used = length;
            return Step::Record;
        }
        for (;;) {
            if (p < end && *p == '"') {
                m_field.resize(0);
                ++p;
                for (;;) {
                    const char *quote = static_cast<const char *>(std::memchr(p, '"', size_t(end - p)));
                    if (!quote)
                        return atEnd ? Step::Unclosed : Step::NeedMore;
                    lines += countLines(p, quote);
                    m_field.append(p, int(quote - p));
                    if (quote + 1 == end && !atEnd)
                        return Step::NeedMore; // a doubled quote or the closing one
                    if (quote + 1 < end && quote[1] == '"') {
                        m_field.append('"');
                        p = quote + 2;
                        continue;
                    }
                    p = quote + 1;
                    break;
                }
                // Text after the closing quote is kept, as most readers do.
                const char *stop = fieldEnd(p, end);
                if (stop == end && !atEnd)
                    return Step::NeedMore;
                m_field.append(p, int(stop - p));
                m_batch->appendField(m_field.constData(), m_field.size());
                p = stop;
            } else {
                const char *stop = fieldEnd(p, end);
                if (stop == end && !atEnd)
                    return Step::NeedMore;
                m_batch->appendField(p, int(stop - p));
                p = stop;
            }
            if (p < end && *p != '\n' && *p != '\r') {
                p += m_bytes.size(); // a separator
                continue;
            }
            if (p < end && *p == '\r') {
                if (p + 1 == end && !atEnd)
                    return Step::NeedMore;
                if (p + 1 < end && p[1] == '\n')
                    ++p;
            }
            if (p < end)
                ++p;
            break;
        }
        m_lines += lines + 1;
        *used = int(p - data);
        return Step::Record;
    }

    // Fields of a line without quotes, empty ones kept.
    void splitPlain(const char *p, const char *end)
    {
        if (m_bytes.isEmpty()) {
            m_batch->appendField(p, int(end - p));
            return;
        }
        for (;;) {
            const char *hit = p;
            for (;;) {
                hit = static_cast<const char *>(std::memchr(hit, m_bytes.at(0), size_t(end - hit)));
                if (!hit || separatorAt(hit, end))
                    break;
                ++hit;
            }
            if (!hit) {
                m_batch->appendField(p, int(end - p));
                return;
            }
            m_batch->appendField(p, int(hit - p));
            p = hit + m_bytes.size();
        }
    }

    static int countLines(const char *p, const char *end)
    {
        int lines = 0;
        for (; p < end; ++p)
            lines += *p == '\n' || (*p == '\r' && (p + 1 == end || p[1] != '\n'));
        return lines;
    }

    // A line as DatabaseGenerator splits it: trimmed, empty fields dropped, quotes plain text.
    Step nextLine(const char *data, int size, bool atEnd, int *used)
    {
        const char *feed = static_cast<const char *>(std::memchr(data, '\n', size_t(size)));
        if (!feed && !atEnd)
            return Step::NeedMore;
        const int length = feed ? int(feed - data) + 1 : size;
        m_recordLine = ++m_lines;
        *used = length;
        m_lineFields = 0;
        if (isAscii(data, length) && !m_bytes.isEmpty() && isAscii(m_bytes.constData(), m_bytes.size())) {
            m_lineFields = m_batch->appendAscii(data, length, m_bytes);
            return Step::Record;
        }
        const QString text = QString::fromUtf8(data, length).trimmed();
        m_lineFields = m_separator.isEmpty() ? -1 : m_batch->appendText(text, m_separator);
        if (m_lineFields < 0) {
            const QStringList fields = text.split(m_separator, Qt::SkipEmptyParts, Qt::CaseSensitive);
            m_lineFields = int(fields.size());
            if (m_lineFields > 0)
                m_batch->append(fields);
        }
        return Step::Record;
    }

    const bool m_rfc;
    const QString m_separator;
    const QByteArray m_bytes;
    RowBatch *m_batch;
    QByteArray m_field;
    int m_lines = 0;
    int m_recordLine = 0;
    int m_lineFields = 0;
};

} // namespace

CsvImporter::CsvImporter() = default;

CsvImporter::CsvImporter(const Options &options) : m_options(options) { }

CsvImporter::Options CsvImporter::options() const
{
    return m_options;
}

void CsvImporter::setOptions(const Options &options)
{
    m_options = options;
}

QString CsvImporter::log() const
{
    return m_log;
}

int CsvImporter::errorLine() const
{
    return m_errorLine;
}

// Reads sourceFile and writes its rows into databaseFile, 50,000 to a table, each table in one
// transaction. False with a log when the file cannot be read, a quoted field is not closed (no
// row of its batch is written), a batch fails (rolled back; later ones are still written) or a
// ProgressScope cancels (committed tables stay).
bool CsvImporter::importFile(const QString &sourceFile, const QString &databaseFile)
{
    m_log.clear();
    m_errorLine = 0;
    QFile file(sourceFile);
    if (!file.open(QIODevice::ReadOnly)) {
        m_log = QObject::tr("Cannot open file %1 for reading: %2.").arg(sourceFile, file.errorString());
        return false;
    }

    ProgressReport progress(file.size());
    int columnCount = 0;
    int tableIndex = 1;
    bool result = true;

    const auto writeBatch = [&](const RowBatch &batch) {
        const QString table = QStringLiteral("table") + QString::number(tableIndex++);
        QSqlDatabase database;
        if (!TableWriter::openConnection(&database, databaseFile)) {
            m_log += QObject::tr("Cannot open the database %1.").arg(databaseFile) + QLatin1Char('\n');
            return false;
        }
        const TableWriter::Table prepared = TableWriter::prepareTable(database, table, columnCount);
        if (prepared != TableWriter::Table::Created && prepared != TableWriter::Table::Emptied) {
            m_log += table + QLatin1String(": ") + TableWriter::message(prepared, QString()) + QLatin1Char('\n');
            database.close();
            return false;
        }
        TableWriter writer(database, table, columnCount, TableWriter::Rows::PadAndTryEvery);
        QString error;
        bool ok = writer.begin();
        if (!ok)
            error = QObject::tr("Database transaction error!");
        ok = ok && writer.insert(batch) == TableWriter::Insert::Inserted && writer.commit(&error);
        if (!ok) {
            QString rollbackError;
            writer.rollback(&rollbackError);
            QStringList lines = writer.rowErrors();
            if (!error.isEmpty())
                lines.prepend(error);
            m_log += table + QLatin1String(": ") + lines.join(QLatin1Char('\n')) + QLatin1Char('\n');
        }
        database.close();
        return ok;
    };

    // A helper thread decodes and splits while this one writes; it ends with the last batch,
    // which says whether a record was malformed.
    bool malformed = false;
    bool tooLong = false;
    int malformedLine = 0;
    const Options options = m_options;
    BatchPipe pipe([&file, options, &malformed, &tooLong, &malformedLine](BatchPipe &out) {
        Utf8Source source(&file, options.encoding);
        BatchPipe::Batch batch;
        RecordParser parser(options, &batch.rows);
        QByteArray text;
        int offset = 0;
        bool atEnd = false;
        while (!out.isStopped()) {
            int used = 0;
            int fields = 0;
            const RecordParser::Step step = parser.next(text.constData() + offset,
                                                        text.size() - offset, atEnd, &used, &fields);
            tooLong = step == RecordParser::Step::NeedMore && text.size() - offset > MaxRecordSize;
            if (step == RecordParser::Step::Unclosed || tooLong) {
                malformed = true;
                malformedLine = parser.recordLine();
                break;
            }
            if (step == RecordParser::Step::NeedMore) {
                text.remove(0, offset);
                offset = 0;
                atEnd = !source.read(&text);
                continue;
            }
            if (used == 0) // nothing left
                break;
            offset += used;
            // Bytes of the file read up to this record (roughly, where decoding changes sizes).
            out.setPosition(source.position() - (text.size() - offset));
            if (fields <= 0)
                continue;
            batch.columnCount = qMax(batch.columnCount, fields);
            if (batch.rows.size() == BatchRows) {
                const int widest = batch.columnCount;
                batch.end = source.position() - (text.size() - offset);
                if (!out.push(&batch))
                    return;
                // The parser keeps adding to batch.rows, now the buffers of a written batch.
                batch.columnCount = widest;
            }
        }
        batch.end = source.position() - (text.size() - offset);
        batch.last = true;
        out.push(&batch);
    });

    BatchPipe::Batch batch;
    const auto report = [&progress](qint64 position) { return progress.advance(position); };
    while (pipe.next(&batch, report)) {
        columnCount = batch.columnCount;
        if (batch.last) {
            if (!malformed && progress.advance(batch.end) && progress.finish()
                && !batch.rows.isEmpty())
                result = writeBatch(batch.rows) && result;
            break;
        }
        if (!progress.advance(batch.end))
            break;
        result = writeBatch(batch.rows) && result;
        pipe.recycle(&batch);
    }
    pipe.stop();
    if (malformed && !progress.isCancelled()) {
        m_errorLine = malformedLine;
        m_log += (tooLong ? QObject::tr("Line %1: a record runs past 64 MB; is a quoted field not "
                                        "closed?")
                          : QObject::tr("Line %1: a quoted field is not closed."))
                         .arg(m_errorLine)
                + QLatin1Char(' ') + QObject::tr("No row after the last whole table was written.");
        return false;
    }
    if (progress.isCancelled()) {
        m_log += QObject::tr("Import cancelled");
        return false;
    }
    if (file.error() != QFile::NoError) {
        m_log += QObject::tr("Cannot read %1: %2.").arg(sourceFile, file.errorString());
        return false;
    }
    if (tableIndex == 1) {
        m_log = QObject::tr("%1 holds no rows.").arg(sourceFile);
        return false;
    }
    if (m_log.endsWith(QLatin1Char('\n')))
        m_log.chop(1);
    return result;
}

} // namespace Database
