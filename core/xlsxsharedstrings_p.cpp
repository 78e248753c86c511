#include "xlsxsharedstrings_p.h"

#include <QTemporaryFile>

#include <sys/mman.h>
#include <unistd.h>

namespace Core {
namespace Xlsx {

namespace {

constexpr int Stride = 16; // strings between two positions kept whole
constexpr int MoveSize = 4 << 20; // pool bytes past which texts go to the file

} // namespace

// Lengths as 7-bit groups, low first; every Stride-th string's position and place in lengths.
struct SharedStringTable::Index
{
    struct Mark
    {
        quint64 position;
        quint32 lengthAt;
    };
    std::vector<uchar> lengths;
    std::vector<Mark> marks;
    quint64 end = 0;
};

SharedStringTable::SharedStringTable() : m_index(std::make_shared<Index>()) { }

SharedStringTable::~SharedStringTable()
{
    release();
}

bool SharedStringTable::add(quint32 size, QByteArray *pool)
{
    Index &index = *m_index;
    if (m_count % Stride == 0)
        index.marks.push_back({index.end, quint32(index.lengths.size())});
    for (quint32 rest = size;; rest >>= 7) {
        index.lengths.push_back(uchar((rest & 0x7f) | (rest > 0x7f ? 0x80 : 0)));
        if (rest <= 0x7f)
            break;
    }
    index.end += size;
    ++m_count;
    return !m_fileAllowed || pool->size() < MoveSize || move(pool);
}

// Appends the pool to the file; without room there, the texts moved so far come back.
bool SharedStringTable::move(QByteArray *pool)
{
    if (!m_file) {
        m_file = std::make_shared<QTemporaryFile>();
        if (!m_file->open()) {
            m_file.reset();
            m_fileAllowed = false;
            return true;
        }
        m_handle = m_file->handle();
    }
    if (m_file->write(*pool) == pool->size()) {
        m_moved += pool->size();
        pool->resize(0);
        return true;
    }
    m_fileAllowed = false;
    const QByteArray moved = m_file->seek(0) ? m_file->read(m_moved) : QByteArray();
    m_file.reset();
    if (moved.size() != m_moved)
        return false;
    pool->prepend(moved);
    m_moved = 0;
    return true;
}

bool SharedStringTable::finish(QByteArray *pool)
{
    // The texts left in the pool follow the others into the file.
    const bool moved = !m_file || pool->isEmpty() || move(pool);
    m_fileAllowed = false;
    return moved && (!m_file || m_file->flush());
}

quint64 SharedStringTable::position(int index, quint32 *size) const
{
    const Index::Mark &mark = m_index->marks[size_t(index / Stride)];
    quint64 position = mark.position;
    const uchar *length = m_index->lengths.data() + mark.lengthAt;
    for (int i = index - index % Stride;; ++i) {
        quint32 value = 0;
        for (int shift = 0;; shift += 7) {
            value |= quint32(*length & 0x7f) << shift;
            if (!(*length++ & 0x80))
                break;
        }
        if (i == index) {
            *size = value;
            return position;
        }
        position += value;
    }
}

quint32 SharedStringTable::length(int index) const
{
    quint32 size;
    position(index, &size);
    return size;
}

const char *SharedStringTable::text(int index, const QByteArray &pool, quint32 *size) const
{
    const quint64 at = position(index, size);
    if (m_moved == 0)
        return pool.constData() + at;
    if (!m_texts) {
        void *map = ::mmap(nullptr, size_t(m_moved), PROT_READ, MAP_SHARED, m_handle, 0);
        m_isMapped = map != MAP_FAILED;
        if (m_isMapped) {
            m_texts = static_cast<const char *>(map);
        } else {
            // No address space for it: read it whole.
            m_loaded.resize(int(m_moved));
            const ssize_t read = ::pread(m_handle, m_loaded.data(), size_t(m_moved), 0);
            m_loaded.resize(read == ssize_t(m_moved) ? int(m_moved) : 0);
            m_texts = m_loaded.constData();
        }
    }
    if (!m_isMapped && at + *size > quint64(m_loaded.size())) {
        *size = 0; // the file could be neither mapped nor read
        return "";
    }
    return m_texts + at;
}

std::unique_ptr<SharedStringTable> SharedStringTable::copy() const
{
    auto copy = std::make_unique<SharedStringTable>();
    copy->m_index = m_index;
    copy->m_file = m_file;
    copy->m_handle = m_handle;
    copy->m_count = m_count;
    copy->m_moved = m_moved;
    return copy;
}

void SharedStringTable::release() const
{
    if (m_isMapped)
        ::munmap(const_cast<char *>(m_texts), size_t(m_moved));
    m_isMapped = false;
    m_texts = nullptr;
    m_loaded.clear();
}

} // namespace Xlsx
} // namespace Core
