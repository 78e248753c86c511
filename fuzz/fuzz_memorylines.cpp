// Any text as "@;!"-joined lines for the memory table, then a cursor walk and cell reads.
#include "fuzzsupport.h"

#include <database/memorydatabasemanager.h>

#include <QStringList>

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
    return 0;
}
