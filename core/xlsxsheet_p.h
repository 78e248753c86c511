#ifndef CORE_XLSXSHEET_P_H
#define CORE_XLSXSHEET_P_H

#include "xlsxsharedstrings_p.h"
#include "xlsxstyles_p.h"
#include "xlsxxml_p.h"

#include <QByteArray>
#include <QString>
#include <QVector>

#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace Core {
namespace Xlsx {

// A stored cell: what it holds and where to find it, its text built only when asked for.
struct Cell
{
    enum Kind : quint8 { Shared, String, Verbatim, Number };
    quint16 column;
    Kind kind;
    Display display; // of a number
    // Shared: a is the shared string index. String, Verbatim: a and b are the position and size
    // in the text pool. Number: the bits of the double.
    quint32 a;
    quint32 b;
};

// Cells in blocks that never move, so that growing the list never copies it.
class CellList
{
public:
    size_t size() const { return m_size; }
    Cell &operator[](size_t i) { return m_blocks[i >> BlockBits][i & BlockMask]; }
    const Cell &operator[](size_t i) const { return m_blocks[i >> BlockBits][i & BlockMask]; }
    void append(const Cell &cell);
    void clear();

private:
    static constexpr int BlockBits = 16;
    static constexpr size_t BlockMask = (size_t(1) << BlockBits) - 1;
    std::vector<std::unique_ptr<Cell[]>> m_blocks;
    size_t m_size = 0;
};

// The cells of one worksheet and the texts they use, stored by row and column; or, to read a
// sheet of any size, handed on row by row as they are read and bounded (Stream).
class SheetData
{
public:
    enum class Mode { Store, Stream };
    // Receives each row that holds cells, in order, with its cells by column.
    using RowFunction = std::function<bool(int row, const Cell *cells, size_t count)>;

    QString text(int row, int column) const;
    int rows() const { return m_rows; }
    int columns() const { return m_columns; }
    bool isEmpty() const { return m_mode == Mode::Store ? m_cells.size() == 0 : m_seen == 0; }
    // After a stream: whether the cells came in order, so that the rows handed on hold them all.
    bool isOrdered() const { return m_sorted; }
    Mode mode() const { return m_mode; }
    // Texts read from here on are kept only while their cell or row needs them.
    void setMode(Mode mode, RowFunction rowReady = {});
    // A sheet that shares this one's shared strings and cell formats, to stream on another
    // thread.
    std::unique_ptr<SheetData> sharedCopy() const;
    // Lets the shared strings move to a temporary file once they are large; before they are read.
    void keepSharedStringsInFile() { m_shared->allowFile(); }
    // Gives back the memory of the shared strings read so far, when they are in a file.
    void releaseSharedStrings() const { m_shared->release(); }
    // Stream: the texts of the row being handed on, where its cells point.
    const QByteArray &rowTexts() const { return m_rowTexts; }
    // The text of a stored or streamed cell; rowTexts, when given, holds the cell's own text.
    QString cellText(const Cell &cell, const QByteArray *rowTexts = nullptr) const;
    // As cellText, as UTF-8 appended to out; false, with nothing appended, when UTF-8 cannot
    // carry it (an escaped lone surrogate).
    bool appendCellUtf8(const Cell &cell, QByteArray *out,
                        const QByteArray *rowTexts = nullptr) const;

    bool date1904 = false;
    QVector<Display> displays; // by cell format index

private:
    friend class TextCollector;
    friend class SharedStringsHandler;
    friend class SheetHandler;

    struct Span
    {
        quint32 pos;
        quint32 size;
    };
    struct RowStart
    {
        qint32 row;
        quint32 index;
    };

