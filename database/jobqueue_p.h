#ifndef DATABASE_JOBQUEUE_P_H
#define DATABASE_JOBQUEUE_P_H

#include <database/jobresult.h>

#include <QFuture>
#include <QFutureInterface>
#include <QHash>
#include <QList>
#include <QString>
#include <QThreadPool>

#include <functional>
#include <memory>
#include <mutex>

namespace Database {

// Runs the library's jobs on its own threads. Jobs on one file run in the order they came, one
// after another; jobs on different files overlap. Each job has a connection name of its own,
// set in a JobContext for the importers and the exporter, and removed when it ends.
class JobQueue
{
public:
    using Work = std::function<JobResult()>;

    static JobQueue &instance();

    // Queues work for file (the database it writes or reads); the future carries its progress.
    QFuture<JobResult> submit(const QString &file, Work work);
    // Cancels every job, queued or running, and returns once none runs.
    void cancelAll();

    ~JobQueue();

private:
    struct Job;

    JobQueue();
    void start(const std::shared_ptr<Job> &job);
    void run(const std::shared_ptr<Job> &job);
    void finished(const std::shared_ptr<Job> &job);

    // A standard mutex, which ThreadSanitizer sees through, unlike Qt's.
    std::mutex m_mutex;
    // A file with an entry has a job running; the list holds the ones waiting for it.
    QHash<QString, QList<std::shared_ptr<Job>>> m_files;
    QList<std::shared_ptr<Job>> m_live;
    bool m_cleanupRegistered = false;
    QThreadPool m_pool;
};

// The key under which jobs on one file wait for each other: its canonical path, or for a file
// not there yet, its canonical directory and its name.
QString canonicalFileKey(const QString &path);

} // namespace Database

#endif // DATABASE_JOBQUEUE_P_H
