#ifndef XLSXFIXTURE_H
#define XLSXFIXTURE_H

#include <QJsonArray>
#include <QString>
#include <QStringList>
#include <QVariant>

namespace TestSupport {

// Writes .xlsx files with libxlsxwriter, so the reader is checked against a writer it shares no
// code with. The writer runs in the helper zqxlsxwrite beside the test executable (it cannot
// share a process with QuaZip). Cells go to the sheet added last; nothing is written before
// close().
class XlsxFixture
{
public:
    // constantMemory makes the writer use inline strings instead of the shared string table
    // (and requires rows to be written in order).
    explicit XlsxFixture(const QString &path, bool constantMemory = false);
    ~XlsxFixture();

    void addSheet(const QString &name);
    // QString: string; bool: boolean; QDate/QDateTime: date (numberFormat defaults to an ISO
    // pattern); other numbers: number; an invalid QVariant: a formatted blank cell.
    // numberFormat is a format code, or a built-in format's number.
    void write(int row, int column, const QVariant &value, const QString &numberFormat = QString());
    void writeRow(int row, const QVariantList &values);
    // A formula with its cached result, a number or a string.
    void writeFormula(int row, int column, const QString &formula, const QVariant &result);
    void writeRichString(int row, int column, const QStringList &runs);
    // rows x columns cells from (0, 0): texts "r<row>c<column>" counted from 1, or numbers.
    void writeGrid(int rows, int columns, bool numbers = false);
    // Runs the writer; false when it fails.
    bool close();

private:
    void add(const QJsonObject &cell);

    QString m_path;
    bool m_constantMemory;
    QJsonArray m_sheets;
    QJsonArray m_cells;
    QString m_sheetName;
    bool m_closed = false;
};

// One sheet of rows written from row 0, column 0; false when the writer fails.
bool writeXlsx(const QString &path, const QList<QVariantList> &rows, bool constantMemory = false);

} // namespace TestSupport

#endif // XLSXFIXTURE_H
