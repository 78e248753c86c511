#include "xlsxreader.h"

#include "xlsxxml_p.h"

#include <quazip.h>
#include <quazipfile.h>

#include <QDate>
#include <QDir>
#include <QHash>
#include <QIODevice>
#include <QLocale>
#include <QUrl>
#include <QVector>
#include <QXmlStreamReader>

#include <algorithm>
#include <cmath>
#include <functional>
#include <vector>

namespace Core {

namespace {

// Bounds that keep a hostile or broken file from exhausting memory or time.
constexpr qint64 MaxPartSize = qint64(1) << 30; // inflated bytes of one XML part
constexpr int MaxRows = 1048576;                // the grid of the format itself
constexpr int MaxColumns = 16384;
constexpr qint64 MaxArea = qint64(1) << 25;     // cells a reader of the data area may walk
constexpr qint64 MaxCells = qint64(1) << 25;    // stored cells, duplicates included
constexpr qint64 MaxTextSize = qint64(1) << 28; // UTF-16 units kept for all texts

using XmlParser = std::function<bool(QXmlStreamReader &)>;
using DeviceParser = std::function<bool(QIODevice &)>;
using Xml::Token;

// A slice of the text pool.
struct Span
{
    quint32 pos;
    quint32 size;
};

struct Cell
{
    qint32 row;
    qint32 column;
    Span text;
};

bool cellBefore(const Cell &a, const Cell &b)
{
    return a.row != b.row ? a.row < b.row : a.column < b.column;
}

// How a number is shown: as a number, a date (with its time when that is not midnight),
// a time of day, or an elapsed time in hours.
enum class Display : quint8 { Number, Date, Time, Duration };

// Passes at most a fixed number of bytes of a source device; a part that inflates beyond
// it reads as broken, so the XML parse fails instead of running on.
class LimitedDevice : public QIODevice
{
public:
    LimitedDevice(QIODevice *source, qint64 limit) : m_source(source), m_limit(limit) { }
    bool exceeded() const { return m_exceeded; }
    bool isSequential() const override { return true; }

protected:
    qint64 readData(char *data, qint64 maxSize) override
    {
        if (m_exceeded)
            return -1;
        const qint64 n = m_source->read(data, qMin(maxSize, m_limit - m_total + 1));
        if (n > 0)
            m_total += n;
        if (m_total > m_limit) {
            m_exceeded = true;
            return -1;
        }
        return n;
    }
    qint64 writeData(const char *, qint64) override { return -1; }

private:
    QIODevice *m_source;
    qint64 m_limit;
    qint64 m_total = 0;
    bool m_exceeded = false;
};

bool isElement(const QXmlStreamReader &xml, QLatin1String name)
{
    return xml.name() == name;
}

// The value of an attribute by local name, whatever its namespace prefix.
QStringRef attribute(const QXmlStreamReader &xml, QLatin1String name)
{
    const QXmlStreamAttributes attributes = xml.attributes();
    for (const QXmlStreamAttribute &a : attributes) {
        if (a.name() == name)
            return a.value();
    }
    return QStringRef();
}

bool isTrue(const QStringRef &value)
{
    return value == QLatin1String("1") || value == QLatin1String("true");
}

// Undoes the _xHHHH_ escapes the format uses for characters XML cannot carry.
QString unescape(const QString &text)
{
    if (!text.contains(QLatin1String("_x")))
        return text;
    QString result;
    result.reserve(text.size());
    const int size = text.size();
    for (int i = 0; i < size; ++i) {
        if (text.at(i) == QLatin1Char('_') && i + 6 < size && text.at(i + 1) == QLatin1Char('x')
            && text.at(i + 6) == QLatin1Char('_')) {
            bool ok = false;
            const ushort code = text.midRef(i + 2, 4).toUShort(&ok, 16);
            if (ok) {
                result += QChar(code);
                i += 6;
                continue;
            }
        }
        result += text.at(i);
    }
    return result;
}

// Parses "C7" into zero-based row and column. Returns false when the text is no reference or
// lies outside the grid.
bool parseReference(const QStringRef &ref, int *row, int *column)
{
    const int size = ref.size();
    int i = 0;
    qint64 col = 0;
    while (i < size) {
        const ushort c = ref.at(i).unicode();
        int digit;
        if (c >= 'A' && c <= 'Z')
            digit = c - 'A' + 1;
        else if (c >= 'a' && c <= 'z')
            digit = c - 'a' + 1;
        else
            break;
        col = col * 26 + digit;
        if (col > MaxColumns)
            return false;
        ++i;
    }
    if (i == 0 || i == size)
        return false;
    qint64 r = 0;
    for (; i < size; ++i) {
        const ushort c = ref.at(i).unicode();
        if (c < '0' || c > '9')
            return false;
        r = r * 10 + (c - '0');
        if (r > MaxRows)
            return false;
    }
    if (r < 1)
        return false;
    *row = int(r - 1);
    *column = int(col - 1);
    return true;
}

// A run of one date or time code letter in a format, with whether it stood in brackets.
struct FormatCode
{
    char letter;
    bool elapsed;
};

// Classifies a custom number format by the date and time codes of its first section, outside
// quoted text, escapes and bracketed colours or conditions.
Display classifyFormat(const QString &format)
{
    std::vector<FormatCode> codes;
    const int size = format.size();
    for (int i = 0; i < size; ++i) {
        const QChar c = format.at(i);
        if (c == QLatin1Char(';'))
            break;
        if (c == QLatin1Char('"')) {
            const int end = format.indexOf(QLatin1Char('"'), i + 1);
            i = end < 0 ? size : end;
            continue;
        }
        if (c == QLatin1Char('\\') || c == QLatin1Char('_') || c == QLatin1Char('*')) {
            ++i;
            continue;
        }
        if (c == QLatin1Char('[')) {
            const int end = format.indexOf(QLatin1Char(']'), i + 1);
            const QString inner = format.mid(i + 1, (end < 0 ? size : end) - i - 1).toLower();
            const QChar first = inner.isEmpty() ? QChar() : inner.at(0);
            if (first == QLatin1Char('h') || first == QLatin1Char('m') || first == QLatin1Char('s')) {
                if (inner.count(first) == inner.size())
                    codes.push_back({char(first.unicode()), true});
            }
            i = end < 0 ? size : end;
            continue;
        }
        if (format.midRef(i, 5).compare(QLatin1String("am/pm"), Qt::CaseInsensitive) == 0) {
            i += 4;
            continue;
        }
        if (format.midRef(i, 3).compare(QLatin1String("a/p"), Qt::CaseInsensitive) == 0) {
            i += 2;
            continue;
        }
        const char letter = c.unicode() < 128 ? char(c.toLower().unicode()) : '\0';
        if (letter != 'y' && letter != 'm' && letter != 'd' && letter != 'h' && letter != 's')
            continue;
        const bool continues = i > 0 && format.at(i - 1).toLower() == c.toLower();
        if (!continues || codes.empty() || codes.back().letter != letter)
            codes.push_back({letter, false});
    }

    bool date = false;
    bool time = false;
    bool elapsed = false;
    for (size_t k = 0; k < codes.size(); ++k) {
        elapsed = elapsed || codes[k].elapsed;
        switch (codes[k].letter) {
        case 'y':
        case 'd':
            date = true;
            break;
        case 'h':
        case 's':
            time = true;
            break;
        case 'm': {
            // Minutes follow hours or precede seconds; otherwise it is the month.
            const bool minute = codes[k].elapsed || (k > 0 && codes[k - 1].letter == 'h')
                    || (k + 1 < codes.size() && codes[k + 1].letter == 's');
            (minute ? time : date) = true;
            break;
        }
        }
    }
    if (date)
        return Display::Date;
    if (elapsed)
        return Display::Duration;
    return time ? Display::Time : Display::Number;
}

// Built-in formats, the East Asian locale ones (27-36, 50-58) included.
Display builtinDisplay(int id)
{
    if ((id >= 14 && id <= 17) || id == 22 || (id >= 27 && id <= 31) || id == 36
        || (id >= 50 && id <= 54) || id == 57 || id == 58)
        return Display::Date;
    if ((id >= 18 && id <= 21) || id == 45 || id == 47 || (id >= 32 && id <= 35) || id == 55
        || id == 56)
        return Display::Time;
    if (id == 46)
        return Display::Duration;
    return Display::Number;
}

// Shortest text that reads back as the same double, without an exponent for the magnitudes
// people type.
QString numberText(double value)
{
    if (value == 0)
        return QStringLiteral("0");
    const double magnitude = std::fabs(value);
    const char format = magnitude >= 1e-5 && magnitude < 1e15 ? 'f' : 'g';
    return QString::number(value, format, QLocale::FloatingPointShortest);
}

QString clockText(qint64 hours, int minutes, int seconds)
{
    return QStringLiteral("%1:%2:%3")
            .arg(hours, 2, 10, QLatin1Char('0'))
            .arg(minutes, 2, 10, QLatin1Char('0'))
            .arg(seconds, 2, 10, QLatin1Char('0'));
}

// Renders a date serial; empty when the value is no representable date.
QString serialText(double serial, Display display, bool date1904)
{
    // Beyond 9999-12-31 and below the epoch the format shows no date either.
    if (!(serial >= 0 && serial < 2958466))
        return QString();
    const qint64 total = std::llround(serial * 86400.0);
    const qint64 days = total / 86400;
    const int secondOfDay = int(total % 86400);
    const int hour = secondOfDay / 3600;
    const int minute = secondOfDay / 60 % 60;
    const int second = secondOfDay % 60;
    if (display == Display::Duration)
        return clockText(total / 3600, minute, second);
    if (display == Display::Time)
        return clockText(hour, minute, second);

    QString text;
    if (date1904) {
        text = QDate(1904, 1, 1).addDays(days).toString(QStringLiteral("yyyy-MM-dd"));
    } else if (days == 60) {
        // The 1900 system counts a 29 February that never was.
        text = QStringLiteral("1900-02-29");
    } else {
        const QDate epoch = days < 60 ? QDate(1899, 12, 31) : QDate(1899, 12, 30);
        text = epoch.addDays(days).toString(QStringLiteral("yyyy-MM-dd"));
    }
    if (text.size() != 10)
        return QString();
    if (secondOfDay != 0)
        text += QLatin1Char('T') + clockText(hour, minute, second);
    return text;
}

// Resolves a relationship target against the folder of the part that owns it.
QString resolveTarget(const QString &partName, const QString &target)
{
    const QString decoded = QUrl::fromPercentEncoding(target.toUtf8());
    if (decoded.startsWith(QLatin1Char('/')))
        return QDir::cleanPath(decoded.mid(1));
    const int slash = partName.lastIndexOf(QLatin1Char('/'));
    const QString folder = slash < 0 ? QString() : partName.left(slash + 1);
    return QDir::cleanPath(folder + decoded);
}

} // namespace

class XlsxReaderPrivate
{
public:
    bool load(const QString &path);
    void clear();