    bool appendText(const char *text, size_t size);
    // Where the texts of cells go: with the shared strings when stored, else only for a row.
    QByteArray &texts() { return m_mode == Mode::Store ? m_pool : m_rowTexts; }
    const QByteArray &texts() const { return m_mode == Mode::Store ? m_pool : m_rowTexts; }
    // What the texts limit counts: a stream holds the texts of one row.
    qint64 textTotal() const
    {
        return m_pool.size() + m_shared->movedBytes()
                + (m_mode == Mode::Store ? 0 : m_rowTexts.size());
    }
    Span takeText(quint32 start) const { return {start, quint32(texts().size()) - start}; }
    bool addCell(int row, const Cell &cell);
    bool streamCell(int row, Cell cell);
    bool flushRow();
    static bool areaFits(qint64 area, qint64 cells);
    bool finish();
    void sortCells();

    // UTF-8 texts back to back; shared with copies made for streaming, which only read them.
    QByteArray m_pool;
    std::unique_ptr<SharedStringTable> m_shared = std::make_unique<SharedStringTable>();
    CellList m_cells;
    // While reading: the first cell of every run of cells in one row. Then: rows by index.
    std::vector<RowStart> m_runs;
    std::vector<quint32> m_rowStarts;
    bool m_sorted = true;
    int m_rows = 0;
    int m_columns = 0;

    Mode m_mode = Mode::Store;
    QByteArray m_rowTexts; // Stream
    size_t m_seen = 0; // Stream: cells met
    int m_lastRow = -1;
    int m_lastColumn = -1;
    RowFunction m_rowReady; // Stream
    std::vector<Cell> m_rowCells;
};

// Collects the text of a rich text element (<si>, <is>) without its phonetic guides into the
// text pool.
class TextCollector
{
public:
    explicit TextCollector(SheetData &sheet) : m_sheet(sheet) { }
    void begin(int depth);
    bool active() const { return m_baseDepth > 0; }
    // Called for every element inside; depth counts from the document root.
    void start(Ns ns, const char *name, int depth);
    // False, with the limit passed set on the handler, when the text grows too large.
    bool characters(const char *text, int size, int depth, XmlHandler *handler);
    // At the end tag of an element; true when it closes the rich text.
    bool end(int depth, SheetData::Span *span);

private:
    SheetData &m_sheet;
    int m_baseDepth = 0;
    int m_runDepth = 0; // of an <r> run
    int m_textDepth = 0; // of the <t> being collected
    quint32 m_start = 0;
};

class SharedStringsHandler : public XmlHandler
{
public:
    explicit SharedStringsHandler(SheetData &sheet) : m_sheet(sheet), m_text(sheet) { }
    bool startElement(Ns ns, const char *name, const char **attributes) override;
    bool endElement() override;
    bool characters(const char *text, int size) override;
    // After the part: false when the texts moved to a file could not be kept.
    bool finish();

private:
    SheetData &m_sheet;
    TextCollector m_text;
    int m_depth = 0;
};

class SheetHandler : public XmlHandler
{
public:
    explicit SheetHandler(SheetData &sheet) : m_sheet(sheet), m_text(sheet) { }
    bool startElement(Ns ns, const char *name, const char **attributes) override;
    bool endElement() override;
    bool characters(const char *text, int size) override;
    // After the parse: false when the part held no sheet data or too large an area.
    bool finish();

private:
    bool startRow(const char **attributes);
    bool startCell(const char **attributes);
    bool endCell();

    SheetData &m_sheet;
    TextCollector m_text;
    int m_depth = 0;
    int m_level = 0; // depth of the innermost open worksheet, sheetData, row or c
    bool m_sheetDataSeen = false;
    int m_row = 0;
    int m_cellRow = 0;
    int m_nextRow = 0;
    int m_column = 0;
    int m_nextColumn = 0;
    // The cell's t attribute, told apart once per cell.
    enum class Type { Number, Shared, Boolean, String, Other };
    Type m_type = Type::Number;
    int m_style = -1;
    bool m_inValue = false;
    bool m_hasValue = false;
    bool m_hasInline = false;
    std::string m_value;
    SheetData::Span m_inline = {0, 0};
};

} // namespace Xlsx
} // namespace Core

#endif // CORE_XLSXSHEET_P_H
