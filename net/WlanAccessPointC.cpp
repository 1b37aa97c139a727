#include "net/WlanAccessPointC.h"

#include <algorithm>
#include <cstring>
#include <exception>
#include <memory>
#include <utility>

#include "app/Log.h"
#include "framework/InstrumentEvents.h"
#include "net/NetManagerC.h"
#include "net/WlanAp.h"
#include "net/WlanDriverManager.h"
#include "platform/Clock.h"
#include "platform/Wlan.h"

namespace halvern::net {

namespace {

// "ApChanExtOffset" codes of the driver: the secondary channel below, above, or none.
constexpr std::uint32_t kDriverWidthHt40Minus = 0;
constexpr std::uint32_t kDriverWidthHt40Plus = 1;
constexpr std::uint32_t kDriverWidthHt20 = 2;

constexpr std::uint32_t kDefaultChannel24Ghz = 1;
constexpr std::uint32_t kDefaultChannel5Ghz = 36;

using CallerBufferT = std::unique_ptr<unsigned char, void (*)(void*)>;

CallerBufferT owned(unsigned char* buffer)
{
    return CallerBufferT(buffer, WlanAp_FreeMemory);
}

std::size_t textLength(const char (&text)[kWlanApTextBytes])
{
    const void* end = std::memchr(text, 0, kWlanApTextBytes);
    return end == nullptr ? kWlanApTextBytes : static_cast<std::size_t>(static_cast<const char*>(end) - text);
}

// At most 255 bytes and the NUL, as the record's fields hold them.
void copyText(char (&field)[kWlanApTextBytes], const std::string& text)
{
    const std::size_t length = std::min(text.size(), kWlanApTextBytes - 1);
    std::memset(field, 0, kWlanApTextBytes);
    std::memcpy(field, text.data(), length);
}

bool validBandMode(std::uint32_t band)
{
    return band >= HALVERN_WLAN_2_4_GHZ && band <= HALVERN_WLAN_BOTH_BANDS;
}

// The driver reads its channel only when it starts: a new one means a restart.
void moveDriverTo(std::uint32_t channel, std::uint32_t width, bool currentKnown, std::uint32_t currentChannel,
                  std::uint32_t currentWidth, const char* tag)
{
    if (currentKnown && channel == currentChannel && width == currentWidth) return;
    if (!NetManagerC::setDrvWlanChannel(channel, width)) {
        WriteLog("[%s]: Failed to set channel!", tag);
        return;
    }
    if (!restartWlanDriver()) WriteLog("[%s]: Failed to restart the driver!", tag);
}

// Starts the selection, whose result reaches the driver through chanSelectionDone, then the access point.
bool selectChannelAndApply(WlanApConfigT& record, const char* tag)
{
    // Keeping a band that is none of the modes, the selection looks at both bands: the driver's channel
    // list holds what that band allows.
    setWlanBandMode(validBandMode(record.band) ? record.band : HALVERN_WLAN_BOTH_BANDS);
    // A selection on demand may still run (none starts while a configuration does): it ends first, or
    // this one could not start and the access point would stay off.
    if (!WlanChanSelector::instance().waitForSelectionDone(kWlanSelectionOnDemandWaitMs))
        WriteLog("[%s] [ERROR]: Failed to wait for the running channel selection", tag);
    if (!WlanChanSelector::instance().startChannelSelection(record.allowedChannels, chanSelectionDone,
                                                            kWlanScanWaitMs)) {
        WriteLog("[%s] [ERROR]: failed to start channel selection!", tag);
        setDefaultChannel();
        return false;
    }
    if (!WlanChanSelector::instance().waitForSelectionDone(kWlanScanWaitMs))
        WriteLog("[%s] [ERROR]: Failed to wait for scan results", tag);
    return applyWlanCfg(record);
}

}  // namespace

std::uint32_t driverWidthCode(std::uint32_t widthCode)
{
    if (widthCode == kChanWidthHt40Plus) return kDriverWidthHt40Plus;
    if (widthCode == kChanWidthHt40Minus) return kDriverWidthHt40Minus;
    return kDriverWidthHt20;
}

bool applyWlanCfg(WlanApConfigT& record)
{
    const std::size_t ssidLength = textLength(record.ssid);
    if (ssidLength != 0 &&
        !WlanAp_SetSsid(reinterpret_cast<const unsigned char*>(record.ssid), static_cast<std::uint32_t>(ssidLength))) {
        WriteLog("[ERROR]: Failed to set SSID (length %d): %d", static_cast<int>(ssidLength),
                 static_cast<int>(WlanAp_GetFailReason()));
        return false;
    }
    const std::size_t passwordLength = textLength(record.password);
    if (passwordLength != 0 && !WlanAp_SetPassword(reinterpret_cast<const unsigned char*>(record.password),
                                                   static_cast<std::uint32_t>(passwordLength))) {
        WriteLog("[ERROR]: Failed to set password (length %d): %d", static_cast<int>(passwordLength),
                 static_cast<int>(WlanAp_GetFailReason()));
        return false;
    }
    if (record.start == 1) {
        WriteLog("Start WiFi access point");
        for (int attempt = 1; attempt <= kWlanApStartAttempts; ++attempt) {
            if (WlanAp_Start()) return true;
            // Only the interface's absence passes: it returns once the restarted driver is up again.
            if (WlanAp_GetFailReason() != platform::kWlanHostedNetworkReasonInterfaceUnavailable) break;
            if (attempt == kWlanApStartAttempts) break;
            WriteLog("[ERROR]: Failed to start WiFi access point: try to restart");
            platform::sleepMs(kWlanApStartRetryMs);
        }
        WriteLog("[ERROR]: Failed to %s WiFi access point: %d", "start", static_cast<int>(WlanAp_GetFailReason()));
        return false;
    }
    WriteLog("Stop WiFi access point");
    const bool stopped = WlanAp_Stop() != 0;
    // The next start chooses its DFS policy afresh.
    record.noneDfs = false;
    setDfsExclusion(false);
    if (stopped) return true;
    WriteLog("[ERROR]: Failed to %s WiFi access point: %d", "stop", static_cast<int>(WlanAp_GetFailReason()));
    return false;
}

bool configureWlan(WlanApConfigT& record, const WlanApRequestT& requested)
{
    const char* const tag = "configureWlan";
    // The hosted network itself tells: the driver can have stopped it behind the record's back (radar).
    if (requested.start == 1 && WlanAp_Started() == 1) {
        WriteLog("[%s] [ERROR]: WLAN AP Mode already enabled! Please stop AP Mode first!", tag);
        return false;
    }
    if (requested.band > HALVERN_WLAN_BOTH_BANDS) {
        WriteLog("[%s] [ERROR]: Invalid band setting %d!", tag, static_cast<int>(requested.band));
        return false;
    }
    if (requested.ssid) copyText(record.ssid, *requested.ssid);
    if (requested.password) copyText(record.password, *requested.password);
    record.start = requested.start;
    record.noneDfs = requested.noneDfs;

    if (record.start != 1) {
        if (!WlanChanSelector::instance().waitForSelectionDone(kWlanScanWaitMs))
            WriteLog("[%s] [ERROR]: Failed to wait for scan results", "applyWlanCfg");
        return applyWlanCfg(record);
    }

    std::string country;
    if (NetManagerC::GetDrvCtryCode(country))
        WriteLog("[WLAN_INFO]: WLAN Country Code is set to: %s", country.c_str());
    else
        WriteLog("[ERROR]: Failed to obtain WLAN Country Code!");
    std::uint32_t driverBand = kWlanBandKeep;
    if (!NetManagerC::getDrvWlanBand(driverBand)) {
        WriteLog("[ERROR]: Failed to obtain WLAN band!");
        driverBand = kWlanBandKeep;
    }
    // The record holds band modes only: a driver band that is none (its "NetBand" "12") is kept as it runs,
    // so that a later restart asks for no band the configuration refuses.
    if (requested.band != kWlanBandKeep)
        record.band = requested.band;
    else
        record.band = validBandMode(driverBand) ? driverBand : kWlanBandKeep;
    if (requested.band != kWlanBandKeep && requested.band != driverBand) {
        if (!NetManagerC::setDrvWlanBand(requested.band)) {
            WriteLog("[ERROR]: Failed to set band: %d", static_cast<int>(requested.band));
            return false;
        }
        if (!restartWlanDriver()) {
            WriteLog("[%s]: Failed to restart the driver!", tag);
            return false;
        }
    }
    NetManagerC::IsBandwidthLimited();

    DevGetChanList(record.allowedChannels);

    if (record.noneDfs) {
        if (record.band == HALVERN_WLAN_2_4_GHZ) {
            WriteLog("[%s] [ERROR]: None-Dfs in 2.4Ghz not valid!", tag);
            return false;
        }
        if (record.band == HALVERN_WLAN_5_0_GHZ &&
            std::none_of(record.allowedChannels.begin(), record.allowedChannels.end(),
                         [](const WlanAllowedChannelT& channel) { return channel.dfs == 0; })) {
            WriteLog("[%s] [ERROR]: no None-Dfs channels found!", tag);
            record.start = 0;
            applyWlanCfg(record);
            return false;
        }
        setDfsExclusion(true);
    }
    return selectChannelAndApply(record, tag);
}

void chanSelectionDone(const WlanSelectionResultT& result)
{
    const char* const tag = "chanSelectionDone";
    WriteLog("Got results of channel selection: %d, %s", static_cast<int>(result.channel), chanWidthName(result.width));
    std::uint32_t channel = 0, width = 0;
    const bool known = NetManagerC::getDrvWlanChannel(channel, width);
    if (!known) WriteLog("[%s]: Failed to get default channel!", tag);
    const bool selected = result.channel >= 0;
    instrumentEvents().wlanChannelSelected(selected, selected ? static_cast<std::uint32_t>(result.channel) : 0,
                                           static_cast<std::int32_t>(result.width));
    // Without a result the driver keeps the channel it runs, which was a valid choice when it was made.
    if (!selected) return;
    moveDriverTo(static_cast<std::uint32_t>(result.channel), driverWidthCode(result.width), known, channel, width, tag);
}

bool setDefaultChannel()
{
    const char* const tag = "setDefaultChannel";
    const std::uint32_t channel = wlanBandMode() == HALVERN_WLAN_2_4_GHZ ? kDefaultChannel24Ghz : kDefaultChannel5Ghz;
    std::uint32_t current = 0, width = 0;
    const bool known = NetManagerC::getDrvWlanChannel(current, width);
    if (!known) WriteLog("[%s]: Failed to get default channel!", tag);
    moveDriverTo(channel, kDriverWidthHt20, known, current, width, tag);
    return NetManagerC::getDrvWlanChannel(current, width) && current == channel && width == kDriverWidthHt20;
}

bool readCurrentWlanCfg(WlanApConfigT& record)
{
    bool complete = true;
    const CallerBufferT ssid = owned(WlanAp_GetSsid());
    if (!ssid) {
        WriteLog("[ERROR]: Failed to obtain current ssid!");
        complete = false;
    } else if (const std::size_t length = std::strlen(reinterpret_cast<const char*>(ssid.get()));
               length >= kWlanApTextBytes) {
        WriteLog("[ERROR]: Obtained SSID too long! (%d)", static_cast<int>(length));
        complete = false;
    } else {
        copyText(record.ssid, reinterpret_cast<const char*>(ssid.get()));
    }
    const CallerBufferT password = owned(WlanAp_GetPassword());
    if (!password) {
        WriteLog("[ERROR]: Failed to obtain current password!");
        complete = false;
    } else if (const std::size_t length = std::strlen(reinterpret_cast<const char*>(password.get()));
               length >= kWlanApTextBytes) {
        WriteLog("[ERROR]: Obtained password too long! (%d)", static_cast<int>(length));
        complete = false;
    } else {
        copyText(record.password, reinterpret_cast<const char*>(password.get()));
    }
    // The driver logs its own failure; the record keeps the band it had.
    std::uint32_t band = kWlanBandKeep;
    if (NetManagerC::getDrvWlanBand(band) && validBandMode(band)) record.band = band;
    return complete;
}

WlanAccessPointC& WlanAccessPointC::instance()
{
    static WlanAccessPointC accessPoint;
    return accessPoint;
}

WlanApConfigT WlanAccessPointC::config() const
{
    std::lock_guard<std::mutex> guard(m_recordLock);
    return m_record;
}

bool WlanAccessPointC::configure(const WlanApRequestT& requested)
{
    // The record is worked on as a copy, so that readers are not held up by a configuration's waits. Only
    // a configuration that came through is kept: a refused SSID must not fail every later request that
    // brings none.
    std::lock_guard<std::mutex> configuring(m_configureLock);
    try {
        WlanApConfigT record = config();
        if (!configureWlan(record, requested)) return false;
        std::lock_guard<std::mutex> guard(m_recordLock);
        m_record = std::move(record);
        return true;
    } catch (const std::exception& error) {
        WriteLog("[%s] [ERROR]: %s", "configureWlan", error.what());
        return false;
    }
}

bool WlanAccessPointC::runChannelSelection(const std::vector<WlanAllowedChannelT>& allowed,
                                           const WlanSelectionPolicyT& policy, int timeoutMs)
{
    std::unique_lock<std::mutex> configuring(m_configureLock, std::try_to_lock);
    if (!configuring.owns_lock()) {
        WriteLog("[ERROR]: Channel selection is already in progress.");
        return false;
    }
    return WlanChanSelector::instance().startChannelSelection(allowed, chanSelectionDone, timeoutMs, policy);
}

bool WlanAccessPointC::refresh()
{
    std::lock_guard<std::mutex> configuring(m_configureLock);
    WlanApConfigT record = config();
    const bool complete = readCurrentWlanCfg(record);
    std::lock_guard<std::mutex> guard(m_recordLock);
    m_record = std::move(record);
    return complete;
}

bool WlanAccessPointC::currentSettings(WlanApSettingsT& settings)
{
    WlanApConfigT record = config();
    if (!readCurrentWlanCfg(record)) return false;
    settings.enabled = WlanAp_Started() == 1;
    settings.ssid = record.ssid;
    settings.password = record.password;
    settings.band = record.band;
    return true;
}

}  // namespace halvern::net
