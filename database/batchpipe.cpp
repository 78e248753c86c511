#include "batchpipe_p.h"

#include <chrono>
#include <system_error>

namespace Database {

namespace {
// How often a waiting caller hears of the helper's position.
constexpr std::chrono::milliseconds ReportInterval(20);
} // namespace

BatchPipe::BatchPipe(Producer producer)
{
    try {
        m_thread = std::thread([this, producer] { producer(*this); });
    } catch (const std::system_error &) {
        // No thread to be had: the source is read here at once, every batch held.
        m_unbounded = true;
        producer(*this);
    }
}

BatchPipe::~BatchPipe()
{
    stop();
}

bool BatchPipe::push(Batch *batch)
{
    std::unique_lock<std::mutex> lock(m_mutex);
    m_changed.wait(lock, [this] {
        return m_unbounded || (m_ready.empty() && m_taken == 0) || isStopped();
    });
    if (isStopped())
        return false;
    m_ready.push_back(std::move(*batch));
    if (m_spare.empty()) {
        *batch = Batch();
    } else {
        *batch = std::move(m_spare.front());
        m_spare.pop_front();
    }
    m_changed.notify_all();
    return true;
}

bool BatchPipe::next(Batch *batch, const std::function<bool(qint64)> &waiting)
{
    std::unique_lock<std::mutex> lock(m_mutex);
    while (m_ready.empty()) {
        if (m_changed.wait_for(lock, ReportInterval, [this] { return !m_ready.empty(); }))
            break;
        lock.unlock();
        const bool goOn = waiting(m_position.load(std::memory_order_relaxed));
        lock.lock();
        if (!goOn) {
            lock.unlock();
            stop();
            return false;
        }
    }
    *batch = std::move(m_ready.front());
    m_ready.pop_front();
    ++m_taken;
    return true;
}

void BatchPipe::recycle(Batch *batch)
{
    batch->rows.clear();
    batch->columnCount = 0;
    batch->end = 0;
    batch->last = false;
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_spare.push_back(std::move(*batch));
    --m_taken;
    m_changed.notify_all();
}

void BatchPipe::stop()
{
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_stopped.store(true, std::memory_order_relaxed);
        m_changed.notify_all();
    }
    if (m_thread.joinable())
        m_thread.join();
}

} // namespace Database
