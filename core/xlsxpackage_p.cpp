#include "xlsxpackage_p.h"

#include "handover_p.h"
#include "xlsxxml_p.h"

#include <quazipfile.h>
#include <quazipfileinfo.h>

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QObject>
#include <QUrl>

#include <cstring>
#include <system_error>
#include <thread>

namespace Core {
namespace Xlsx {

namespace {

// Inflated bytes of one part: a bomb fails here instead of running on. Real parts inflate to
// 5 to 30 times their size, identical rows without references to about 260 times, a deflate
// bomb to 1,000 times; the cap of a part held in memory does not bind a streamed one, which the
// grid bounds (2^26 cells of at most 1 KiB of XML on average).
constexpr qint64 MaxRatio = 512;
constexpr qint64 RatioFloor = qint64(64) << 20;
constexpr qint64 MaxHeldPartSize = qint64(1) << 30;
constexpr qint64 MaxStreamedPartSize = qint64(1) << 36;

// Inflates a part on a thread of its own, a few chunks ahead of the parser that reads it: the
// two take about a fifth and three quarters of the time of reading a large sheet.
class InflatingDevice : public QIODevice
{
public:
    explicit InflatingDevice(QuaZipFile &file) : m_file(file), m_chunks(MaxChunks)
    {
        open(QIODevice::ReadOnly | QIODevice::Unbuffered);
        try {
            m_thread = std::thread([this] { inflate(); });
        } catch (const std::system_error &) {
            m_direct = true; // no thread to be had: inflate as the parser asks
        }
    }
    ~InflatingDevice() override
    {
        m_chunks.stop();
        if (m_thread.joinable())
            m_thread.join();
    }
    bool isSequential() const override { return true; }

protected:
    qint64 readData(char *data, qint64 maxSize) override
    {
        if (m_direct)
            return m_file.read(data, maxSize);
        if (m_offset == m_chunk.size()) {
            m_offset = 0;
            m_chunk.clear();
            if (!m_chunks.take(&m_chunk))
                return m_chunks.failed() ? -1 : 0;
        }
        const int size = int(qMin<qint64>(maxSize, m_chunk.size() - m_offset));
        std::memcpy(data, m_chunk.constData() + m_offset, size_t(size));
        m_offset += size;
        return size;
    }
    qint64 writeData(const char *, qint64) override { return -1; }

private:
    static constexpr int ChunkSize = 1 << 18;
    static constexpr qint64 MaxChunks = 4;

    void inflate()
    {
        for (;;) {
            QByteArray chunk(ChunkSize, Qt::Uninitialized);
            const qint64 size = m_file.read(chunk.data(), ChunkSize);
            chunk.resize(int(qMax<qint64>(size, 0)));
            if (size <= 0 || !m_chunks.put(std::move(chunk), 1))
                return m_chunks.finish(size < 0);
        }
    }

