// Any bytes as a spreadsheet: open it and read every cell of a bounded data area.
#include "fuzzsupport.h"

#include <core/xlsxreader.h>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    FuzzSupport::ensureApplication();
    static const QString path = FuzzSupport::scratch().filePath(QStringLiteral("input.xlsx"));
    if (!FuzzSupport::writeInput(path, data, size))
        return 0;

    Core::XlsxReader reader;
    if (!reader.open(path) || reader.isEmpty())
        return 0;
    const int rows = qMin(reader.rowCount(), 2000);
    const int columns = qMin(reader.columnCount(), 200);
    for (int row = 0; row < rows; ++row)
        for (int column = 0; column < columns; ++column)
            reader.textAt(row, column);
    // Out-of-range reads must answer with empty text, not crash.
    reader.textAt(-1, 0);
    reader.textAt(reader.rowCount(), reader.columnCount());
    return 0;
}
