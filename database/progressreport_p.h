#ifndef DATABASE_PROGRESSREPORT_P_H
#define DATABASE_PROGRESSREPORT_P_H

#include <QtGlobal>

namespace Database {

class ProgressScope;

// One operation's progress, handed to the innermost ProgressScope of the calling thread. Without
// a scope every call is a test of one pointer, so operations run as fast as without reporting.
class ProgressReport
{
public:
    // Reports (0, total) when a scope lives on this thread.
    explicit ProgressReport(qint64 total);

    // Whether a scope lives on this thread, for operations whose total costs work to find.
    static bool scopeActive();

    bool isActive() const { return m_scope != nullptr; }
    bool isCancelled() const { return m_cancelled; }

    // Reports done once it has moved a step (1/200 of the total) past the last report, or at
    // once when forced; false once the callback has asked to cancel.
    bool advance(qint64 done, bool force = false)
    {
        if (!m_scope || m_cancelled)
            return !m_cancelled;
        if (done < m_next && !force)
            return true;
        return report(done);
    }

    // Reports (total, total) unless that was the last report; false when cancelled.
    bool finish();

private:
    bool report(qint64 done);

    ProgressScope *m_scope;
    qint64 m_total;
    qint64 m_step;
    qint64 m_next = 0;
    qint64 m_last = -1;
    bool m_cancelled = false;
};

} // namespace Database

#endif // DATABASE_PROGRESSREPORT_P_H
