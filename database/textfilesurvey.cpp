#include "textfilesurvey.h"
#include "utf8_p.h"

#include <QFile>
#include <QTextCodec>
#include <QTextStream>

#include <algorithm>
#include <cstring>

namespace Database {

namespace {

constexpr int HeadBytes = 64 * 1024;
constexpr int HeadLines = 6;
const QByteArray Utf8Mark("\xEF\xBB\xBF");

// Decodes one raw line by the importer's rule: a byte-order mark chooses UTF, else GB2312.
QString decodeLikeImporter(const QByteArray &line)
{
    static QTextCodec *const gb2312 = QTextCodec::codecForName("GB2312");
    QTextCodec *codec = QTextCodec::codecForUtfText(line, gb2312);
    if (!codec)
        return QString::fromLatin1(line);
    if (codec == gb2312)
        return codec->toUnicode(line);
    // A UTF-16 or UTF-32 line cut at a 0x0A byte ends mid-character: with a state, as the
    // importer's stream decodes, both flavours drop it (a stateless call gives U+FFFD in Qt 6).
    QTextCodec::ConverterState state;
    return codec->toUnicode(line.constData(), int(line.size()), &state);
}

enum LineChange { DroppedEmpty = 1, SplitQuoted = 2 };

inline bool isSpace(char c)
{
    return c == ' ' || (c >= '\t' && c <= '\r');
}
inline bool isSpace(QChar c)
{
    return c.isSpace();
}

template<typename Char>
bool startsWith(const Char *at, const Char *end, const Char *separator, int length)
{
    return end - at >= length && std::equal(separator, separator + length, at);
}

template<typename Char>
const Char *findSeparator(const Char *at, const Char *end, const Char *separator, int length)
{
    for (; at < end; ++at)
        if (startsWith(at, end, separator, length))
            return at;
    return end;
}

// Most lines are ASCII: find the separator's first byte with memchr.
const char *findSeparator(const char *at, const char *end, const char *separator, int length)
{
    while (at < end) {
        at = static_cast<const char *>(std::memchr(at, separator[0], size_t(end - at)));
        if (!at)
            return end;
        if (startsWith(at, end, separator, length))
            return at;
        ++at;
    }
    return end;
}

// The LineChange flags of one line as the importer reads it: trimmed, split at every separator,
// empty fields dropped.
template<typename Char>
int lineChanges(const Char *begin, const Char *end, const Char *separator, int length)
{
    const Char *first = begin;
    const Char *last = end;
    while (first < last && isSpace(*first))
        ++first;
    while (last > first && isSpace(last[-1]))
        --last;
    if (first == last)
        return 0;
    // Trimming takes separators among the leading blanks, and the empty fields between them.
    int changes = findSeparator(begin, first, separator, length) != first ? DroppedEmpty : 0;
    bool emptyBefore = false;
    for (const Char *field = first;;) {
        const Char *next = findSeparator(field, last, separator, length);
        if (field < last && *field == Char('"')) {
            // A quoted field closed on this line, right before a separator or the line's end.
            bool separatorInside = false;
            for (const Char *at = field + 1; at < last; ++at) {
                if (*at == Char('"')) {
                    if (at + 1 < last && at[1] == Char('"')) {
                        ++at;
                        continue;
                    }
                    if (separatorInside
                        && (at + 1 == last || startsWith(at + 1, last, separator, length)))
                        changes |= SplitQuoted;
                    break;
                }
                separatorInside = separatorInside || startsWith(at, last, separator, length);
            }
        }
        if (next == field)
            emptyBefore = true;
        else if (emptyBefore)
            changes |= DroppedEmpty;
        if (next == last)
            return changes;
        field = next + length;
    }
}

} // namespace

bool TextFileSurvey::looksLikeUtf8(const QString &path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return false;
    const QByteArray head = file.read(HeadBytes);
    if (head.startsWith(Utf8Mark))
        return true;
    // A sequence cut by the end of the head does not count against it.
    int tail = 0;
    return isValidUtf8(head.constData(), head.size(), &tail)
            && !isAscii(head.constData(), head.size() - tail);
}

QList<TextFileSurvey::HeadLine> TextFileSurvey::head(const QString &path, const QString &separator)
{
    // Read as the importer's check reads: the stream's default decoding, empty lines skipped,
    // stop at the sixth non-empty line that yields a field.
    QList<HeadLine> lines;
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly | QIODevice::Text))
        return lines;
    QTextStream stream(&file);
    int number = 0;
    int nonEmpty = 0;
    while (!stream.atEnd()) {
        const QString line = stream.readLine();
        ++number;
        if (line.isEmpty())
            continue;
        ++nonEmpty;
        const int fields = line.split(separator, Qt::SkipEmptyParts, Qt::CaseSensitive).size();
        if (fields == 0)
            continue;
        lines << HeadLine{number, fields, !separator.isEmpty() && line.contains(separator)};
        if (nonEmpty >= HeadLines)
            break;
    }
    return lines;
}

