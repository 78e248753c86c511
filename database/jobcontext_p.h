#ifndef DATABASE_JOBCONTEXT_P_H
#define DATABASE_JOBCONTEXT_P_H

#include <QString>

namespace Database {

// What changes when an importer or the exporter runs inside a job on the library's own threads:
// the Qt connection it uses (the described names belong to the host's thread), no event pump,
// and a place for the text importer's result code, which its class keeps private.
struct JobContext
{
    QString connectionName;
    int code = 0;

    // The job running on this thread, or null on a host's thread.
    static JobContext *current() { return s_current; }
    // The connection of the job on this thread, else the described one.
    static QString connectionNameOr(const QString &described)
    {
        return s_current ? s_current->connectionName : described;
    }
    static void reportCode(int code)
    {
        if (s_current)
            s_current->code = code;
    }

    // Installs context for this thread while it lives.
    class Scope
    {
    public:
        explicit Scope(JobContext *context) : m_outer(s_current) { s_current = context; }
        ~Scope() { s_current = m_outer; }
        Scope(const Scope &) = delete;
        Scope &operator=(const Scope &) = delete;

    private:
        JobContext *m_outer;
    };

private:
    static inline thread_local JobContext *s_current = nullptr;
};

} // namespace Database

#endif // DATABASE_JOBCONTEXT_P_H
