#ifndef DATABASE_UTF8_P_H
#define DATABASE_UTF8_P_H

#include <QtGlobal>

#include <cstring>

namespace Database {

inline bool isAscii(const char *data, qsizetype size)
{
    quint64 bits = 0;
    qsizetype i = 0;
    for (; i + 8 <= size; i += 8) {
        quint64 word;
        std::memcpy(&word, data + i, sizeof word);
        bits |= word;
    }
    for (; i < size; ++i)
        bits |= uchar(data[i]);
    return (bits & Q_UINT64_C(0x8080808080808080)) == 0;
}

// Length of the UTF-8 sequence a lead byte starts, 0 for a byte that cannot lead one.
inline int utf8SequenceLength(uchar lead)
{
    return lead < 0x80    ? 1
            : lead < 0xc2 ? 0
            : lead < 0xe0 ? 2
            : lead < 0xf0 ? 3
            : lead < 0xf5 ? 4
                          : 0;
}

// Whether data is well-formed UTF-8 (no overlong forms, surrogates or values past U+10FFFF):
// text that a UTF-16 round trip gives back byte for byte. With partialTail, a sequence cut off
// by the end is allowed and its length stored there.
inline bool isValidUtf8(const char *data, qsizetype size, int *partialTail = nullptr)
{
    const auto *bytes = reinterpret_cast<const uchar *>(data);
    qsizetype i = 0;
    while (i < size) {
        if (i + 8 <= size) {
            quint64 word;
            std::memcpy(&word, bytes + i, sizeof word);
            if ((word & Q_UINT64_C(0x8080808080808080)) == 0) {
                i += 8;
                continue;
            }
        }
        const int length = utf8SequenceLength(bytes[i]);
        if (length == 0)
            return false;
        for (int k = 1; k < length; ++k) {
            if (i + k == size) {
                if (!partialTail)
                    return false;
                *partialTail = k;
                return true;
            }
            const uchar byte = bytes[i + k];
            uchar low = 0x80, high = 0xbf;
            if (k == 1 && bytes[i] == 0xe0)
                low = 0xa0;
            else if (k == 1 && bytes[i] == 0xed)
                high = 0x9f;
            else if (k == 1 && bytes[i] == 0xf0)
                low = 0x90;
            else if (k == 1 && bytes[i] == 0xf4)
                high = 0x8f;
            if (byte < low || byte > high)
                return false;
        }
        i += length;
    }
    if (partialTail)
        *partialTail = 0;
    return true;
}

} // namespace Database

#endif // DATABASE_UTF8_P_H
