#include <condition_variable>
#include <memory>
#include <mutex>
#include <system_error>
#include <thread>

#include "platform/Sync.h"
#include "platform/Thread.h"
#include "platform/WinError.h"
#include "platform/sim/SimObject.h"

namespace platform {

namespace {

struct ThreadStateC {
    std::mutex lock;
    std::condition_variable ended;
    bool done = false;
};

class ThreadObjectC final : public sim::SimObjectC {
public:
    explicit ThreadObjectC(std::shared_ptr<ThreadStateC> state) : m_state(std::move(state)) {}
    std::uint32_t wait(std::uint32_t milliseconds) override
    {
        std::unique_lock<std::mutex> lock(m_state->lock);
        return sim::waitWithClock(lock, m_state->ended, milliseconds, [this] { return m_state->done; }) ? kWaitObject0
                                                                                                        : kWaitTimeout;
    }

private:
    std::shared_ptr<ThreadStateC> m_state;
};

}  // namespace

UniqueHandle createThread(std::function<void()> body)
{
    auto state = std::make_shared<ThreadStateC>();
    try {
        // Detached: like a Windows thread, it runs on when its handle is closed; the shared state keeps
        // what it signals alive.
        std::thread([state, body = std::move(body)] {
            body();
            std::lock_guard<std::mutex> guard(state->lock);
            state->done = true;
            state->ended.notify_all();
        }).detach();
    } catch (const std::system_error&) {
        setLastError(kErrorNotEnoughMemory);
        return UniqueHandle();
    }
    return UniqueHandle(sim::registerObject(std::make_unique<ThreadObjectC>(state)));
}

bool terminateThread(HandleValue, std::uint32_t)
{
    setLastError(kErrorAccessDenied);
    return false;
}

}  // namespace platform
