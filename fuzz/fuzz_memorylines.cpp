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
    int visited = 0;
    do {
        for (int column = 0; column <= columns + 1; ++column)
            memory->recordValue(column);
        memory->doNext();
    } while (!memory->isEnd() && ++visited < 1000);
    memory->doGoTo(-1);
    memory->doPre();
    memory->recordValue(0, 0);
    memory->recordValue(memory->getTableRowsCount() - 1, columns - 1);
    // The free reader rejects anything out of range.
    if (memory->recordValue(-1, 0).isValid() || memory->recordValue(0, columns).isValid()
        || memory->recordValue(memory->getTableRowsCount(), 0).isValid()) {
        std::fprintf(stderr, "out-of-range read answered\n");
        std::abort();
    }
    return 0;
}
