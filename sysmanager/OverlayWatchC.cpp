#include "sysmanager/OverlayWatchC.h"

#include <utility>

#include "app/Log.h"
#include "platform/Sync.h"
#include "platform/Thread.h"
#include "platform/WinError.h"

namespace {
constexpr std::uint32_t kWatchStopWaitMs = 7000;
const char* const kTag = "OverlayWatchC";
}  // namespace

OverlayWatchC::OverlayWatchC(ReadFn read, NotifyFn notify, PauseFn pause)
    : m_read(std::move(read)), m_notify(std::move(notify)), m_pause(std::move(pause))
{
    if (!m_pause) {
        m_pause = [](platform::HandleValue stopEvent) {
            return platform::waitForSingleObject(stopEvent, kPollIntervalMs) != platform::kWaitTimeout;
        };
    }
}

OverlayWatchC::~OverlayWatchC()
{
    // The thread uses this object: it must be gone before the object is, even after a stop that timed out
    // (a reading is itself bounded).
    if (!stop()) platform::waitForSingleObject(m_thread.get(), platform::kInfinite);
}

std::int32_t OverlayWatchC::stateOf(std::uint32_t consumptionMb, std::uint32_t availableMb)
{
    const std::uint64_t used = consumptionMb;
    const std::uint64_t total = used + availableMb;
    if (total == 0) return kStateNormal;
    if (used * 100 >= total * 80) return kStateCritical;
    if (used * 100 >= total * 50) return kStateWarning;
    return kStateNormal;
}

bool OverlayWatchC::start()
{
    if (m_thread) return true;
    m_stopEvent = platform::createEvent(nullptr, true, false, L"");
    if (!m_stopEvent) {
        WriteLog("[%s] [ERROR]: create stop event FAILED, GLE=%d", kTag, static_cast<int>(platform::lastError()));
        return false;
    }
    m_thread = platform::createThread([this] { run(); });
    if (!m_thread) {
        WriteLog("[%s] [ERROR]: create overlay watch thread FAILED, GLE=%d", kTag,
                 static_cast<int>(platform::lastError()));
        m_stopEvent.reset();
        return false;
    }
    WriteLog("[%s] overlay watch started", kTag);
    return true;
}

void OverlayWatchC::requestStop()
{
    if (m_stopEvent) platform::setEvent(m_stopEvent.get());
}

bool OverlayWatchC::stop()
{
    if (!m_thread) {
        m_stopEvent.reset();
        return true;
    }
    requestStop();
    bool ended = true;
    if (platform::waitForSingleObject(m_thread.get(), kWatchStopWaitMs) != platform::kWaitObject0) {
        // Its handles stay with the thread's owner below: the thread may still use the stop event.
        WriteLog("[%s] [ERROR]: overlay watch not exiting, timeout!", kTag);
        ended = false;
    }
    if (!ended) return false;
    m_thread.reset();
    m_stopEvent.reset();
    WriteLog("[%s] overlay watch stopped", kTag);
    return true;
}

bool OverlayWatchC::stopRequested() const
{
    return platform::waitForSingleObject(m_stopEvent.get(), 0) == platform::kWaitObject0;
}

void OverlayWatchC::run()
{
    for (;;) {
        poll();
        if (stopRequested() || m_pause(m_stopEvent.get())) return;
    }
}

void OverlayWatchC::poll()
{
    std::uint32_t consumption = 0;
    std::uint32_t available = 0;
    if (!m_read(consumption, available)) {
        if (!m_readFailing)
            WriteLog("[%s] [ERROR]: reading the write filter's overlay failed, GLE=%d", kTag,
                     static_cast<int>(platform::lastError()));
        m_readFailing = true;
        return;
    }
    m_readFailing = false;
    const std::int32_t state = stateOf(consumption, available);
    if (state == m_state.load() || stopRequested()) return;
    WriteLog("[%s] write filter overlay state %d -> %d (used: %u MB, available: %u MB)", kTag, m_state.load(), state,
             consumption, available);
    m_state = state;
    m_notify(state);
}
