#pragma once
// Picks the channel of the instrument's access point: one scan with the module's WLAN interface, usage
// figures per allowed channel, peer instruments told apart from foreign networks by their names, and the
// choice by band mode, DFS policy, preferred channels and usage. The result goes to a callback on the
// selection's worker thread.
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "platform/Wlan.h"

namespace halvern::net {

// Band modes of the access point.
constexpr std::uint32_t HALVERN_WLAN_2_4_GHZ = 1;
constexpr std::uint32_t HALVERN_WLAN_5_0_GHZ = 2;
constexpr std::uint32_t HALVERN_WLAN_BOTH_BANDS = 3;

// Channel width codes; a set of width flags maps to one code (see widthCodeOfFlags).
constexpr std::uint32_t kChanWidthHt20 = 1;
constexpr std::uint32_t kChanWidthHt40Plus = 2;
constexpr std::uint32_t kChanWidthHt40Minus = 4;
constexpr std::uint32_t kChanWidthInvalid = 8;

// "HT20", "HT40+", "HT40-" or "INVALID_CHAN_WIDTH".
const char* chanWidthName(std::uint32_t widthCode);
std::uint32_t widthCodeOfFlags(std::uint32_t widthFlags);

// Process-wide: the band mode set when the access point's selection starts, and the DFS exclusion flag
// (DFS channels are avoided) of the access point's configuration, reset when the access point stops.
void setWlanBandMode(std::uint32_t bandMode);
std::uint32_t wlanBandMode();
void setDfsExclusion(bool exclude);
bool dfsExclusion();

// What one selection goes by. A selection takes it when it starts, so that a run on demand with its own
// band or DFS choice changes neither the access point's policy nor a run already going.
struct WlanSelectionPolicyT {
    std::uint32_t bandMode = HALVERN_WLAN_BOTH_BANDS;
    bool excludeDfs = false;
};
// The process-wide band mode and DFS exclusion flag.
WlanSelectionPolicyT currentSelectionPolicy();

// One channel the driver offers.
struct WlanAllowedChannelT {
    std::uint32_t channel = 0;
    std::uint32_t widthFlags = 0;
    std::uint8_t dfs = 0;     // the channel needs radar detection
    std::uint8_t marked = 0;  // e.g. just left after a radar event: never taken as an alternative
};

// One scanned BSS as the selection sees it.
struct WlanObservedNetworkT {
    std::uint32_t channel = 0;
    std::uint32_t width = kChanWidthHt20;
    std::uint8_t peer = 0;
};

struct WlanChannelUsageT {
    std::int32_t channel = 0;
    std::uint8_t dfs = 0;
    std::uint32_t nonPeerUsers = 0;
    std::uint32_t peerUsers = 0;
};

struct WlanSelectionResultT {
    std::int32_t channel = -1;
    std::uint32_t width = kChanWidthHt20;
    std::uint8_t dfs = 0;
    std::uint8_t peer = 0;
    std::uint8_t marked = 0;
};

using WlanSelectionCallback = std::function<void(const WlanSelectionResultT&)>;

class WlanChanSelector {
public:
    static WlanChanSelector& instance();

    WlanChanSelector() = default;
    ~WlanChanSelector();
    WlanChanSelector(const WlanChanSelector&) = delete;
    WlanChanSelector& operator=(const WlanChanSelector&) = delete;

    bool openHandle();
    bool startScan();
    // With the process-wide policy, or with a run's own.
    bool startChannelSelection(const std::vector<WlanAllowedChannelT>& allowed, WlanSelectionCallback callback,
                               int timeoutMs);
    bool startChannelSelection(const std::vector<WlanAllowedChannelT>& allowed, WlanSelectionCallback callback,
                               int timeoutMs, const WlanSelectionPolicyT& policy);
    // Waits (through the process clock) until no selection is running, at most `timeoutMs`; true when none
    // runs any more. The access point waits so before it applies its configuration.
    bool waitForSelectionDone(int timeoutMs);

    // The selection itself, without a scan: usable on recorded environments. Without a policy they go by
    // the process-wide one.
    static WlanSelectionResultT selectChannel(const std::vector<WlanAllowedChannelT>& allowed,
                                              const std::vector<WlanObservedNetworkT>& observed, int avoid);
    static WlanSelectionResultT selectChannel(const std::vector<WlanAllowedChannelT>& allowed,
                                              const std::vector<WlanObservedNetworkT>& observed, int avoid,
                                              const WlanSelectionPolicyT& policy);
    static WlanSelectionResultT getNextAlternativeChannel(const std::vector<WlanAllowedChannelT>& allowed,
                                                          const std::vector<WlanObservedNetworkT>& observed, int avoid);
    static WlanSelectionResultT getNextAlternativeChannel(const std::vector<WlanAllowedChannelT>& allowed,
                                                          const std::vector<WlanObservedNetworkT>& observed, int avoid,
                                                          const WlanSelectionPolicyT& policy);
    static int getWlanChannelByUsage(std::vector<WlanChannelUsageT> entries, int avoid);
    static int getWlanChannelByUsage(std::vector<WlanChannelUsageT> entries, int avoid,
                                     const WlanSelectionPolicyT& policy);
    static WlanSelectionResultT findPreferredChannel(const std::vector<WlanObservedNetworkT>& observed);
    static bool findPreferredChannel_5GHz(const std::vector<WlanAllowedChannelT>& allowed,
                                          const std::vector<WlanObservedNetworkT>& observed, std::uint8_t dfs,
                                          WlanSelectionResultT& result);
    // `element` is the whole element (id, length, data).
    static bool parseHtIe(const std::uint8_t* element, int size, std::uint32_t& primaryChannel,
                          std::uint32_t& widthCode);
    // Walks a BSS's information elements up to the first HT operation element; true when one was found
    // and its secondary-channel offset is valid (`widthCode` is then its width).
    static bool parseInformationElements(const std::uint8_t* elements, std::size_t size, std::uint32_t& primaryChannel,
                                         std::uint32_t& widthCode);
    // A scanned BSS: channel from the centre frequency, width from the HT operation element, peer flag.
    static WlanObservedNetworkT observe(const platform::WlanBssEntryT& bss);
    static bool isPeerName(const std::string& ssid);

private:
    // The client handle of one selection; its closing is logged, as the scan ends there.
    class WlanHandleWrapper {
    public:
        WlanHandleWrapper() = default;
        WlanHandleWrapper(const WlanHandleWrapper&) = delete;
        WlanHandleWrapper& operator=(const WlanHandleWrapper&) = delete;
        ~WlanHandleWrapper() { close(); }
        void close();
        platform::UniqueWlanHandle& handle() { return m_handle; }

    private:
        platform::UniqueWlanHandle m_handle;
    };

    void worker(std::vector<WlanAllowedChannelT> allowed, WlanSelectionCallback callback, int timeoutMs,
                WlanSelectionPolicyT policy);
    void wlanNotificationCallback(const platform::WlanNotificationT& notification);
    bool getBssList(std::vector<platform::WlanBssEntryT>& entries);
    // Back to idle: the handle closed (which ends its notifications), ready for the next openHandle.
    void closeHandle();

    std::mutex m_lock;
    std::condition_variable m_scanDone;
    std::condition_variable m_selectionDone;
    bool m_scanComplete = false;
    bool m_running = false;
    bool m_initialised = false;
    std::thread m_worker;
    WlanHandleWrapper m_handle;
    platform::WlanGuid m_interface{};
};

}  // namespace halvern::net
