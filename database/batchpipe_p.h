#ifndef DATABASE_BATCHPIPE_P_H
#define DATABASE_BATCHPIPE_P_H

#include "tablewriter_p.h"

#include <atomic>
#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>

namespace Database {

// Hands batches of rows from a helper thread, which reads, decodes and splits the source, to the
// calling thread, which writes them through its own connection: the two cores of a machine
// work on one import. The helper fills the next batch while one is written and hands it over
// once that one is done, so no more than two batches are held. The
// helper touches no connection and no progress scope; the pipe is joined before its owner
// returns.
class BatchPipe
{
public:
    struct Batch
    {
        RowBatch rows;
        int columnCount = 0; // the widest row of the source up to this batch's end
        qint64 end = 0;      // bytes of the source read up to the batch's last row
        bool last = false;   // no batch follows; its rows may be fewer than a table's
    };
    using Producer = std::function<void(BatchPipe &pipe)>;

    // Starts producer on the helper thread; it ends with a last batch, or when stopped.
    explicit BatchPipe(Producer producer);
    ~BatchPipe();
    BatchPipe(const BatchPipe &) = delete;
    BatchPipe &operator=(const BatchPipe &) = delete;

    // Helper side. Hands *batch over once the batch before it is written and leaves an empty one
    // in its place, with that one's buffers; false once the calling side has stopped the pipe.
    bool push(Batch *batch);
    void setPosition(qint64 position) { m_position.store(position, std::memory_order_relaxed); }
    bool isStopped() const { return m_stopped.load(std::memory_order_relaxed); }

    // Calling side. Waits for the next batch; meanwhile calls waiting with the helper's
    // position now and then, and stops the pipe (false) when it returns false.
    bool next(Batch *batch, const std::function<bool(qint64 position)> &waiting);
    // Gives a written batch's buffers back to the helper.
    void recycle(Batch *batch);
    // Asks the helper to stop and waits for it.
    void stop();

private:
    std::mutex m_mutex;
    std::condition_variable m_changed;
    std::deque<Batch> m_ready;
    std::deque<Batch> m_spare;
    int m_taken = 0; // handed to the calling side and not yet given back
    std::atomic<qint64> m_position{0};
    std::atomic<bool> m_stopped{false};
    bool m_unbounded = false;
    std::thread m_thread;
};

} // namespace Database

#endif // DATABASE_BATCHPIPE_P_H
