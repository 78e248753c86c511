#include "xlsxrowreader_p.h"

#include "xlsxpackage_p.h"
#include "xlsxreader.h"
#include "xlsxsheet_p.h"
#include "xlsxworkbook_p.h"

#include <condition_variable>
#include <deque>
#include <mutex>
#include <system_error>
#include <thread>

namespace Core {

using namespace Xlsx;

namespace {

// Rows of the second pass as it reads them: only the cells that hold values.
struct RowChunk
{
    struct Row
    {
        int index;
        size_t firstCell;
    };
    struct Field
    {
        int column;
        int end; // in bytes
    };
    std::vector<Row> rows;
    std::vector<Field> cells;
    QByteArray bytes;
    QHash<size_t, QString> inexact; // by cell
    qint64 cost() const { return bytes.size() + qint64(cells.size() + rows.size()) * 8; }
    // Empties the chunk and keeps its room.
    void clear()
    {
        rows.clear();
        cells.clear();
        bytes.reserve(bytes.capacity()); // keeps the buffer through resize(0)
        bytes.resize(0);
        inexact.clear();
    }
};

// The second pass over the sheet part, on a thread of its own from the moment the workbook has
// been read: while the first pass checks the part, this one reads ahead as far as its queue
// allows, and later reads while the calling thread writes.
class Streamer
{
public:
    Streamer(const QString &path, const QString &sheetPart, std::unique_ptr<SheetData> sheet)
        : m_path(path), m_sheetPart(sheetPart), m_sheet(std::move(sheet))
    {
        try {
            m_thread = std::thread([this] { run(); });
        } catch (const std::system_error &) {
            m_direct = true; // no thread to be had: read as the rows are asked for
        }
    }
    ~Streamer()
    {
        {
            const std::lock_guard<std::mutex> lock(m_mutex);
            m_stopped = true;
        }
        m_changed.notify_all();
        if (m_thread.joinable())
            m_thread.join();
    }

    // Hands every chunk to take; false when take returns false or the pass failed.
    bool consume(const std::function<bool(const RowChunk &)> &take)
    {
        if (m_direct) {
            m_take = &take;
            run();
            return !m_failed;
        }
        for (;;) {
            RowChunk chunk;
            {
                std::unique_lock<std::mutex> lock(m_mutex);
                m_changed.wait(lock, [this] { return !m_chunks.empty() || m_finished; });
                if (m_chunks.empty())
                    return !m_failed;
                chunk = std::move(m_chunks.front());
                m_chunks.pop_front();
                m_queued -= chunk.cost();
            }
            m_changed.notify_all();
            if (!take(chunk))
                return false;
            // Chunks go round: memory stays as it is, however many rows pass.
            chunk.clear();
            const std::lock_guard<std::mutex> lock(m_mutex);
            m_spare.push_back(std::move(chunk));
        }
    }

private:
    static constexpr int ChunkRows = 4096;
    static constexpr int ChunkBytes = 1 << 20;
    static constexpr qint64 MaxQueued = qint64(16) << 20;

    void run()
    {
        XlsxPackage package(m_path);
        RowChunk chunk;
        m_sheet->setMode(SheetData::Mode::Stream, [&](int index, const Cell *cells, size_t count) {
            chunk.rows.push_back({index, chunk.cells.size()});
            for (size_t i = 0; i < count; ++i) {
                if (!m_sheet->appendCellUtf8(cells[i], &chunk.bytes))
                    chunk.inexact.insert(chunk.cells.size(), m_sheet->cellText(cells[i]));
                chunk.cells.push_back({int(cells[i].column), int(chunk.bytes.size())});
            }
            return (chunk.rows.size() < ChunkRows && chunk.bytes.size() < ChunkBytes)
                    || deliver(&chunk);
        });
        QString error;
        bool ok = package.open() && readSheet(package, m_sheetPart, *m_sheet, &error);
        ok = ok && (chunk.rows.empty() || deliver(&chunk));
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_finished = true;
        m_failed = !ok;
        m_changed.notify_all();
    }

    bool deliver(RowChunk *chunk)
    {
        if (m_direct) {
            const bool taken = (*m_take)(*chunk);
            chunk->clear();
            return taken;
        }
        std::unique_lock<std::mutex> lock(m_mutex);
        m_changed.wait(lock, [this] { return m_queued < MaxQueued || m_stopped; });
        if (m_stopped)
            return false;
        m_queued += chunk->cost();
        m_chunks.push_back(std::move(*chunk));
        *chunk = RowChunk();
        if (!m_spare.empty()) {
            *chunk = std::move(m_spare.back());
            m_spare.pop_back();
        }
        m_changed.notify_all();
        return true;
    }

    QString m_path;
    QString m_sheetPart;
    std::unique_ptr<SheetData> m_sheet;
    std::thread m_thread;
    std::mutex m_mutex;
    std::condition_variable m_changed;
    std::deque<RowChunk> m_chunks;
    std::vector<RowChunk> m_spare;
    qint64 m_queued = 0;
    bool m_stopped = false;
    bool m_finished = false;
    bool m_failed = false;
    bool m_direct = false;
    const std::function<bool(const RowChunk &)> *m_take = nullptr;
};

} // namespace

class XlsxRowReaderPrivate
{
public:
    bool fail(const QString &reason)
    {
        error = reason;
        return false;
    }
    // Starts the row with the given index; the fields follow.
    void beginRow(int index)
    {
        row.index = index;
        row.bytes.reserve(row.bytes.capacity()); // keeps the buffer through resize(0)
        row.bytes.resize(0);
        row.ends.resize(1);
        row.inexact.clear();
    }
    void endField() { row.ends.append(row.bytes.size()); }
    bool blankRowsUntil(int index, const std::function<bool(const XlsxRow &)> &rowRead);
    bool take(const RowChunk &chunk, const std::function<bool(const XlsxRow &)> &rowRead);