TextFileSurvey::LineRuleChanges TextFileSurvey::lineRuleChanges(const QString &path,
                                                                const QString &separator,
                                                                CsvImporter::Encoding encoding)
{
    LineRuleChanges found;
    QFile file(path);
    if (separator.isEmpty() || !file.open(QIODevice::ReadOnly))
        return found;
    const QByteArray asciiSeparator = separator.toLatin1();
    const bool separatorAscii = isAscii(asciiSeparator.constData(), asciiSeparator.size())
            && QString::fromLatin1(asciiSeparator) == separator;
    const QByteArray doubledSeparator = asciiSeparator + asciiSeparator;
    const char *sep = asciiSeparator.constData();
    const int sepLength = int(asciiSeparator.size());
    static QTextCodec *const gb2312 = QTextCodec::codecForName("GB2312");
    static QTextCodec *const gb18030 = QTextCodec::codecForName("GB18030");
    static QTextCodec *const utf8 = QTextCodec::codecForName("UTF-8");
    const auto decode = [&](const QByteArray &line) {
        using Encoding = CsvImporter::Encoding;
        QTextCodec *fallback = encoding == Encoding::PerLine ? gb2312
                : encoding == Encoding::Utf8                 ? utf8
                                                             : gb18030;
        if (encoding == Encoding::Automatic) {
            QTextCodec::ConverterState state;
            const QString text = utf8->toUnicode(line.constData(), line.size(), &state);
            if (state.invalidChars == 0 && state.remainingChars == 0)
                return text;
        }
        return QTextCodec::codecForUtfText(line, fallback)->toUnicode(line);
    };
    const auto scan = [&](const char *begin, const char *end) {
        if (end > begin && end[-1] == '\r')
            --end;
        int changes = 0;
        if (isAscii(begin, end - begin)) {
            // Only a quote, two separators in a row or a separator among the leading blanks
            // can change a line: most lines hold none, and memchr and memmem tell fast.
            const char *first = begin;
            while (first < end && isSpace(*first))
                ++first;
            const bool suspect = std::memchr(begin, '"', size_t(end - begin))
                    || ::memmem(begin, size_t(end - begin), doubledSeparator.constData(),
                                size_t(doubledSeparator.size()))
                    || startsWith(first, end, sep, sepLength)
                    || findSeparator(begin, first, sep, sepLength) != first;
            if (separatorAscii && suspect)
                changes = lineChanges(begin, end, sep, sepLength);
        } else {
            const QString text = decode(QByteArray::fromRawData(begin, int(end - begin)));
            changes = lineChanges(text.constData(), text.constData() + text.size(),
                                  separator.constData(), int(separator.size()));
        }
        return changes;
    };

    QByteArray pending;
    qint64 number = 0;
    const auto count = [&](int changes) {
        ++number;
        if (changes == 0)
            return;
        found.droppedEmpty += (changes & DroppedEmpty) ? 1 : 0;
        found.splitQuoted += (changes & SplitQuoted) ? 1 : 0;
        if (found.lines++ == 0)
            found.firstLine = number;
    };
    while (true) {
        const QByteArray block = file.read(1 << 20);
        if (block.isEmpty())
            break;
        const char *at = block.constData();
        const char *end = at + block.size();
        while (const char *newline = static_cast<const char *>(std::memchr(at, '\n', end - at))) {
            if (pending.isEmpty()) {
                count(scan(at, newline));
            } else {
                pending.append(at, int(newline - at));
                count(scan(pending.constData(), pending.constData() + pending.size()));
                pending.clear();
            }
            at = newline + 1;
        }
        pending.append(at, int(end - at));
    }
    if (!pending.isEmpty())
        count(scan(pending.constData(), pending.constData() + pending.size()));
    return found;
}

bool TextFileSurvey::writeUtf8Copy(const QString &source, const QString &target, QString *error)
{
    QFile in(source);
    QFile out(target);
    if (!in.open(QIODevice::ReadOnly)) {
        *error = in.errorString();
        return false;
    }
    if (!out.open(QIODevice::WriteOnly | QIODevice::Truncate)) {
        *error = out.errorString();
        return false;
    }
    QByteArray chunk;
    while (!in.atEnd()) {
        QByteArray line = in.readLine();
        if (line.startsWith(Utf8Mark))
            line.remove(0, Utf8Mark.size());
        int content = line.size();
        while (content > 0 && (line.at(content - 1) == '\n' || line.at(content - 1) == '\r'))
            --content;
        // An empty line stays empty: the importer skips it and its check does not count it.
        if (content > 0)
            chunk += Utf8Mark;
        chunk += line;
        if (chunk.size() >= (1 << 20)) {
            if (out.write(chunk) != chunk.size())
                break;
            chunk.clear();
        }
    }
    if (in.error() != QFileDevice::NoError || out.write(chunk) != chunk.size() || !out.flush()) {
        *error = in.error() != QFileDevice::NoError ? in.errorString() : out.errorString();
        return false;
    }
    return true;
}

qint64 TextFileSurvey::countRows(const QString &path, const QString &separator)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly | QIODevice::Text))
        return 0;
    qint64 rows = 0;
    while (!file.atEnd()) {
        const QString line = decodeLikeImporter(file.readLine()).trimmed();
        if (!line.split(separator, Qt::SkipEmptyParts, Qt::CaseSensitive).isEmpty())
            ++rows;
    }
    return rows;
}

QStringList TextFileSurvey::readLines(const QString &path, bool utf8, QString *error)
{
    QStringList lines;
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly | QIODevice::Text)) {
        *error = file.errorString();
        return lines;
    }
    while (!file.atEnd()) {
        QByteArray line = file.readLine();
        if (line.endsWith('\n'))
            line.chop(1);
        if (utf8) {
            if (line.startsWith(Utf8Mark))
                line.remove(0, Utf8Mark.size());
            lines << QString::fromUtf8(line);
        } else {
            lines << decodeLikeImporter(line);
        }
    }
    return lines;
}

bool TextFileSurvey::copy(QIODevice &source, QIODevice &target, QString *error)
{
    while (true) {
        const QByteArray chunk = source.read(1 << 20);
        if (chunk.isEmpty())
            break;
        if (target.write(chunk) != chunk.size()) {
            *error = target.errorString();
            return false;
        }
    }
    auto *file = qobject_cast<QFileDevice *>(&target);
    if (file && !file->flush()) {
        *error = file->errorString();
        return false;
    }
    return true;
}

} // namespace Database
