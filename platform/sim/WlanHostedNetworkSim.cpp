// The hosted network of the simulated WLAN service: one access point per instrument, kept in the sim root
// so that a failure injected by halvern-sim or a test reaches Halvern's next start.
#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <fstream>
#include <mutex>
#include <sstream>

#include "platform/WinError.h"
#include "platform/Wlan.h"
#include "platform/sim/SimHostedNetwork.h"
#include "platform/sim/SimRegistry.h"
#include "platform/sim/SimRoot.h"
#include "platform/sim/WlanSimClient.h"

namespace platform {

namespace {

// What the service answers a start it refuses (ERROR_INVALID_STATE).
constexpr std::uint32_t kErrorInvalidState = 5023;
constexpr std::uint32_t kDefaultMaxPeers = 100;
constexpr std::uint32_t kSsidBytes = 32;
// A pass phrase has 8 to 63 characters and its NUL; a raw key is 32 bytes.
constexpr std::size_t kPassPhraseMinBytes = 9;
constexpr std::size_t kPassPhraseMaxBytes = 64;
constexpr std::size_t kRawKeyBytes = 32;

}  // namespace

namespace sim {

namespace {

std::string folderOf(const std::string& root)
{
    return root + "/sim/wlan";
}

// The lock is a file of its own, so that the record can be replaced while the lock is held.
std::string lockPath(const std::string& root)
{
    return folderOf(root) + "/hostednetwork.lock";
}

std::uint32_t number(const std::string& text)
{
    try {
        return static_cast<std::uint32_t>(std::stoul(text));
    } catch (...) {
        return 0;
    }
}

SimHostedNetworkS readUnlocked(const std::string& root)
{
    SimHostedNetworkS record;
    record.settings = defaultHostedNetworkSettings();
    std::ifstream in(folderOf(root) + "/hostednetwork");
    for (std::string line; std::getline(in, line);) {
        const auto equals = line.find('=');
        if (equals == std::string::npos) continue;
        const std::string name = line.substr(0, equals);
        const std::string value = line.substr(equals + 1);
        if (name == "state") {
            record.state = value;
        } else if (name == "settings") {
            const auto bytes = hexBytes(value);
            if (bytes) record.settings = *bytes;
        } else if (name == "key") {
            const auto bytes = hexBytes(value);
            if (bytes) record.key = *bytes;
        } else if (name == "passphrase") {
            record.passPhrase = value == "1";
        } else if (name == "persistent") {
            record.persistent = value == "1";
        } else if (name == "failingstarts") {
            record.failingStarts = number(value);
        } else if (name == "failreason") {
            record.failReason = number(value);
        } else if (name == "starts") {
            record.starts = number(value);
        }
    }
    return record;
}

bool writeUnlocked(const std::string& root, const SimHostedNetworkS& record)
{
    std::ostringstream text;
    text << "state=" << record.state << "\nsettings=" << hexText(record.settings) << "\nkey=" << hexText(record.key)
         << "\npassphrase=" << (record.passPhrase ? 1 : 0) << "\npersistent=" << (record.persistent ? 1 : 0)
         << "\nfailingstarts=" << record.failingStarts << "\nfailreason=" << record.failReason
         << "\nstarts=" << record.starts << "\n";
    // A reader in another process sees the old record or the new one, never half of one.
    const std::string path = folderOf(root) + "/hostednetwork";
    const std::string temporary = path + ".new";
    {
        std::ofstream out(temporary, std::ios::trunc);
        out << text.str();
        if (!out.flush()) return false;
    }
    return std::rename(temporary.c_str(), path.c_str()) == 0;
}

}  // namespace

std::vector<std::uint8_t> defaultHostedNetworkSettings()
{
    std::vector<std::uint8_t> settings(kWlanHostedNetworkConnectionSettingsBytes, 0);
    std::memcpy(settings.data() + 4 + kSsidBytes, &kDefaultMaxPeers, 4);
    return settings;
}

std::string hostedNetworkSsid(const std::vector<std::uint8_t>& settings)
{
    if (settings.size() != kWlanHostedNetworkConnectionSettingsBytes) return {};
    std::uint32_t length = 0;
    std::memcpy(&length, settings.data(), 4);
    if (length > kSsidBytes) return {};
    return std::string(reinterpret_cast<const char*>(settings.data()) + 4, length);
}

SimHostedNetworkS readHostedNetwork(const std::string& root)
{
    if (!makeDirectories(folderOf(root))) return readUnlocked(root);
    const UniqueFd lock = lockFile(lockPath(root), LOCK_SH);
    return readUnlocked(root);
}

bool updateHostedNetwork(const std::string& root, const std::function<void(SimHostedNetworkS&)>& change)
{
    if (root.empty() || !makeDirectories(folderOf(root))) return false;
    const UniqueFd lock = lockFile(lockPath(root), LOCK_EX);
    if (!lock) return false;
    SimHostedNetworkS record = readUnlocked(root);
    change(record);
    return writeUnlocked(root, record);
}

}  // namespace sim

namespace {

// Without the module's interface the service has nothing to host the network on.
bool available(const sim::SimHostedNetworkS& record, bool interfacePresent)
{
    return interfacePresent && record.state != "unavailable";
}

// Applies `change` to the record of the running root; the service's own answer when it cannot keep it.
std::uint32_t update(const std::function<void(sim::SimHostedNetworkS&)>& change)
{
    return sim::updateHostedNetwork(sim::root(), change) ? kErrorSuccess : kErrorNotEnoughMemory;
}

}  // namespace

std::uint32_t wlanHostedNetworkForceStart(const UniqueWlanHandle& handle, std::uint32_t& failReason)
{
    failReason = kWlanHostedNetworkReasonSuccess;
    if (!simwlan::validClient(handle.get())) return kErrorInvalidHandle;
    const bool interfacePresent = simwlan::interfacePresent();
    std::uint32_t answer = kErrorSuccess;
    const std::uint32_t kept = update([&](sim::SimHostedNetworkS& record) {
        ++record.starts;
        if (record.failingStarts > 0) {
            --record.failingStarts;
            failReason = record.failReason;
            answer = kErrorInvalidState;
        } else if (!available(record, interfacePresent)) {
            failReason = kWlanHostedNetworkReasonInterfaceUnavailable;
            answer = kErrorInvalidState;
        } else {
            record.state = "active";
        }
    });
    return kept != kErrorSuccess ? kept : answer;
}

std::uint32_t wlanHostedNetworkForceStop(const UniqueWlanHandle& handle, std::uint32_t& failReason)
{
    failReason = kWlanHostedNetworkReasonSuccess;
    if (!simwlan::validClient(handle.get())) return kErrorInvalidHandle;
    return update([](sim::SimHostedNetworkS& record) {
        if (record.state == "active") record.state = "idle";
    });
}

std::uint32_t wlanHostedNetworkQueryState(const UniqueWlanHandle& handle, std::uint32_t& state)
{
    if (!simwlan::validClient(handle.get())) return kErrorInvalidHandle;
    const sim::SimHostedNetworkS record = sim::readHostedNetwork(sim::root());
    if (!available(record, simwlan::interfacePresent()))
        state = kWlanHostedNetworkUnavailable;
    else
        state = record.state == "active" ? kWlanHostedNetworkActive : kWlanHostedNetworkIdle;
    return kErrorSuccess;
}

std::uint32_t wlanHostedNetworkQueryConnectionSettings(const UniqueWlanHandle& handle,
                                                       std::vector<std::uint8_t>& settings)
{
    if (!simwlan::validClient(handle.get())) return kErrorInvalidHandle;
    settings = sim::readHostedNetwork(sim::root()).settings;
    return kErrorSuccess;
}

std::uint32_t wlanHostedNetworkSetConnectionSettings(const UniqueWlanHandle& handle,
                                                     const std::vector<std::uint8_t>& settings,
                                                     std::uint32_t& failReason)
{
    failReason = kWlanHostedNetworkReasonSuccess;
    if (!simwlan::validClient(handle.get())) return kErrorInvalidHandle;
    std::uint32_t ssidLength = 0;
    if (settings.size() == kWlanHostedNetworkConnectionSettingsBytes) std::memcpy(&ssidLength, settings.data(), 4);
    if (settings.size() != kWlanHostedNetworkConnectionSettingsBytes || ssidLength > kSsidBytes) {
        failReason = kWlanHostedNetworkReasonBadParameters;
        return kErrorInvalidParameter;
    }
    return update([&settings](sim::SimHostedNetworkS& record) { record.settings = settings; });
}

std::uint32_t wlanHostedNetworkQuerySecondaryKey(const UniqueWlanHandle& handle, std::vector<std::uint8_t>& key,
                                                 bool& isPassPhrase, bool& persistent, std::uint32_t& failReason)
{
    failReason = kWlanHostedNetworkReasonSuccess;
    if (!simwlan::validClient(handle.get())) return kErrorInvalidHandle;
    const sim::SimHostedNetworkS record = sim::readHostedNetwork(sim::root());
    key = record.key;
    isPassPhrase = record.passPhrase;
    persistent = record.persistent;
    return kErrorSuccess;
}

std::uint32_t wlanHostedNetworkSetSecondaryKey(const UniqueWlanHandle& handle, const std::vector<std::uint8_t>& key,
                                               bool isPassPhrase, bool persistent, std::uint32_t& failReason)
{
    failReason = kWlanHostedNetworkReasonSuccess;
    if (!simwlan::validClient(handle.get())) return kErrorInvalidHandle;
    const bool valid = isPassPhrase ? key.size() >= kPassPhraseMinBytes && key.size() <= kPassPhraseMaxBytes &&
                                          key.back() == 0 && std::memchr(key.data(), 0, key.size() - 1) == nullptr
                                    : key.size() == kRawKeyBytes;
    if (!valid) {
        failReason = kWlanHostedNetworkReasonBadParameters;
        return kErrorInvalidParameter;
    }
    return update([&](sim::SimHostedNetworkS& record) {
        record.key = key;
        record.passPhrase = isPassPhrase;
        record.persistent = persistent;
    });
}

}  // namespace platform
