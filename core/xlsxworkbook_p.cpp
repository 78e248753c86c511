#include "xlsxworkbook_p.h"

#include "xlsxpackage_p.h"
#include "xlsxsheet_p.h"
#include "xlsxstyles_p.h"
#include "xlsxxml_p.h"

#include <QObject>
#include <QStringList>

#include <cstring>

namespace Core {
namespace Xlsx {

namespace {

// The workbook's date system and its sheets' relationship ids, in workbook order.
class WorkbookHandler : public XmlHandler
{
public:
    bool startElement(Ns ns, const char *name, const char **attributes) override
    {
        ++m_depth;
        if (ns != Ns::Main)
            return true;
        if (m_depth == 2) {
            m_inSheets = std::strcmp(name, "sheets") == 0;
            if (std::strcmp(name, "workbookPr") == 0) {
                const char *value = attribute(attributes, Ns::None, "date1904");
                date1904 = value && (std::strcmp(value, "1") == 0 || std::strcmp(value, "true") == 0);
            }
        } else if (m_depth == 3 && m_inSheets && std::strcmp(name, "sheet") == 0) {
            if (const char *id = attribute(attributes, Ns::Relationships, "id"))
                sheetIds.append(QString::fromUtf8(id));
        }
        return true;
    }
    bool endElement() override
    {
        --m_depth;
        return true;
    }

    bool date1904 = false;
    QStringList sheetIds;

private:
    int m_depth = 0;
    bool m_inSheets = false;
};

// The target of the relationship of the given type with the lowest Id: a package has one of
// each, and one with several is read the same way in every process (QHash order is seeded).
QString targetOfType(const QHash<QString, Relationship> &relationships, QLatin1String type)
{
    QString id;
    QString target;
    for (auto it = relationships.cbegin(); it != relationships.cend(); ++it) {
        if (it->type.endsWith(type) && (id.isNull() || it.key() < id)) {
            id = it.key();
            target = it->target;
        }
    }
    return target;
}

} // namespace

bool readWorkbook(XlsxPackage &package, SheetData &sheet, QString *sheetPart, QString *error)
{
    using Result = XlsxPackage::Result;
    const auto fail = [error](const QString &reason) {
        *error = reason;
        return false;
    };
    // The package relationships name the workbook; the usual place is the fallback, also when
    // they are damaged, as other readers do.
    QHash<QString, Relationship> relationships;
    if (package.relationships(QString(), &relationships) == Result::Failed)
        relationships.clear();
    QString workbook = targetOfType(relationships, QLatin1String("/officeDocument"));
    if (workbook.isEmpty())
        workbook = QStringLiteral("xl/workbook.xml");
    WorkbookHandler book;
    relationships.clear();
    if (package.read(workbook, book) != Result::Read
        || package.relationships(workbook, &relationships) != Result::Read)
        return fail(package.errorString());
    sheet.date1904 = book.date1904;

    sheetPart->clear();
    for (const QString &id : qAsConst(book.sheetIds)) {
        const Relationship relationship = relationships.value(id);
        if (relationship.type.endsWith(QLatin1String("/worksheet"))) {
            *sheetPart = relationship.target;
            break;
        }
    }
    if (sheetPart->isEmpty())
        return fail(QObject::tr("The workbook has no worksheet."));

    const QString sharedStrings =
            targetOfType(relationships, QLatin1String("/sharedStrings"));
    SharedStringsHandler sharedStringsHandler(sheet);
    if (!sharedStrings.isEmpty() && package.read(sharedStrings, sharedStringsHandler) != Result::Read)
        return fail(package.errorString());
    if (!sharedStringsHandler.finish())
        return fail(QObject::tr("The part %1 passes a limit: no room for its texts in the "
                                "temporary folder.").arg(sharedStrings));
    const QString styles = targetOfType(relationships, QLatin1String("/styles"));
    StylesHandler stylesHandler;
    if (!styles.isEmpty() && package.read(styles, stylesHandler) != Result::Read)
        return fail(package.errorString());
    sheet.displays = stylesHandler.displays();
    return true;
}

bool readSheet(XlsxPackage &package, const QString &sheetPart, SheetData &sheet, QString *error)
{
    SheetHandler handler(sheet);
    if (package.read(sheetPart, handler, sheet.mode() != SheetData::Mode::Store)
        != XlsxPackage::Result::Read) {
        *error = package.errorString();
        return false;
    }
    if (handler.finish())
        return true;
    *error = (handler.limitPassed ? QObject::tr("The part %1 passes a limit: %2.")
                                  : QObject::tr("The part %1 is damaged: %2."))
                     .arg(sheetPart, handler.refusal);
    return false;
}

} // namespace Xlsx
} // namespace Core
