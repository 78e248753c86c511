#ifndef CORE_XLSXPACKAGE_P_H
#define CORE_XLSXPACKAGE_P_H

#include <QHash>
#include <QString>

#include <quazip.h>

namespace Core {
namespace Xlsx {

class XmlHandler;

struct Relationship
{
    QString target; // part name, resolved against the owning part's folder
    QString type;
};

// The zip archive of a workbook and the relationships between its parts.
class XlsxPackage
{
public:
    enum class Result { Read, Missing, Failed };

    explicit XlsxPackage(const QString &path);
    bool open();
    // streamed: the part is not held in memory, so the cap for such parts does not apply.
    Result read(const QString &partName, XmlHandler &handler, bool streamed = false);
    // The internal relationships of a part (the package's own for an empty name), by id.
    Result relationships(const QString &partName, QHash<QString, Relationship> *relationships);
    // Why the last open() or read() failed, for a user.
    QString errorString() const { return m_error; }

private:
    QString m_path;
    QuaZip m_zip;
    QString m_error;
};

// Why a file that is no zip archive cannot be a workbook: missing, unreadable, a password-
// protected or legacy binary workbook, or something else.
QString describeNonArchive(const QString &path);

} // namespace Xlsx
} // namespace Core

#endif // CORE_XLSXPACKAGE_P_H
