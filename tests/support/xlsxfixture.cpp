#include "xlsxfixture.h"

#include <QCoreApplication>
#include <QDateTime>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>

namespace TestSupport {

XlsxFixture::XlsxFixture(const QString &path, bool constantMemory)
    : m_path(path), m_constantMemory(constantMemory)
{
}

XlsxFixture::~XlsxFixture()
{
    close();
}

void XlsxFixture::addSheet(const QString &name)
{
    if (!m_sheetName.isNull())
        m_sheets.append(QJsonObject{{"name", m_sheetName}, {"cells", m_cells}});
    m_sheetName = name;
    m_cells = QJsonArray();
}

void XlsxFixture::add(const QJsonObject &cell)
{
    if (m_sheetName.isNull())
        m_sheetName = QStringLiteral("Sheet1");
    m_cells.append(cell);
}

void XlsxFixture::write(int row, int column, const QVariant &value, const QString &numberFormat)
{
    QJsonObject cell{{"row", row}, {"column", column}, {"format", numberFormat}};
    switch (value.userType()) {
    case QMetaType::UnknownType:
        cell.insert("type", "blank");
        if (numberFormat.isEmpty())
            cell.insert("format", "0.00");
        break;
    case QMetaType::QString:
        cell.insert("type", "string");
        cell.insert("value", value.toString());
        break;
    case QMetaType::Bool:
        cell.insert("type", "bool");
        cell.insert("value", value.toBool());
        break;
    case QMetaType::QDate:
    case QMetaType::QDateTime: {
        const QDateTime dt = value.toDateTime();
        cell.insert("type", "datetime");
        cell.insert("value", QJsonArray{dt.date().year(), dt.date().month(), dt.date().day(),
                                        dt.time().hour(), dt.time().minute(),
                                        dt.time().second() + dt.time().msec() / 1000.0});
        if (numberFormat.isEmpty())
            cell.insert("format", "yyyy-mm-dd hh:mm:ss");
        break;
    }
    default:
        cell.insert("type", "number");
        cell.insert("value", value.toDouble());
        break;
    }
    add(cell);
}

void XlsxFixture::writeRow(int row, const QVariantList &values)
{
    for (int column = 0; column < values.size(); ++column) {
        if (values.at(column).isValid())
            write(row, column, values.at(column));
    }
}

void XlsxFixture::writeFormula(int row, int column, const QString &formula, const QVariant &result)
{
    const bool text = result.userType() == QMetaType::QString;
    add(QJsonObject{{"row", row},
                    {"column", column},
                    {"type", text ? "formulaString" : "formulaNumber"},
                    {"formula", formula},
                    {"value", QJsonValue::fromVariant(result)}});
}

void XlsxFixture::writeRichString(int row, int column, const QStringList &runs)
{
    add(QJsonObject{{"row", row}, {"column", column}, {"type", "rich"},
                    {"value", QJsonArray::fromStringList(runs)}});
}

void XlsxFixture::writeGrid(int rows, int columns, bool numbers)
{
    add(QJsonObject{{"row", 0}, {"column", 0}, {"type", "grid"}, {"rows", rows},
                    {"columns", columns}, {"value", numbers ? "numbers" : "texts"}});
}

bool XlsxFixture::close()
{
    if (m_closed)
        return false;
    m_closed = true;
    if (m_sheetName.isNull() && m_sheets.isEmpty())
        m_sheetName = QStringLiteral("Sheet1");
    addSheet(QString());
    const QJsonObject script{{"path", m_path}, {"constantMemory", m_constantMemory},
                             {"sheets", m_sheets}};
    QProcess writer;
    writer.start(QCoreApplication::applicationDirPath() + QStringLiteral("/zqxlsxwrite"),
                 QStringList());
    if (!writer.waitForStarted())
        return false;
    writer.write(QJsonDocument(script).toJson(QJsonDocument::Compact));
    writer.closeWriteChannel();
    return writer.waitForFinished(300000) && writer.exitStatus() == QProcess::NormalExit
            && writer.exitCode() == 0;
}

bool writeXlsx(const QString &path, const QList<QVariantList> &rows, bool constantMemory)
{
    XlsxFixture fixture(path, constantMemory);
    for (int row = 0; row < rows.size(); ++row)
        fixture.writeRow(row, rows.at(row));
    return fixture.close();
}

} // namespace TestSupport
