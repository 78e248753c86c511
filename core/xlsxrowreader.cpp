#include "xlsxrowreader_p.h"

#include "handover_p.h"
#include "xlsxpackage_p.h"
#include "xlsxreader.h"
#include "xlsxsheet_p.h"
#include "xlsxworkbook_p.h"

#include <QTemporaryFile>

#include <deque>
#include <system_error>
#include <thread>

namespace Core {

using namespace Xlsx;

namespace {

// Rows are handed between threads in chunks of this many rows or bytes at most.
constexpr size_t ChunkRows = 4096;
constexpr int ChunkBytes = 1 << 20;

// Rows as the pass over the sheet part reads them: only the cells that hold values.
struct RowChunk
{
    struct Row
    {
        qint32 index;
        quint32 firstCell;
    };
    struct Field
    {
        qint32 column;
        qint32 end; // in bytes
    };
    std::vector<Row> rows;
    std::vector<Field> cells;
    QByteArray bytes;
    QHash<quint32, QString> inexact; // by cell
    qint64 cost() const { return bytes.size() + qint64(cells.size() + rows.size()) * 8; }
    bool isFull() const { return rows.size() >= ChunkRows || bytes.size() >= ChunkBytes; }
    // Empties the chunk and keeps its room.
    void clear()
    {
        rows.clear();
        cells.clear();
        bytes.reserve(bytes.capacity()); // keeps the buffer through resize(0)
        bytes.resize(0);
        inexact.clear();
    }
    // Adds a row of the sheet with its texts as the reader gives them; rowTexts, when given,
    // holds the texts that the cells' own point to.
    void append(const SheetData &sheet, int index, const Cell *rowCells, size_t count,
                const QByteArray *rowTexts = nullptr)
    {
        rows.push_back({index, quint32(cells.size())});
        for (size_t i = 0; i < count; ++i) {
            if (!sheet.appendCellUtf8(rowCells[i], &bytes, rowTexts))
                inexact.insert(quint32(cells.size()), sheet.cellText(rowCells[i], rowTexts));
            cells.push_back({rowCells[i].column, qint32(bytes.size())});
        }
    }
    bool write(QIODevice &file) const;
    bool read(QIODevice &file);
};

template<typename T>
bool writeVector(QIODevice &file, const std::vector<T> &items)
{
    const qint64 size = qint64(items.size() * sizeof(T));
    return file.write(reinterpret_cast<const char *>(items.data()), size) == size;
}

template<typename T>
bool readVector(QIODevice &file, quint32 count, std::vector<T> *items)
{
    items->resize(count);
    const qint64 size = qint64(count * sizeof(T));
    return file.read(reinterpret_cast<char *>(items->data()), size) == size;
}

bool RowChunk::write(QIODevice &file) const
{
    const quint32 header[] = {quint32(rows.size()), quint32(cells.size()), quint32(bytes.size()),
                              quint32(inexact.size())};
    bool ok = file.write(reinterpret_cast<const char *>(header), sizeof header) == sizeof header
            && writeVector(file, rows) && writeVector(file, cells)
            && file.write(bytes) == bytes.size();
    for (auto it = inexact.cbegin(); ok && it != inexact.cend(); ++it) {
        const quint32 place[] = {it.key(), quint32(it.value().size())};
        const qint64 size = qint64(it.value().size()) * 2;
        ok = file.write(reinterpret_cast<const char *>(place), sizeof place) == sizeof place
                && file.write(reinterpret_cast<const char *>(it.value().constData()), size) == size;
    }
    return ok;
}

bool RowChunk::read(QIODevice &file)
{
    clear();
    quint32 header[4];
    bool ok = file.read(reinterpret_cast<char *>(header), sizeof header) == sizeof header
            && readVector(file, header[0], &rows) && readVector(file, header[1], &cells);
    if (ok) {
        bytes.resize(int(header[2]));
        ok = file.read(bytes.data(), bytes.size()) == bytes.size();
    }
    for (quint32 i = 0; ok && i < header[3]; ++i) {
        quint32 place[2];
        ok = file.read(reinterpret_cast<char *>(place), sizeof place) == sizeof place;
        QString text(ok ? int(place[1]) : 0, Qt::Uninitialized);
        const qint64 size = qint64(text.size()) * 2;
        ok = ok && file.read(reinterpret_cast<char *>(text.data()), size) == size;
        inexact.insert(place[0], text);
    }
    return ok;
}

// The rows of the one pass over the sheet part, kept until the whole part has been checked: the
// first in memory, the rest in a temporary file. Without room in the file they are given up, and
// the rows are read again from the part.
class ChunkStore
{
public:
    void add(RowChunk *chunk)
    {
        if (m_lost || chunk->rows.empty())
            return;
        if (m_spilled == 0 && m_held + chunk->cost() <= MaxHeld) {
            m_held += chunk->cost();
            m_chunks.push_back(std::move(*chunk));
            *chunk = RowChunk();
            return;
        }
        if (!chunk->write(m_file))
            return lose();
        ++m_spilled;
        chunk->clear();
    }
    // Makes the file ready before any row is kept, so that without one none is held in vain.
    bool open()
    {
        m_lost = !m_file.open();
        return !m_lost;
    }
    bool isLost() const { return m_lost; }
    // Hands every chunk to take in order; false when take returns false or a chunk cannot be
    // read back.
    template<typename Take>
    bool replay(Take take)
    {
        for (const RowChunk &chunk : m_chunks) {
            if (!take(chunk))
                return false;
        }
        if (m_spilled == 0)
            return true;
        RowChunk chunk;
        bool ok = m_file.flush() && m_file.seek(0);
        for (int i = 0; ok && i < m_spilled; ++i)
            ok = chunk.read(m_file) && take(chunk);
        return ok;
    }
    void clear()
    {
        m_chunks.clear();
        m_held = 0;
        m_spilled = 0;
        m_file.close();
    }

private:
    static constexpr qint64 MaxHeld = qint64(16) << 20;

