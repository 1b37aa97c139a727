#pragma once
// The instrument's access point as the system keeps it: its configuration record, the flow that sets band,
// channel and credentials and starts or stops the hosted network, and the hand-over of a channel
// selection's result to the driver. Configuration runs on the command server's thread and on the driver
// event thread; WlanAccessPointC serialises both.
#include <cstdint>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "net/WlanChanSelector.h"
#include "net/WlanChannelList.h"

namespace halvern::net {

// Band 0 in a request keeps the band the driver runs.
constexpr std::uint32_t kWlanBandKeep = 0;
// A start that finds the interface unavailable (it comes back after a driver restart) is tried again.
constexpr int kWlanApStartAttempts = 30;
constexpr std::uint32_t kWlanApStartRetryMs = 200;
// The channel selection's scan, and how long the configuration waits for it.
constexpr int kWlanScanWaitMs = 7000;
// The longest scan a selection on demand may wait for: it holds every later selection that long.
constexpr int kWlanLongestScanWaitMs = 60000;
// How long the access point's configuration waits for a selection on demand that runs when it starts its
// own: that run's longest scan, and the driver restart its result may bring (its tool has 10 s).
constexpr int kWlanSelectionOnDemandWaitMs = kWlanLongestScanWaitMs + 15000;

constexpr std::size_t kWlanApTextBytes = 256;

struct WlanApConfigT {
    char ssid[kWlanApTextBytes] = {};
    char password[kWlanApTextBytes] = {};
    std::uint32_t start = 0;  // 1: the access point is to be on
    std::uint32_t band = kWlanBandKeep;
    bool noneDfs = false;  // only channels without radar detection
    std::vector<WlanAllowedChannelT> allowedChannels;
};

// A configuration as a client asks for it; an SSID or password not given stays as it is.
struct WlanApRequestT {
    std::uint32_t start = 0;
    std::uint32_t band = kWlanBandKeep;
    bool noneDfs = false;
    std::optional<std::string> ssid;
    std::optional<std::string> password;
};

// The access point as the service and the driver have it now.
struct WlanApSettingsT {
    bool enabled = false;
    std::string ssid;
    std::string password;
    std::uint32_t band = kWlanBandKeep;
};

// Sets the record's SSID and password, then starts or stops the hosted network.
bool applyWlanCfg(WlanApConfigT& record);
// Takes `requested` into `record` and brings the access point there: band, allowed channels, the channel
// selection with the driver's channel, credentials and start; or the stop.
bool configureWlan(WlanApConfigT& record, const WlanApRequestT& requested);
// The selection's result: announced to SEP clients, written to the driver (restarted) when it differs.
void chanSelectionDone(const WlanSelectionResultT& result);
// A channel every country allows, for when no selection can run: 1 on 2.4 GHz only, else 36, 20 MHz wide.
bool setDefaultChannel();
// The SSID and password from the hosted network and the band from the driver, into `record`; what cannot
// be read stays as it was. True when the SSID and the password were read.
bool readCurrentWlanCfg(WlanApConfigT& record);

// The driver's "ApChanExtOffset" code for a selection's width code (an invalid width counts as 20 MHz).
std::uint32_t driverWidthCode(std::uint32_t widthCode);

// The process's access point, held for the system manager.
class WlanAccessPointC {
public:
    static WlanAccessPointC& instance();

    WlanApConfigT config() const;
    // configureWlan on the held record, which keeps what it had when the configuration fails; one
    // configuration at a time, callable from any thread.
    bool configure(const WlanApRequestT& requested);
    // A selection on demand, whose result goes to the driver like the access point's own. Refused while a
    // configuration runs: that one selects the channel itself and must find the selector free.
    bool runChannelSelection(const std::vector<WlanAllowedChannelT>& allowed, const WlanSelectionPolicyT& policy,
                             int timeoutMs);
    // Reads the service's and the driver's settings into the held record (after the module came up).
    bool refresh();
    // What a client reads back: the hosted network's state and credentials, the driver's band.
    bool currentSettings(WlanApSettingsT& settings);

private:
    mutable std::mutex m_recordLock;
    std::mutex m_configureLock;
    WlanApConfigT m_record;
};

}  // namespace halvern::net
