// Scans of the simulated WLAN service. A scan request returns at once; the service's own thread completes
// it after the sim root's scan delay with a scan-complete notification to the client that asked, as the
// automatic-configuration module of Windows does. The BSS list is the radio environment of the sim root
// (platform/sim/WlanRadioEnvironment.h) as the interface sees it at the time of the call.
#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <thread>
#include <vector>

#include "platform/WinError.h"
#include "platform/Wlan.h"
#include "platform/sim/SimRoot.h"
#include "platform/sim/WlanRadioEnvironment.h"
#include "platform/sim/WlanSimClient.h"

namespace platform {

namespace {

using SteadyClock = std::chrono::steady_clock;

struct PendingScanS {
    SteadyClock::time_point due;
    WlanHandleValue client = nullptr;
    WlanGuid interfaceGuid{};
};

struct RegistrationS {
    std::uint32_t sourceMask = 0;
    std::shared_ptr<WlanNotificationCallback> callback;
};

// The service's notification thread and what it delivers. Started with the first scan, ended when the
// process ends.
class ScanServiceC {
public:
    ~ScanServiceC()
    {
        {
            std::lock_guard<std::mutex> guard(m_lock);
            m_stopping = true;
        }
        m_changed.notify_all();
        if (m_thread.joinable()) m_thread.join();
    }

    void registerClient(WlanHandleValue client, std::uint32_t sourceMask, WlanNotificationCallback callback)
    {
        std::lock_guard<std::mutex> guard(m_lock);
        if (sourceMask == 0 || !callback) {
            m_registrations.erase(client);
            return;
        }
        m_registrations[client] = {sourceMask, std::make_shared<WlanNotificationCallback>(std::move(callback))};
    }

    void requestScan(WlanHandleValue client, const WlanGuid& interfaceGuid, std::optional<std::uint32_t> delayMs)
    {
        std::lock_guard<std::mutex> guard(m_lock);
        // A scan that never completes is accepted all the same: the request itself succeeded.
        if (!delayMs) return;
        m_pending.push_back({SteadyClock::now() + std::chrono::milliseconds(*delayMs), client, interfaceGuid});
        if (!m_thread.joinable()) m_thread = std::thread([this] { run(); });
        m_changed.notify_all();
    }

    // After this no callback of `client` runs or starts, unless it is the caller itself.
    void forgetClient(WlanHandleValue client)
    {
        std::unique_lock<std::mutex> lock(m_lock);
        m_registrations.erase(client);
        m_pending.erase(std::remove_if(m_pending.begin(), m_pending.end(),
                                       [client](const PendingScanS& scan) { return scan.client == client; }),
                        m_pending.end());
        if (std::this_thread::get_id() == m_thread.get_id()) return;
        m_callDone.wait(lock, [&] { return m_calling != client; });
    }

private:
    void run()
    {
        std::unique_lock<std::mutex> lock(m_lock);
        while (!m_stopping) {
            if (m_pending.empty()) {
                m_changed.wait(lock);
                continue;
            }
            auto next = std::min_element(m_pending.begin(), m_pending.end(),
                                         [](const PendingScanS& a, const PendingScanS& b) { return a.due < b.due; });
            if (SteadyClock::now() < next->due) {
                m_changed.wait_until(lock, next->due);
                continue;
            }
            const PendingScanS scan = *next;
            m_pending.erase(next);
            auto it = m_registrations.find(scan.client);
            if (it == m_registrations.end() || (it->second.sourceMask & kWlanNotificationSourceAcm) == 0) continue;
            const auto callback = it->second.callback;
            m_calling = scan.client;
            lock.unlock();
            WlanNotificationT notification;
            notification.source = kWlanNotificationSourceAcm;
            // The module may have lost power or its driver while it scanned.
            notification.code =
                simwlan::interfacePresent() ? kWlanNotificationAcmScanComplete : kWlanNotificationAcmScanFail;
            notification.interfaceGuid = scan.interfaceGuid;
            // As on Windows, a client's exception must not end the service's thread.
            try {
                (*callback)(notification);
            } catch (...) {
            }
            lock.lock();
            m_calling = nullptr;
            m_callDone.notify_all();
        }
    }

    std::mutex m_lock;
    std::condition_variable m_changed;
    std::condition_variable m_callDone;
    std::map<WlanHandleValue, RegistrationS> m_registrations;
    std::vector<PendingScanS> m_pending;
    WlanHandleValue m_calling = nullptr;
    bool m_stopping = false;
    std::thread m_thread;
};

ScanServiceC& scanService()
{
    static ScanServiceC service;
    return service;
}

// The one interface there is, if the caller names it and it is there.
std::uint32_t checkInterface(const UniqueWlanHandle& handle, const WlanGuid& interfaceGuid)
{
    if (!simwlan::validClient(handle.get())) return kErrorInvalidHandle;
    if (!simwlan::interfacePresent() || interfaceGuid != simwlan::interfaceGuid()) return kErrorNotFound;
    return kErrorSuccess;
}

}  // namespace

namespace simwlan {

void forgetNotifications(WlanHandleValue handle)
{
    scanService().forgetClient(handle);
}

}  // namespace simwlan

std::uint32_t wlanRegisterNotification(const UniqueWlanHandle& handle, std::uint32_t sourceMask, bool ignoreDuplicate,
                                       WlanNotificationCallback callback)
{
    // The service sends no duplicates of a scan's completion; the flag changes nothing here.
    (void)ignoreDuplicate;
    if (!simwlan::validClient(handle.get())) return kErrorInvalidHandle;
    scanService().registerClient(handle.get(), sourceMask, std::move(callback));
    return kErrorSuccess;
}

std::uint32_t wlanScan(const UniqueWlanHandle& handle, const WlanGuid& interfaceGuid)
{
    const std::uint32_t status = checkInterface(handle, interfaceGuid);
    if (status != kErrorSuccess) return status;
    scanService().requestScan(handle.get(), interfaceGuid, sim::loadScanDelay(sim::root()));
    return kErrorSuccess;
}

std::uint32_t wlanGetNetworkBssList(const UniqueWlanHandle& handle, const WlanGuid& interfaceGuid,
                                    std::vector<WlanBssEntryT>& entries)
{
    entries.clear();
    const std::uint32_t status = checkInterface(handle, interfaceGuid);
    if (status != kErrorSuccess) return status;
    std::vector<sim::SimulatedNetworkT> networks;
    std::string error;
    // A broken environment file is the simulator's fault, not the radio's: nothing is heard.
    if (!sim::loadRadioEnvironment(sim::root(), networks, error)) return kErrorSuccess;
    for (const auto& network : networks) {
        WlanBssEntryT entry;
        entry.ssid = network.name;
        entry.centerFrequencyKhz = network.frequencyMhz * 1000;
        entry.rssi = network.rssi;
        entry.informationElements = sim::beaconElements(network);
        entries.push_back(std::move(entry));
    }
    return kErrorSuccess;
}

}  // namespace platform
