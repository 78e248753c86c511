#include "rowtextwriter.h"

#include <QByteArray>
#include <QIODevice>
#include <QList>
#include <QVector>

#include <cerrno>
#include <cstring>

namespace Database {

namespace {
constexpr int RowsForWidths = 1000;
constexpr int BufferBytes = 1 << 16;
using TextCell = RowBlockReader::TextCell;
using Format = RowTextWriter::Format;

// The writer's state and work; of internal linkage, so none of it is exported.
struct Writer
{
    Writer(QIODevice *device, Format format, const QStringList &header)
        : device(device), format(format), header(header)
    { }

    QIODevice *device;
    Format format;
    QStringList header;
    QVector<int> widths;
    QList<QStringList> heldBack;
    bool widthsFixed = false;
    bool failed = false;
    QString error;
    QByteArray buffer; // UTF-8 not yet written

    void flushRows();
    void writeAligned(const QStringList &cells);
    void writeCsv(const QStringList &cells);
    void writeCsv(const TextCell *cells, int count);
    void writeCsvField(const char *data, int size);
    bool write(bool force);
};

} // namespace

struct RowTextWriter::Private : Writer
{
    using Writer::Writer;
};

RowTextWriter::RowTextWriter(QIODevice *device, Format format, const QStringList &header)
    : d(new Private(device, format, header))
{
    if (format == Csv)
        d->writeCsv(header);
}

RowTextWriter::~RowTextWriter()
{
    finish();
}

QString RowTextWriter::errorString() const
{
    return d->error;
}

int RowTextWriter::displayWidth(const QString &text)
{
    int width = 0;
    for (const uint code : text.toUcs4()) {
        const bool wide = (code >= 0x1100 && code <= 0x115f) || (code >= 0x2e80 && code <= 0xa4cf)
                || (code >= 0xac00 && code <= 0xd7a3) || (code >= 0xf900 && code <= 0xfaff)
                || (code >= 0xfe30 && code <= 0xfe4f) || (code >= 0xff00 && code <= 0xff60)
                || (code >= 0xffe0 && code <= 0xffe6) || (code >= 0x20000 && code <= 0x3fffd);
        width += wide ? 2 : 1;
    }
    return width;
}

void RowTextWriter::addRow(const QStringList &cells)
{
    if (d->format == Csv) {
        d->writeCsv(cells);
    } else if (d->widthsFixed) {
        d->writeAligned(cells);
    } else {
        d->heldBack << cells;
        if (d->heldBack.size() >= RowsForWidths)
            d->flushRows();
    }
    d->write(false);
}

void RowTextWriter::addRow(const TextCell *cells, int count)
{
    d->writeCsv(cells, count);
    d->write(false);
}

bool RowTextWriter::finish()
{
    if (d->format == Aligned && !d->widthsFixed)
        d->flushRows();
    return d->write(true);
}

void Writer::flushRows()
{
    widths.fill(0, header.size());
    for (int c = 0; c < header.size(); ++c)
        widths[c] = RowTextWriter::displayWidth(header.at(c));
    for (const QStringList &row : qAsConst(heldBack))
        for (int c = 0; c < row.size() && c < widths.size(); ++c)
            widths[c] = qMax(widths[c], RowTextWriter::displayWidth(row.at(c)));
    widthsFixed = true;
    writeAligned(header);
    QStringList rule;
    for (int width : qAsConst(widths))
        rule << QString(width, QLatin1Char('-'));
    writeAligned(rule);
    for (const QStringList &row : qAsConst(heldBack))
        writeAligned(row);
    heldBack.clear();
}

void Writer::writeAligned(const QStringList &cells)
{
    QString line;
    for (int c = 0; c < cells.size(); ++c) {
        if (c > 0)
            line += QLatin1String("  ");
        line += cells.at(c);
        if (c + 1 < cells.size())
            line += QString(qMax(0, widths.value(c) - RowTextWriter::displayWidth(cells.at(c))),
                            QLatin1Char(' '));
    }
    buffer += line.toUtf8();
    buffer += '\n';
}

void Writer::writeCsv(const QStringList &cells)
{
    for (int c = 0; c < cells.size(); ++c) {
        if (c > 0)
            buffer += ',';
        const QByteArray bytes = cells.at(c).toUtf8();
        writeCsvField(bytes.constData(), int(bytes.size()));
    }
    buffer += '\n';
}

void Writer::writeCsv(const TextCell *cells, int count)
{
    for (int c = 0; c < count; ++c) {
        if (c > 0)
            buffer += ',';
        writeCsvField(cells[c].data, cells[c].size);
    }
    buffer += '\n';
}

// Quoted only where a comma, quote or line break would otherwise end the field.
void Writer::writeCsvField(const char *data, int size)
{
    bool quote = false;
    for (int i = 0; i < size && !quote; ++i) {
        const char ch = data[i];
        quote = ch == ',' || ch == '"' || ch == '\n' || ch == '\r';
    }
    if (!quote) {
        buffer.append(data, size);
        return;
    }
    buffer += '"';
    for (int i = 0; i < size; ++i) {
        if (data[i] == '"')
            buffer += '"';
        buffer += data[i];
    }
    buffer += '"';
}

bool Writer::write(bool force)
{
    if (buffer.isEmpty() || (!force && buffer.size() < BufferBytes))
        return !failed;
    errno = 0;
    if (!failed && device->write(buffer) != buffer.size()) {
        failed = true;
        error = errno != 0 ? QString::fromLocal8Bit(std::strerror(errno)) : device->errorString();
    }
    buffer.resize(0); // keeps the allocation for the next rows
    return !failed;
}

} // namespace Database