    QString path;
    QString sheetPart;
    QString error;
    SheetData sheet; // the shared strings and cell formats
    std::unique_ptr<XlsxReader> held; // a sheet out of order
    std::unique_ptr<Streamer> streamer;
    XlsxRow row{0, QByteArray(), QVector<int>{0}, {}};
    int nextRow = 0;
};

// Hands on the blank rows before index.
bool XlsxRowReaderPrivate::blankRowsUntil(int index,
                                          const std::function<bool(const XlsxRow &)> &rowRead)
{
    for (; nextRow < index; ++nextRow) {
        beginRow(nextRow);
        for (int column = 0; column < sheet.columns(); ++column)
            endField();
        if (!rowRead(row))
            return false;
    }
    return true;
}

// Hands on the rows of a chunk with every column of the data area.
bool XlsxRowReaderPrivate::take(const RowChunk &chunk,
                                const std::function<bool(const XlsxRow &)> &rowRead)
{
    for (size_t r = 0; r < chunk.rows.size(); ++r) {
        const int index = chunk.rows[r].index;
        if (index >= sheet.rows() || !blankRowsUntil(index, rowRead))
            return false;
        beginRow(index);
        size_t cell = chunk.rows[r].firstCell;
        const size_t end = r + 1 < chunk.rows.size() ? chunk.rows[r + 1].firstCell
                                                      : chunk.cells.size();
        for (int column = 0; column < sheet.columns(); ++column) {
            if (cell < end && chunk.cells[cell].column == column) {
                const int from = cell > 0 ? chunk.cells[cell - 1].end : 0;
                row.bytes.append(chunk.bytes.constData() + from, chunk.cells[cell].end - from);
                if (!chunk.inexact.isEmpty() && chunk.inexact.contains(cell))
                    row.inexact.insert(column, chunk.inexact.value(cell));
                ++cell;
            }
            endField();
        }
        ++nextRow;
        if (!rowRead(row))
            return false;
    }
    return true;
}

XlsxRowReader::XlsxRowReader() : d(new XlsxRowReaderPrivate) { }

XlsxRowReader::~XlsxRowReader() = default;

// Reads the workbook and checks the whole first worksheet, while the rows are already being
// read ahead; false, with the reason and an empty sheet, when the file is no readable workbook.
bool XlsxRowReader::open(const QString &path)
{
    d.reset(new XlsxRowReaderPrivate);
    d->path = path;
    XlsxPackage package(path);
    bool ok = package.open() || d->fail(package.errorString());
    ok = ok && readWorkbook(package, d->sheet, &d->sheetPart, &d->error);
    if (ok)
        d->streamer.reset(new Streamer(path, d->sheetPart, d->sheet.sharedCopy()));
    d->sheet.setMode(SheetData::Mode::Scan);
    ok = ok && readSheet(package, d->sheetPart, d->sheet, &d->error);
    if (ok && !d->sheet.isOrdered()) {
        d->streamer.reset();
        d->held.reset(new XlsxReader);
        ok = d->held->open(path) || d->fail(d->held->errorString());
    }
    if (!ok) {
        const QString error = d->error;
        d.reset(new XlsxRowReaderPrivate);
        d->error = error;
    }
    return ok;
}

QString XlsxRowReader::errorString() const
{
    return d->error;
}

bool XlsxRowReader::isEmpty() const
{
    return d->held ? d->held->isEmpty() : d->sheet.isEmpty();
}

int XlsxRowReader::rowCount() const
{
    return d->held ? d->held->rowCount() : d->sheet.rows();
}

int XlsxRowReader::columnCount() const
{
    return d->held ? d->held->columnCount() : d->sheet.columns();
}

// Hands every row of the data area, blank ones included, to rowRead in order; false when
// rowRead returns false or the part can no longer be read as open() read it.
bool XlsxRowReader::readRows(const std::function<bool(const XlsxRow &)> &rowRead)
{
    const int rows = rowCount();
    const int columns = columnCount();
    if (d->held) {
        for (int index = 0; index < rows; ++index) {
            d->beginRow(index);
            for (int column = 0; column < columns; ++column) {
                const QString text = d->held->textAt(index, column);
                if (text.isValidUtf16())
                    d->row.bytes.append(text.toUtf8());
                else
                    d->row.inexact.insert(column, text);
                d->endField();
            }
            if (!rowRead(d->row))
                return false;
        }
        return true;
    }
    if (d->path.isEmpty())
        return false;
    if (!d->streamer) // read once already
        d->streamer.reset(new Streamer(d->path, d->sheetPart, d->sheet.sharedCopy()));
    d->nextRow = 0;
    const bool read = d->streamer->consume(
            [&](const RowChunk &chunk) { return d->take(chunk, rowRead); });
    d->streamer.reset();
    return read && d->nextRow == rows;
}

} // namespace Core
