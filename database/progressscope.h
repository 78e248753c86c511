#ifndef DATABASE_PROGRESSSCOPE_H
#define DATABASE_PROGRESSSCOPE_H

#include <database/database_global.h>

#include <functional>

namespace Database {

// While a scope lives, the importers and the exporter running on the same thread report their
// progress to the innermost scope's callback; the callback returns false to cancel.
class ZQDATABASE_EXPORT ProgressScope
{
public:
    using Callback = std::function<bool(qint64 done, qint64 total)>;

    explicit ProgressScope(Callback callback);
    ~ProgressScope();

    ProgressScope(const ProgressScope &) = delete;
    ProgressScope &operator=(const ProgressScope &) = delete;

private:
    friend class ProgressReport;

    Callback m_callback;
    ProgressScope *m_outer;
};

} // namespace Database

#endif // DATABASE_PROGRESSSCOPE_H
