#ifndef CORE_HANDOVER_P_H
#define CORE_HANDOVER_P_H

#include <QtGlobal>

#include <condition_variable>
#include <deque>
#include <mutex>

namespace Core {

// Hands items from a producing thread to a consuming one through a queue of bounded cost, so
// that the producer runs ahead only so far; either side may end the exchange.
template<typename T>
class HandOver
{
public:
    explicit HandOver(qint64 maxCost) : m_maxCost(maxCost) { }

    // Waits for room; false, with the item dropped, when the consumer has stopped.
    bool put(T item, qint64 cost)
    {
        std::unique_lock<std::mutex> lock(m_mutex);
        m_changed.wait(lock, [&] { return m_cost < m_maxCost || m_stopped; });
        if (m_stopped)
            return false;
        m_cost += cost;
        m_items.push_back({std::move(item), cost});
        m_changed.notify_all();
        return true;
    }
    // No more items will come; failed tells the consumer that they are not all there.
    void finish(bool failed)
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_finished = true;
        m_failed = failed;
        m_changed.notify_all();
    }
    // Waits for the next item; false once all have been taken.
    bool take(T *item)
    {
        std::unique_lock<std::mutex> lock(m_mutex);
        m_changed.wait(lock, [this] { return !m_items.empty() || m_finished; });
        if (m_items.empty())
            return false;
        *item = std::move(m_items.front().item);
        m_cost -= m_items.front().cost;
        m_items.pop_front();
        m_changed.notify_all();
        return true;
    }
    // After take() returned false: whether the producer failed.
    bool failed()
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        return m_failed;
    }
    // The consumer wants no more: a waiting producer returns.
    void stop()
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_stopped = true;
        m_changed.notify_all();
    }

private:
    struct Entry
    {
        T item;
        qint64 cost;
    };
    const qint64 m_maxCost;
    std::mutex m_mutex;
    std::condition_variable m_changed;
    std::deque<Entry> m_items;
    qint64 m_cost = 0;
    bool m_stopped = false;
    bool m_finished = false;
    bool m_failed = false;
};

} // namespace Core

#endif // CORE_HANDOVER_P_H
