#include "jobqueue_p.h"

#include "jobcontext_p.h"
#include "progressscope.h"

#include <QAtomicInteger>
#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>
#include <QRunnable>
#include <QSqlDatabase>
#include <QThread>

#include <climits>

namespace Database {

namespace {

QAtomicInteger<quint64> jobCounter;

void cancelAtExit()
{
    JobQueue::instance().cancelAll();
}

} // namespace

struct JobQueue::Job
{
    QString file;
    Work work;
    QFutureInterface<JobResult> promise;
};

QString canonicalFileKey(const QString &path)
{
    const QFileInfo info(path);
    if (info.exists())
        return info.canonicalFilePath();
    const QString directory = QFileInfo(info.absolutePath()).canonicalFilePath();
    return QDir(directory.isEmpty() ? info.absolutePath() : directory).filePath(info.fileName());
}

JobQueue &JobQueue::instance()
{
    static JobQueue queue;
    return queue;
}

JobQueue::JobQueue()
{
    // The connection list and the driver loader are made before the queue, so that they outlive
    // it: its destructor still waits for jobs.
    QSqlDatabase::connectionNames();
    QSqlDatabase::isDriverAvailable(QStringLiteral("QSQLITE"));
    m_pool.setMaxThreadCount(qMax(2, QThread::idealThreadCount()));
}

JobQueue::~JobQueue()
{
    cancelAll();
}

QFuture<JobResult> JobQueue::submit(const QString &file, Work work)
{
    auto job = std::make_shared<Job>();
    job->file = canonicalFileKey(file);
    job->work = std::move(work);
    job->promise.setThreadPool(&m_pool);
    job->promise.reportStarted();
    const QFuture<JobResult> future = job->promise.future();

    std::unique_lock<std::mutex> locker(m_mutex);
    // Jobs still running when the application object goes are cancelled and waited for.
    if (!m_cleanupRegistered && QCoreApplication::instance()) {
        qAddPostRoutine(cancelAtExit);
        m_cleanupRegistered = true;
    }
    m_live.append(job);
    auto waiting = m_files.find(job->file);
    if (waiting != m_files.end()) {
        waiting->append(job);
        return future;
    }
    m_files.insert(job->file, {});
    locker.unlock();
    start(job);
    return future;
}

void JobQueue::start(const std::shared_ptr<Job> &job)
{
    QRunnable *runnable = QRunnable::create([this, job] { run(job); });
    m_pool.start(runnable);
}

void JobQueue::run(const std::shared_ptr<Job> &job)
{
    QFutureInterface<JobResult> &promise = job->promise;
    if (!promise.isCanceled()) {
        JobContext context;
        context.connectionName = QStringLiteral("zqdatabase-job-%1").arg(++jobCounter);
        JobResult result;
        {
            const JobContext::Scope installed(&context);
            qint64 range = -1;
            const ProgressScope progress([&](qint64 done, qint64 total) {
                // QFuture counts progress in int.
                const qint64 scale = total / INT_MAX + 1;
                if (total != range) {
                    range = total;
                    promise.setProgressRange(0, int(total / scale));
                }
                promise.setProgressValue(int(done / scale));
                return !promise.isCanceled();
            });
            result = job->work();
            result.code = context.code;
        }
        QSqlDatabase::removeDatabase(context.connectionName);
        // A cancelled future takes no result: resultOf() tells the cancel.
        promise.reportResult(result);
    }
    finished(job);
}

void JobQueue::finished(const std::shared_ptr<Job> &job)
{
    std::shared_ptr<Job> next;
    {
        const std::lock_guard<std::mutex> locker(m_mutex);
        m_live.removeOne(job);
        QList<std::shared_ptr<Job>> &waiting = m_files[job->file];
        if (waiting.isEmpty())
            m_files.remove(job->file);
        else
            next = waiting.takeFirst();
    }
    job->promise.reportFinished();
    if (next)
        start(next);
}

void JobQueue::cancelAll()
{
    {
        const std::lock_guard<std::mutex> locker(m_mutex);
        for (const std::shared_ptr<Job> &job : qAsConst(m_live))
            job->promise.cancel();
        m_cleanupRegistered = false;
    }
    m_pool.waitForDone();
}

} // namespace Database
