#ifndef DATABASE_TEXTLINEREADER_H
#define DATABASE_TEXTLINEREADER_H

#include <QByteArray>

class QIODevice;

namespace Database {

// Reads lines in large blocks while giving exactly the bytes QIODevice::readLine() returns on a
// file opened in text mode: a CR LF at the end of a line read from QIODevice's 16 KiB buffer
// becomes LF, while bytes QIODevice reads one by one past its buffer lose every CR.
// Not exported: a helper of DatabaseGenerator.
class TextLineReader
{
public:
    // device must be open with text mode off (the reader does the translation) and at its start.
    explicit TextLineReader(QIODevice *device);

    bool atEnd();
    // Bytes of the device consumed so far.
    qint64 position() const { return m_pos; }
    // Points *data at the next line (valid until the next call) and sets *size; false at the end.
    bool readLine(const char **data, int *size);

private:
    bool ensure(int count);
    int available() const;
    const char *current() const;
    bool readByte(char *byte);
    bool readLineSlow(const char **data, int *size);
    int readBuffered(int cap);

    QIODevice *m_device;
    QByteArray m_block;
    qint64 m_blockStart = 0;
    int m_blockSize = 0;
    bool m_deviceAtEnd = false;
    qint64 m_pos = 0;
    qint64 m_bufferEnd = 0;
    QByteArray m_line;
};

} // namespace Database

#endif // DATABASE_TEXTLINEREADER_H
