#ifndef ZQDB_PROGRESSBAR_H
#define ZQDB_PROGRESSBAR_H

#include <QElapsedTimer>
#include <QString>

#include <cstdio>

namespace Zqdb {

// Draws one self-updating line on standard error while an import or export reports progress,
// and turns Ctrl-C into a cancel request that the operation sees at its next report.
class ProgressBar
{
public:
    enum Unit { Bytes, Rows };

    // The bar is drawn only when standard error is a terminal; cancelling works either way.
    ProgressBar(const QString &label, Unit unit);
    ~ProgressBar();

    // The ProgressScope callback: draws (done, total) and returns false once Ctrl-C was pressed.
    bool update(qint64 done, qint64 total);
    // Clears the bar's line so that the next message starts on a clean line.
    void clear();

    // The first Ctrl-C asks the running operation to stop; a second one ends the process.
    // removeOnSecondInterrupt names a database file to delete, with its journal, before that
    // happens (or null).
    static void installInterruptHandler(const char *removeOnSecondInterrupt = nullptr);
    static bool interrupted();

private:
    QString amount(double value) const;

    QString m_label;
    Unit m_unit;
    bool m_draw;
    bool m_drawn = false;
    QElapsedTimer m_clock;
    qint64 m_lastDrawMs = -1000;
};

} // namespace Zqdb

#endif // ZQDB_PROGRESSBAR_H
