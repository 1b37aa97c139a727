#include "net/WlanDriverManager.h"

#include <algorithm>
#include <cctype>
#include <mutex>
#include <new>

#include "framework/ExclusiveTurn.h"
#include "app/Log.h"
#include "links/ProcRunner.h"
#include "net/DriverPackageListing.h"
#include "net/WlanAccessPointC.h"
#include "platform/Clock.h"
#include "platform/DeviceDrivers.h"
#include "platform/FileSystem.h"
#include "platform/Text.h"
#include "platform/WinError.h"
#include "platform/Wlan.h"
#include "spb/SpbApi.h"
#include "spb/SpbDevices.h"

namespace halvern::net {

namespace {

constexpr const char* kDeviceTool = "C:\\vexarBatches\\FirmwareUpdater\\devcon.exe";
constexpr const char* kDriverStoreTool = "c:\\Windows\\System32\\pnputil.exe";
constexpr const char* kWlanHardwareId = "PCI\\VEN_168C&DEV_0033";
constexpr const char* kRegularDriverFolder = "F:/wlan_regular_drv/";
constexpr const char* kTestDriverFolder = "F:/wlan_test_drv/";

constexpr std::uint32_t kListWaitMs = 5000;
constexpr std::uint32_t kDriverStoreWaitMs = 60000;
constexpr std::uint32_t kDeviceToolWaitMs = 10000;
constexpr std::uint32_t kEnumerateWaitMs = 10000;

// A driver update on the card loads its driver within a few seconds; each look that misses it refreshes
// the card (up to three tool runs) and pauses, so ten looks give a slow update well over half a minute.
constexpr int kDriverWaitRetries = 10;
constexpr std::uint32_t kDriverRetryPauseMs = 500;
constexpr std::uint32_t kDriverFoundPauseMs = 1000;

constexpr int kInterfaceAttempts = 10;
constexpr std::uint32_t kInterfacePauseMs = 200;
constexpr int kModuleReadyAttempts = 10;
constexpr std::uint32_t kModuleReadyPauseMs = 500;

struct ToolRunT {
    bool ran = false;
    std::uint32_t exitCode = 0;
    std::string output;
    bool succeeded() const { return ran && exitCode == 0; }
    // A run that failed or answered non-zero is logged with `failureFormat`, which takes the run result,
    // the exit code and the output.
    bool checked(const char* failureFormat) const
    {
        if (succeeded()) return true;
        WriteLog(failureFormat, ran ? 1 : 0, static_cast<int>(exitCode), output.c_str());
        return false;
    }
};

ToolRunT runTool(const std::string& command, std::uint32_t timeoutMs)
{
    ToolRunT run;
    run.ran = links::runVantCommand(command, run.output, run.exitCode, timeoutMs, "");
    return run;
}

bool endsWithNoCase(const std::string& text, const std::string& suffix)
{
    if (text.size() < suffix.size()) return false;
    return std::equal(
        suffix.begin(), suffix.end(), text.end() - static_cast<std::ptrdiff_t>(suffix.size()), [](char a, char b) {
            return std::tolower(static_cast<unsigned char>(a)) == std::tolower(static_cast<unsigned char>(b));
        });
}

bool sameNameNoCase(const std::string& a, const std::string& b)
{
    return a.size() == b.size() && endsWithNoCase(a, b);
}

// The loaded drivers' base names; false after the failure was logged.
bool loadedDriverNames(std::vector<std::string>& names)
{
    names.clear();
    std::vector<platform::DriverAddress> addresses;
    std::uint32_t needed = 0;
    if (!platform::enumDeviceDrivers(addresses, needed)) {
        WriteLog("[ERROR]: Failed to fetch list of drivers!");
        return false;
    }
    WriteLog("EnumDeviceDrivers memory needed: %d", static_cast<int>(needed));
    try {
        addresses.resize(needed / sizeof(platform::DriverAddress));
    } catch (const std::bad_alloc&) {
        WriteLog("[ERROR]: Failed to allocate memory to list drivers!");
        return false;
    }
    std::uint32_t filled = 0;
    if (!platform::enumDeviceDrivers(addresses, filled)) {
        WriteLog("[ERROR]: Failed to fetch list of drivers!");
        return false;
    }
    // A driver loaded between the two calls is seen at the next look.
    const std::size_t count = std::min<std::size_t>(addresses.size(), filled / sizeof(platform::DriverAddress));
    WriteLog("There are %d drivers found.", static_cast<int>(count));
    for (std::size_t i = 0; i < count; ++i) {
        std::wstring name;
        if (!platform::getDeviceDriverBaseName(addresses[i], name)) {
            WriteLog("[ERROR]: Failed to get name of the driver: %d", static_cast<int>(platform::lastError()));
            continue;
        }
        names.push_back(platform::narrow(name).value_or(std::string()));
    }
    return true;
}

// The module is up once the WLAN service sees its interface: the card has appeared on the bus and its
// driver has loaded. Its power line reading back on says nothing of that.
bool wlanDeviceReady()
{
    platform::UniqueWlanHandle client;
    std::uint32_t version = 0;
    if (platform::wlanOpenHandle(platform::kWlanClientVersion, version, client) != platform::kErrorSuccess)
        return false;
    std::vector<platform::WlanInterfaceT> interfaces;
    return platform::wlanEnumInterfaces(client, interfaces) == platform::kErrorSuccess && !interfaces.empty();
}

}  // namespace

bool listDriversByProvider(const std::string& keyword, std::vector<std::string>& packages)
{
    packages.clear();
    if (keyword.empty()) {
        WriteLog("[ERROR]: Provider keyword used to list drivers can't be empty!");
        return false;
    }
    const std::string command = std::string(kDeviceTool) + " dp_enum";
    WriteLog("Trying to execute: %s", command.c_str());
    const ToolRunT run = runTool(command, kListWaitMs);
    if (!run.checked("[ERROR]: Failed to list drivers! (%d, %d), %s")) return false;
    packages = parseDriverPackages(run.output, keyword);
    return true;
}

int uninstallDrivers(const std::string& keyword)
{
    std::vector<std::string> packages;
    if (!listDriversByProvider(keyword, packages)) {
        WriteLog("[ERROR]: Failed to get list of drivers to uninstall!");
        return -1;
    }
    int removed = 0;
    for (const std::string& package : packages) {
        const std::string command = std::string(kDriverStoreTool) + " -f -d " + package;
        WriteLog("Executing command line: %s", command.c_str());
        const ToolRunT run = runTool(command, kDriverStoreWaitMs);
        if (run.checked("[ERROR]: Failed to uninstall driver! (%d, %d), %s")) ++removed;
    }
    return removed;
}

bool getWlanDriverFiles(bool test, std::string& folder, std::string& infName, std::string& sysName)
{
    folder = test ? kTestDriverFolder : kRegularDriverFolder;
    infName.clear();
    sysName.clear();
    const std::uint32_t attributes = platform::getFileAttributes(platform::widen(folder));
    std::vector<std::wstring> names;
    if (attributes == platform::kInvalidFileAttributes || (attributes & platform::kFileAttributeDirectory) == 0 ||
        !platform::listFiles(platform::widen(folder), names)) {
        WriteLog("[ERROR]: WLAN driver directory %s does not exist", folder.c_str());
        return false;
    }
    for (const std::wstring& wide : names) {
        const std::string name = platform::narrow(wide).value_or(std::string());
        if (endsWithNoCase(name, ".inf")) infName = name;
        if (endsWithNoCase(name, ".sys")) sysName = name;
    }
    if (infName.empty() || sysName.empty()) {
        WriteLog("[ERROR]: WLAN driver directory %s lacks its .inf or .sys file", folder.c_str());
        return false;
    }
    return true;
}

bool installWlanDriver(bool test)
{
    // Two installations would each remove the provider's packages and update the card, leaving either
    // driver loaded whatever each of them was told.
    static std::mutex installing;
    const auto turn = takeExclusiveTurn(installing, "installWlanDriver", "A WLAN driver installation");
    if (!turn) return false;
    std::string folder;
    std::string infName;
    std::string sysName;
    if (!getWlanDriverFiles(test, folder, infName, sysName)) {
        WriteLog("[ERROR]: Failed to get path/name of WLAN driver.");
        return false;
    }
    // Packages of the provider left in the store would win the card back at its next rescan.
    if (uninstallDrivers(kWlanDriverProvider) <= 0)
        WriteLog("[ERROR]: Failed to uninstall %s drivers.", kWlanDriverProvider);

    WriteLog("Attempt to install driver %s, %s from %s", infName.c_str(), sysName.c_str(), folder.c_str());
    const std::string add = std::string(kDriverStoreTool) + " -a " + folder + infName;
    WriteLog("Trying to install WLAN driver: %s in %s", infName.c_str(), folder.c_str());
    const ToolRunT added = runTool(add, kDriverStoreWaitMs);
    if (!added.ran) {
        WriteLog("[ERROR]: Failed to execute command to install WLAN driver!");
        return false;
    }
    WriteLog("WLAN driver installation return code: %d, output:\n%s\n", static_cast<int>(added.exitCode),
             added.output.c_str());

    const std::string update =
        std::string(kDeviceTool) + " update " + folder + infName + " \"" + kWlanHardwareId + "\"";
    WriteLog("Trying to execute: %s", update.c_str());
    const ToolRunT updated = runTool(update, kDeviceToolWaitMs);
    if (updated.checked("[ERROR]: Failed to update WLAN driver! (%d, %d), %s"))
        WriteLog("WLAN driver update successfully! return code: %d, output:\n%s\n", static_cast<int>(updated.exitCode),
                 updated.output.c_str());
    // Whether the update took is seen in the loaded drivers, whatever the tool answered.
    return waitForDeviceDriver(sysName);
}

void refreshWlanDriver()
{
    const std::string pattern = std::string(kWlanHardwareId) + "*";
    for (const std::string& arguments : {" disable " + pattern, " enable " + pattern, std::string(" rescan")}) {
        const std::string command = kDeviceTool + arguments;
        WriteLog("Executing command to refresh WLAN driver: %s", command.c_str());
        const ToolRunT run = runTool(command, kDeviceToolWaitMs);
        if (!run.checked("[ERROR]: Failed to execute command to refresh WLAN driver (%d, %d), %s")) return;
    }
}

bool restartWlanDriver()
{
    const std::string command = std::string(kDeviceTool) + " restart " + kWlanHardwareId + "*";
    WriteLog("Executing command to restart WLAN driver: %s", command.c_str());
    const ToolRunT run = runTool(command, kDeviceToolWaitMs);
    // A failed restart is logged in the refresh's words.
    return run.checked("[ERROR]: Failed to execute command to refresh WLAN driver (%d, %d), %s");
}

bool waitForDeviceDriver(const std::string& sysName)
{
    if (sysName.empty()) {
        WriteLog("[ERROR]: Empty driver's *sys name is not allowed");
        return false;
    }
    for (int retry = 0; retry < kDriverWaitRetries; ++retry) {
        std::vector<std::string> names;
        if (!loadedDriverNames(names)) return false;
        const bool found = std::any_of(names.begin(), names.end(),
                                       [&sysName](const std::string& name) { return sameNameNoCase(name, sysName); });
        if (found) {
            WriteLog("Device driver found after %d retries", retry);
            platform::sleepMs(kDriverFoundPauseMs);
            return true;
        }
        WriteLog("Device driver %s not found: retry %d", sysName.c_str(), retry);
        refreshWlanDriver();
        platform::sleepMs(kDriverRetryPauseMs);
    }
    WriteLog("[ERROR]: Failed to find device driver %s", sysName.c_str());
    return false;
}

bool waitTillWlanInterfaceReady()
{
    const char* const tag = "waitTillWlanInterfaceReady";
    const ToolRunT listing = runTool(std::string(kDriverStoreTool) + " -e", kEnumerateWaitMs);
    if (!listing.ran) {
        WriteLog("[ERROR]: Failed to execute command to enumerate drivers!");
        return false;
    }
    if (listing.output.find(kWlanTestDriverDate) != std::string::npos) {
        platform::sleepMs(kInterfacePauseMs);
        WriteLog("WLAN test driver found!");
        return true;
    }
    platform::UniqueWlanHandle client;
    std::uint32_t version = 0;
    const std::uint32_t opened = platform::wlanOpenHandle(platform::kWlanClientVersion, version, client);
    if (opened != platform::kErrorSuccess) {
        WriteLog("[ERROR]: WlanOpenHandle failed: %d", static_cast<int>(opened));
        return false;
    }
    std::vector<platform::WlanInterfaceT> interfaces;
    int attempts = 0;
    while (attempts < kInterfaceAttempts && interfaces.empty()) {
        platform::sleepMs(kInterfacePauseMs);
        ++attempts;
        const std::uint32_t listed = platform::wlanEnumInterfaces(client, interfaces);
        if (listed != platform::kErrorSuccess) {
            WriteLog("[ERROR]: WlanEnumInterfaces failed: %d", static_cast<int>(listed));
            return false;
        }
    }
    client.reset();
    WriteLog("%s num wlan interface entries: %lu, interface recognition time: %d ms", tag,
             static_cast<unsigned long>(interfaces.size()), attempts * static_cast<int>(kInterfacePauseMs));
    return !interfaces.empty();
}

bool setWlanModulePower(bool on)
{
    if (!SPB_init()) {
        WriteLog("[ERROR]: Failed to initialize SPB library!");
        return false;
    }
    if (!SPB_setDevPower(spb::kWlanPowerDevice, on)) {
        WriteLog("[ERROR]: Failed to turn on/off the power for WLAN module!");
        return false;
    }
    if (!on) return true;
    bool ready = false;
    int attempts = 0;
    while (!ready && attempts < kModuleReadyAttempts) {
        platform::sleepMs(kModuleReadyPauseMs);
        ++attempts;
        ready = wlanDeviceReady();
    }
    const int waitedMs = attempts * static_cast<int>(kModuleReadyPauseMs);
    if (ready)
        WriteLog("[WLAN_INFO]: WLAN driver Ready after: %d ms.", waitedMs);
    else
        WriteLog("[WLAN_ERROR]: WLAN driver NOT Ready after: %d ms!", waitedMs);
    if (!waitTillWlanInterfaceReady()) return false;
    // The service kept the access point's settings while the module was off; the record follows them.
    WlanAccessPointC::instance().refresh();
    return true;
}

}  // namespace halvern::net
