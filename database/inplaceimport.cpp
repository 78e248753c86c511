#include "inplaceimport.h"
#include "databasefilesurvey.h"
#include "rowblockreader.h"

namespace Database {

int InPlaceImport::valueColumns(const QString &databaseFile)
{
    return DatabaseFileSurvey::declaredTypes(databaseFile, QStringLiteral("table1")).size() - 1;
}

QStringList InPlaceImport::keptTables(const QStringList &tablesBefore, qint64 importedRows)
{
    const qint64 perTable = RowBlockReader::ImporterRowsPerTable;
    const qint64 filled = (qMax<qint64>(importedRows, 0) + perTable - 1) / perTable;
    QStringList kept;
    for (const QString &name : tablesBefore) {
        // "table01" or "table2x" are not the importer's: only the exact spelling counts.
        const qint64 index = name.startsWith(QLatin1String("table")) ? name.mid(5).toLongLong() : 0;
        if (index < 1 || index > filled || name != QStringLiteral("table%1").arg(index))
            kept << name;
    }
    return kept;
}

} // namespace Database
