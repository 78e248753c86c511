#ifndef CORE_XLSXXML_P_H
#define CORE_XLSXXML_P_H

#include <QString>

class QIODevice;

namespace Core {
namespace Xlsx {

// The namespaces the reader looks at; the transitional and the strict spelling of each map to
// one value. None is an unqualified name.
enum class Ns : quint8 { None, Other, Main, Relationships, PackageRelationships };

// Receives the events of one XML part. A false result stops the parse and fails it.
class XmlHandler
{
public:
    virtual ~XmlHandler() = default;
    // attributes: expat's null-terminated name/value array.
    virtual bool startElement(Ns ns, const char *name, const char **attributes) = 0;
    virtual bool endElement() { return true; }
    virtual bool characters(const char *, int) { return true; }

    // Set with a false result: why the part was refused, and whether a limit (rather than
    // damaged content) refused it.
    QString refusal;
    bool limitPassed = false;

    bool refuse(const QString &reason, bool limit = false)
    {
        refusal = reason;
        limitPassed = limit;
        return false;
    }
};

// Why a part failed to parse.
struct XmlError
{
    enum class Kind { None, Unreadable, TooLarge, Malformed, Damaged, Limit };
    Kind kind = Kind::None;
    qint64 line = 0;
    QString detail; // expat's text or the handler's refusal
};

// The value of the attribute name in namespace ns, or null.
const char *attribute(const char **attributes, Ns ns, const char *name);

bool parseXml(QIODevice &device, qint64 maxSize, XmlHandler &handler, XmlError *error);

} // namespace Xlsx
} // namespace Core

#endif // CORE_XLSXXML_P_H
