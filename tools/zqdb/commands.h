#ifndef ZQDB_COMMANDS_H
#define ZQDB_COMMANDS_H

#include <QString>
#include <QStringList>

class QTextStream;

namespace Zqdb {

enum ExitCode { Success = 0, Failure = 1, Usage = 2 };

struct CatOptions
{
    qint64 from = 0;
    qint64 count = 20;
    QStringList columns;
    bool csv = false;
    QString output = QStringLiteral("-"); // "-": standard output
};

// Writes "zqdb COMMAND: message" as a line to err; returns code.
int fail(QTextStream &err, const char *command, const QString &message, int code = Failure);

// Each command writes its data to out and everything else (status, warnings, complaints) to
// err, and returns an ExitCode.
int listDatabases(QTextStream &out, QTextStream &err);
int showInfo(const QString &database, QTextStream &out, QTextStream &err);
int catRows(const QString &database, const CatOptions &options, QTextStream &out, QTextStream &err);
int exportCsv(const QString &database, const QString &csvFile, QTextStream &out, QTextStream &err);
// The warning for a text source that looks like UTF-8 but is read as GB2312; source is shown.
QString utf8Warning(const QString &command, const QString &source);
int walkMemoryTable(const QString &linesFile, bool utf8, bool encodingSet, QTextStream &out,
                    QTextStream &err);

} // namespace Zqdb

#endif // ZQDB_COMMANDS_H
