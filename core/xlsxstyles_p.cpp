#include "xlsxstyles_p.h"

#include <QDate>
#include <QLocale>
#include <QObject>

#include <charconv>
#include <cmath>
#include <cstring>
#include <vector>

namespace Core {
namespace Xlsx {

namespace {

constexpr int MaxCellFormats = 1 << 25;

// A run of one date or time code letter in a format, with whether it stood in brackets.
struct FormatCode
{
    char letter;
    bool elapsed;
};

// The date and time codes of the first section of a format, outside quoted text, escapes and
// bracketed colours or conditions.
std::vector<FormatCode> formatCodes(const QString &format)
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
        if (QStringView(format).mid(i).startsWith(QLatin1String("am/pm"), Qt::CaseInsensitive)) {
            i += 4;
            continue;
        }
        if (QStringView(format).mid(i).startsWith(QLatin1String("a/p"), Qt::CaseInsensitive)) {
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
    return codes;
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

} // namespace

// Classifies a custom number format by its date and time codes.
Display customDisplay(const QString &formatCode)
{
    const std::vector<FormatCode> codes = formatCodes(formatCode);
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

// A date or time in ISO 8601 where the display asks for one and the value is a date;
// otherwise the shortest text that reads back as the same double, without an exponent for the
// magnitudes people type.
QString numberText(double value, Display display, bool date1904)
{
    if (display != Display::Number) {
        const QString text = serialText(value, display, date1904);
        if (!text.isEmpty())
            return text;
    }
    if (value == 0)
        return QStringLiteral("0");
    const double magnitude = std::fabs(value);
    if (magnitude >= 1e-5 && magnitude < 1e15) {
        char buffer[64];
        const auto end = std::to_chars(buffer, buffer + sizeof buffer, value,
                                       std::chars_format::fixed);
        return QString::fromLatin1(buffer, int(end.ptr - buffer));
    }
    return QString::number(value, 'g', QLocale::FloatingPointShortest);
}

bool StylesHandler::startElement(Ns ns, const char *name, const char **attributes)
{
    ++m_depth;
    if (ns != Ns::Main || m_depth > 3)
        return true;
    if (m_depth == 2) {
        m_inNumFmts = std::strcmp(name, "numFmts") == 0;
        m_inCellXfs = std::strcmp(name, "cellXfs") == 0;
        return true;
    }
    if (m_depth != 3)
        return true;
    const int id = QByteArray(attribute(attributes, Ns::None, "numFmtId")).toInt();
    if (m_inNumFmts && std::strcmp(name, "numFmt") == 0) {
        m_formats.insert(id, QString::fromUtf8(attribute(attributes, Ns::None, "formatCode")));
    } else if (m_inCellXfs && std::strcmp(name, "xf") == 0) {
        if (m_formatIds.size() >= MaxCellFormats)
            return refuse(QObject::tr("more than %1 cell formats").arg(MaxCellFormats), true);
        m_formatIds.append(id);
    }
    return true;
}

bool StylesHandler::endElement()
{
    if (--m_depth == 1)
        m_inNumFmts = m_inCellXfs = false;
    return true;
}

QVector<Display> StylesHandler::displays() const
{
    QVector<Display> displays;
    displays.reserve(m_formatIds.size());
    for (int id : m_formatIds) {
        const auto custom = m_formats.constFind(id);
        displays.append(custom != m_formats.constEnd() ? customDisplay(*custom)
                                                       : builtinDisplay(id));
    }
    return displays;
}

} // namespace Xlsx
} // namespace Core
