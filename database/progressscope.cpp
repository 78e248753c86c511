#include "progressscope.h"
#include "progressreport_p.h"

#include <utility>

namespace Database {

namespace {
// Scopes nest per thread: an operation reports to the scope opened last on its own thread.
thread_local ProgressScope *innermostScope = nullptr;
constexpr qint64 ReportsPerOperation = 200;
} // namespace

ProgressScope::ProgressScope(Callback callback)
    : m_callback(std::move(callback)), m_outer(innermostScope)
{
    innermostScope = this;
}

ProgressScope::~ProgressScope()
{
    innermostScope = m_outer;
}

ProgressReport::ProgressReport(qint64 total)
    : m_scope(scopeActive() ? innermostScope : nullptr)
    , m_total(qMax<qint64>(total, 0))
    , m_step(qMax<qint64>(m_total / ReportsPerOperation, 1))
{
    if (m_scope)
        report(0);
}

bool ProgressReport::scopeActive()
{
    return innermostScope && innermostScope->m_callback;
}

bool ProgressReport::finish()
{
    if (!m_scope || m_cancelled)
        return !m_cancelled;
    if (m_last == m_total)
        return true;
    return report(m_total);
}

// Calls the callback with done clamped to [last report, total], so done never goes back. The
// next report is a step past the real position, so a total that fell short still throttles.
bool ProgressReport::report(qint64 done)
{
    m_next = done + m_step;
    done = qBound(qMax<qint64>(m_last, 0), done, m_total);
    m_last = done;
    if (!m_scope->m_callback(done, m_total))
        m_cancelled = true;
    return !m_cancelled;
}

} // namespace Database
