#ifndef ZQDB_PROGRESSBAR_H
#define ZQDB_PROGRESSBAR_H

#include <QElapsedTimer>
#include <QString>

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

    // Until a bar exists, Ctrl-C deletes the files registered below and ends the process; from
    // then on the first Ctrl-C asks the running operation to stop and a second one does that.
    // Install it before the first temporary file is made.
    static void installInterruptHandler();
    // Registers a file (at most 8) that Ctrl-C deletes before it ends the process.
    static void removeOnInterrupt(const QString &path);
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
