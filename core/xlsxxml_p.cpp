#include "xlsxxml_p.h"
#include "vectorstate_p.h"

#include <QIODevice>
#include <QObject>

// The amplification limits are declared only for a parser built with DTD support, as Debian's is.
#ifndef XML_DTD
#define XML_DTD
#endif
#include <expat.h>

#include <cstring>

namespace Core {
namespace Xlsx {

namespace {

// Expat names a qualified element or attribute "namespace<Separator>local".
constexpr char Separator = '\x01';
constexpr int ChunkSize = 1 << 16;
// Entities may not multiply the input: a legitimate part has no reason to declare any.
constexpr float MaxAmplification = 10.0f;
constexpr unsigned long long AmplificationThreshold = 1 << 20;

struct NamespaceUri
{
    const char *uri;
    size_t size;
    Ns ns;
};

#define ZQ_URI(text) text, sizeof(text) - 1
const NamespaceUri Namespaces[] = {
    {ZQ_URI("http://schemas.openxmlformats.org/spreadsheetml/2006/main"), Ns::Main},
    {ZQ_URI("http://purl.oclc.org/ooxml/spreadsheetml/main"), Ns::Main},
    {ZQ_URI("http://schemas.openxmlformats.org/officeDocument/2006/relationships"),
     Ns::Relationships},
    {ZQ_URI("http://purl.oclc.org/ooxml/officeDocument/relationships"), Ns::Relationships},
    {ZQ_URI("http://schemas.openxmlformats.org/package/2006/relationships"),
     Ns::PackageRelationships},
};
#undef ZQ_URI

// Splits an expat name into its namespace and local name.
Ns splitName(const char *name, const char **local)
{
    for (const NamespaceUri &known : Namespaces) {
        if (std::strncmp(known.uri, name, known.size) == 0 && name[known.size] == Separator) {
            *local = name + known.size + 1;
            return known.ns;
        }
    }
    const char *separator = std::strchr(name, Separator);
    *local = separator ? separator + 1 : name;
    return separator ? Ns::Other : Ns::None;
}

struct Context
{
    XML_Parser parser;
    XmlHandler *handler;
    bool undefinedEntity;
};

void stopIf(bool failed, void *data)
{
    if (failed)
        XML_StopParser(static_cast<Context *>(data)->parser, XML_FALSE);
}

void XMLCALL onStart(void *data, const XML_Char *name, const XML_Char **attributes)
{
    const char *local;
    const Ns ns = splitName(name, &local);
    stopIf(!static_cast<Context *>(data)->handler->startElement(ns, local, attributes), data);
}

void XMLCALL onEnd(void *data, const XML_Char *)
{
    stopIf(!static_cast<Context *>(data)->handler->endElement(), data);
}

void XMLCALL onText(void *data, const XML_Char *text, int size)
{
    stopIf(!static_cast<Context *>(data)->handler->characters(text, size), data);
}

// An entity that cannot be expanded is an error, not an empty string.
void XMLCALL onSkippedEntity(void *data, const XML_Char *, int)
{
    static_cast<Context *>(data)->undefinedEntity = true;
    stopIf(true, data);
}

int XMLCALL onExternalEntity(XML_Parser, const XML_Char *, const XML_Char *, const XML_Char *,
                             const XML_Char *)
{
    return XML_STATUS_ERROR;
}

} // namespace

const char *attribute(const char **attributes, Ns ns, const char *name)
{
    // A qualified name holds its namespace and the separator, so it never equals a plain one.
    for (; ns == Ns::None && *attributes; attributes += 2) {
        if (std::strcmp(*attributes, name) == 0)
            return attributes[1];
    }
    for (; *attributes; attributes += 2) {
        const char *local;
        if (splitName(*attributes, &local) == ns && std::strcmp(local, name) == 0)
            return attributes[1];
    }
    return nullptr;
}

// Streams at most maxSize bytes of the device through expat with namespace processing; false,
// with the reason in *error, when the part is larger, not well-formed, multiplies itself through
// entities, or the handler refuses it.
bool parseXml(QIODevice &device, qint64 maxSize, XmlHandler &handler, XmlError *error)
{
    *error = XmlError();
    const XML_Parser parser = XML_ParserCreateNS(nullptr, Separator);
    if (!parser) {
        error->kind = XmlError::Kind::Limit;
        error->detail = QObject::tr("no memory for an XML parser");
        return false;
    }
    Context context{parser, &handler, false};
    XML_SetUserData(parser, &context);
    XML_SetElementHandler(parser, onStart, onEnd);
    XML_SetCharacterDataHandler(parser, onText);
    XML_SetSkippedEntityHandler(parser, onSkippedEntity);
    XML_SetExternalEntityRefHandler(parser, onExternalEntity);
    bool ok = XML_SetBillionLaughsAttackProtectionMaximumAmplification(parser, MaxAmplification)
            && XML_SetBillionLaughsAttackProtectionActivationThreshold(parser,
                                                                       AmplificationThreshold);
    qint64 total = 0;
    for (bool last = false; ok && !last;) {
        void *buffer = XML_GetBuffer(parser, ChunkSize);
        const qint64 size = buffer ? device.read(static_cast<char *>(buffer), ChunkSize) : -1;
        total += size;
        last = size == 0;
        clearUpperVectorState(); // inflating reads through Qt

        if (size < 0) {
            error->kind = buffer ? XmlError::Kind::Unreadable : XmlError::Kind::Limit;
            error->detail = buffer ? QString() : QObject::tr("no memory for the XML text");
            break;
        }
        if (total > maxSize) {
            error->kind = XmlError::Kind::TooLarge;
            break;
        }
        ok = XML_ParseBuffer(parser, int(size), last) == XML_STATUS_OK;
    }
    if (error->kind == XmlError::Kind::None && !ok) {
        error->line = qint64(XML_GetCurrentLineNumber(parser));
        const XML_Error code = XML_GetErrorCode(parser);
        if (code == XML_ERROR_ABORTED && context.undefinedEntity) {
            error->kind = XmlError::Kind::Malformed;
            error->detail = QObject::tr("undefined entity");
        } else if (code == XML_ERROR_ABORTED) {
            error->kind = handler.limitPassed ? XmlError::Kind::Limit : XmlError::Kind::Damaged;
            error->detail = handler.refusal;
        } else if (code == XML_ERROR_AMPLIFICATION_LIMIT_BREACH) {
            error->kind = XmlError::Kind::Limit;
            error->detail = QObject::tr("entities multiply the text");
        } else {
            error->kind = XmlError::Kind::Malformed;
            error->detail = QString::fromUtf8(XML_ErrorString(code));
        }
    }
    XML_ParserFree(parser);
    return error->kind == XmlError::Kind::None;
}

} // namespace Xlsx
} // namespace Core
