#include "textsource.h"

#include <QFile>
#include <QTextCodec>
#include <QTextStream>

namespace Zqdb {

namespace {

constexpr int HeadBytes = 64 * 1024;
constexpr int HeadLines = 6;
const QByteArray Utf8Mark("\xEF\xBB\xBF");

// Decodes one raw line by the importer's rule: a byte-order mark chooses UTF, else GB2312.
QString decodeLikeImporter(const QByteArray &line)
{
    static QTextCodec *const gb2312 = QTextCodec::codecForName("GB2312");
    QTextCodec *codec = QTextCodec::codecForUtfText(line, gb2312);
    return codec ? codec->toUnicode(line) : QString::fromLatin1(line);
}

} // namespace

bool TextSource::parseEncoding(const QString &name, Encoding *encoding)
{
    const QString key = name.toLower().remove(QLatin1Char('-'));
    if (key == QLatin1String("gb2312")) {
        *encoding = Gb2312;
        return true;
    }
    if (key == QLatin1String("utf8")) {
        *encoding = Utf8;
        return true;
    }
    if (key == QLatin1String("gb18030")) {
        *encoding = Gb18030;
        return true;
    }
    if (key == QLatin1String("auto")) {
        *encoding = Automatic;
        return true;
    }
    return false;
}

bool TextSource::looksLikeUtf8(const QString &path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return false;
    const QByteArray head = file.read(HeadBytes);
    if (head.startsWith(Utf8Mark))
        return true;
    int multiByte = 0;
    for (int i = 0; i < head.size();) {
        const uchar lead = uchar(head.at(i));
        const int length = lead < 0x80                  ? 1
                : (lead & 0xE0) == 0xC0 && lead >= 0xC2 ? 2
                : (lead & 0xF0) == 0xE0                 ? 3
                : (lead & 0xF8) == 0xF0 && lead <= 0xF4 ? 4
                                                        : 0;
        if (length == 0)
            return false;
        for (int k = 1; k < length; ++k) {
            if (i + k >= head.size())
                return multiByte > 0; // a sequence cut by the end of the head
            if ((uchar(head.at(i + k)) & 0xC0) != 0x80)
                return false;
        }
        multiByte += length > 1 ? 1 : 0;
        i += length;
    }
    return multiByte > 0;
}

QList<TextSource::HeadLine> TextSource::head(const QString &path, const QString &separator)
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

bool TextSource::writeUtf8Copy(const QString &source, const QString &target, QString *error)
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

qint64 TextSource::countRows(const QString &path, const QString &separator)
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

QStringList TextSource::readLines(const QString &path, Encoding encoding, QString *error)
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
        if (encoding == Utf8) {
            if (line.startsWith(Utf8Mark))
                line.remove(0, Utf8Mark.size());
            lines << QString::fromUtf8(line);
        } else {
            lines << decodeLikeImporter(line);
        }
    }
    return lines;
}

} // namespace Zqdb
