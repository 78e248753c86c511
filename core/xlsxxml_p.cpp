#include "xlsxxml_p.h"

#include <cstring>

namespace Core {
namespace Xml {

namespace {

constexpr int Chunk = 256 * 1024;
// Longest single tag or text run held at once; cell texts are far shorter.
constexpr int MaxToken = 16 * 1024 * 1024;

bool isSpace(char c)
{
    return c == ' ' || c == '\t' || c == '\n' || c == '\r';
}

// Appends the UTF-8 encoding of a code point.
void appendUtf8(QByteArray *out, uint code)
{
    if (code < 0x80) {
        out->append(char(code));
    } else if (code < 0x800) {
        out->append(char(0xC0 | (code >> 6)));
        out->append(char(0x80 | (code & 0x3F)));
    } else if (code < 0x10000) {
        out->append(char(0xE0 | (code >> 12)));
        out->append(char(0x80 | ((code >> 6) & 0x3F)));
        out->append(char(0x80 | (code & 0x3F)));
    } else {
        out->append(char(0xF0 | (code >> 18)));
        out->append(char(0x80 | ((code >> 12) & 0x3F)));
        out->append(char(0x80 | ((code >> 6) & 0x3F)));
        out->append(char(0x80 | (code & 0x3F)));
    }
}

} // namespace

Token StreamXml::next()
{
    switch (m_xml.readNext()) {
    case QXmlStreamReader::StartElement:
        return Token::Start;
    case QXmlStreamReader::EndElement:
        return Token::End;
    case QXmlStreamReader::EndDocument:
        return Token::Done;
    case QXmlStreamReader::Invalid:
        return Token::Error;
    default:
        return Token::Other;
    }
}

bool StreamXml::attribute(QLatin1String localName, QString *value) const
{
    const QXmlStreamAttributes attributes = m_xml.attributes();
    for (const QXmlStreamAttribute &a : attributes) {
        if (a.name() == localName) {
            *value = a.value().toString();
            return true;
        }
    }
    return false;
}

QString StreamXml::elementText()
{
    return m_xml.readElementText(QXmlStreamReader::SkipChildElements);
}

// Keeps the unread bytes and appends the next chunk; false at the end of the input.
bool FastXml::fill()
{
    if (m_eof)
        return false;
    if (m_buffer.size() - m_pos > MaxToken) {
        m_failed = true;
        return false;
    }
    if (m_pos > 0) {
        m_buffer.remove(0, m_pos);
        m_pos = 0;
    }
    const int old = m_buffer.size();
    m_buffer.resize(old + Chunk);
    const qint64 n = m_device->read(m_buffer.data() + old, Chunk);
    m_buffer.resize(old + int(qMax<qint64>(n, 0)));
    if (n <= 0) {
        m_eof = true;
        return false;
    }
    return true;
}

bool FastXml::ensure(int bytes)
{
    while (m_buffer.size() - m_pos < bytes) {
        if (!fill())
            return false;
    }
    return true;
}

// Index of needle at or after m_pos + offset, reading on as needed; -1 when absent.
int FastXml::findFrom(const char *needle, int offset)
{
    for (;;) {
        const int index = m_buffer.indexOf(needle, m_pos + offset);
        if (index >= 0)
            return index;
        const int consumed = m_buffer.size() - m_pos;
        if (!fill())
            return -1;
        // Resume near the old end; the needle may straddle the boundary.
        offset = qMax(offset, consumed - int(std::strlen(needle)));
    }
}

// Index of the '>' closing the tag at m_pos, quotes respected; -1 when it never closes.
int FastXml::tagEnd()
{
    int i = m_pos + 1;
    char quote = 0;
    for (;;) {
        const char *data = m_buffer.constData();
        const int size = m_buffer.size();
        for (; i < size; ++i) {
            const char c = data[i];
            if (quote) {
                if (c == quote)
                    quote = 0;
            } else if (c == '"' || c == '\'') {
                quote = c;
            } else if (c == '>') {
                return i;
            } else if (c == '<') {
                return -1;
            }
        }
        const int offset = i - m_pos;
        if (!fill())
            return -1;
        i = m_pos + offset;
    }
}

bool FastXml::skipPast(const char *terminator, int offset)
{
    const int index = findFrom(terminator, offset);
    if (index < 0)
        return false;
    m_pos = index + int(std::strlen(terminator));
    return true;
}

Token FastXml::fail()
{
    m_failed = true;
    return Token::Error;
}

bool FastXml::begin()
{
    ensure(4);
    const QByteArray head = m_buffer.left(4);
    if (head.startsWith("\xEF\xBB\xBF"))
        m_pos = 3;
    else if (head.size() >= 2 && (head.at(0) == 0 || head.at(1) == 0 || uchar(head.at(0)) >= 0xFE))
        m_unsupported = true; // UTF-16 or UTF-32
    if (m_unsupported)
        return false;
    if (ensure(5) && m_buffer.mid(m_pos, 5) == "<?xml") {
        const int end = findFrom("?>", 0);
        if (end < 0)
            return !(m_failed = true);
        const QByteArray declaration = m_buffer.mid(m_pos, end - m_pos).toLower();
        const int encoding = declaration.indexOf("encoding");
        if (encoding >= 0) {
            const QByteArray rest = declaration.mid(encoding + 8);
            if (!rest.contains("utf-8") && !rest.contains("utf8")) {
                m_unsupported = true;
                return false;
            }
        }
        m_pos = end + 2;
    }
    return true;
}

Token FastXml::next()
{
    if (m_failed)
        return Token::Error;
    if (m_pendingEnd) {
        m_pendingEnd = false;
        m_stack.truncate(m_stackStarts.takeLast());
        m_done = m_stackStarts.isEmpty();
        return Token::End;
    }
    if (m_done)
        return Token::Done;
    for (;;) {
        const int lt = m_buffer.indexOf('<', m_pos);
        if (lt < 0) {
            m_pos = m_buffer.size();
            if (!fill())
                return fail(); // the root never closed
            continue;
        }
        m_pos = lt;
        ensure(9);
        const char *p = m_buffer.constData() + m_pos;
        const int available = m_buffer.size() - m_pos;
        auto startsWith = [&](const char *prefix) {
            const int n = int(std::strlen(prefix));
            return available >= n && std::memcmp(p, prefix, size_t(n)) == 0;
        };
        if (startsWith("<?")) {
            if (!skipPast("?>", 2))
                return fail();
            continue;
        }
        if (startsWith("<!--")) {
            if (!skipPast("-->", 4))
                return fail();
            continue;
        }
        if (startsWith("<![CDATA[")) {
            if (!m_rootSeen || !skipPast("]]>", 9))
                return fail();
            continue;
        }
        if (startsWith("<!")) {
            // A document type may declare entities: leave it to the full parser.
            m_unsupported = !m_rootSeen;
            return fail();
        }
        const bool endTag = startsWith("</");
        const int end = tagEnd();
        if (end < 0)
            return fail();
        if (endTag) {
            if (!closeElement(end))
                return fail();
            return Token::End;
        }
        if (m_done)
            return fail(); // a second root
        int size = end - m_pos - 1;
        const bool selfClosing = size > 0 && m_buffer.at(end - 1) == '/';
        if (selfClosing)
            --size;
        m_tag.resize(size);
        std::memcpy(m_tag.data(), m_buffer.constData() + m_pos + 1, size_t(size));
        int nameEnd = 0;
        while (nameEnd < size && !isSpace(m_tag.at(nameEnd)))
            ++nameEnd;
        if (nameEnd == 0)
            return fail();
        m_nameEnd = nameEnd;
        m_localStart = m_tag.lastIndexOf(':', nameEnd - 1) + 1;
        m_stackStarts.append(m_stack.size());
        m_stack.append(m_tag.constData(), nameEnd);
        m_rootSeen = true;
        m_pendingEnd = selfClosing;
        m_pos = end + 1;
        return Token::Start;
    }
}

// Consumes the end tag at m_pos (ending at end) if it closes the innermost open element.
bool FastXml::closeElement(int end)
{
    int nameStart = m_pos + 2;
    int nameEnd = end;
    while (nameEnd > nameStart && isSpace(m_buffer.at(nameEnd - 1)))
        --nameEnd;
    if (m_stackStarts.isEmpty())
        return false;
    const int top = m_stackStarts.last();
    const int length = m_stack.size() - top;
    if (nameEnd - nameStart != length
        || std::memcmp(m_buffer.constData() + nameStart, m_stack.constData() + top, size_t(length)) != 0)
        return false;
    m_stack.truncate(top);
    m_stackStarts.removeLast();
    m_done = m_stackStarts.isEmpty();
    m_pos = end + 1;
    return true;
}

bool FastXml::isName(QLatin1String localName) const
{
    const int length = m_nameEnd - m_localStart;
    return length == localName.size()
            && std::memcmp(m_tag.constData() + m_localStart, localName.data(), size_t(length)) == 0;
}

bool FastXml::attribute(QLatin1String localName, QString *value) const
{
    const char *data = m_tag.constData();
    const int size = m_tag.size();
    int i = m_nameEnd;
    for (;;) {
        while (i < size && isSpace(data[i]))
            ++i;
        if (i >= size)
            return false;
        const int nameStart = i;
        int localStart = i;
        while (i < size && data[i] != '=' && !isSpace(data[i])) {
            if (data[i] == ':')
                localStart = i + 1;
            ++i;
        }
        const int nameEnd = i;
        while (i < size && isSpace(data[i]))
            ++i;
        if (i >= size || data[i] != '=' || nameEnd == nameStart)
            return !(m_failed = true);
        ++i;
        while (i < size && isSpace(data[i]))
            ++i;
        if (i >= size || (data[i] != '"' && data[i] != '\''))
            return !(m_failed = true);
        const char quote = data[i++];
        const int valueStart = i;
        while (i < size && data[i] != quote)
            ++i;
        if (i >= size)
            return !(m_failed = true);
        const int length = nameEnd - localStart;
        if (length == localName.size()
            && std::memcmp(data + localStart, localName.data(), size_t(length)) == 0) {
            *value = decode(data + valueStart, i - valueStart);
            return !m_failed;
        }
        ++i;
    }
}

// Decodes UTF-8 text with character and entity references; XML line ends become '\n'.
QString FastXml::decode(const char *data, int size) const
{
    if (!std::memchr(data, '&', size_t(size)) && !std::memchr(data, '\r', size_t(size)))
        return QString::fromUtf8(data, size);
    QByteArray out;
    out.reserve(size);
    for (int i = 0; i < size; ++i) {
        const char c = data[i];
        if (c == '\r') {
            out.append('\n');
            if (i + 1 < size && data[i + 1] == '\n')
                ++i;
            continue;
        }
        if (c != '&') {
            out.append(c);
            continue;
        }
        const char *semicolon = static_cast<const char *>(std::memchr(data + i, ';', size_t(size - i)));
        if (!semicolon || semicolon - (data + i) > 12) {
            m_failed = true;
            return QString();
        }
        const QByteArray name(data + i + 1, int(semicolon - data - i - 1));
        i = int(semicolon - data);
        if (name == "amp") {
            out.append('&');
        } else if (name == "lt") {
            out.append('<');
        } else if (name == "gt") {
            out.append('>');
        } else if (name == "quot") {
            out.append('"');
        } else if (name == "apos") {
            out.append('\'');
        } else if (name.startsWith('#')) {
            bool ok = false;
            const uint code = name.startsWith("#x") ? name.mid(2).toUInt(&ok, 16)
                                                     : name.mid(1).toUInt(&ok, 10);
            if (!ok || code == 0 || code > 0x10FFFF || (code >= 0xD800 && code <= 0xDFFF)) {
                m_failed = true;
                return QString();
            }
            appendUtf8(&out, code);
        } else {
            m_failed = true;
            return QString();
        }
    }
    return QString::fromUtf8(out);
}

QString FastXml::elementText()
{
    if (m_pendingEnd) {
        next();
        return QString();
    }
    QString text;
    for (;;) {
        int lt;
        while ((lt = m_buffer.indexOf('<', m_pos)) < 0) {
            if (!fill()) {
                m_failed = true;
                return text;
            }
        }
        if (lt > m_pos)
            text += decode(m_buffer.constData() + m_pos, lt - m_pos);
        m_pos = lt;
        ensure(9);
        const char *p = m_buffer.constData() + m_pos;
        const int available = m_buffer.size() - m_pos;
        if (available >= 2 && p[1] == '/') {
            const int end = tagEnd();
            if (end < 0 || !closeElement(end))
                m_failed = true;
            return text;
        }
        if (available >= 9 && std::memcmp(p, "<![CDATA[", 9) == 0) {
            const int end = findFrom("]]>", 9);
            if (end < 0) {
                m_failed = true;
                return text;
            }
            text += QString::fromUtf8(m_buffer.constData() + m_pos + 9, end - m_pos - 9);
            m_pos = end + 3;
            continue;
        }
        if (available >= 4 && std::memcmp(p, "<!--", 4) == 0) {
            if (!skipPast("-->", 4))
                m_failed = true;
        } else if (available >= 2 && p[1] == '?') {
            if (!skipPast("?>", 2))
                m_failed = true;
        } else if (next() == Token::Start) {
            skipElement(); // child elements do not count
        } else {
            m_failed = true;
        }
        if (m_failed)
            return text;
    }
}

void FastXml::skipElement()
{
    int depth = 1;
    while (depth > 0) {
        const Token token = next();
        if (token == Token::Start)
            ++depth;
        else if (token == Token::End)
            --depth;
        else if (token != Token::Other)
            return;
    }
}

} // namespace Xml
} // namespace Core