    void lose()
    {
        clear();
        m_lost = true;
    }

    std::deque<RowChunk> m_chunks;
    qint64 m_held = 0;
    QTemporaryFile m_file;
    int m_spilled = 0;
    bool m_lost = false;
};

// Rows as the parser hands them on, before their texts are made: the cells' own texts are in
// texts.
struct RawChunk
{
    std::vector<RowChunk::Row> rows;
    std::vector<Cell> cells;
    QByteArray texts;
    qint64 cost() const { return texts.size() + qint64(cells.size()) * 16; }
    bool isFull() const { return rows.size() >= ChunkRows || texts.size() >= ChunkBytes; }
    void append(const SheetData &sheet, int index, const Cell *rowCells, size_t count)
    {
        rows.push_back({index, quint32(cells.size())});
        const quint32 base = quint32(texts.size());
        texts.append(sheet.rowTexts());
        for (size_t i = 0; i < count; ++i) {
            cells.push_back(rowCells[i]);
            if (rowCells[i].kind == Cell::String || rowCells[i].kind == Cell::Verbatim)
                cells.back().a += base;
        }
    }
};

// Makes the texts of the rows that one pass over the sheet part reads and keeps them in a store,
// on a thread of its own so that the parser goes on meanwhile.
class Converter
{
public:
    Converter(std::unique_ptr<SheetData> sheet, ChunkStore *store)
        : m_sheet(std::move(sheet)), m_store(store), m_raw(MaxQueued)
    {
        try {
            m_thread = std::thread([this] {
                RawChunk raw;
                while (m_raw.take(&raw))
                    convert(raw);
                m_store->add(&m_chunk);
            });
        } catch (const std::system_error &) {
            m_direct = true; // no thread to be had: convert as the rows come
        }
    }
    ~Converter() { finish(); }
    void add(RawChunk *raw)
    {
        if (raw->rows.empty())
            return;
        if (m_direct)
            convert(*raw);
        else
            m_raw.put(std::move(*raw), raw->cost());
        *raw = RawChunk();
    }
    // Waits until every row added is in the store.
    void finish()
    {
        m_raw.finish(false);
        if (m_thread.joinable())
            m_thread.join();
        else if (m_direct)
            m_store->add(&m_chunk);
    }

private:
    static constexpr qint64 MaxQueued = qint64(4) << 20;

    void convert(const RawChunk &raw)
    {
        for (size_t r = 0; r < raw.rows.size(); ++r) {
            const size_t end = r + 1 < raw.rows.size() ? raw.rows[r + 1].firstCell : raw.cells.size();
            const size_t first = raw.rows[r].firstCell;
            m_chunk.append(*m_sheet, raw.rows[r].index, raw.cells.data() + first, end - first,
                           &raw.texts);
            if (m_chunk.isFull())
                m_store->add(&m_chunk);
        }
        // The shared strings these rows used need not stay in memory.
        m_sheet->releaseSharedStrings();
    }

    std::unique_ptr<SheetData> m_sheet;
    ChunkStore *m_store;
    HandOver<RawChunk> m_raw;
    RowChunk m_chunk;
    std::thread m_thread;
    bool m_direct = false;
};

// Reads the sheet part again on a thread of its own, handing its rows on through a bounded
// queue while the calling thread takes them: for a second read, and when the store was lost.
class Streamer
{
public:
    Streamer(const QString &path, const QString &sheetPart, std::unique_ptr<SheetData> sheet)
        : m_path(path), m_sheetPart(sheetPart), m_sheet(std::move(sheet)), m_chunks(MaxQueued)
    {
        try {
            m_thread = std::thread([this] { run(); });
        } catch (const std::system_error &) {
            m_direct = true; // no thread to be had: read as the rows are asked for
        }
    }
    ~Streamer()
    {
        m_chunks.stop();
        if (m_thread.joinable())
            m_thread.join();
    }

