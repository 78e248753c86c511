#include "xlsxpackage_p.h"

#include "xlsxxml_p.h"

#include <quazipfile.h>

#include <QDir>
#include <QUrl>

#include <cstring>

namespace Core {
namespace Xlsx {

namespace {

// Inflated bytes of one part: a bomb fails here instead of running on.
constexpr qint64 MaxPartSize = qint64(1) << 30;

class RelationshipsHandler : public XmlHandler
{
public:
    RelationshipsHandler(const QString &partName, QHash<QString, Relationship> *relationships)
        : m_partName(partName), m_relationships(relationships)
    {
    }

    bool startElement(Ns ns, const char *name, const char **attributes) override
    {
        if (ns != Ns::PackageRelationships || std::strcmp(name, "Relationship") != 0)
            return true;
        const char *mode = attribute(attributes, Ns::None, "TargetMode");
        if (mode && std::strcmp(mode, "External") == 0)
            return true;
        const char *id = attribute(attributes, Ns::None, "Id");
        const char *target = attribute(attributes, Ns::None, "Target");
        const char *type = attribute(attributes, Ns::None, "Type");
        if (!id || !target || !type)
            return true;
        m_relationships->insert(QString::fromUtf8(id),
                                {resolveTarget(m_partName, QString::fromUtf8(target)),
                                 QString::fromUtf8(type)});
        return true;
    }

private:
    QString m_partName;
    QHash<QString, Relationship> *m_relationships;
};

} // namespace

XlsxPackage::XlsxPackage(const QString &path) : m_zip(path) { }

bool XlsxPackage::open()
{
    return m_zip.open(QuaZip::mdUnzip);
}

// Parses one part; Failed when it cannot be inflated, is too large, fails its checksum or is no
// well-formed XML that the handler accepts.
XlsxPackage::Result XlsxPackage::read(const QString &partName, XmlHandler &handler)
{
    if (!m_zip.setCurrentFile(partName, QuaZip::csInsensitive))
        return Result::Missing;
    QuaZipFile file(&m_zip);
    if (!file.open(QIODevice::ReadOnly))
        return Result::Failed;
    const bool parsed = parseXml(file, MaxPartSize, handler);
    // The checksum is checked when the whole part has been read.
    file.close();
    return parsed && file.getZipError() == UNZ_OK ? Result::Read : Result::Failed;
}

XlsxPackage::Result XlsxPackage::relationships(const QString &partName,
                                               QHash<QString, Relationship> *relationships)
{
    const int slash = partName.lastIndexOf(QLatin1Char('/'));
    const QString relsName = partName.left(slash + 1) + QLatin1String("_rels/")
            + partName.mid(slash + 1) + QLatin1String(".rels");
    RelationshipsHandler handler(partName, relationships);
    return read(relsName, handler);
}

// Resolves a relationship target against the folder of the part that owns it.
QString resolveTarget(const QString &partName, const QString &target)
{
    const QString decoded = QUrl::fromPercentEncoding(target.toUtf8());
    if (decoded.startsWith(QLatin1Char('/')))
        return QDir::cleanPath(decoded.mid(1));
    const int slash = partName.lastIndexOf(QLatin1Char('/'));
    return QDir::cleanPath(partName.left(slash + 1) + decoded);
}

} // namespace Xlsx
} // namespace Core
