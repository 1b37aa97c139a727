// The firmware update: when an update may start, the image it installs, the updater in the user's session
// and its answer whether Halvern has to make way for it.
#include <cstdio>
#include <cstring>
#include <vector>

#include "framework/ExclusiveTurn.h"
#include "app/Log.h"
#include "efi/EFIServiceIPC.h"
#include "links/MoraManagerC.h"
#include "net/WlanDriverManager.h"
#include "platform/Clock.h"
#include "platform/FileSystem.h"
#include "platform/Sync.h"
#include "platform/Text.h"
#include "platform/WinError.h"
#include "sysmanager/ChildProcessesC.h"
#include "sysmanager/FirmwareUpdateC.h"
#include "sysmanager/WlanModulePower.h"

namespace {

const wchar_t* const kUpdater = L"C:\\vexarBatches\\FirmwareUpdater\\FirmwareUpgrader.exe";
const char* const kUpdateStateFile = "C:\\vexarBatches\\Halvern\\FW_UPDATE_STATE";
const wchar_t* const kShutdownRequestEvent = L"Global\\HalvernShutdownRequest";
const wchar_t* const kUpdaterDesktop = L"Winsta0\\default";

constexpr std::size_t kImagePathBytes = 260;
constexpr std::size_t kStatusOffset = 356;
constexpr std::size_t kMarkOffset = 364;
constexpr std::uint32_t kValidMark = 0xACDC0815u;
constexpr std::uint16_t kStatusPending = 2;

constexpr int kImageSearchAttempts = 11;
constexpr std::uint32_t kImageSearchPauseMs = 1000;
constexpr int kUpdateEthVerifyMs = 15000;
constexpr int kUpdateEthFixMs = 30000;
constexpr std::uint32_t kUpdaterWaitMs = 15000;
constexpr std::size_t kImagePathCountMax = 1024;
constexpr std::size_t kImagePathTooLong = 1023;
// The controller's power-source register.
constexpr std::int32_t kPowerSourceMains = 1;
constexpr std::int32_t kPowerSourceBattery = 2;
constexpr std::int32_t kMinimumUpdateCharge = 50;

int lastErrorNumber()
{
    return static_cast<int>(platform::lastError());
}

std::uint32_t readLittleEndian(const std::uint8_t* bytes, std::size_t count)
{
    std::uint32_t value = 0;
    for (std::size_t i = count; i > 0; --i)
        value = (value << 8) | bytes[i - 1];
    return value;
}

platform::StartupInfoT updaterStartup()
{
    platform::StartupInfoT startup;
    // The updater shows its own screens on the user's desktop.
    startup.useShowWindow = true;
    startup.showWindow = platform::kSwShow;
    startup.desktop = kUpdaterDesktop;
    return startup;
}

// A failed battery read counts as an empty battery: the update must not start on a charge nobody knows.
std::int32_t batteryCharge(EFIServiceIPC& efi, int battery)
{
    const auto reply = efi.ExecuteBatteryCommand(battery, EFI_BATTERY_RSOC, true);
    return reply ? reply->GetValue() : 0;
}

}  // namespace

FirmwareUpdateC::FirmwareUpdateC(EFIServiceIPC& efiService, ChildProcessesC& childProcesses)
    : m_efiServiceIPC(efiService), m_childProcesses(childProcesses)
{}

bool FirmwareUpdateC::readFwUpdateState()
{
    std::lock_guard<std::mutex> guard(m_lock);
    m_fwUpdateStateValid = false;
    m_fwUpdateState.fill(0);
    int error = 0;
    const platform::UniqueFile file = platform::openFile(kUpdateStateFile, "rb", error);
    if (!file) return false;
    if (std::fread(m_fwUpdateState.data(), 1, m_fwUpdateState.size(), file.get()) != m_fwUpdateState.size())
        return false;
    m_fwUpdateStateValid = readLittleEndian(&m_fwUpdateState[kMarkOffset], 4) == kValidMark;
    if (m_fwUpdateStateValid) {
        // Printed in decimal behind its "0x", as the instrument's logs have always shown it.
        WriteLog("Update status info: 0x%d", static_cast<int>(readLittleEndian(&m_fwUpdateState[kStatusOffset], 2)));
    }
    return m_fwUpdateStateValid;
}

bool FirmwareUpdateC::isFwUpdatePending() const
{
    std::lock_guard<std::mutex> guard(m_lock);
    return m_fwUpdateStateValid && readLittleEndian(&m_fwUpdateState[kStatusOffset], 2) == kStatusPending;
}

