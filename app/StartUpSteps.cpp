// Start-up steps that belong to other subsystems. A step whose subsystem this build does not contain yet
// does nothing and logs nothing: no work is done, so nothing may claim it.
#include "app/StartUpSteps.h"

#include <cstring>
#include <optional>
#include <vector>

#include "app/Log.h"
#include "links/DivoManagerC.h"
#include "links/MoraManagerC.h"
#include "net/NetManagerC.h"
#include "net/WlanAccessPointC.h"
#include "net/WlanAp.h"
#include "net/WlanDriverEvents.h"
#include "net/WlanDriverManager.h"
#include "platform/Clock.h"
#include "platform/FileSystem.h"
#include "platform/Text.h"
#include "platform/WinError.h"
#include "spb/SpbEnable.h"
#include "sysmanager/SysManagerC.h"

namespace halvern {

using links::MoraManagerC;

namespace {

constexpr int kMoraBootWaitMs = 15000;
constexpr int kMoraEthBeforeLaunchMs = 6000;
constexpr int kMoraEthVerifyMs = 7500;
constexpr int kMoraEthFixMs = 16000;
const wchar_t* const kProductionDrive = L"F:\\";
// What the last update installed from.
const wchar_t* const kPreviousFirmwareFile = SysManagerC::kInternalImage;
// The Ethernet links settle again only after a WLAN module that was powered late has come up.
constexpr std::uint32_t kWlanPowerUpWaitMs = 6000;
constexpr const char* kDefaultCountryCode = "CH";

}  // namespace

bool& moraUartReadyFlag()
{
    static bool ready = true;
    return ready;
}

void HwRelatedInit()
{
    // Without the EFI link the instrument still starts: commands then fail one by one.
    if (!SysManagerC::Instance()->GetEFIServiceIPC().InitializeEFICommunication())
        WriteLog("Halvern [%s] [ERROR]: Failed to initialize communication with EFI", "HwRelatedInit");
    std::string speedName;
    if (net::NetManagerC::GetSpeedName(net::NetManagerC::GetAdapterSpeed(), speedName))
        WriteLog("Get current Ethernet adapter speed: %s", speedName.c_str());
    else
        WriteLog("Halvern [%s] [ERROR]: Get Ethernet Adapter Speed Failed", "HwRelatedInit");
    enableSpbDevices();
    if (!wlanPoweredAtPowerOn()) {
        WriteLog("Wait 6 second to restart Ethernet connections after WiFi enable!");
        platform::sleepMs(kWlanPowerUpWaitMs);
    } else {
        WriteLog("WiFi enabled at PowerOn, no wait neccessary!");
    }
    SysManagerC::Instance()->ApplySensorBoardEndpoint();
    if (MoraManagerC::waitForBootUart(kMoraBootWaitMs)) {
        WriteLog("MORA boot OK (UART)");
    } else {
        WriteLog("Halvern [%s] [ERROR]: failed to verify MORA's boot over UART", "HwRelatedInit");
        // A board stuck in its boot loader still has a console; only a silent one counts as unreachable.
        if (!MoraManagerC::verifyMoraUBootState()) moraUartReadyFlag() = false;
    }
    MoraManagerC::writeKernelLog("Halvern started");
    SysManagerC* manager = SysManagerC::Instance();
    if (!manager->startW32TimeService())
        WriteLog("Halvern [%s] [ERROR]: failed to start Windows Time Service!", "HwRelatedInit");
    if (!manager->GetRtcSystemTime()) WriteLog("Halvern [%s] [ERROR]: SetRtcSystemTime Failed", "HwRelatedInit");
}
void CheckTouchState()
{
    std::uint32_t state = 0;
    if (!links::DivoManagerC::curScrVltgCalExecInfo(state)) WriteLog("[ERROR]: Touch is not working!");
}
void RepairSerialMouseService()
{
    bool changed = false;
    // The check logs its own failures; the start goes on with the service as it is.
    if (SysManagerC::Instance()->DisableSerialMouseService(changed) && changed)
        SysManagerC::Instance()->CommitRegistryValue(L"HKLM\\SYSTEM\\CurrentControlSet\\Services\\sermouse\\",
                                                     L"Start");
}
void EnsureWlanCountryCode()
{
    std::string code;
    if (!net::NetManagerC::GetDrvCtryCode(code) || code != net::kCountryNotPresent) return;
    WriteLog("[ERROR]: County code not defined!");
    if (!net::NetManagerC::SetDrvCtryCode(kDefaultCountryCode)) return;
    WriteLog("Set default county code to: CH");
    // The driver reads its country only when it starts.
    net::refreshWlanDriver();
    std::wstring driverKey;
    if (net::NetManagerC::GetWlanDrvRegPath(driverKey))
        SysManagerC::Instance()->CommitRegistryValue(L"HKLM\\" + driverKey, L"ccode");
}
void RepairSsdWriteCache()
{
    std::wstring diskKey;
    bool changed = false;
    // The disk's key holds blanks ("Device Parameters"): the commit takes it in double quotes.
    if (SysManagerC::Instance()->DisableSsdWriteCache(diskKey, changed) && changed)
        SysManagerC::Instance()->CommitRegistryValue(L"\"HKLM\\" + diskKey + L"\"", L"UserWriteCacheSetting");
}
void DisablePublicFirewall()
{
    // The link between sensor board and computer module is a public network; SetWinFirewall logs a failure.
    SysManagerC::Instance()->SetWinFirewall(platform::FirewallProfileE::Public, false);
}
namespace {

// The updater's answer decides whether Halvern ends here so that it can replace files.
StepVerdict finishStartUpUpdate(bool shutdownRequired)
{
    if (shutdownRequired) {
        WriteLog("shutting down halvern for pending updates...");
        return StepVerdict::EndSuccess;
    }
    WriteLog("no update necessary.");
    return StepVerdict::Continue;
}

}  // namespace

StepVerdict RunPendingUpdate()
{
    SysManagerC* manager = SysManagerC::Instance();
    bool shutdownRequired = false;
    // An update that is half way through is finished whatever the command line says: "-noupdate" is about
    // new images from the USB stick only.
    if (manager->readFwUpdateState() && manager->isFwUpdatePending())
        manager->startFirmwareUpdate(manager->GetPendingUpdateImage(), L"", shutdownRequired, false);
    return finishStartUpUpdate(shutdownRequired);
}

bool IsProductionUsbDrive()
{
    std::wstring label;
    if (!platform::getVolumeLabel(kProductionDrive, label)) {
        WriteLog("No USB stick found attached");
        return false;
    }
    const auto narrowLabel = platform::narrow(label);
    if (!narrowLabel) {
        WriteLog("Found USB stick without volume name.");
        return false;
    }
    WriteLog("Found USB stick: [%s]", narrowLabel->c_str());
    return *narrowLabel == "WIM";
}

StepVerdict CheckUsbUpdate(bool updatesEnabled)
{
    WriteLog("checking for SOFTWARE.IMG on USB...");
    if (!updatesEnabled) return StepVerdict::Continue;
    if (IsProductionUsbDrive()) {
        WriteLog("Found Production USB Drive, checking for SOFTWARE.IMG...");
        SysManagerC* manager = SysManagerC::Instance();
        if (!manager->isAutoUpdateFileAvailable()) return StepVerdict::Continue;
        if (isHwErrorDetected(true)) return StepVerdict::EndFailure;
        WriteLog("SOFTWARE.IMG found. start update....");
        bool shutdownRequired = false;
        manager->startFirmwareUpdate(SysManagerC::kAutoUpdateImage, L"-force", shutdownRequired, true);
        return finishStartUpUpdate(shutdownRequired);
    }
    WriteLog("Verify MORA ethernet connection before starting Zentor Application!");
    if (MoraManagerC::waitForEth(kMoraEthBeforeLaunchMs))
        WriteLog("MORA Ethernet link OK");
    else
        WriteLog("Halvern [%s] [ERROR]: Failed to wait for MORA Ethernet link", "wWinMain");
    return StepVerdict::Continue;
}

void DeletePreviousFirmwareFile()
{
    WriteLog("Looking for previous fw file in unproteced folder...");
    const std::uint32_t attributes = platform::getFileAttributes(kPreviousFirmwareFile);
    if (attributes == platform::kInvalidFileAttributes) {
        WriteLog("No file found, nothing to do.");
        return;
    }
    WriteLog("Found FW File from last update: %ls", kPreviousFirmwareFile);
    // The updater leaves its copy read-only; it goes all the same.
    if ((attributes & platform::kFileAttributeReadOnly) != 0)
        platform::setFileAttributes(kPreviousFirmwareFile, attributes & ~platform::kFileAttributeReadOnly);
    if (platform::deleteFile(kPreviousFirmwareFile))
        WriteLog("Successfully deleted file %ls", kPreviousFirmwareFile);
    else
        WriteLog("WARNING: cannot delete fw file %ls (Error:%d)", kPreviousFirmwareFile,
                 static_cast<int>(platform::lastError()));
}
bool HandleProductionModeFlagFile()
{
    const wchar_t* const flagFilePath = SysManagerC::kProductionModeFlagFile;
    platform::UniqueHandle flagFile =
        platform::createFile(flagFilePath, platform::kGenericRead, platform::kFileShareRead, false,
                             platform::kOpenExisting, platform::kFileAttributeNormal);
    if (!flagFile) {
        WriteLog(
            "[%s] Halvern: No production mode flag file in the given path, so no indication of a transition from "
            "customer to production mode!",
            "wWinMain");
        return false;
    }
    WriteLog("[%s] Halvern: Indication of a transition from customer to production mode!", "wWinMain");
    SysManagerC::CurDevModeInfo info;
    const bool switched = SysManagerC::Instance()->productionMode(true, info);
    if (!switched)
        WriteLog("Halvern [%s] [ERROR]: failed to fully activate production mode! --> Error: %d", "wWinMain",
                 static_cast<int>(platform::lastError()));
    flagFile.reset();
    if (platform::deleteFile(flagFilePath))
        WriteLog("Delete device production mode flag file!");
    else
        WriteLog("Halvern [%s] [ERROR]: failed to delete device mode flag file! --> Error: %d", "wWinMain",
                 static_cast<int>(platform::lastError()));
    return switched;
}
void StartNetworkObserver()
{
    // An instrument in customer mode (its write filter protecting it) routes nothing beyond its own links;
    // a filter whose state cannot be read counts as protecting, as in the hardware check.
    bool protectedByFilter = true;
    SysManagerC::Instance()->GetUWFilter(protectedByFilter);
    if (protectedByFilter) SysManagerC::Instance()->startNetworkObserver();
}
// The service's SSID and pass phrase and the driver's band are the configuration; the selection picks the
// channel for the allowed list the driver gives, and the access point opens on it.
void InitWlanAccessPoint()
{
    net::WlanAccessPointC& accessPoint = net::WlanAccessPointC::instance();
    accessPoint.refresh();
    net::WlanApRequestT request;
    request.start = 1;
    request.band = net::kWlanBandKeep;
    // Its failures are logged where they happen; the instrument goes on without its access point.
    accessPoint.configure(request);
}

namespace {

// A buffer of the WlanAp_* exports as text bytes: it ends at its first zero byte.
std::optional<std::vector<std::uint8_t>> takeApText(unsigned char* buffer)
{
    if (buffer == nullptr) return std::nullopt;
    std::vector<std::uint8_t> text(buffer, buffer + std::strlen(reinterpret_cast<const char*>(buffer)));
    WlanAp_FreeMemory(buffer);
    return text;
}

}  // namespace

// A restart after the driver left its channel for radar reads what the access point runs with and
// configures it afresh, as a client's configuration would.
void StartDriverEventSink()
{
    net::WlanApRestartOperationsT operations;
    operations.getSsid = [] { return takeApText(WlanAp_GetSsid()); };
    operations.getPassword = [] { return takeApText(WlanAp_GetPassword()); };
    operations.getBand = [] { return net::WlanAccessPointC::instance().config().band; };
    operations.configureWlan = [](const net::WlanApRestartRequestT& restart) {
        net::WlanApRequestT request;
        request.start = restart.start;
        request.band = restart.band;
        if (!restart.ssid.empty()) request.ssid = restart.ssid;
        if (!restart.password.empty()) request.password = restart.password;
        return net::WlanAccessPointC::instance().configure(request);
    };
    net::startWlanDriverEvents(std::move(operations));
}

void StopDriverEventSink()
{
    net::stopWlanDriverEvents();
}
void LaunchZentorApplication()
{
    platform::setLastError(0);
    if (SysManagerC::Instance()->StartComApplication()) {
        WriteLog("Sucessufully launched Zentor Application");
    } else {
        WriteLog("Halvern [%s] [ERROR]: Launch Zentor Application failed (%d)", "wWinMain",
                 static_cast<int>(platform::lastError()));
    }
}
void VerifyMoraEthernet()
{
    if (MoraManagerC::verifyEth(kMoraEthVerifyMs, kMoraEthFixMs))
        WriteLog("Halvern [%s]: MORA Ethernet link OK", "wWinMain");
    else
        WriteLog("Halvern [%s] [ERROR]: Failed to verify MORA Ethernet link", "wWinMain");
}

}  // namespace halvern