    bool readDevice(QuaZip &zip, const QString &name, const DeviceParser &parse);
    bool readPart(QuaZip &zip, const QString &name, const XmlParser &parse);
    bool readRelationships(QuaZip &zip, const QString &partName, QHash<QString, QString> *targets,
                           QHash<QString, QString> *types);
    bool readWorkbook(QXmlStreamReader &xml);
    bool readStyles(QXmlStreamReader &xml);
    template<typename Parse>
    bool readLargePart(QuaZip &zip, const QString &name, const Parse &parse);
    template<typename Reader> bool readSharedStrings(Reader &xml);
    template<typename Reader> bool readSheet(Reader &xml);
    template<typename Reader> bool readRow(Reader &xml, int row);
    template<typename Reader> bool readCell(Reader &xml, int row, int *nextColumn);
    template<typename Reader> bool readRichText(Reader &xml, Span *span);
    bool appendText(const QString &text, Span *span);
    QString valueText(const QString &type, const QString &value, int style) const;
    bool finish();

    // All cell and shared string texts, back to back.
    QString pool;
    QVector<Span> sharedStrings;
    // Display of each cell format (cellXfs), by the index cells refer to.
    QVector<Display> styleDisplays;
    QStringList sheetIds;
    bool date1904 = false;

    // Cells sorted by row and column, and the first cell of every row.
    std::vector<Cell> cells;
    QVector<quint32> rowStarts;
    bool sorted = true;
    int rows = 0;
    int columns = 0;
};

void XlsxReaderPrivate::clear()
{
    pool.clear();
    sharedStrings.clear();
    styleDisplays.clear();
    sheetIds.clear();
    date1904 = false;
    cells.clear();
    cells.shrink_to_fit();
    rowStarts.clear();
    sorted = true;
    rows = 0;
    columns = 0;
}

// Hands the inflated bytes of one part to parse; false when the part is missing, unreadable,
// too large or fails its checksum, or when parse fails.
bool XlsxReaderPrivate::readDevice(QuaZip &zip, const QString &name, const DeviceParser &parse)
{
    if (!zip.setCurrentFile(name, QuaZip::csInsensitive))
        return false;
    QuaZipFile file(&zip);
    if (!file.open(QIODevice::ReadOnly))
        return false;
    LimitedDevice device(&file, MaxPartSize);
    device.open(QIODevice::ReadOnly | QIODevice::Unbuffered);
    bool parsed = parse(device);
    // Read what the parser left so the archive's checksum covers the whole part.
    char buffer[65536];
    while (parsed && device.read(buffer, sizeof buffer) > 0) { }
    parsed = parsed && !device.exceeded();
    file.close();
    return parsed && file.getZipError() == UNZ_OK;
}

bool XlsxReaderPrivate::readPart(QuaZip &zip, const QString &name, const XmlParser &parse)
{
    return readDevice(zip, name, [&](QIODevice &device) {
        QXmlStreamReader xml(&device);
        return parse(xml) && !xml.hasError();
    });
}

// Reads a large part with the fast scanner, or with the full XML parser when the scanner
// does not support the document (another encoding, a document type declaration). parse takes
// either reader.
template<typename Parse>
bool XlsxReaderPrivate::readLargePart(QuaZip &zip, const QString &name, const Parse &parse)
{
    bool unsupported = false;
    const bool parsed = readDevice(zip, name, [&](QIODevice &device) {
        Xml::FastXml xml(&device);
        const bool ok = xml.begin() && parse(xml) && !xml.failed();
        unsupported = xml.unsupported();
        return ok;
    });
    if (parsed || !unsupported)
        return parsed;
    return readPart(zip, name, [&](QXmlStreamReader &stream) {
        Xml::StreamXml xml(stream);
        return parse(xml);
    });
}

// Reads the relationships of a part (its _rels/<name>.rels) into id -> part name and id -> type.
bool XlsxReaderPrivate::readRelationships(QuaZip &zip, const QString &partName,
                                          QHash<QString, QString> *targets,
                                          QHash<QString, QString> *types)
{
    const int slash = partName.lastIndexOf(QLatin1Char('/'));
    const QString relsName = partName.left(slash + 1) + QLatin1String("_rels/")
            + partName.mid(slash + 1) + QLatin1String(".rels");
    return readPart(zip, relsName, [&](QXmlStreamReader &xml) {
        while (!xml.atEnd()) {
            if (xml.readNext() != QXmlStreamReader::StartElement
                || !isElement(xml, QLatin1String("Relationship")))
                continue;
            if (attribute(xml, QLatin1String("TargetMode")) == QLatin1String("External"))
                continue;
            const QString id = attribute(xml, QLatin1String("Id")).toString();
            targets->insert(id, resolveTarget(partName,
                                              attribute(xml, QLatin1String("Target")).toString()));
            types->insert(id, attribute(xml, QLatin1String("Type")).toString());
        }
        return true;
    });
}

bool XlsxReaderPrivate::readWorkbook(QXmlStreamReader &xml)
{
    while (!xml.atEnd()) {
        if (xml.readNext() != QXmlStreamReader::StartElement)
            continue;
        if (isElement(xml, QLatin1String("workbookPr"))) {
            date1904 = isTrue(attribute(xml, QLatin1String("date1904")));
        } else if (isElement(xml, QLatin1String("sheet"))) {
            // The relationship id is r:id in any namespace prefix.
            const QXmlStreamAttributes attributes = xml.attributes();
            for (const QXmlStreamAttribute &a : attributes) {
                if (a.name() == QLatin1String("id") && !a.namespaceUri().isEmpty())
                    sheetIds.append(a.value().toString());
            }
        }
    }
    return true;
}

bool XlsxReaderPrivate::appendText(const QString &text, Span *span)
{
    if (pool.size() + qint64(text.size()) > MaxTextSize)
        return false;
    span->pos = quint32(pool.size());
    span->size = quint32(text.size());
    pool += text;
    return true;
}

// Collects the text runs of an <si> or <is> element, leaving out phonetic guides.
template<typename Reader>
bool XlsxReaderPrivate::readRichText(Reader &xml, Span *span)
{
    QString text;
    int depth = 1;
    int phoneticDepth = 0;
    while (depth > 0) {
        switch (xml.next()) {
        case Token::Start:
            if (xml.isName(QLatin1String("t"))) {
                const QString run = xml.elementText();
                if (phoneticDepth == 0)
                    text += run;
                break;
            }
            ++depth;
            if (phoneticDepth == 0 && xml.isName(QLatin1String("rPh")))
                phoneticDepth = depth;
            break;
        case Token::End:
            if (depth == phoneticDepth)
                phoneticDepth = 0;
            --depth;
            break;
        case Token::Other:
            break;
        case Token::Done:
        case Token::Error:
            return false;
        }
    }
    return !xml.failed() && appendText(unescape(text), span);
}

template<typename Reader>
bool XlsxReaderPrivate::readSharedStrings(Reader &xml)
{
    for (;;) {
        const Token token = xml.next();
        if (token == Token::Done)
            return true;
        if (token == Token::Error)
            return false;
        if (token != Token::Start || !xml.isName(QLatin1String("si")))
            continue;
        Span span;
        if (sharedStrings.size() >= MaxCells || !readRichText(xml, &span))
            return false;
        sharedStrings.append(span);
    }
}

bool XlsxReaderPrivate::readStyles(QXmlStreamReader &xml)
{
    QHash<int, QString> formats;
    QVector<int> formatIds;
    bool inCellFormats = false;
    while (!xml.atEnd()) {
        const QXmlStreamReader::TokenType token = xml.readNext();
        if (token == QXmlStreamReader::EndElement && isElement(xml, QLatin1String("cellXfs")))
            inCellFormats = false;
        if (token != QXmlStreamReader::StartElement)
            continue;
        if (isElement(xml, QLatin1String("numFmt"))) {
            formats.insert(attribute(xml, QLatin1String("numFmtId")).toInt(),
                           attribute(xml, QLatin1String("formatCode")).toString());
        } else if (isElement(xml, QLatin1String("cellXfs"))) {
            inCellFormats = true;
        } else if (inCellFormats && isElement(xml, QLatin1String("xf"))) {
            if (formatIds.size() >= MaxCells)
                return false;
            formatIds.append(attribute(xml, QLatin1String("numFmtId")).toInt());
        }
    }
    styleDisplays.reserve(formatIds.size());
    for (int id : qAsConst(formatIds)) {
        const auto custom = formats.constFind(id);
        styleDisplays.append(custom != formats.constEnd() ? classifyFormat(*custom)
                                                          : builtinDisplay(id));
    }
    return true;
}

// The text a person sees for a cell value of the given type and style.
QString XlsxReaderPrivate::valueText(const QString &type, const QString &value, int style) const
{
    if (type.isEmpty() || type == QLatin1String("n")) {
        bool ok = false;
        const double number = value.toDouble(&ok);
        if (!ok || !std::isfinite(number))
            return value;
        const Display display = style >= 0 && style < styleDisplays.size()
                ? styleDisplays.at(style) : Display::Number;
        if (display != Display::Number) {
            const QString text = serialText(number, display, date1904);
            if (!text.isEmpty())
                return text;
        }
        return numberText(number);
    }
    if (type == QLatin1String("b")) {
        const QString trimmed = value.trimmed();
        if (trimmed == QLatin1String("1") || trimmed == QLatin1String("true"))
            return QStringLiteral("TRUE");
        if (trimmed == QLatin1String("0") || trimmed == QLatin1String("false"))
            return QStringLiteral("FALSE");
        return value;
    }
    if (type == QLatin1String("str") || type == QLatin1String("inlineStr"))
        return unescape(value);
    return value; // e (error values such as #DIV/0!), d (ISO dates) and anything newer
}

template<typename Reader>
bool XlsxReaderPrivate::readCell(Reader &xml, int row, int *nextColumn)
{
    int column = *nextColumn;
    QString ref;
    if (xml.attribute(QLatin1String("r"), &ref) && !parseReference(QStringRef(&ref), &row, &column))
        return false;
    if (column >= MaxColumns)
        return false;
    *nextColumn = column + 1;

    QString type;
    xml.attribute(QLatin1String("t"), &type);
    QString styleText;
    const int style = xml.attribute(QLatin1String("s"), &styleText) ? styleText.toInt() : -1;

    QString value;
    bool hasValue = false;
    Span span = {0, 0};
    bool hasSpan = false;
    for (bool inCell = true; inCell;) {
        switch (xml.next()) {
        case Token::End:
            inCell = false; // </c>: children are consumed whole below
            break;
        case Token::Start:
            if (xml.isName(QLatin1String("v"))) {
                value = xml.elementText();
                hasValue = true;
            } else if (xml.isName(QLatin1String("is"))) {
                if (!readRichText(xml, &span))
                    return false;
                hasSpan = true;
            } else {
                xml.skipElement();
            }
            break;
        case Token::Other:
            break;
        case Token::Done:
        case Token::Error:
            return false;
        }
    }
    if (xml.failed())
        return false;

    if (!hasSpan) {
        if (!hasValue)
            return true;
        if (type == QLatin1String("s")) {
            bool ok = false;
            const uint index = value.trimmed().toUInt(&ok);
            if (!ok || index >= uint(sharedStrings.size()))
                return true;
            span = sharedStrings.at(int(index));
        } else if (!appendText(valueText(type, value, style), &span)) {
            return false;
        }
    }
    if (span.size == 0)
        return true;

    const Cell cell = {row, column, span};
    if (!cells.empty()) {
        Cell &last = cells.back();
        if (last.row == row && last.column == column) {
            last = cell;
            return true;
        }
        if (cellBefore(cell, last))
            sorted = false;
    }
    if (qint64(cells.size()) >= MaxCells)
        return false;
    cells.push_back(cell);
    return true;
}

template<typename Reader>
bool XlsxReaderPrivate::readRow(Reader &xml, int row)
{
    int nextColumn = 0;
    for (;;) {
        switch (xml.next()) {
        case Token::End:
            return true;
        case Token::Start:
            if (!xml.isName(QLatin1String("c")))
                xml.skipElement();
            else if (!readCell(xml, row, &nextColumn))
                return false;
            break;
        case Token::Other:
            break;
        case Token::Done:
        case Token::Error:
            return false;
        }
    }
}

template<typename Reader>
bool XlsxReaderPrivate::readSheet(Reader &xml)
{
    for (;;) {
        const Token token = xml.next();
        if (token == Token::Done || token == Token::Error)
            return false;
        if (token == Token::Start && xml.isName(QLatin1String("sheetData")))
            break;
    }
    int nextRow = 0;
    for (;;) {
        const Token token = xml.next();
        if (token == Token::End)
            return true; // </sheetData>: what follows holds no cells
        if (token == Token::Done || token == Token::Error)
            return false;
        if (token != Token::Start)
            continue;
        if (!xml.isName(QLatin1String("row"))) {
            xml.skipElement();
            continue;
        }
        int row = nextRow;
        QString number;
        if (xml.attribute(QLatin1String("r"), &number)) {
            bool ok = false;
            row = number.toInt(&ok) - 1;
            if (!ok || row < 0)
                return false;
        }
        if (row >= MaxRows)
            return false;
        nextRow = row + 1;
        if (!readRow(xml, row))
            return false;
    }
}

// Orders the cells, keeps the last of duplicates, and indexes the rows of the data area.
bool XlsxReaderPrivate::finish()
{
    if (!sorted) {
        std::stable_sort(cells.begin(), cells.end(), cellBefore);
        std::vector<Cell> unique;
        unique.reserve(cells.size());
        for (const Cell &cell : cells) {
            if (!unique.empty() && unique.back().row == cell.row
                && unique.back().column == cell.column)
                unique.back() = cell;
            else
                unique.push_back(cell);
        }
        cells.swap(unique);
    }
    if (cells.empty())
        return true;
    int lastColumn = 0;
    for (const Cell &cell : cells)
        lastColumn = qMax(lastColumn, cell.column);
    rows = cells.back().row + 1;
    columns = lastColumn + 1;
    if (qint64(rows) * columns > MaxArea) {
        rows = columns = 0;
        return false;
    }
    rowStarts.resize(rows + 1);
    size_t index = 0;
    for (int row = 0; row <= rows; ++row) {
        while (index < cells.size() && cells[index].row < row)
            ++index;
        rowStarts[row] = quint32(index);
    }
    return true;
}

bool XlsxReaderPrivate::load(const QString &path)
{
    QuaZip zip(path);
    if (!zip.open(QuaZip::mdUnzip))
        return false;

    // The package relationships name the workbook; the usual place is the fallback.
    QHash<QString, QString> targets;
    QHash<QString, QString> types;
    QString workbook = QStringLiteral("xl/workbook.xml");
    if (readRelationships(zip, QString(), &targets, &types)) {
        for (auto it = types.constBegin(); it != types.constEnd(); ++it) {
            if (it.value().endsWith(QLatin1String("/officeDocument"))) {
                workbook = targets.value(it.key());
                break;
            }
        }
    }
    if (!readPart(zip, workbook, [this](QXmlStreamReader &xml) { return readWorkbook(xml); }))
        return false;

    targets.clear();
    types.clear();
    if (!readRelationships(zip, workbook, &targets, &types))
        return false;
    QString sheet;
    for (const QString &id : qAsConst(sheetIds)) {
        if (types.value(id).endsWith(QLatin1String("/worksheet"))) {
            sheet = targets.value(id);
            break;
        }
    }
    if (sheet.isEmpty())
        return false;
    QString sharedStringsPart;
    QString stylesPart;
    for (auto it = types.constBegin(); it != types.constEnd(); ++it) {
        if (it.value().endsWith(QLatin1String("/sharedStrings")))
            sharedStringsPart = targets.value(it.key());
        else if (it.value().endsWith(QLatin1String("/styles")))
            stylesPart = targets.value(it.key());
    }

    if (!sharedStringsPart.isEmpty()
        && !readLargePart(zip, sharedStringsPart,
                          [this](auto &xml) { return readSharedStrings(xml); }))
        return false;
    if (!stylesPart.isEmpty()
        && !readPart(zip, stylesPart, [this](QXmlStreamReader &xml) { return readStyles(xml); }))
        return false;
    if (!readLargePart(zip, sheet, [this](auto &xml) { return readSheet(xml); }))
        return false;
    return finish();
}

XlsxReader::XlsxReader() : d(new XlsxReaderPrivate) { }

XlsxReader::~XlsxReader()
{
    delete d;
}

// Loads the first worksheet of the workbook; false, with an empty sheet, when the file is no
// readable workbook.
bool XlsxReader::open(const QString &path)
{
    d->clear();
    if (d->load(path)) {
        d->sharedStrings.clear();
        d->sharedStrings.squeeze();
        return true;
    }
    d->clear();
    return false;
}

bool XlsxReader::isEmpty() const
{
    return d->cells.empty();
}

int XlsxReader::rowCount() const
{
    return d->rows;
}

int XlsxReader::columnCount() const
{
    return d->columns;
}

// The text of a cell of the data area; empty (never null) for a blank cell or a position
// outside it, so that it is stored as text rather than as NULL.
QString XlsxReader::textAt(int row, int column) const
{
    if (row < 0 || row >= d->rows || column < 0 || column >= d->columns)
        return QStringLiteral("");
    const auto begin = d->cells.cbegin() + d->rowStarts.at(row);
    const auto end = d->cells.cbegin() + d->rowStarts.at(row + 1);
    const auto it = std::lower_bound(begin, end, column,
                                     [](const Cell &cell, int c) { return cell.column < c; });
    if (it == end || it->column != column)
        return QStringLiteral("");
    return QString(d->pool.constData() + it->text.pos, int(it->text.size));
}

} // namespace Core