std::wstring FirmwareUpdateC::GetPendingUpdateImage() const
{
    std::lock_guard<std::mutex> guard(m_lock);
    const char* text = reinterpret_cast<const char*>(m_fwUpdateState.data());
    const std::string image(text, strnlen(text, kImagePathBytes));
    if (!m_fwUpdateStateValid || image.empty() || image.size() == kImagePathBytes) return kInternalImage;
    return platform::widen(image);
}

bool FirmwareUpdateC::isAutoUpdateFileAvailable()
{
    const char* const tag = "SysManagerC::isAutoUpdateFileAvailable";
    WriteLog("[%s]: Entering Find update file loop...", tag);
    std::fflush(nullptr);
    for (int iteration = 0; iteration < kImageSearchAttempts; ++iteration) {
        const std::uint32_t attributes = platform::getFileAttributes(kAutoUpdateImage);
        if (attributes != platform::kInvalidFileAttributes && (attributes & platform::kFileAttributeDirectory) == 0) {
            WriteLog("[%s]: Iteration %d: Found update file [%S]", tag, iteration, kAutoUpdateImage);
            return true;
        }
        if (attributes != platform::kInvalidFileAttributes) platform::setLastError(platform::kErrorFileNotFound);
        WriteLog("[%s] [ERROR]: Iteration %d: FindFirstFile failed (%d)", tag, iteration, lastErrorNumber());
        platform::sleepMs(kImageSearchPauseMs);
    }
    return false;
}

bool FirmwareUpdateC::startUpdater(const std::wstring& imagePath, bool force, bool& shutdownRequired)
{
    shutdownRequired = false;
    const char* const tag = "SysManagerC::startUpdater";
    const auto turn = halvern::takeExclusiveTurn(m_startLock, tag, "The start of a firmware update");
    if (!turn) return false;
    // Counted as StringCchLength counts, with at most 1024 characters.
    const std::size_t length = imagePath.find(L'\0') == std::wstring::npos ? imagePath.size() : imagePath.find(L'\0');
    if (length >= kImagePathCountMax) {
        platform::setLastError(platform::kErrorInvalidParameter);
        WriteLog("[%s] [ERROR]: The StringCchLength failed to count the length of wchar full path string!, ERROR(%d)",
                 tag, lastErrorNumber());
        return false;
    }
    const std::wstring path = imagePath.substr(0, length);
    if (path.empty() || path.back() == L'\\' || path.back() == L'/') {
        platform::setLastError(platform::kErrorInvalidParameter);
        WriteLog("[%s] [ERROR]: The full path or the name of the given firmware file are invalid!, ERROR(%d)", tag,
                 lastErrorNumber());
        return false;
    }
    if (length >= kImagePathTooLong) {
        platform::setLastError(platform::kErrorBufferOverflow);
        WriteLog("[%s] [ERROR] Halvern: Firmware directory path is too long., ERROR(%d)", tag, lastErrorNumber());
        return false;
    }
    if (platform::getFileAttributes(path) != platform::kInvalidFileAttributes) {
        WriteLog("Firmware File Target directory is %ls\n\n", path.c_str());
        if (!platform::copyFile(path, kInternalImage, false)) {
            WriteLog("[%s] [ERROR] Halvern: Cannot copy fw-file to internal storage., ERROR(%d)", tag,
                     lastErrorNumber());
            return false;
        }
        WriteLog("Copied target fw file %ls to the internal storage %ls\n\n", path.c_str(), kInternalImage);
    }
    if (!startFirmwareUpdate(kInternalImage, force ? L" -force" : L"", shutdownRequired, true)) {
        WriteLog("[%s] [ERROR]:Failed to start Firmware Upgrader!, ERROR(%d)", tag, lastErrorNumber());
        return false;
    }
    return true;
}

