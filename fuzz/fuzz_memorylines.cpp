// Any text as "@;!"-joined lines for the memory table, then a cursor walk and cell reads.
#include "fuzzsupport.h"

#include <database/memorydatabasemanager.h>

#include <QStringList>

#include <cstdio>
#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    FuzzSupport::ensureApplication();
    Database::MemoryDatabaseManager::init();
    Database::MemoryDatabaseManager *memory = Database::MemoryDatabaseManager::instance();

    const QString text = QString::fromUtf8(reinterpret_cast<const char *>(data), int(size));
    if (!memory->generateDatabase(QStringLiteral("TestTable"), text.split(QLatin1Char('\n'))))
        return 0;
    const int columns = memory->getTableColumnsCount();
    // Each read is a query: a bounded walk keeps wide or long inputs from timing out.
    const int readColumns = qMin(columns, 20) + 1;
    int visited = 0;
    do {
        for (int column = 0; column <= readColumns; ++column)
            memory->recordValue(column);
        memory->doNext();
    } while (!memory->isEnd() && ++visited < 200);
    memory->doGoTo(-1);
    memory->doPre();
    memory->recordValue(0, 0);
    memory->recordValue(memory->getTableRowsCount() - 1, columns - 1);
    // The free reader rejects a negative row, which SQLite would read as offset 0.
    if (memory->recordValue(-1, 0).isValid()) {
        std::fprintf(stderr, "a negative row was read\n");
        std::abort();
    }
    return 0;
}
