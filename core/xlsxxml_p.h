#ifndef CORE_XLSXXML_P_H
#define CORE_XLSXXML_P_H

#include <QtGlobal>

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
};

// The value of the attribute name in namespace ns, or null.
const char *attribute(const char **attributes, Ns ns, const char *name);

bool parseXml(QIODevice &device, qint64 maxSize, XmlHandler &handler);

} // namespace Xlsx
} // namespace Core

#endif // CORE_XLSXXML_P_H
