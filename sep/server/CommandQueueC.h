#pragma once
// One connection's commands, run in the order they arrived on a thread of their own, away from the port's
// I/O task: a slow command delays only the connection that sent it, and its replies keep the order of
// its commands. The I/O task holds the connection's reads after every chunk it hands over, until the
// thread has run it, so a client cannot grow the queue.
#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include "framework/CancelTokenC.h"

namespace HalvernRpc {

class CommandQueueC {
public:
    using RunFn = std::function<void(const std::vector<std::uint8_t>& bytes)>;
    using ResumeFn = std::function<void()>;

    // `run` gets each received chunk in order on the queue's thread; `resume` is called there when a
    // held connection may be read again.
    // `cancel` becomes the thread's cancel token (it must outlive the queue); `ended` runs on the thread as
    // its last work once the queue is closed.
    // `beforeWait` becomes the thread's before-wait hook (see CancelTokenC::setBeforeWait).
    // `readMore`, when given, lets the thread read the held connection itself while its client keeps
    // sending: once it has run what it got, it asks `readMore` for the client's next bytes; when none come
    // in time it gives the reads back (`resume`) and waits. A busy client then costs one wake-up per
    // command instead of two (the I/O task's and this thread's).
    using EndedFn = std::function<void()>;
    using BeforeWaitFn = std::function<void()>;
    using ReadMoreFn = std::function<bool(std::vector<std::uint8_t>& bytes)>;
    CommandQueueC(RunFn run, ResumeFn resume, BSS::CancelTokenC* cancel = nullptr, EndedFn ended = {},
                  BeforeWaitFn beforeWait = {}, ReadMoreFn readMore = {});
    // Closes and waits for the thread: the command running then still ends by its own bound.
    ~CommandQueueC();
    CommandQueueC(const CommandQueueC&) = delete;
    CommandQueueC& operator=(const CommandQueueC&) = delete;

    // False when the thread could not be started.
    bool start();
    // From the I/O task: queues the chunk; false (always, unless closed): the I/O task holds this
    // connection's reads until `resume`.
    bool push(const std::uint8_t* data, std::size_t length);
    // Drops what waits; the command running now finishes (or is cancelled by its own bound), then the
    // thread ends.
    void close();
    // Waits until the thread has ended, at most `milliseconds`; true when it has.
    bool waitEnded(std::uint32_t milliseconds);
    bool ended() const { return m_ended; }

private:
    void serve();
    bool closed();

    RunFn m_run;
    BSS::CancelTokenC* m_cancel;
    ResumeFn m_resume;
    EndedFn m_onEnded;
    BeforeWaitFn m_beforeWait;
    ReadMoreFn m_readMore;
    std::mutex m_lock;
    std::condition_variable m_changed;
    std::deque<std::vector<std::uint8_t>> m_chunks;
    // The thread waits for chunks (guarded by m_lock).
    bool m_idle = false;
    bool m_closed = false;
    std::atomic<bool> m_ended{false};
    std::thread m_thread;
};

}  // namespace HalvernRpc
