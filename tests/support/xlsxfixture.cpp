#include "xlsxfixture.h"

#include <QCoreApplication>
#include <QDate>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>

namespace TestSupport {

bool writeXlsx(const QString &path, const QList<QVariantList> &rows)
{
    QJsonArray sheet;
    for (const QVariantList &row : rows) {
        QJsonArray cells;
        for (const QVariant &v : row)
            cells.append(v.userType() != QMetaType::QDate ? QJsonValue::fromVariant(v)
                    : QJsonObject{{"date", QDate(1899, 12, 30).daysTo(v.toDate())}});
        sheet.append(cells);
    }
    QProcess writer;
    writer.start(QCoreApplication::applicationDirPath() + "/zqxlsxwrite", QStringList());
    writer.write(QJsonDocument(QJsonObject{{"path", path}, {"rows", sheet}}).toJson());
    writer.closeWriteChannel();
    return writer.waitForFinished(300000) && writer.exitStatus() == QProcess::NormalExit
            && writer.exitCode() == 0;
}

bool writeXlsxGrid(const QString &path, int rows, int columns)
{
    QList<QVariantList> grid;
    for (int r = 1; r <= rows; ++r) {
        grid.append(QVariantList());
        for (int c = 1; c <= columns; ++c)
            grid.last().append(QStringLiteral("r%1c%2").arg(r).arg(c));
    }
    return writeXlsx(path, grid);
}

} // namespace TestSupport
