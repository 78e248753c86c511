#include "xlsxfixture.h"

#include <QCoreApplication>
#include <QDateTime>
#include <QJsonDocument>
#include <QProcess>

namespace TestSupport {

QJsonObject xlsxCell(int row, int column, const QVariant &value, const QString &format)
{
    QJsonObject cell{{"r", row}, {"c", column}, {"f", format}};
    if (value.userType() == QMetaType::QDate || value.userType() == QMetaType::QDateTime) {
        const QDateTime t = value.toDateTime();
        cell["v"] = QJsonArray{t.date().year(), t.date().month(), t.date().day(), t.time().hour(),
                               t.time().minute(), t.time().second() + t.time().msec() / 1000.0};
        cell["f"] = format.isEmpty() ? QStringLiteral("yyyy-mm-dd hh:mm:ss") : format;
    } else {
        cell["v"] = QJsonValue::fromVariant(value);
        // The writer leaves out blank cells that carry no format.
        if (!value.isValid() && format.isEmpty())
            cell["f"] = QStringLiteral("0.00");
    }
    return cell;
}

static bool runWriter(const QJsonObject &script)
{
    QProcess writer;
    writer.start(QCoreApplication::applicationDirPath() + QStringLiteral("/zqxlsxwrite"),
                 QStringList());
    writer.write(QJsonDocument(script).toJson(QJsonDocument::Compact));
    writer.closeWriteChannel();
    return writer.waitForFinished(300000) && writer.exitStatus() == QProcess::NormalExit
            && writer.exitCode() == 0;
}

bool writeXlsxSheets(const QString &path, const QList<QPair<QString, QJsonArray>> &sheets,
                     bool constantMemory)
{
    QJsonArray list;
    for (const auto &sheet : sheets)
        list.append(QJsonObject{{"name", sheet.first}, {"cells", sheet.second}});
    return runWriter({{"path", path}, {"constantMemory", constantMemory}, {"sheets", list}});
}

bool writeXlsx(const QString &path, const QList<QVariantList> &rows)
{
    QJsonArray cells;
    for (int row = 0; row < rows.size(); ++row) {
        for (int column = 0; column < rows.at(row).size(); ++column)
            cells.append(xlsxCell(row, column, rows.at(row).at(column)));
    }
    return writeXlsxSheets(path, {{QStringLiteral("Sheet1"), cells}});
}

bool writeXlsxGrid(const QString &path, int rows, int columns)
{
    const QJsonObject sheet{{"name", "Sheet1"}, {"grid", QJsonArray{rows, columns}}};
    return runWriter({{"path", path}, {"constantMemory", true}, {"sheets", QJsonArray{sheet}}});
}

} // namespace TestSupport
