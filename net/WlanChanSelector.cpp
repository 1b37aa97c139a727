#include "net/WlanChanSelector.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstring>
#include <map>
#include <system_error>

#include "app/Log.h"
#include "platform/Clock.h"
#include "platform/WinError.h"

namespace halvern::net {

namespace {

std::atomic<std::uint32_t> g_bandMode{HALVERN_WLAN_BOTH_BANDS};
std::atomic<bool> g_dfsExclusion{false};

constexpr std::uint8_t kElementHtOperation = 61;
constexpr std::int32_t kFirst5GhzChannel = 36;
constexpr std::uint32_t kPreferred24GhzChannels[] = {1, 6, 11};
// The families' access points name themselves with these; a bare prefix plus a digit or two is some
// other network that happens to look alike.
constexpr const char* kPeerPrefixes[] = {"Zentor-", "Zentic-", "ZentorLT-", "Kalvo-"};
constexpr std::size_t kMinPeerNameBytes = 9;
// A channel that two peers already share is crowded for a third instrument.
constexpr std::uint32_t kMaxPeersOnDfsChannel = 2;

bool isHt40(std::uint32_t widthCode)
{
    return widthCode == kChanWidthHt40Plus || widthCode == kChanWidthHt40Minus;
}

// Waits through the process clock, so that a virtual clock runs a scan's time-out at once.
bool waitWithClock(std::unique_lock<std::mutex>& lock, std::condition_variable& cv, int timeoutMs,
                   const std::function<bool()>& ready)
{
    auto& clock = platform::clock();
    const std::uint64_t deadline = clock.tickCount64() + static_cast<std::uint64_t>(std::max(timeoutMs, 0));
    while (!ready()) {
        const std::uint64_t now = clock.tickCount64();
        if (now >= deadline) return false;
        const auto realWait = clock.idleWait(deadline - now);
        if (realWait.count() > 0) cv.wait_for(lock, realWait);
    }
    return true;
}

const WlanAllowedChannelT* findAllowed(const std::vector<WlanAllowedChannelT>& allowed, std::int32_t channel)
{
    for (const auto& record : allowed)
        if (static_cast<std::int32_t>(record.channel) == channel) return &record;
    return nullptr;
}

// The result of a usage or preference choice with the flags of the allowed record it names.
WlanSelectionResultT resultOf(const std::vector<WlanAllowedChannelT>& allowed, std::int32_t channel,
                              std::uint32_t width, std::uint8_t peer)
{
    WlanSelectionResultT result;
    result.channel = channel;
    result.width = width;
    result.peer = peer;
    if (const auto* record = findAllowed(allowed, channel)) {
        result.dfs = record->dfs;
        result.marked = record->marked;
    }
    return result;
}

bool before5Ghz(const WlanChannelUsageT& a, const WlanChannelUsageT& b)
{
    const std::uint32_t totalA = a.nonPeerUsers + a.peerUsers;
    const std::uint32_t totalB = b.nonPeerUsers + b.peerUsers;
    if (totalA != totalB) return totalA < totalB;
    if (a.peerUsers != b.peerUsers) return a.peerUsers < b.peerUsers;
    if (a.dfs != b.dfs) return a.dfs == 0;
    return a.nonPeerUsers < b.nonPeerUsers;
}

bool before24Ghz(const WlanChannelUsageT& a, const WlanChannelUsageT& b)
{
    if (a.peerUsers != b.peerUsers) return a.peerUsers < b.peerUsers;
    return a.nonPeerUsers < b.nonPeerUsers;
}

int firstAvoiding(const std::vector<WlanChannelUsageT>& sorted, int avoid)
{
    if (avoid != -1 && sorted.size() >= 2 && sorted[0].channel == avoid) {
        WriteLog("[WLAN_INFO]: getAlternativeChannel: Ignore channel set: %d", avoid);
        return sorted[1].channel;
    }
    return sorted[0].channel;
}

}  // namespace

const char* chanWidthName(std::uint32_t widthCode)
{
    switch (widthCode) {
        case kChanWidthHt20:
            return "HT20";
        case kChanWidthHt40Plus:
            return "HT40+";
        case kChanWidthHt40Minus:
            return "HT40-";
        default:
            return "INVALID_CHAN_WIDTH";
    }
}

std::uint32_t widthCodeOfFlags(std::uint32_t widthFlags)
{
    if (widthFlags & kChanWidthHt40Minus) return kChanWidthHt40Minus;
    if (widthFlags & kChanWidthHt40Plus) return kChanWidthHt40Plus;
    if (widthFlags & kChanWidthHt20) return kChanWidthHt20;
    return kChanWidthInvalid;
}

void setWlanBandMode(std::uint32_t bandMode)
{
    g_bandMode = bandMode;
}

std::uint32_t wlanBandMode()
{
    return g_bandMode;
}

void setDfsExclusion(bool exclude)
{
    g_dfsExclusion = exclude;
}

bool dfsExclusion()
{
    return g_dfsExclusion;
}

WlanSelectionPolicyT currentSelectionPolicy()
{
    WlanSelectionPolicyT policy;
    policy.bandMode = g_bandMode;
    policy.excludeDfs = g_dfsExclusion;
    return policy;
}

void WlanChanSelector::WlanHandleWrapper::close()
{
    if (!m_handle) return;
    WriteLog("WlanHandleWrapper DTOR, m_handle: %p", m_handle.get());
    m_handle.reset();
}

WlanChanSelector& WlanChanSelector::instance()
{
    static WlanChanSelector selector;
    return selector;
}

WlanChanSelector::~WlanChanSelector()
{
    if (m_worker.joinable()) m_worker.join();
}

bool WlanChanSelector::openHandle()
{
    static const char* const tag = "openHandle";
    {
        std::lock_guard<std::mutex> guard(m_lock);
        if (m_initialised) {
            WriteLog("[ERROR]: WlanChanSelector already initialized.");
            return false;
        }
    }
    std::uint32_t negotiatedVersion = 0;
    const std::uint32_t opened =
        platform::wlanOpenHandle(platform::kWlanClientVersion, negotiatedVersion, m_handle.handle());
    if (opened != platform::kErrorSuccess) {
        WriteLog("[ERROR]: WlanOpenHandle failed: %d", static_cast<int>(opened));
        return false;
    }
    std::vector<platform::WlanInterfaceT> interfaces;
    const std::uint32_t enumerated = platform::wlanEnumInterfaces(m_handle.handle(), interfaces);
    if (enumerated != platform::kErrorSuccess) {
        WriteLog("[ERROR]: WlanEnumInterfaces failed: %d", static_cast<int>(enumerated));
        m_handle.close();
        return false;
    }
    WriteLog("%s num entries: %lu, current index: %lu", tag, static_cast<unsigned long>(interfaces.size()), 0UL);
    // The module has exactly one radio; anything else is a driver in a state no scan can be trusted in.
    if (interfaces.size() != 1) {
        WriteLog("[ERROR]: No or more than one WLAN interfaces were detected.");
        m_handle.close();
        return false;
    }
    std::lock_guard<std::mutex> guard(m_lock);
    m_interface = interfaces[0].guid;
    m_initialised = true;
    return true;
}

void WlanChanSelector::closeHandle()
{
    m_handle.close();
    std::lock_guard<std::mutex> guard(m_lock);
    m_initialised = false;
}

bool WlanChanSelector::startScan()
{
    const std::uint32_t registered = platform::wlanRegisterNotification(
        m_handle.handle(), platform::kWlanNotificationSourceAcm, true,
        [this](const platform::WlanNotificationT& notification) { wlanNotificationCallback(notification); });
    if (registered != platform::kErrorSuccess) {
        WriteLog("[ERROR]: WlanRegisterNotification failed with error: %u", registered);
        return false;
    }
    const std::uint32_t scanned = platform::wlanScan(m_handle.handle(), m_interface);
    if (scanned != platform::kErrorSuccess) {
        WriteLog("[ERROR]: WlanScan failed with error: %u", scanned);
        return false;
    }
    return true;
}

void WlanChanSelector::wlanNotificationCallback(const platform::WlanNotificationT& notification)
{
    WriteLog("%s: source: %d, code: %d", "wlanNotificationCallback", static_cast<int>(notification.source),
             static_cast<int>(notification.code));
    if (notification.source != platform::kWlanNotificationSourceAcm ||
        notification.code != platform::kWlanNotificationAcmScanComplete)
        return;
    WriteLog("[WLAN_INFO]:wlanNotificationCallback ScanDone");
    {
        std::lock_guard<std::mutex> guard(m_lock);
        m_scanComplete = true;
    }
    m_scanDone.notify_all();
}

bool WlanChanSelector::startChannelSelection(const std::vector<WlanAllowedChannelT>& allowed,
                                             WlanSelectionCallback callback, int timeoutMs)
{
    return startChannelSelection(allowed, std::move(callback), timeoutMs, currentSelectionPolicy());
}

bool WlanChanSelector::startChannelSelection(const std::vector<WlanAllowedChannelT>& allowed,
                                             WlanSelectionCallback callback, int timeoutMs,
                                             const WlanSelectionPolicyT& policy)
{
    if (allowed.empty()) {
        WriteLog("[ERROR]: Invalid list of allowed channels");
        return false;
    }
    if (!callback) {
        WriteLog("[ERROR]: Invalid callback provided.");
        return false;
    }
    {
        std::lock_guard<std::mutex> guard(m_lock);
        if (m_running) {
            WriteLog("[ERROR]: Channel selection is already in progress.");
            return false;
        }
        m_running = true;
        // Reset before the scan is requested: its completion may come before the worker waits.
        m_scanComplete = false;
    }
    const auto fail = [this](const char* message) {
        WriteLog("%s", message);
        closeHandle();
        {
            std::lock_guard<std::mutex> guard(m_lock);
            m_running = false;
        }
        m_selectionDone.notify_all();
        return false;
    };
    if (!openHandle()) return fail("[ERROR]: Failed to initialize WlanChanSelector");
    if (!startScan()) return fail("[ERROR]: Failed to start scan");
    if (m_worker.joinable()) m_worker.join();
    try {
        m_worker = std::thread(&WlanChanSelector::worker, this, allowed, std::move(callback), timeoutMs, policy);
    } catch (const std::system_error&) {
        return fail("[ERROR]: Failed to start channel selection thread");
    }
    return true;
}

bool WlanChanSelector::waitForSelectionDone(int timeoutMs)
{
    std::unique_lock<std::mutex> lock(m_lock);
    return waitWithClock(lock, m_selectionDone, timeoutMs, [this] { return !m_running; });
}

bool WlanChanSelector::getBssList(std::vector<platform::WlanBssEntryT>& entries)
{
    const std::uint32_t status = platform::wlanGetNetworkBssList(m_handle.handle(), m_interface, entries);
    if (status != platform::kErrorSuccess) {
        WriteLog("[ERROR]: Failed to obtain list of the BSSes: %d", static_cast<int>(status));
        return false;
    }
    WriteLog("Got %d APs", static_cast<int>(entries.size()));
    return true;
}

void WlanChanSelector::worker(std::vector<WlanAllowedChannelT> allowed, WlanSelectionCallback callback, int timeoutMs,
                              WlanSelectionPolicyT policy)
{
    static const char* const tag = "chanSelectionWorker";
    WriteLog("WLAN channel selection worker started with timeout of %d ms", timeoutMs);
    WlanSelectionResultT result;
    bool scanned = false;
    {
        std::unique_lock<std::mutex> lock(m_lock);
        scanned = waitWithClock(lock, m_scanDone, timeoutMs, [this] { return m_scanComplete; });
    }
    std::vector<platform::WlanBssEntryT> entries;
    if (!scanned) {
        WriteLog("[%s] [ERROR]: Failed to wait for scan results", tag);
    } else if (!getBssList(entries)) {
        WriteLog("[%s] [ERROR]: failed to get list of BSSes", tag);
    } else {
        std::vector<WlanObservedNetworkT> observed;
        observed.reserve(entries.size());
        for (const auto& entry : entries)
            observed.push_back(observe(entry));
        WriteLog("[WLAN_INFO]: selectChannel...try to find best channel");
        result = selectChannel(allowed, observed, -1, policy);
    }
    // Closed before the result goes out: the access point may restart the driver from the callback.
    closeHandle();
    callback(result);
    {
        std::lock_guard<std::mutex> guard(m_lock);
        m_running = false;
    }
    m_selectionDone.notify_all();
}

bool WlanChanSelector::isPeerName(const std::string& ssid)
{
    if (ssid.size() < kMinPeerNameBytes) return false;
    for (const char* prefix : kPeerPrefixes)
        if (ssid.compare(0, std::strlen(prefix), prefix) == 0) return true;
    return false;
}

bool WlanChanSelector::parseHtIe(const std::uint8_t* element, int size, std::uint32_t& primaryChannel,
                                 std::uint32_t& widthCode)
{
    static const char* const tag = "parseHtIe";
    // A short element is still read; the bytes it lacks count as zero instead of whatever follows it.
    std::uint8_t data[2] = {0, 0};
    if (size < 4) WriteLog("%s: Invalid size of HT IE (%d)!", tag, size);
    for (int i = 0; i < 2 && 2 + i < size; ++i)
        data[i] = element[2 + i];
    primaryChannel = data[0];
    const int offset = data[1] & 0x03;
    switch (offset) {
        case 0:
            widthCode = kChanWidthHt20;
            return true;
        case 1:
            widthCode = kChanWidthHt40Plus;
            return true;
        case 3:
            widthCode = kChanWidthHt40Minus;
            return true;
        default:
            widthCode = kChanWidthInvalid;
            WriteLog("%s: Invalid secondary channel offset (%d)!", tag, offset);
            return false;
    }
}

bool WlanChanSelector::parseInformationElements(const std::uint8_t* elements, std::size_t size,
                                                std::uint32_t& primaryChannel, std::uint32_t& widthCode)
{
    std::size_t position = 0;
    while (position < size) {
        // The length byte is read as signed: 128 and more would step backwards, which no beacon means.
        const int elementSize =
            size - position >= 2 ? static_cast<int>(static_cast<std::int8_t>(elements[position + 1])) + 2 : -1;
        if (elementSize < 2 || static_cast<std::size_t>(elementSize) > size - position) {
            WriteLog("[ERROR]: Overflow occured when parsing WLAN IEs.");
            return false;
        }
        if (elements[position] == kElementHtOperation) {
            std::uint32_t width = kChanWidthHt20;
            if (!parseHtIe(elements + position, elementSize, primaryChannel, width)) return false;
            widthCode = width;
            return true;
        }
        position += static_cast<std::size_t>(elementSize);
    }
    return false;
}

WlanObservedNetworkT WlanChanSelector::observe(const platform::WlanBssEntryT& bss)
{
    WlanObservedNetworkT network;
    const int mhz = static_cast<int>(bss.centerFrequencyKhz / 1000);
    const bool band5Ghz = mhz > 5000;
    const int offset = band5Ghz ? mhz - 5170 : mhz - 2412;
    network.channel = static_cast<std::uint32_t>(offset / 5 + (band5Ghz ? 34 : 1));
    std::uint32_t primaryChannel = 0;
    parseInformationElements(bss.informationElements.data(), bss.informationElements.size(), primaryChannel,
                             network.width);
    network.peer = isPeerName(bss.ssid) ? 1 : 0;
    return network;
}

WlanSelectionResultT WlanChanSelector::findPreferredChannel(const std::vector<WlanObservedNetworkT>& observed)
{
    WriteLog("[WLAN_INFO]: findPreferredChannel");
    WlanSelectionResultT result;
    if (observed.empty()) {
        result.width = 0;
        result.peer = 1;
        return result;
    }
    // Sharing one of the three non-overlapping channels disturbs less than sitting between them.
    for (std::uint32_t preferred : kPreferred24GhzChannels) {
        bool found = false;
        std::uint32_t width = kChanWidthHt20;
        std::uint8_t peer = 0;
        for (const auto& network : observed) {
            if (network.channel != preferred) continue;
            found = true;
            if (isHt40(network.width)) width = network.width;
            peer |= network.peer;
        }
        if (found) {
            result.channel = static_cast<std::int32_t>(preferred);
            result.width = width;
            result.peer = peer;
            return result;
        }
    }
    for (const auto& network : observed) {
        if (!isHt40(network.width)) continue;
        result.channel = static_cast<std::int32_t>(network.channel);
        result.width = network.width;
        result.peer = network.peer;
        return result;
    }
    return result;
}

bool WlanChanSelector::findPreferredChannel_5GHz(const std::vector<WlanAllowedChannelT>& allowed,
                                                 const std::vector<WlanObservedNetworkT>& observed, std::uint8_t dfs,
                                                 WlanSelectionResultT& result)
{
    WriteLog("[WLAN_INFO]: findPreferredChannel_5GHz");
    for (const auto& record : allowed) {
        if (static_cast<std::int32_t>(record.channel) < kFirst5GhzChannel || record.dfs != dfs) continue;
        for (const auto& network : observed) {
            if (network.channel != record.channel || !isHt40(network.width)) continue;
            result = WlanSelectionResultT{};
            result.channel = static_cast<std::int32_t>(record.channel);
            result.width = network.width;
            result.dfs = record.dfs;
            result.peer = network.peer;
            result.marked = record.marked;
            return true;
        }
    }
    return false;
}

WlanSelectionResultT WlanChanSelector::selectChannel(const std::vector<WlanAllowedChannelT>& allowed,
                                                     const std::vector<WlanObservedNetworkT>& observed, int avoid)
{
    return selectChannel(allowed, observed, avoid, currentSelectionPolicy());
}

WlanSelectionResultT WlanChanSelector::selectChannel(const std::vector<WlanAllowedChannelT>& allowed,
                                                     const std::vector<WlanObservedNetworkT>& observed, int avoid,
                                                     const WlanSelectionPolicyT& policy)
{
    WriteLog("[WLAN_INFO]: selectChannel");
    const std::uint32_t bandMode = policy.bandMode;
    // A preferred channel must be one the driver offers; the usage figures count per allowed channel anyway.
    std::map<std::uint32_t, std::vector<WlanObservedNetworkT>> perChannel;
    std::vector<WlanObservedNetworkT> onAllowed;
    for (const auto& network : observed) {
        if (!findAllowed(allowed, static_cast<std::int32_t>(network.channel))) continue;
        perChannel[network.channel].push_back(network);
        onAllowed.push_back(network);
    }

    // A 40 MHz network already there fixes the secondary channel; joining its pair disturbs it least.
    // Neither a marked channel nor the one to avoid qualifies.
    std::vector<WlanAllowedChannelT> wide;
    for (const auto& record : allowed)
        if ((record.widthFlags & (kChanWidthHt40Plus | kChanWidthHt40Minus)) && !record.marked &&
            static_cast<int>(record.channel) != avoid)
            wide.push_back(record);
    if (bandMode == HALVERN_WLAN_2_4_GHZ) {
        // One look over all 40 MHz capable channels at once: asked channel by channel, whichever came first
        // in the driver's list would win, even one overlapping both neighbours of 1, 6 and 11.
        std::vector<WlanObservedNetworkT> onWide;
        for (const auto& record : wide) {
            if (static_cast<std::int32_t>(record.channel) >= kFirst5GhzChannel) continue;
            const auto networks = perChannel.find(record.channel);
            if (networks != perChannel.end())
                onWide.insert(onWide.end(), networks->second.begin(), networks->second.end());
        }
        if (!onWide.empty()) {
            const WlanSelectionResultT preferred = findPreferredChannel(onWide);
            if (preferred.channel != -1) return resultOf(allowed, preferred.channel, preferred.width, preferred.peer);
        }
        const WlanSelectionResultT preferred = findPreferredChannel(onAllowed);
        if (preferred.channel != -1) return resultOf(allowed, preferred.channel, preferred.width, preferred.peer);
    } else {
        WlanSelectionResultT preferred;
        if (findPreferredChannel_5GHz(wide, onAllowed, 0, preferred)) return preferred;
        if (!policy.excludeDfs && findPreferredChannel_5GHz(wide, onAllowed, 1, preferred)) return preferred;
    }
    return getNextAlternativeChannel(allowed, observed, avoid, policy);
}

WlanSelectionResultT WlanChanSelector::getNextAlternativeChannel(const std::vector<WlanAllowedChannelT>& allowed,
                                                                 const std::vector<WlanObservedNetworkT>& observed,
                                                                 int avoid)
{
    return getNextAlternativeChannel(allowed, observed, avoid, currentSelectionPolicy());
}

WlanSelectionResultT WlanChanSelector::getNextAlternativeChannel(const std::vector<WlanAllowedChannelT>& allowed,
                                                                 const std::vector<WlanObservedNetworkT>& observed,
                                                                 int avoid, const WlanSelectionPolicyT& policy)
{
    WriteLog("[WLAN_INFO]: getNextAlternativeChannel");
    WriteLog("[WLAN_INFO]: Channel Usage Info:");
    const bool skipDfs = policy.excludeDfs && policy.bandMode != HALVERN_WLAN_2_4_GHZ;
    std::vector<WlanChannelUsageT> entries;
    for (const auto& record : allowed) {
        if (record.marked || (skipDfs && record.dfs) || observed.empty()) continue;
        WlanChannelUsageT usage;
        usage.channel = static_cast<std::int32_t>(record.channel);
        usage.dfs = record.dfs;
        for (const auto& network : observed) {
            if (network.channel != record.channel) continue;
            if (network.peer)
                ++usage.peerUsers;
            else
                ++usage.nonPeerUsers;
        }
        WriteLog("[WLAN_INFO]: ChannelNo: %d:", usage.channel);
        WriteLog("[WLAN_INFO]: Channel Usage (Non-ZentorUsers , ZentorUsers): %d  , %d",
                 static_cast<int>(usage.nonPeerUsers), static_cast<int>(usage.peerUsers));
        entries.push_back(usage);
    }
    const int channel = getWlanChannelByUsage(entries, avoid, policy);
    std::uint8_t peer = 0;
    for (const auto& usage : entries)
        if (usage.channel == channel && usage.peerUsers > 0) peer = 1;
    return resultOf(allowed, channel, kChanWidthHt20, peer);
}

int WlanChanSelector::getWlanChannelByUsage(std::vector<WlanChannelUsageT> entries, int avoid)
{
    return getWlanChannelByUsage(std::move(entries), avoid, currentSelectionPolicy());
}

int WlanChanSelector::getWlanChannelByUsage(std::vector<WlanChannelUsageT> entries, int avoid,
                                            const WlanSelectionPolicyT& policy)
{
    WriteLog("[WLAN_INFO]: getWlanChannelByUsage");
    const std::uint32_t bandMode = policy.bandMode;
    if (bandMode == HALVERN_WLAN_5_0_GHZ || bandMode == HALVERN_WLAN_BOTH_BANDS) {
        WriteLog("[WLAN_INFO]: HALVERN_WLAN_BOTH_BANDS, HALVERN_WLAN_5_0_GHZ");
        const bool excludeDfs = policy.excludeDfs;
        std::vector<WlanChannelUsageT> candidates;
        for (const auto& usage : entries) {
            if (usage.channel < kFirst5GhzChannel) continue;
            if (excludeDfs ? usage.dfs != 0 : usage.peerUsers >= kMaxPeersOnDfsChannel) continue;
            candidates.push_back(usage);
        }
        if (!candidates.empty()) {
            std::sort(candidates.begin(), candidates.end(), before5Ghz);
            return firstAvoiding(candidates, avoid);
        }
        if (bandMode == HALVERN_WLAN_5_0_GHZ) return -1;
        WriteLog("[WLAN_INFO]: No valid 5GHz channels found. Switch to 2.4Ghz!");
    }
    WriteLog("[WLAN_INFO]: HALVERN_WLAN_2_4_GHZ");
    // The 5 GHz entries that were no candidates above stay out: the fall-back is to the other band.
    entries.erase(std::remove_if(entries.begin(), entries.end(),
                                 [](const WlanChannelUsageT& usage) { return usage.channel >= kFirst5GhzChannel; }),
                  entries.end());
    if (entries.empty()) return -1;
    std::sort(entries.begin(), entries.end(), before24Ghz);
    return firstAvoiding(entries, avoid);
}

}  // namespace halvern::net
