#ifndef ZQDB_COMMANDS_H
#define ZQDB_COMMANDS_H

#include <QString>
#include <QStringList>

class QTextStream;

namespace Zqdb {

enum ExitCode { Success = 0, Failure = 1, Usage = 2 };

struct CatOptions
{
    int from = 0;
    int count = 20;
    QStringList columns;
    bool csv = false;
};

// Each command writes its result to out and its complaints to err, and returns an ExitCode.
int listDatabases(QTextStream &out, QTextStream &err);
int showInfo(const QString &database, QTextStream &out, QTextStream &err);
int catRows(const QString &database, const CatOptions &options, QTextStream &out, QTextStream &err);
int importFile(const QString &source, const QString &databaseFile, const QString &separator,
               bool separatorSet, QTextStream &out, QTextStream &err);
int exportCsv(const QString &database, const QString &csvFile, QTextStream &out, QTextStream &err);
int walkMemoryTable(const QString &linesFile, QTextStream &out, QTextStream &err);

} // namespace Zqdb

#endif // ZQDB_COMMANDS_H
