#ifndef CORE_XLSXSTYLES_P_H
#define CORE_XLSXSTYLES_P_H

#include "xlsxxml_p.h"

#include <QHash>
#include <QString>
#include <QVector>

namespace Core {
namespace Xlsx {

// How a number is shown: as a number, a date (with its time when that is not midnight), a time
// of day, or an elapsed time in hours. Other number formats are not applied.
enum class Display : quint8 { Number, Date, Time, Duration };

Display customDisplay(const QString &formatCode);
Display builtinDisplay(int numFmtId);
QString numberText(double value, Display display, bool date1904);

// Reads the display of every cell format (cellXfs) of a styles part, by index.
class StylesHandler : public XmlHandler
{
public:
    bool startElement(Ns ns, const char *name, const char **attributes) override;
    bool endElement() override;
    QVector<Display> displays() const;

private:
    int m_depth = 0;
    bool m_inNumFmts = false;
    bool m_inCellXfs = false;
    QHash<int, QString> m_formats;
    QVector<int> m_formatIds;
};

} // namespace Xlsx
} // namespace Core

#endif // CORE_XLSXSTYLES_P_H
