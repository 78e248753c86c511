#ifndef CORE_XLSXXML_P_H
#define CORE_XLSXXML_P_H

// Two pull readers with one small interface for the worksheet and shared-string parts:
// StreamXml wraps QXmlStreamReader and reads any XML; FastXml scans UTF-8 bytes directly and
// is several times faster on the large parts, but gives up on documents with a DOCTYPE or
// another encoding (unsupported()), which the caller then hands to StreamXml.

#include <QByteArray>
#include <QIODevice>
#include <QString>
#include <QVector>
#include <QXmlStreamReader>

namespace Core {
namespace Xml {

enum class Token { Start, End, Other, Done, Error };

class StreamXml
{
public:
    explicit StreamXml(QXmlStreamReader &xml) : m_xml(xml) { }

    Token next();
    bool isName(QLatin1String localName) const { return m_xml.name() == localName; }
    bool attribute(QLatin1String localName, QString *value) const;
    QString elementText();
    void skipElement() { m_xml.skipCurrentElement(); }
    bool failed() const { return m_xml.hasError(); }

private:
    QXmlStreamReader &m_xml;
};

class FastXml
{
public:
    explicit FastXml(QIODevice *device) : m_device(device) { }

    // Reads the XML declaration; false when the document is unsupported or unreadable.
    bool begin();
    bool unsupported() const { return m_unsupported; }

    Token next();
    bool isName(QLatin1String localName) const;
    bool attribute(QLatin1String localName, QString *value) const;
    // At a start tag: the text of the element without its child elements; consumes the end tag.
    QString elementText();
    void skipElement();
    bool failed() const { return m_failed; }

private:
    bool fill();
    bool ensure(int bytes);
    int findFrom(const char *needle, int offset);
    int tagEnd();
    bool skipPast(const char *terminator, int offset);
    bool closeElement(int end);
    Token fail();
    QString decode(const char *data, int size) const;

    QIODevice *m_device;
    QByteArray m_buffer;
    int m_pos = 0;
    bool m_eof = false;
    // The current start tag without its angle brackets and closing slash.
    QByteArray m_tag;
    int m_localStart = 0;
    int m_nameEnd = 0;
    bool m_pendingEnd = false;
    // Names of the open elements, back to back.
    QByteArray m_stack;
    QVector<int> m_stackStarts;
    bool m_rootSeen = false;
    bool m_done = false;
    bool m_unsupported = false;
    mutable bool m_failed = false;
};

} // namespace Xml
} // namespace Core

#endif // CORE_XLSXXML_P_H