bool FirmwareUpdateC::startFirmwareUpdate(const std::wstring& imagePath, const std::wstring& extraArgument,
                                          bool& shutdownRequired, bool batteryCheck)
{
    const char* const tag = "SysManagerC::startFirmwareUpdate";
    // The wait gives a board that is still coming up its link before the updater needs it; a link that
    // does not come does not stop the update.
    if (!halvern::links::MoraManagerC::verifyEth(kUpdateEthVerifyMs, kUpdateEthFixMs))
        WriteLog("[ERROR]: startFirmwareUpdate: failed to wait for MORA Ethernet!");

    if (batteryCheck) {
        WriteLog("Battery-Check is needed for the update process");
        const auto source = m_efiServiceIPC.ExecuteStatusControlCommand(EFI_SC_PWRSOURCE, EFI_SC_GET, 0, true);
        const std::int32_t powerSource = source ? source->GetValue() : 0;
        if (powerSource == kPowerSourceBattery) {
            const std::int32_t low = batteryCharge(m_efiServiceIPC, EFI_BATTERY_L);
            const std::int32_t high = batteryCharge(m_efiServiceIPC, EFI_BATTERY_H);
            if (low < kMinimumUpdateCharge || high < kMinimumUpdateCharge) {
                WriteLog("[%s] [ERROR]: Update process was not allowed due to low Battery state: L:%d %%,H:%d %%", tag,
                         static_cast<int>(low), static_cast<int>(high));
                return false;
            }
        } else if (powerSource != kPowerSourceMains) {
            WriteLog("[%s] [ERROR]: System Main Power Source in unidentified, Update cannot be performed!", tag);
            return false;
        }
        if (!halvern::links::MoraManagerC::verifyEFIMode()) {
            WriteLog(
                "[ERROR]: startFirmwareUpdate(): EFI not started in runware mode! Installation of EFI runware "
                "neccessary!");
            return false;
        }
    }

    bool wlanPowered = false;
    halvern::readWlanModulePower(wlanPowered);
    if (!wlanPowered) {
        WriteLog("WLAN is disabled and must be enabled");
        if (halvern::net::setWlanModulePower(true))
            WriteLog("WLAN is now enabled and ready for update process....");
        else
            WriteLog("Cannot set WiFI power state to enable!");
    } else {
        WriteLog("WLAN is enabled and ready for update process....");
    }

    // The updater runs as the user: a null DACL lets it open and signal the event.
    const auto security = platform::NullDaclSecurityC::create();
    platform::UniqueHandle shutdownRequest;
    if (security) shutdownRequest = platform::createEvent(security.get(), true, false, kShutdownRequestEvent);
    if (!shutdownRequest) {
        WriteLog("startFirmwareUpdate: Failed to create halvern off event (%d)!\r\n", lastErrorNumber());
        return false;
    }
    shutdownRequired = false;

    std::wstring commandLine = std::wstring(kUpdater) + L" -i " + imagePath;
    if (!extraArgument.empty()) commandLine += L" " + extraArgument;
    WriteLogWindows("starting %ws.\r\n", commandLine.c_str());

    platform::ProcessInformationT updater;
    if (!m_childProcesses.CreateChildProcess({}, commandLine, 0, updaterStartup(), &updater, true)) {
        WriteLog("CreateChildProcess FAILED:  %d.\r\n", lastErrorNumber());
        return false;
    }

    bool result = true;
    const std::uint32_t waited =
        platform::waitForAnyObject({updater.process.get(), shutdownRequest.get()}, kUpdaterWaitMs);
    if (waited == platform::kWaitObject0) {
        WriteLog("FirmwareUpdater finished.\r\n");
        std::uint32_t exitCode = 1;
        platform::getExitCodeProcess(updater.process.get(), exitCode);
        result = exitCode == 0;
    } else if (waited == platform::kWaitObject0 + 1) {
        WriteLog("updates must be installed.\r\n");
        shutdownRequired = true;
    } else if (waited == platform::kWaitFailed) {
        WriteLog("[%s] [ERROR]: Waiting for the FirmwareUpdater failed, ERROR(%d)", tag, lastErrorNumber());
        result = false;
    }
    // A running updater is left to its work; the event is reused by name by the next start.
    platform::resetEvent(shutdownRequest.get());
    return result;
}

bool FirmwareUpdateC::showFirmwareUpdaterErrorMsg(const std::wstring& componentList)
{
    WriteLog("[INFO]: showFirmwareUpdaterErrorMsg cause of detected Hardware Failure(s)");
    WriteLog("starting FwUpdater to show error msg.");
    std::wstring commandLine = std::wstring(kUpdater) + L" -error";
    if (!componentList.empty()) commandLine += L" " + componentList;
    platform::ProcessInformationT updater;
    if (!m_childProcesses.CreateChildProcess({}, commandLine, 0, updaterStartup(), &updater, true)) {
        WriteLog("CreateChildProcess FAILED:  %d.", lastErrorNumber());
        return false;
    }
    return true;
}
