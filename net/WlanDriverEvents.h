#pragma once
// The WLAN driver's events and what the access point does about them. The sink (CNdisSink) only posts what
// WMI delivers into the driver-event state; WLANEventThreadProc does the work on a thread of its own: it logs
// each event, tells the SEP clients about DFS events, and restarts the access point when its link went
// down during DFS activity and stayed down.
//
// The value of the clients' WlanRadarEvent is the driver's event code: 1 RADAR_DETECTED, 2 AP_STOPPED,
// 3 START_OF_CAC, 4 CAC_DONE, or whatever unknown code came; a media connect that ends a check without
// radar is sent as 4, the end of that check.
//
// DFS status, as the thread keeps it:
//   0  none, or the last DFS episode is over (after a disconnect, an unknown event or a restart)
//   1  RADAR_DETECTED: the driver saw radar on the access point's channel
//   2  AP_STOPPED: the driver stopped the access point
//   3  START_OF_CAC: a channel availability check began and no radar came since, so its CAC_DONE is clean
// A disconnect while the status is 1 or 2 is the driver leaving the channel: the access point is restarted
// once 5000 ms passed without any further event. A radar seen during the check turns the check's CAC_DONE
// and the following media connect into mere log lines.
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "platform/Handle.h"
#include "platform/WlanDriver.h"

namespace halvern::net {

class CNdisSink;

constexpr int kDfsStatusNone = 0;
constexpr int kDfsStatusRadarDetected = 1;
constexpr int kDfsStatusApStopped = 2;
constexpr int kDfsStatusCacStarted = 3;

// Silence after a DFS disconnect before the access point is restarted, the pause between failed restarts,
// and how many restarts may follow the first one.
constexpr std::uint32_t kWlanRestartDelayMs = 5000;
constexpr std::uint32_t kWlanRestartRetryMs = 10000;
constexpr int kWlanRestartAttempts = 5;

// The access point's SSID and password fields: 256 bytes with the terminating zero.
constexpr std::size_t kWlanApCredentialBytes = 256;

enum class WlanDriverEventE { MediaDisconnect, SpecificIndication, MediaConnect };

// The driver-event state. The sink posts from WMI's threads; everything else is the event thread's.
// Events are handled in the order the driver raised them: a radar reported just before the link went down
// must be seen before the disconnect, or the access point would not be restarted.
class WlanDriverEventStateC {
public:
    enum class WakeE { Event, Timeout, Stopped };

    void post(WlanDriverEventE event, const platform::WlanIndicationT& indication = {});
    // The next event, waiting at most `milliseconds` (platform::kInfinite: no limit) of the process clock.
    WakeE wait(std::uint32_t milliseconds, WlanDriverEventE& event, platform::WlanIndicationT& indication);
    // Clears the running flag: the thread's wait ends at once.
    void stop();

    bool disconnected() const { return m_disconnected; }
    void setDisconnected(bool disconnected) { m_disconnected = disconnected; }
    int dfsStatus() const { return m_dfsStatus; }
    void setDfsStatus(int status) { m_dfsStatus = status; }

private:
    struct PendingT {
        WlanDriverEventE event;
        platform::WlanIndicationT indication;
    };

    std::mutex m_lock;
    std::condition_variable m_changed;
    std::deque<PendingT> m_pending;
    bool m_running = true;
    // The event thread's own.
    bool m_disconnected = false;
    int m_dfsStatus = kDfsStatusNone;
};

// What a restart of the access point asks of it.
struct WlanApRestartRequestT {
    std::string ssid;      // empty: configureWlan keeps the configuration's SSID
    std::string password;  // empty: likewise
    std::uint32_t start = 1;
    std::uint32_t band = 0;
};

// The access point's operations that a restart uses; the integration wires them to the access point
// (WlanAp_GetSsid, WlanAp_GetPassword, the configuration's band, configureWlan). An operation left empty
// fails.
struct WlanApRestartOperationsT {
    // The buffer as WlanAp_GetSsid / WlanAp_GetPassword return it (the text ends at its first zero byte),
    // or none when the access point cannot tell.
    std::function<std::optional<std::vector<std::uint8_t>>()> getSsid;
    std::function<std::optional<std::vector<std::uint8_t>>()> getPassword;
    std::function<std::uint32_t()> getBand;
    std::function<bool(const WlanApRestartRequestT&)> configureWlan;
};

// The driver-event thread: runs until `state` is stopped.
void WLANEventThreadProc(WlanDriverEventStateC& state, const WlanApRestartOperationsT& operations);

// The sink and the event thread as start-up creates them and the end of the process frees them.
class WlanDriverEventsC {
public:
    explicit WlanDriverEventsC(WlanApRestartOperationsT operations);
    ~WlanDriverEventsC();
    WlanDriverEventsC(const WlanDriverEventsC&) = delete;
    WlanDriverEventsC& operator=(const WlanDriverEventsC&) = delete;

    // Subscribes to the driver's events and starts the event thread; false (logged) when either fails,
    // with nothing left running.
    bool start();
    // Ends the subscription, then the thread; a no-op when nothing runs.
    void stop();

private:
    WlanApRestartOperationsT m_operations;
    std::unique_ptr<WlanDriverEventStateC> m_state;
    std::unique_ptr<CNdisSink> m_sink;
    platform::UniqueHandle m_thread;
};

// The process's sink and event thread: created and started at start-up, stopped and freed at the end. A
// second start replaces the first; stopping what never started does nothing.
bool startWlanDriverEvents(WlanApRestartOperationsT operations);
void stopWlanDriverEvents();

}  // namespace halvern::net
