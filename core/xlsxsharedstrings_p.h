#ifndef CORE_XLSXSHAREDSTRINGS_P_H
#define CORE_XLSXSHAREDSTRINGS_P_H

#include <QByteArray>

#include <memory>
#include <vector>

class QTemporaryFile;

namespace Core {
namespace Xlsx {

// The shared strings of a workbook: their texts follow one another in a pool, and the table
// keeps their lengths, about a byte and a half per string. A table allowed a file moves the
// texts there once they pass a few megabytes and maps them when they are read, so that a sheet
// of millions of distinct texts is read in little memory; release() gives back the pages read.
class SharedStringTable
{
public:
    SharedStringTable();
    ~SharedStringTable();
    SharedStringTable(const SharedStringTable &) = delete;
    SharedStringTable &operator=(const SharedStringTable &) = delete;

    void allowFile() { m_fileAllowed = true; }
    int size() const { return m_count; }
    // Adds the next string, the last size bytes of pool; may move the pool into the file.
    // False when texts moved could not be kept.
    bool add(quint32 size, QByteArray *pool);
    // After the last string: the texts in the file are read from there. False as add().
    bool finish(QByteArray *pool);
    // Bytes of texts moved out of the pool.
    qint64 movedBytes() const { return m_moved; }
    quint32 length(int index) const;
    // The text of a string; pool is where the texts not moved are.
    const char *text(int index, const QByteArray &pool, quint32 *size) const;
    // A table that shares this one's strings, for another thread.
    std::unique_ptr<SharedStringTable> copy() const;
    // Unmaps the texts read so far, so that they no longer count as this process's memory.
    void release() const;

private:
    struct Index;
    quint64 position(int index, quint32 *size) const;
    bool move(QByteArray *pool);

    std::shared_ptr<Index> m_index;
    std::shared_ptr<QTemporaryFile> m_file;
    int m_handle = -1; // of the file, to map it on any thread
    mutable const char *m_texts = nullptr; // mapped, or in m_loaded
    mutable QByteArray m_loaded;
    mutable bool m_isMapped = false;
    int m_count = 0;
    qint64 m_moved = 0;
    bool m_fileAllowed = false;
};

} // namespace Xlsx
} // namespace Core

#endif // CORE_XLSXSHAREDSTRINGS_P_H
