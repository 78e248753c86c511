#include "textlinereader.h"

#include <QIODevice>

#include <cstring>

namespace Database {

namespace {

// QIODevice's read buffer, which is also the step of QIODevice::readLine().
const int QtChunk = 16384;
const int BlockSize = 1 << 20;

} // namespace

TextLineReader::TextLineReader(QIODevice *device)
    : m_device(device)
{
}

bool TextLineReader::atEnd()
{
    return !ensure(1);
}

// Hands out a line straight from the block when QIODevice would have found it whole in its
// buffer, which is nearly always.
bool TextLineReader::readLine(const char **data, int *size)
{
    const int buffered = int(qMin<qint64>(m_bufferEnd - m_pos, QtChunk));
    if (buffered > 0 && ensure(buffered)) {
        char *start = m_block.data() + (m_pos - m_blockStart);
        if (char *newline = static_cast<char *>(std::memchr(start, '\n', size_t(buffered)))) {
            int length = int(newline - start) + 1;
            m_pos += length;
            if (length > 1 && newline[-1] == '\r') {
                newline[-1] = '\n';
                --length;
            }
            *data = start;
            *size = length;
            return true;
        }
    }
    return readLineSlow(data, size);
}

// Makes count bytes from the current position available in the block; fewer only at the end.
bool TextLineReader::ensure(int count)
{
    if (available() >= count)
        return true;
    if (!m_deviceAtEnd) {
        const int offset = int(m_pos - m_blockStart);
        const int kept = m_blockSize - offset;
        if (kept > 0)
            std::memmove(m_block.data(), m_block.constData() + offset, size_t(kept));
        if (m_block.size() < qMax(BlockSize, count))
            m_block.resize(qMax(BlockSize, count));
        m_blockStart = m_pos;
        m_blockSize = kept;
        while (m_blockSize < m_block.size()) {
            const qint64 read = m_device->read(m_block.data() + m_blockSize,
                                               m_block.size() - m_blockSize);
            if (read <= 0) {
                m_deviceAtEnd = true;
                break;
            }
            m_blockSize += int(read);
        }
    }
    return available() >= count;
}

int TextLineReader::available() const
{
    return int(m_blockStart + m_blockSize - m_pos);
}

const char *TextLineReader::current() const
{
    return m_block.constData() + (m_pos - m_blockStart);
}

// One byte as QIODevice::read() gives it in text mode: refilling its buffer a chunk at a time
// and skipping every CR.
bool TextLineReader::readByte(char *byte)
{
    for (;;) {
        if (m_pos == m_bufferEnd) {
            if (!ensure(QtChunk) && available() == 0)
                return false;
            m_bufferEnd = m_pos + qMin(available(), QtChunk);
        }
        const char c = *current();
        ++m_pos;
        if (c != '\r') {
            *byte = c;
            return true;
        }
    }
}

// Repeats QIODevice::readLine(): calls of at most one chunk each until one ends the line.
bool TextLineReader::readLineSlow(const char **data, int *size)
{
    if (atEnd())
        return false;
    m_line.clear();
    int read = 0;
    do {
        read = readBuffered(QtChunk);
    } while (read == QtChunk && !m_line.endsWith('\n'));
    *data = m_line.constData();
    *size = m_line.size();
    return true;
}

// One QIODevice::readLine(char *, qint64) call appending at most cap bytes: the rest of the
// buffer up to a line feed as it stands, then bytes one by one; returns the bytes it added.
int TextLineReader::readBuffered(int cap)
{
    const int start = m_line.size();
    const int buffered = int(qMin<qint64>(m_bufferEnd - m_pos, cap));
    bool lineEnded = false;
    if (buffered > 0 && ensure(buffered)) {
        const char *from = current();
        const void *newline = std::memchr(from, '\n', size_t(buffered));
        const int length =
                newline ? int(static_cast<const char *>(newline) - from) + 1 : buffered;
        m_line.append(from, length);
        m_pos += length;
        lineEnded = newline != nullptr;
    }
    char byte = 0;
    while (!lineEnded && m_line.size() - start < cap && readByte(&byte)) {
        m_line.append(byte);
        lineEnded = byte == '\n';
    }
    const int end = m_line.size();
    if (end - start > 1 && m_line.at(end - 1) == '\n' && m_line.at(end - 2) == '\r') {
        m_line[end - 2] = '\n';
        m_line.chop(1);
    }
    return m_line.size() - start;
}

} // namespace Database
