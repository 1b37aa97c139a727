#include "net/WlanDriverEvents.h"

#include <algorithm>

#include "app/Log.h"
#include "framework/InstrumentEvents.h"
#include "net/NdisSink.h"
#include "platform/Clock.h"
#include "platform/Sync.h"
#include "platform/Thread.h"

namespace halvern::net {

namespace {

// The clients learn each DFS event by its driver code (WlanRadarEvent's value).
void raiseRadarEvent(std::uint32_t eventCode)
{
    instrumentEvents().wlanRadarEvent(static_cast<std::int32_t>(eventCode));
}

// The text of a credential buffer: up to its first zero byte.
std::string textOf(const std::vector<std::uint8_t>& buffer)
{
    const auto end = std::find(buffer.begin(), buffer.end(), std::uint8_t{0});
    return std::string(buffer.begin(), end);
}

// What the restart asks for. A credential that cannot be read stays empty, so that configureWlan keeps the
// one of the running configuration.
WlanApRestartRequestT currentConfiguration(const WlanApRestartOperationsT& operations)
{
    WlanApRestartRequestT request;
    const auto ssid = operations.getSsid ? operations.getSsid() : std::nullopt;
    if (!ssid) {
        WriteLog("[ERROR]: Failed to obtain current ssid!");
    } else if (const std::string text = textOf(*ssid); text.size() >= kWlanApCredentialBytes) {
        WriteLog("[ERROR]: Obtained SSID too long! (%d)", static_cast<int>(text.size()));
    } else {
        request.ssid = text;
    }
    const auto password = operations.getPassword ? operations.getPassword() : std::nullopt;
    if (!password) {
        WriteLog("[ERROR]: Failed to obtain current password!");
    } else if (const std::string text = textOf(*password); text.size() >= kWlanApCredentialBytes) {
        WriteLog("[ERROR]: Obtained password too long! (%d)", static_cast<int>(text.size()));
    } else {
        request.password = text;
    }
    request.band = operations.getBand ? operations.getBand() : 0;
    return request;
}

void handleIndication(WlanDriverEventStateC& state, const platform::WlanIndicationT& indication)
{
    switch (indication.eventCode) {
        case platform::kWlanEventRadarDetected:
            WriteLog("Event from MSNdis_StatusMediaSpecific: RADAR_DETECTED");
            state.setDfsStatus(kDfsStatusRadarDetected);
            raiseRadarEvent(indication.eventCode);
            return;
        case platform::kWlanEventApStopped:
            WriteLog("Event from MSNdis_StatusMediaSpecific: AP_STOPPED");
            state.setDfsStatus(kDfsStatusApStopped);
            raiseRadarEvent(indication.eventCode);
            return;
        case platform::kWlanEventStartOfCac:
            WriteLog("Event from MSNdis_StatusMediaSpecific: START_OF_CAC : Time %d ms",
                     static_cast<int>(indication.cacTimeMs));
            state.setDfsStatus(kDfsStatusCacStarted);
            raiseRadarEvent(indication.eventCode);
            return;
        case platform::kWlanEventCacDone:
            if (state.dfsStatus() == kDfsStatusCacStarted) {
                WriteLog("Event from MSNdis_StatusMediaSpecific: CAC_DONE");
                raiseRadarEvent(indication.eventCode);
            } else {
                WriteLog("Event from MSNdis_StatusMediaSpecific: CAC_DONE after Radar detected, DFS status: %d!",
                         state.dfsStatus());
            }
            return;
        default:
            WriteLog("Event from MSNdis_StatusMediaSpecific: Received Unknown Event : %d From Port %d Type %d\n",
                     static_cast<int>(indication.eventCode), static_cast<int>(indication.port),
                     static_cast<int>(indication.type));
            state.setDfsStatus(kDfsStatusNone);
            raiseRadarEvent(indication.eventCode);
            return;
    }
}

bool radarRecorded(int dfsStatus)
{
    return dfsStatus == kDfsStatusRadarDetected || dfsStatus == kDfsStatusApStopped;
}

}  // namespace

void WlanDriverEventStateC::post(WlanDriverEventE event, const platform::WlanIndicationT& indication)
{
    {
        std::lock_guard<std::mutex> guard(m_lock);
        m_pending.push_back({event, indication});
    }
    m_changed.notify_all();
}

WlanDriverEventStateC::WakeE WlanDriverEventStateC::wait(std::uint32_t milliseconds, WlanDriverEventE& event,
                                                         platform::WlanIndicationT& indication)
{
    std::unique_lock<std::mutex> lock(m_lock);
    const auto ready = [this] { return !m_running || !m_pending.empty(); };
    if (milliseconds == platform::kInfinite) {
        m_changed.wait(lock, ready);
    } else {
        // The time-out runs on the process clock, so that a virtual clock lets the restart sequence pass at once.
        auto& clock = platform::clock();
        const std::uint64_t deadline = clock.tickCount64() + milliseconds;
        while (!ready()) {
            const std::uint64_t now = clock.tickCount64();
            if (now >= deadline) break;
            const auto realWait = clock.idleWait(deadline - now);
            if (realWait.count() > 0) m_changed.wait_for(lock, realWait);
        }
    }
    if (!m_running) return WakeE::Stopped;
    if (m_pending.empty()) return WakeE::Timeout;
    event = m_pending.front().event;
    indication = m_pending.front().indication;
    m_pending.pop_front();
    return WakeE::Event;
}

void WlanDriverEventStateC::stop()
{
    {
        std::lock_guard<std::mutex> guard(m_lock);
        m_running = false;
    }
    m_changed.notify_all();
}

void WLANEventThreadProc(WlanDriverEventStateC& state, const WlanApRestartOperationsT& operations)
{
    WriteLog("Start WLANEventThreadProc()");
    std::uint32_t waitMs = platform::kInfinite;
    int attemptsLeft = 0;
    for (;;) {
        WlanDriverEventE event = WlanDriverEventE::MediaConnect;
        platform::WlanIndicationT indication;
        const WlanDriverEventStateC::WakeE woken = state.wait(waitMs, event, indication);
        if (woken == WlanDriverEventStateC::WakeE::Stopped) break;

        if (woken == WlanDriverEventStateC::WakeE::Timeout) {
            WriteLog("Event for restart WLAN AP");
            const WlanApRestartRequestT request = currentConfiguration(operations);
            WriteLog("Start WLAN AP configuration");
            if (operations.configureWlan && operations.configureWlan(request)) {
                WriteLog("Successful WLAN AP configuration");
                state.setDfsStatus(kDfsStatusNone);
                waitMs = platform::kInfinite;
            } else {
                WriteLog("Error WLAN AP configuration");
                if (attemptsLeft > 0) {
                    --attemptsLeft;
                    waitMs = kWlanRestartRetryMs;
                } else {
                    WriteLog("Error WLAN AP reconfiguration stopped");
                    state.setDfsStatus(kDfsStatusNone);
                    waitMs = platform::kInfinite;
                }
            }
            continue;
        }

        switch (event) {
            case WlanDriverEventE::MediaDisconnect:
                WriteLog("Event from MSNdis_StatusMediaDisconnect, DFS status: %d", state.dfsStatus());
                if (!state.disconnected()) {
                    state.setDisconnected(true);
                    if (radarRecorded(state.dfsStatus())) {
                        WriteLog("Set Timeout to 5000ms for restart WLAN");
                        attemptsLeft = kWlanRestartAttempts;
                        waitMs = kWlanRestartDelayMs;
                    }
                }
                state.setDfsStatus(kDfsStatusNone);
                break;
            case WlanDriverEventE::SpecificIndication:
                handleIndication(state, indication);
                break;
            case WlanDriverEventE::MediaConnect:
                state.setDisconnected(false);
                WriteLog("Event from MSNdis_StatusMediaConnect, DFS status: %d", state.dfsStatus());
                if (!radarRecorded(state.dfsStatus())) {
                    WriteLog("Event from MSNdis_StatusMediaConnect: CAC_DONE without Radar detection");
                    // Told to the clients as the end of the check.
                    raiseRadarEvent(platform::kWlanEventCacDone);
                }
                break;
            default:
                WriteLog("[ERROR]: Event with no functionality");
                break;
        }
    }
    WriteLog("End WLANEventThreadProc()");
}

WlanDriverEventsC::WlanDriverEventsC(WlanApRestartOperationsT operations) : m_operations(std::move(operations)) {}

WlanDriverEventsC::~WlanDriverEventsC()
{
    stop();
}

bool WlanDriverEventsC::start()
{
    stop();
    m_state = std::make_unique<WlanDriverEventStateC>();
    m_sink = std::make_unique<CNdisSink>(*m_state);
    if (!m_sink->start()) {
        m_sink.reset();
        m_state.reset();
        return false;
    }
    WlanDriverEventStateC* state = m_state.get();
    const WlanApRestartOperationsT* operations = &m_operations;
    m_thread = platform::createThread([state, operations] { WLANEventThreadProc(*state, *operations); });
    if (!m_thread) {
        WriteLog("[ERROR]: Failed to create WLANEventThreadProc()");
        m_sink.reset();
        m_state.reset();
        return false;
    }
    return true;
}

void WlanDriverEventsC::stop()
{
    // No event reaches the state once the sink is gone; then the thread may end.
    m_sink.reset();
    if (m_thread) {
        m_state->stop();
        platform::waitForSingleObject(m_thread.get(), platform::kInfinite);
        m_thread.reset();
    }
    m_state.reset();
}

namespace {
std::mutex g_processEventsLock;
std::unique_ptr<WlanDriverEventsC> g_processEvents;
}  // namespace

bool startWlanDriverEvents(WlanApRestartOperationsT operations)
{
    std::lock_guard<std::mutex> guard(g_processEventsLock);
    g_processEvents.reset();
    auto events = std::make_unique<WlanDriverEventsC>(std::move(operations));
    if (!events->start()) return false;
    g_processEvents = std::move(events);
    return true;
}

void stopWlanDriverEvents()
{
    std::lock_guard<std::mutex> guard(g_processEventsLock);
    g_processEvents.reset();
}

}  // namespace halvern::net
