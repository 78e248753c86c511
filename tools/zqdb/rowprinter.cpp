#include "rowprinter.h"

#include <QIODevice>

#include <cerrno>
#include <cstring>

namespace Zqdb {

namespace {
constexpr int RowsForWidths = 1000;
constexpr int BufferBytes = 1 << 16;
} // namespace

RowPrinter::RowPrinter(QIODevice *device, Format format, const QStringList &header)
    : m_device(device)
    , m_format(format)
    , m_header(header)
{
    if (m_format == Csv)
        writeCsv(m_header);
}

RowPrinter::~RowPrinter()
{
    finish();
}

int RowPrinter::displayWidth(const QString &text)
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

void RowPrinter::addRow(const QStringList &cells)
{
    if (m_format == Csv) {
        writeCsv(cells);
    } else if (m_widthsFixed) {
        writeAligned(cells);
    } else {
        m_heldBack << cells;
        if (m_heldBack.size() >= RowsForWidths)
            flushRows();
    }
    write(false);
}

bool RowPrinter::finish()
{
    if (m_format == Aligned && !m_widthsFixed)
        flushRows();
    return write(true);
}

void RowPrinter::flushRows()
{
    m_widths.fill(0, m_header.size());
    for (int c = 0; c < m_header.size(); ++c)
        m_widths[c] = displayWidth(m_header.at(c));
    for (const QStringList &row : qAsConst(m_heldBack))
        for (int c = 0; c < row.size() && c < m_widths.size(); ++c)
            m_widths[c] = qMax(m_widths[c], displayWidth(row.at(c)));
    m_widthsFixed = true;
    writeAligned(m_header);
    QStringList rule;
    for (int width : qAsConst(m_widths))
        rule << QString(width, QLatin1Char('-'));
    writeAligned(rule);
    for (const QStringList &row : qAsConst(m_heldBack))
        writeAligned(row);
    m_heldBack.clear();
}

void RowPrinter::writeAligned(const QStringList &cells)
{
    QString line;
    for (int c = 0; c < cells.size(); ++c) {
        if (c > 0)
            line += QLatin1String("  ");
        line += cells.at(c);
        if (c + 1 < cells.size())
            line += QString(qMax(0, m_widths.value(c) - displayWidth(cells.at(c))),
                            QLatin1Char(' '));
    }
    m_buffer += line.toUtf8();
    m_buffer += '\n';
}

void RowPrinter::writeCsv(const QStringList &cells)
{
    for (int c = 0; c < cells.size(); ++c) {
        if (c > 0)
            m_buffer += ',';
        const QByteArray bytes = cells.at(c).toUtf8();
        writeCsvField(bytes.constData(), int(bytes.size()));
    }
    m_buffer += '\n';
}

void RowPrinter::writeCsv(const Database::RowBlockReader::TextCell *cells, int count)
{
    for (int c = 0; c < count; ++c) {
        if (c > 0)
            m_buffer += ',';
        writeCsvField(cells[c].data, cells[c].size);
    }
    m_buffer += '\n';
}

void RowPrinter::addRow(const Database::RowBlockReader::TextCell *cells, int count)
{
    writeCsv(cells, count);
    write(false);
}

void RowPrinter::writeCsvField(const char *data, int size)
{
    bool quote = false;
    for (int i = 0; i < size && !quote; ++i) {
        const char ch = data[i];
        quote = ch == ',' || ch == '"' || ch == '\n' || ch == '\r';
    }
    if (!quote) {
        m_buffer.append(data, size);
        return;
    }
    m_buffer += '"';
    for (int i = 0; i < size; ++i) {
        if (data[i] == '"')
            m_buffer += '"';
        m_buffer += data[i];
    }
    m_buffer += '"';
}

bool RowPrinter::write(bool force)
{
    if (m_buffer.isEmpty() || (!force && m_buffer.size() < BufferBytes))
        return !m_failed;
    errno = 0;
    if (!m_failed && m_device->write(m_buffer) != m_buffer.size()) {
        m_failed = true;
        m_error = errno != 0 ? QString::fromLocal8Bit(std::strerror(errno))
                             : m_device->errorString();
    }
    m_buffer.resize(0); // keeps the allocation for the next rows
    return !m_failed;
}

} // namespace Zqdb
