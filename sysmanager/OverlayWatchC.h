#pragma once
// The system manager's overlay watch: a thread that reads the write filter's overlay at an interval and
// tells when its state changes. The states, of the share of the overlay that the session's writes fill
// (used / (used + available)): 1 normal below 50 %, 2 warning from 50 %, 3 critical from 80 %. The watch
// starts believing the overlay normal, so a normal overlay is never announced until it was something else.
#include <atomic>
#include <cstdint>
#include <functional>

#include "platform/Handle.h"

class OverlayWatchC {
public:
    enum : std::int32_t { kStateNormal = 1, kStateWarning = 2, kStateCritical = 3 };
    static constexpr std::uint32_t kPollIntervalMs = 60000;

    // Reads the overlay's figures in MB; false when they cannot be read.
    using ReadFn = std::function<bool(std::uint32_t& consumptionMb, std::uint32_t& availableMb)>;
    // Told on the watch's thread once per change of state.
    using NotifyFn = std::function<void(std::int32_t state)>;
    // Between two readings: true when the watch is to end. By default it waits kPollIntervalMs on the stop
    // event, on the installed clock.
    using PauseFn = std::function<bool(platform::HandleValue stopEvent)>;

    OverlayWatchC(ReadFn read, NotifyFn notify, PauseFn pause = {});
    // Stops the thread.
    ~OverlayWatchC();
    OverlayWatchC(const OverlayWatchC&) = delete;
    OverlayWatchC& operator=(const OverlayWatchC&) = delete;

    bool start();
    // Asks the thread to end; a reading under way is not announced any more.
    void requestStop();
    // Asks and waits for the thread's end; false when it did not end in time.
    bool stop();

    static std::int32_t stateOf(std::uint32_t consumptionMb, std::uint32_t availableMb);
    std::int32_t lastState() const { return m_state.load(); }

private:
    void run();
    void poll();
    bool stopRequested() const;

    ReadFn m_read;
    NotifyFn m_notify;
    PauseFn m_pause;
    platform::UniqueHandle m_stopEvent;
    platform::UniqueHandle m_thread;
    std::atomic<std::int32_t> m_state{kStateNormal};
    // The watch's thread only: a failing reading is logged once, not every minute.
    bool m_readFailing = false;
};