    // Hands every chunk to take; false when take returns false or the pass failed.
    bool consume(const std::function<bool(const RowChunk &)> &take)
    {
        if (m_direct) {
            m_take = &take;
            return run();
        }
        RowChunk chunk;
        while (m_chunks.take(&chunk)) {
            if (!take(chunk))
                return false;
        }
        return !m_chunks.failed();
    }

private:
    static constexpr qint64 MaxQueued = qint64(16) << 20;

    bool run()
    {
        XlsxPackage package(m_path);
        RowChunk chunk;
        m_sheet->setMode(SheetData::Mode::Stream, [&](int index, const Cell *cells, size_t count) {
            chunk.append(*m_sheet, index, cells, count);
            if (!chunk.isFull())
                return true;
            m_sheet->releaseSharedStrings();
            return deliver(&chunk);
        });
        QString error;
        bool ok = package.open() && readSheet(package, m_sheetPart, *m_sheet, &error);
        ok = ok && (chunk.rows.empty() || deliver(&chunk));
        m_chunks.finish(!ok);
        return ok;
    }

    bool deliver(RowChunk *chunk)
    {
        const bool taken = m_direct ? (*m_take)(*chunk) : m_chunks.put(std::move(*chunk), chunk->cost());
        chunk->clear();
        return taken;
    }

    QString m_path;
    QString m_sheetPart;
    std::unique_ptr<SheetData> m_sheet;
    HandOver<RowChunk> m_chunks;
    std::thread m_thread;
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
    bool readHeld(const std::function<bool(const XlsxRow &)> &rowRead);

    QString path;
    QString sheetPart;
    QString error;
    SheetData sheet; // the shared strings, cell formats and the data area's bounds
    std::unique_ptr<XlsxReader> held; // a sheet out of order
    ChunkStore store;
    bool stored = false; // whether the store holds every row
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
                if (!chunk.inexact.isEmpty() && chunk.inexact.contains(quint32(cell)))
                    row.inexact.insert(column, chunk.inexact.value(quint32(cell)));
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

bool XlsxRowReaderPrivate::readHeld(const std::function<bool(const XlsxRow &)> &rowRead)
{
    for (int index = 0; index < held->rowCount(); ++index) {
        beginRow(index);
        for (int column = 0; column < held->columnCount(); ++column) {
            const QString text = held->textAt(index, column);
            if (text.isValidUtf16())
                row.bytes.append(text.toUtf8());
            else
                row.inexact.insert(column, text);
            endField();
        }
        if (!rowRead(row))
            return false;
    }
    return true;
}

XlsxRowReader::XlsxRowReader() : d(new XlsxRowReaderPrivate) { }

XlsxRowReader::~XlsxRowReader() = default;

// Reads the workbook and its first worksheet once, checking the whole part and keeping its rows
// (unless keepRows is false) until readRows(); false, with the reason and an empty sheet, when
// the file is no readable workbook.
bool XlsxRowReader::open(const QString &path, bool keepRows)
{
    d.reset(new XlsxRowReaderPrivate);
    d->path = path;
    d->sheet.keepSharedStringsInFile();
    XlsxPackage package(path);
    bool ok = package.open() || d->fail(package.errorString());
    ok = ok && readWorkbook(package, d->sheet, &d->sheetPart, &d->error);
    d->stored = keepRows && d->store.open();
    if (ok) {
        Converter converter(d->sheet.sharedCopy(), &d->store);
        RawChunk raw;
        d->sheet.setMode(SheetData::Mode::Stream, [&](int index, const Cell *cells, size_t count) {
            // Rows out of order are read whole instead.
            if (!d->stored || !d->sheet.isOrdered())
                return true;
            raw.append(d->sheet, index, cells, count);
            if (raw.isFull())
                converter.add(&raw);
            return true;
        });
        ok = readSheet(package, d->sheetPart, d->sheet, &d->error);
        converter.add(&raw);
        converter.finish();
    }
    d->stored = d->stored && !d->store.isLost();
    if (ok && !d->sheet.isOrdered()) {
        d->store.clear();
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
    if (d->held)
        return d->readHeld(rowRead);
    if (d->path.isEmpty())
        return false;
    d->nextRow = 0;
    const auto take = [&](const RowChunk &chunk) { return d->take(chunk, rowRead); };
    bool read;
    if (d->stored) {
        read = d->store.replay(take);
    } else {
        Streamer streamer(d->path, d->sheetPart, d->sheet.sharedCopy());
        read = streamer.consume(take);
    }
    // The rows are handed on once from the store; a second read goes back to the file.
    d->store.clear();
    d->stored = false;
    return read && d->nextRow == rowCount();
}

} // namespace Core