    QuaZipFile &m_file;
    std::thread m_thread;
    HandOver<QByteArray> m_chunks;
    QByteArray m_chunk;
    int m_offset = 0;
    bool m_direct = false;
};

// Resolves a relationship target against the folder of the part that owns it.
QString resolveTarget(const QString &partName, const QString &target)
{
    const QString decoded = QUrl::fromPercentEncoding(target.toUtf8());
    if (decoded.startsWith(QLatin1Char('/')))
        return QDir::cleanPath(decoded.mid(1));
    const int slash = partName.lastIndexOf(QLatin1Char('/'));
    return QDir::cleanPath(partName.left(slash + 1) + decoded);
}

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

quint32 littleEndian(const QByteArray &bytes, int at, int size)
{
    quint32 value = 0;
    for (int i = size - 1; i >= 0; --i)
        value = value << 8 | uchar(bytes.at(at + i));
    return value;
}

// The names in the directory of an OLE2 compound file (the container of legacy and of
// password-protected workbooks), as far as its allocation table leads; bounded, so that a
// damaged file ends the walk.
QStringList compoundNames(QFile &file)
{
    const QByteArray header = file.read(512);
    const quint32 shift = littleEndian(header, 30, 2);
    if (header.size() < 512 || (shift != 9 && shift != 12))
        return {};
    const qint64 sectorSize = qint64(1) << shift;
    const quint32 perSector = quint32(sectorSize / 4);
    constexpr quint32 LastSector = 0xfffffff9;
    const auto sector = [&](quint32 number) {
        return file.seek((qint64(number) + 1) * sectorSize) ? file.read(sectorSize) : QByteArray();
    };
    // The sectors of the allocation table: 109 in the header, the rest in a chain of its own.
    QVector<quint32> table;
    for (int i = 0; i < 109; ++i)
        table.append(littleEndian(header, 76 + 4 * i, 4));
    quint32 extension = littleEndian(header, 68, 4);
    for (int n = 0; extension <= LastSector && n < 1024; ++n) {
        const QByteArray bytes = sector(extension);
        if (bytes.size() < sectorSize)
            break;
        for (quint32 i = 0; i + 1 < perSector; ++i)
            table.append(littleEndian(bytes, int(4 * i), 4));
        extension = littleEndian(bytes, int(sectorSize - 4), 4);
    }
    const auto next = [&](quint32 number) {
        const quint32 tableSector = number / perSector;
        if (int(tableSector) >= table.size() || table.at(int(tableSector)) > LastSector)
            return quint32(0xfffffffe);
        const QByteArray bytes = sector(table.at(int(tableSector)));
        const int at = int(number % perSector) * 4;
        return bytes.size() >= at + 4 ? littleEndian(bytes, at, 4) : quint32(0xfffffffe);
    };
    QStringList names;
    quint32 directory = littleEndian(header, 48, 4);
    for (int n = 0; directory <= LastSector && n < 4096; ++n) {
        const QByteArray bytes = sector(directory);
        for (int entry = 0; entry + 128 <= bytes.size(); entry += 128) {
            const int length = int(littleEndian(bytes, entry + 64, 2)) / 2 - 1; // without the 0
            if (bytes.at(entry + 66) == 0 || length < 1 || length > 31)
                continue;
            QString name;
            for (int i = 0; i < length; ++i)
                name += QChar(ushort(littleEndian(bytes, entry + 2 * i, 2)));
            names << name;
        }
        directory = next(directory);
    }
    return names;
}

} // namespace

QString describeNonArchive(const QString &path)
{
    const QFileInfo info(path);
    if (!info.exists())
        return QObject::tr("The file does not exist.");
    if (info.isDir())
        return QObject::tr("It is a directory, not a file.");
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return QObject::tr("The file cannot be read: %1.").arg(file.errorString());
    const QByteArray magic = file.read(8);
    if (magic == QByteArray::fromHex("d0cf11e0a1b11ae1")) {
        file.seek(0);
        const QStringList names = compoundNames(file);
        if (names.contains(QLatin1String("EncryptionInfo"))
            || names.contains(QLatin1String("EncryptedPackage")))
            return QObject::tr("The workbook is protected by a password; save a copy without the "
                               "password to import it.");
        if (names.contains(QLatin1String("Workbook")) || names.contains(QLatin1String("Book")))
            return QObject::tr("The file is a legacy binary .xls workbook; save it as .xlsx to "
                               "import it.");
        return QObject::tr("The file is an OLE2 compound document, not an .xlsx workbook.");
    }
    if (magic.startsWith("PK"))
        return QObject::tr("The zip archive is damaged or truncated.");
    return QObject::tr("The file is not a zip archive, so it is no .xlsx or .xlsm workbook.");
}

XlsxPackage::XlsxPackage(const QString &path) : m_path(path), m_zip(path) { }

// Opens the archive; false, with the reason, when it is none or an OpenDocument file.
bool XlsxPackage::open()
{
    if (!m_zip.open(QuaZip::mdUnzip)) {
        m_error = describeNonArchive(m_path);
        return false;
    }
    // An OpenDocument package names its kind in a first entry that .xlsx files do not have.
    if (m_zip.setCurrentFile(QStringLiteral("mimetype"))) {
        QuaZipFile file(&m_zip);
        if (file.open(QIODevice::ReadOnly)
            && file.read(64).startsWith("application/vnd.oasis.opendocument")) {
            m_error = QObject::tr("The file is an OpenDocument file, not an .xlsx workbook; save "
                                  "it as .xlsx to import it.");
            return false;
        }
    }
    return true;
}

// Parses one part; Failed when it cannot be inflated, is too large, fails its checksum or is no
// well-formed XML that the handler accepts.
XlsxPackage::Result XlsxPackage::read(const QString &partName, XmlHandler &handler, bool streamed)
{
    QuaZipFileInfo64 info;
    if (!m_zip.setCurrentFile(partName, QuaZip::csInsensitive) || !m_zip.getCurrentFileInfo(&info)) {
        m_error = QObject::tr("The workbook has no part %1.").arg(partName);
        return Result::Missing;
    }
    const qint64 byRatio = qMax(RatioFloor, qint64(qMin<quint64>(info.compressedSize, 1ULL << 40))
                                                    * MaxRatio);
    const qint64 maxSize = qMin(byRatio, streamed ? MaxStreamedPartSize : MaxHeldPartSize);
    QuaZipFile file(&m_zip);
    const QString damaged =
            QObject::tr("The part %1 is damaged: it cannot be inflated.").arg(partName);
    if (!file.open(QIODevice::ReadOnly)) {
        m_error = damaged;
        return Result::Failed;
    }
    XmlError error;
    {
        InflatingDevice device(file);
        parseXml(device, maxSize, handler, &error);
    }
    // The checksum is checked when the whole part has been read.
    file.close();
    using Kind = XmlError::Kind;
    if (error.kind == Kind::None && file.getZipError() == UNZ_OK)
        return Result::Read;
    QString where;
    switch (error.kind) {
    case Kind::Malformed:
        where = QObject::tr("The part %1 is not well-formed XML at line %2: %3.");
        break;
    case Kind::Damaged:
        where = QObject::tr("The part %1 is damaged at line %2: %3.");
        break;
    case Kind::Limit:
        where = QObject::tr("The part %1 passes a limit at line %2: %3.");
        break;
    case Kind::TooLarge:
        m_error = (maxSize == byRatio
                           ? QObject::tr("The part %1 passes a limit: it inflates to more than "
                                         "%2 times its compressed size.")
                                     .arg(partName)
                                     .arg(MaxRatio)
                           : QObject::tr("The part %1 passes a limit: it inflates to more than "
                                         "%2 GiB.")
                                     .arg(partName)
                                     .arg(maxSize >> 30));
        return Result::Failed;
    default:
        m_error = damaged;
        return Result::Failed;
    }
    m_error = where.arg(partName).arg(error.line).arg(error.detail);
    return Result::Failed;
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

} // namespace Xlsx
} // namespace Core
