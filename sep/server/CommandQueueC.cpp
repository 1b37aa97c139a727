#include "sep/server/CommandQueueC.h"

#include <chrono>
#include <system_error>

namespace HalvernRpc {

CommandQueueC::CommandQueueC(RunFn run, ResumeFn resume, BSS::CancelTokenC* cancel, EndedFn ended,
                             BeforeWaitFn beforeWait, ReadMoreFn readMore)
    : m_run(std::move(run)),
      m_cancel(cancel),
      m_resume(std::move(resume)),
      m_onEnded(std::move(ended)),
      m_beforeWait(std::move(beforeWait)),
      m_readMore(std::move(readMore))
{}

CommandQueueC::~CommandQueueC()
{
    close();
    if (m_thread.joinable()) m_thread.join();
}

bool CommandQueueC::start()
{
    try {
        m_thread = std::thread([this] { serve(); });
    } catch (const std::system_error&) {
        m_ended = true;
        return false;
    }
    return true;
}

bool CommandQueueC::push(const std::uint8_t* data, std::size_t length)
{
    bool wake = false;
    {
        std::lock_guard<std::mutex> guard(m_lock);
        if (m_closed) return true;
        m_chunks.emplace_back(data, data + length);
        // A thread busy with a command takes the chunk when it is done: only a waiting one is woken.
        wake = m_idle;
    }
    // Outside the lock: the woken thread does not block on it at once. All: waitEnded() shares the condition.
    if (wake) m_changed.notify_all();
    return false;
}

bool CommandQueueC::closed()
{
    std::lock_guard<std::mutex> guard(m_lock);
    return m_closed;
}

void CommandQueueC::close()
{
    std::lock_guard<std::mutex> guard(m_lock);
    m_closed = true;
    m_chunks.clear();
    m_changed.notify_all();
}

bool CommandQueueC::waitEnded(std::uint32_t milliseconds)
{
    std::unique_lock<std::mutex> guard(m_lock);
    return m_changed.wait_for(guard, std::chrono::milliseconds(milliseconds), [this] { return m_ended.load(); });
}

void CommandQueueC::serve()
{
    BSS::CancelTokenC::setCurrent(m_cancel);
    BSS::CancelTokenC::setBeforeWait(&m_beforeWait);
    std::unique_lock<std::mutex> guard(m_lock);
    for (;;) {
        // No time-out: an idle connection costs no wake-ups; close() ends the wait.
        m_idle = true;
        m_changed.wait(guard, [this] { return m_closed || !m_chunks.empty(); });
        m_idle = false;
        if (m_closed) break;
        // Every chunk that waits is handled in one go: a client's pipelined commands that arrived in
        // several reads are answered together.
        std::vector<std::uint8_t> bytes = std::move(m_chunks.front());
        m_chunks.pop_front();
        while (!m_chunks.empty()) {
            bytes.insert(bytes.end(), m_chunks.front().begin(), m_chunks.front().end());
            m_chunks.pop_front();
        }
        guard.unlock();
        m_run(bytes);
        bytes.clear();
        while (m_readMore && !closed() && m_readMore(bytes) && !closed()) {
            m_run(bytes);
            bytes.clear();
        }
        if (!closed()) m_resume();
        guard.lock();
    }
    guard.unlock();
    if (m_onEnded) m_onEnded();
    BSS::CancelTokenC::setBeforeWait(nullptr);
    guard.lock();
    m_ended = true;
    m_changed.notify_all();
}

}  // namespace HalvernRpc
