#include "xlsxsheet_p.h"

#include <QObject>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstring>
#include <string_view>

namespace Core {
namespace Xlsx {

namespace {

// Bounds that keep a hostile or broken file from exhausting memory or time.
constexpr int MaxRows = 1048576; // the grid of the format itself
constexpr int MaxColumns = 16384;
// Rows x columns a reader of the data area may walk: any area that many cells fill one in 16 of,
// so that a real sheet of any size passes and two far-apart cells do not make a huge one.
constexpr qint64 MaxArea = qint64(1) << 26;
constexpr qint64 MaxBlankRatio = 16;
constexpr size_t MaxCells = size_t(1) << 25; // stored cells and shared strings
constexpr qint64 MaxTextSize = qint64(1) << 28; // UTF-8 bytes kept for all texts
constexpr qint64 MaxStringSize = qint64(1) << 24; // UTF-8 bytes of one text

bool is(const char *name, const char *expected)
{
    return std::strcmp(name, expected) == 0;
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
            const ushort code = text.mid(i + 2, 4).toUShort(&ok, 16);
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

QString gridLimit()
{
    return QObject::tr("a cell beyond the grid of 1,048,576 rows by 16,384 columns");
}

enum class Reference { Valid, Invalid, OutsideGrid };

// Parses "C7" into zero-based row and column.
Reference parseReference(const char *ref, int *row, int *column)
{
    int i = 0;
    qint64 col = 0;
    bool outside = false;
    for (;; ++i) {
        const char c = ref[i];
        if (c >= 'A' && c <= 'Z')
            col = col * 26 + (c - 'A' + 1);
        else if (c >= 'a' && c <= 'z')
            col = col * 26 + (c - 'a' + 1);
        else
            break;
        outside = outside || col > MaxColumns;
        col = qMin<qint64>(col, MaxColumns + 1);
    }
    if (i == 0 || ref[i] == '\0')
        return Reference::Invalid;
    qint64 r = 0;
    for (; ref[i]; ++i) {
        if (ref[i] < '0' || ref[i] > '9')
            return Reference::Invalid;
        r = qMin<qint64>(r * 10 + (ref[i] - '0'), MaxRows + 1);
    }
    if (r < 1)
        return Reference::Invalid;
    if (outside || r > MaxRows)
        return Reference::OutsideGrid;
    *row = int(r - 1);
    *column = int(col - 1);
    return Reference::Valid;
}

// Which text limit a text of size more bytes would pass.
QString textLimit(qint64 textSize, qint64 poolSize)
{
    return textSize > MaxStringSize ? QObject::tr("a text over 16 MiB")
            : poolSize > MaxTextSize ? QObject::tr("texts over 256 MiB in all")
                                     : QString();
}

QString cellLimit()
{
    return QObject::tr("more than 33,554,432 stored cells");
}

// The text without the whitespace around it.
std::string_view trimmed(std::string_view text)
{
    const auto space = [](char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r'; };
    while (!text.empty() && space(text.front()))
        text.remove_prefix(1);
    while (!text.empty() && space(text.back()))
        text.remove_suffix(1);
    return text;
}

// A whole decimal integer, or false.
bool parseInt(std::string_view text, qint64 *number)
{
    const auto parsed = std::from_chars(text.data(), text.data() + text.size(), *number);
    return parsed.ec == std::errc() && parsed.ptr == text.data() + text.size();
}

bool parseNumber(const std::string &text, double *number)
{
    const std::string_view value = trimmed(text);
    const char *end = value.data() + value.size();
    const auto parsed = std::from_chars(value.data(), end, *number);
    bool ok = parsed.ec == std::errc() && parsed.ptr == end;
    if (!ok) // the forms from_chars leaves out, such as a leading '+'
        *number = QString::fromUtf8(text.data(), int(text.size())).toDouble(&ok);
    return ok && std::isfinite(*number);
}

} // namespace

void CellList::append(const Cell &cell)
{
    if ((m_size & BlockMask) == 0) // every block before m_size is full
        m_blocks.emplace_back(new Cell[BlockMask + 1]);
    (*this)[m_size++] = cell;
}

void CellList::clear()
{
    m_blocks.clear();
    m_size = 0;
}

bool SheetData::appendText(const char *text, size_t size)
{
    if (textTotal() + qint64(size) > MaxTextSize)
        return false;
    texts().append(text, int(size));
    return true;
}

std::unique_ptr<SheetData> SheetData::sharedCopy() const
{
    auto copy = std::make_unique<SheetData>();
    copy->date1904 = date1904;
    copy->displays = displays;
    copy->m_pool = m_pool;
    copy->m_shared = m_shared->copy();
    return copy;
}

void SheetData::setMode(Mode mode, RowFunction rowReady)
{
    m_rowTexts.reserve(1 << 12); // kept through resize(0), which is done for every cell or row
    m_rowTexts.resize(0);
    m_mode = mode;
    m_rowReady = std::move(rowReady);
    m_rowCells.clear();
    m_lastRow = -1;
}

// Collects the cells of one row; the first cell of the next row hands it on and takes its text
// to the start of the row's texts. Bounds the data area as finish() would with the cells stored,
// and tells whether they come in order.
bool SheetData::streamCell(int row, Cell cell)
{
    if (m_seen > 0 && (row < m_lastRow || (row == m_lastRow && cell.column < m_lastColumn)))
        m_sorted = false;
    // A cell repeated in place fills nothing more.
    if (m_seen == 0 || row != m_lastRow || cell.column != m_lastColumn)
        ++m_seen;
    m_lastColumn = cell.column;
    m_rows = qMax(m_rows, row + 1);
    m_columns = qMax(m_columns, int(cell.column) + 1);
    if (!m_rowCells.empty()) {
        if (row == m_lastRow && cell.column == m_rowCells.back().column) {
            m_rowCells.back() = cell;
            return true;
        }
        if (row != m_lastRow) {
            const bool hasText = cell.kind == Cell::String || cell.kind == Cell::Verbatim;
            const QByteArray text =
                    hasText ? m_rowTexts.mid(int(cell.a), int(cell.b)) : QByteArray();
            if (!flushRow())
                return false;
            if (hasText) {
                cell.a = quint32(m_rowTexts.size());
                m_rowTexts.append(text);
            }
        }
    }
    m_lastRow = row;
    m_rowCells.push_back(cell);
    return true;
}

bool SheetData::flushRow()
{
    if (m_rowCells.empty())
        return true;
    const bool ok = m_rowReady(m_lastRow, m_rowCells.data(), m_rowCells.size());
    m_rowCells.clear();
    m_rowTexts.resize(0);
    return ok;
}

// Stores a non-empty cell; a cell at the place of the one before replaces it.
bool SheetData::addCell(int row, const Cell &cell)
{
    if (m_mode == Mode::Stream)
        return streamCell(row, cell);
    if (m_cells.size() > 0) {
        const int lastRow = m_runs.back().row;
        Cell &last = m_cells[m_cells.size() - 1];
        if (row == lastRow && cell.column == last.column) {
            last = cell;
            return true;
        }
        if (row < lastRow || (row == lastRow && cell.column < last.column))
            m_sorted = false;
    }
    if (m_cells.size() >= MaxCells)
        return false;
    if (m_runs.empty() || m_runs.back().row != row)
        m_runs.push_back({row, quint32(m_cells.size())});
    m_cells.append(cell);
    return true;
}

// Orders cells written out of order, keeping the last of duplicates.
void SheetData::sortCells()
{
    struct Placed
    {
        qint32 row;
        Cell cell;
    };
    std::vector<Placed> placed;
    placed.reserve(m_cells.size());
    for (size_t run = 0; run < m_runs.size(); ++run) {
        const size_t end = run + 1 < m_runs.size() ? m_runs[run + 1].index : m_cells.size();
        for (size_t i = m_runs[run].index; i < end; ++i)
            placed.push_back({m_runs[run].row, m_cells[i]});
    }
    std::stable_sort(placed.begin(), placed.end(), [](const Placed &a, const Placed &b) {
        return a.row != b.row ? a.row < b.row : a.cell.column < b.cell.column;
    });
    m_cells.clear();
    m_runs.clear();
    m_sorted = true;
    for (const Placed &p : placed)
        addCell(p.row, p.cell);
}

bool SheetData::areaFits(qint64 area, qint64 cells)
{
    return area <= MaxArea || area <= cells * MaxBlankRatio;
}

// Indexes the rows of the data area; false when the area is too large to walk.
bool SheetData::finish()
{
    if (m_mode == Mode::Stream)
        return flushRow() && areaFits(qint64(m_rows) * m_columns, qint64(m_seen));
    if (!m_sorted)
        sortCells();
    if (m_cells.size() == 0)
        return true;
    int lastColumn = 0;
    for (size_t i = 0; i < m_cells.size(); ++i)
        lastColumn = qMax(lastColumn, int(m_cells[i].column));
    if (!areaFits(qint64(m_runs.back().row + 1) * (lastColumn + 1), qint64(m_cells.size())))
        return false;
    m_rows = m_runs.back().row + 1;
    m_columns = lastColumn + 1;
    m_rowStarts.resize(size_t(m_rows) + 1);
    size_t run = 0;
    for (int row = 0; row <= m_rows; ++row) {
        while (run < m_runs.size() && m_runs[run].row < row)
            ++run;
        m_rowStarts[size_t(row)] = run < m_runs.size() ? m_runs[run].index : quint32(m_cells.size());
    }
    m_runs.clear();
    m_runs.shrink_to_fit();
    return true;
}

// The text of a cell of the data area; empty (never null) for a blank cell or a position
// outside it, so that it is stored as text rather than as NULL.
QString SheetData::text(int row, int column) const
{
    if (row < 0 || row >= m_rows || column < 0 || column >= m_columns)
        return QStringLiteral("");
    size_t low = m_rowStarts[size_t(row)];
    size_t high = m_rowStarts[size_t(row) + 1];
    while (low < high) {
        const size_t middle = (low + high) / 2;
        if (m_cells[middle].column < column)
            low = middle + 1;
        else
            high = middle;
    }
    if (low == m_rowStarts[size_t(row) + 1] || m_cells[low].column != column)
        return QStringLiteral("");
    return cellText(m_cells[low]);
}

QString SheetData::cellText(const Cell &cell, const QByteArray *rowTexts) const
{
    if (cell.kind == Cell::Number) {
        double number;
        const quint64 bits = quint64(cell.a) << 32 | cell.b;
        std::memcpy(&number, &bits, sizeof number);
        return numberText(number, cell.display, date1904);
    }
    Span span{cell.a, cell.b};
    const char *data = (rowTexts ? *rowTexts : texts()).constData() + span.pos;
    if (cell.kind == Cell::Shared)
        data = m_shared->text(int(cell.a), m_pool, &span.size);
    const QString text = QString::fromUtf8(data, int(span.size));
    return cell.kind == Cell::Verbatim ? text : unescape(text);
}

bool SheetData::appendCellUtf8(const Cell &cell, QByteArray *out,
                               const QByteArray *rowTexts) const
{
    if (cell.kind != Cell::Number) {
        Span span{cell.a, cell.b};
        const char *text = cell.kind == Cell::Shared
                ? m_shared->text(int(cell.a), m_pool, &span.size)
                : (rowTexts ? *rowTexts : texts()).constData() + span.pos;
        // Texts without escapes are the parser's UTF-8 as it stands.
        if (cell.kind == Cell::Verbatim
            || std::string_view(text, span.size).find("_x") == std::string_view::npos) {
            out->append(text, int(span.size));
            return true;
        }
    }
    const QString text = cellText(cell, rowTexts);
    if (!text.isValidUtf16())
        return false;
    out->append(text.toUtf8());
    return true;
}

void TextCollector::begin(int depth)
{
    m_baseDepth = depth;
    m_runDepth = m_textDepth = 0;
    m_start = quint32(m_sheet.texts().size());
}

// Text comes from <t> children of the element and of its <r> runs; <rPh> guides are left out.
void TextCollector::start(Ns ns, const char *name, int depth)
{
    if (ns != Ns::Main)
        return;
    const bool inRun = m_runDepth > 0 && depth == m_runDepth + 1;
    if ((depth == m_baseDepth + 1 || inRun) && is(name, "t"))
        m_textDepth = depth;
    else if (depth == m_baseDepth + 1 && is(name, "r"))
        m_runDepth = depth;
}

bool TextCollector::characters(const char *text, int size, int depth, XmlHandler *handler)
{
    if (depth != m_textDepth)
        return true;
    const qint64 textSize = m_sheet.texts().size() - m_start + size;
    if (textSize <= MaxStringSize && m_sheet.appendText(text, size_t(size)))
        return true;
    return handler->refuse(textLimit(textSize, m_sheet.textTotal() + size), true);
}

bool TextCollector::end(int depth, SheetData::Span *span)
{
    if (depth == m_textDepth)
        m_textDepth = 0;
    else if (depth == m_runDepth)
        m_runDepth = 0;
    if (depth != m_baseDepth)
        return false;
    m_baseDepth = 0;
    *span = m_sheet.takeText(m_start);
    return true;
}

bool SharedStringsHandler::startElement(Ns ns, const char *name, const char **)
{
    ++m_depth;
    if (m_text.active())
        m_text.start(ns, name, m_depth);
    else if (m_depth == 2 && ns == Ns::Main && is(name, "si"))
        m_text.begin(m_depth);
    return true;
}

bool SharedStringsHandler::endElement()
{
    SheetData::Span span;
    const int depth = m_depth--;
    const bool done = m_text.active() && m_text.end(depth, &span);
    if (done && size_t(m_sheet.m_shared->size()) >= MaxCells)
        return refuse(QObject::tr("more than 33,554,432 shared strings"), true);
    return !done || m_sheet.m_shared->add(span.size, &m_sheet.m_pool)
            || refuse(QObject::tr("no room for its texts in the temporary folder"), true);
}

bool SharedStringsHandler::finish()
{
    return m_sheet.m_shared->finish(&m_sheet.m_pool);
}

bool SharedStringsHandler::characters(const char *text, int size)
{
    return !m_text.active() || m_text.characters(text, size, m_depth, this);
}

bool SheetHandler::startElement(Ns ns, const char *name, const char **attributes)
{
    ++m_depth;
    if (m_text.active()) {
        m_text.start(ns, name, m_depth);
        return true;
    }
    if (ns != Ns::Main || m_depth != m_level + 1)
        return true;
    switch (m_level) {
    case 1:
        if (!is(name, "sheetData"))
            return true;
        m_sheetDataSeen = true;
        break;
    case 2:
        if (!is(name, "row"))
            return true;
        if (!startRow(attributes))
            return false;
        break;
    case 3:
        if (!is(name, "c"))
            return true;
        if (!startCell(attributes))
            return false;
        break;
    case 4:
        if (is(name, "v")) {
            m_inValue = m_hasValue = true;
            m_value.clear();
        } else if (is(name, "is")) {
            m_hasInline = true;
            m_text.begin(m_depth);
        }
        return true;
    case 0: // the root
        break;
    }
    m_level = m_depth;
    return true;
}

bool SheetHandler::endElement()
{
    const int depth = m_depth--;
    if (m_text.active()) {
        m_text.end(depth, &m_inline);
        return true;
    }
    m_inValue = false;
    if (depth != m_level)
        return true;
    m_level = depth - 1;
    return depth != 4 || endCell();
}

bool SheetHandler::characters(const char *text, int size)
{
    if (m_text.active())
        return m_text.characters(text, size, m_depth, this);
    if (!m_inValue)
        return true;
    m_value.append(text, size_t(size));
    return qint64(m_value.size()) <= MaxStringSize
            || refuse(textLimit(qint64(m_value.size()), 0), true);
}

bool SheetHandler::startRow(const char **attributes)
{
    int row = m_nextRow;
    if (const char *number = attribute(attributes, Ns::None, "r")) {
        qint64 value = 0;
        if (!parseInt(number, &value) || value < 1)
            return refuse(QObject::tr("the row number '%1'").arg(QString::fromUtf8(number)));
        row = int(qMin<qint64>(value, MaxRows + 1) - 1);
    }
    if (row >= MaxRows)
        return refuse(gridLimit(), true);
    m_row = row;
    m_nextRow = row + 1;
    m_nextColumn = 0;
    return true;
}

bool SheetHandler::startCell(const char **attributes)
{
    m_cellRow = m_row;
    m_column = m_nextColumn;
    // One pass over the attributes: the cell's are all unqualified one-letter names.
    const char *ref = nullptr;
    const char *type = nullptr;
    const char *style = nullptr;
    for (const char **a = attributes; *a; a += 2) {
        const char *name = a[0];
        if (name[0] == 'r' && name[1] == '\0')
            ref = a[1];
        else if (name[0] == 't' && name[1] == '\0')
            type = a[1];
        else if (name[0] == 's' && name[1] == '\0')
            style = a[1];
    }
    const Reference reference = ref ? parseReference(ref, &m_cellRow, &m_column) : Reference::Valid;
    if (reference == Reference::Invalid)
        return refuse(QObject::tr("the cell reference '%1'").arg(QString::fromUtf8(ref)));
    if (reference == Reference::OutsideGrid || m_column >= MaxColumns)
        return refuse(gridLimit(), true);
    m_nextColumn = m_column + 1;
    const std::string_view t = type ? type : "";
    if (t.empty() || t == "n")
        m_type = Type::Number;
    else if (t == "s")
        m_type = Type::Shared;
    else if (t == "b")
        m_type = Type::Boolean;
    else if (t == "str" || t == "inlineStr")
        m_type = Type::String;
    else
        m_type = Type::Other;
    qint64 index = -1;
    m_style = style && parseInt(style, &index) && index <= qint64(MaxCells) ? int(index) : -1;
    m_hasValue = m_hasInline = false;
    return true;
}

// Stores the cell just read, its value typed by its t attribute.
bool SheetHandler::endCell()
{
    Cell cell = {quint16(m_column), Cell::String, Display::Number, 0, 0};
    const quint32 start = quint32(m_sheet.texts().size());
    if (m_hasInline) {
        cell.a = m_inline.pos;
        cell.b = m_inline.size;
    } else if (!m_hasValue) {
        return true;
    } else if (m_type == Type::Shared) {
        qint64 index = -1;
        if (!parseInt(trimmed(m_value), &index) || index < 0
            || index >= m_sheet.m_shared->size() || m_sheet.m_shared->length(int(index)) == 0)
            return true;
        cell.kind = Cell::Shared;
        cell.a = quint32(index);
        return m_sheet.addCell(m_cellRow, cell) || refuse(cellLimit(), true);
    } else {
        double number;
        if (m_type == Type::Number && parseNumber(m_value, &number)) {
            quint64 bits;
            std::memcpy(&bits, &number, sizeof bits);
            const bool styled = m_style >= 0 && m_style < m_sheet.displays.size();
            cell = {quint16(m_column), Cell::Number,
                    styled ? m_sheet.displays.at(m_style) : Display::Number, quint32(bits >> 32),
                    quint32(bits)};
            return m_sheet.addCell(m_cellRow, cell) || refuse(cellLimit(), true);
        }
        std::string_view text = m_value;
        if (m_type == Type::Boolean) {
            const std::string_view value = trimmed(m_value);
            if (value == "1" || value == "true")
                text = "TRUE";
            else if (value == "0" || value == "false")
                text = "FALSE";
        }
        // Strings carry escapes; errors (#DIV/0!), d (ISO dates) and anything newer are kept.
        if (m_type != Type::String)
            cell.kind = Cell::Verbatim;
        if (!m_sheet.appendText(text.data(), text.size()))
            return refuse(textLimit(0, m_sheet.textTotal() + qint64(text.size())), true);
        cell.a = start;
        cell.b = quint32(text.size());
    }
    return cell.b == 0 || m_sheet.addCell(m_cellRow, cell) || refuse(cellLimit(), true);
}

bool SheetHandler::finish()
{
    if (!m_sheetDataSeen)
        return refuse(QObject::tr("it holds no sheetData element"));
    return m_sheet.finish() || refuse(QObject::tr("a data area over 67,108,864 cells, fewer than one in "
                                                     "16 of them holding a value"),
                                         true);
}

} // namespace Xlsx
} // namespace Core
