#include "app/StartUp.h"

#include "app/Log.h"
#include "app/MainWindow.h"
#include "app/StartUpSteps.h"
#include "app/resource.h"
#include "platform/Clock.h"
#include "platform/CommandLine.h"
#include "platform/Entry.h"
#include "platform/Registry.h"
#include "platform/Sync.h"
#include "platform/WinError.h"
#include "platform/Window.h"
#include "sysmanager/SysManagerC.h"
#include "sysmanager/SysPowerC.h"

namespace halvern {

namespace {

constexpr const char* kFunctionName = "wWinMain";
constexpr const char* kVersion = "4.0.0.0";
constexpr std::size_t kResourceStringChars = 100;

int runMessageLoop(platform::WindowHandle window)
{
    const platform::AcceleratorTable accelerators = platform::loadAccelerators(IDC_HALVERN);
    platform::Message message;
    int result = 0;
    while ((result = platform::getMessage(message)) != 0) {
        if (result < 0) continue;
        if (!platform::translateAccelerator(window, accelerators, message)) {
            platform::translateMessage(message);
            platform::dispatchMessage(message);
        }
    }
    return static_cast<int>(message.wParam);
}

}  // namespace

bool IsSingleInstance(platform::UniqueHandle& mutex)
{
    auto security = platform::NullDaclSecurityC::create();
    if (!security) return true;
    mutex = platform::createMutex(security.get(), true, L"Global\\HALVERNBASICWIN");
    if (!mutex) return false;
    if (platform::lastError() == platform::kErrorAlreadyExists) {
        mutex.reset();
        return false;
    }
    return true;
}

std::vector<std::string> BannerLines()
{
    const std::string text =
        std::string("=======") + " Halvern Application started, version: " + kVersion + " " + "=======";
    const std::string rule(text.size(), '=');
    return {rule, text, rule};
}

void LogBanner()
{
    for (const auto& line : BannerLines())
        WriteLog("%s", line.c_str());
}

bool UpdatesEnabled(const std::vector<std::wstring>& arguments)
{
    for (std::size_t i = 1; i < arguments.size(); ++i) {
        if (arguments[i] == L"-noupdate") return false;
    }
    return true;
}

StartUpSettings ReadStartUpSettings()
{
    StartUpSettings settings;
    platform::UniqueRegKey key;
    if (platform::regOpenKeyRead(platform::RegHive::CurrentUser, L"SOFTWARE\\Vexar\\Halvern", key) !=
        static_cast<platform::RegStatus>(platform::kErrorSuccess)) {
        return settings;
    }
    auto readDword = [&key](const wchar_t* name) -> std::optional<std::uint32_t> {
        std::uint32_t value = 0;
        std::uint32_t type = platform::kRegNone;
        if (platform::regQueryDword(key, name, value, type) !=
            static_cast<platform::RegStatus>(platform::kErrorSuccess))
            return std::nullopt;
        return value;
    };
    if (auto delay = readDword(L"BackendToFrontendDelay")) settings.backendToFrontendDelay = *delay;
    if (auto allow = readDword(L"AllowMxApplicationStartup")) settings.allowMxApplicationStartup = *allow != 0;
    if (auto wait = readDword(L"EFIServiceIPCConnectionDelay")) {
        settings.efiServiceIpcConnectionDelay = wait;
        WriteLog("Halvern [%s]: Waiting %d msec before Zentor Application start", kFunctionName,
                 static_cast<int>(*wait));
        platform::sleepMs(*wait);
    }
    return settings;
}

int wWinMain(const std::vector<std::wstring>& arguments)
{
    g_networkHelperLogger = NetworkHelperLog;
    g_networkHelperLoggerContext = nullptr;

    platform::UniqueHandle instanceMutex;
    if (!IsSingleInstance(instanceMutex)) {
        WriteLog("[ERROR]: Another Halvern instance detected, quitting.");
        return 0;
    }

    // Signals "Global\HalvernShutdownResponse" on every return from here on.
    SysPowerC sysPower;

    const bool updatesEnabled = UpdatesEnabled(arguments);
    if (!updatesEnabled) WriteLog("starting halvern with option -noupdate");

    LogBanner();
    HwRelatedInit();
    CheckTouchState();
    RepairSerialMouseService();
    EnsureWlanCountryCode();
    RepairSsdWriteCache();
    DisablePublicFirewall();

    StepVerdict verdict = RunPendingUpdate();
    if (verdict == StepVerdict::Continue) verdict = CheckUsbUpdate(updatesEnabled);
    if (verdict == StepVerdict::EndSuccess) return 0;
    if (verdict == StepVerdict::EndFailure) return -1;

    if (!StartSepServer()) return -1;
    DeletePreviousFirmwareFile();
    if (isHwErrorDetected(false)) {
        StopSepServer();
        return -1;
    }
    if (!HandleProductionModeFlagFile()) StartNetworkObserver();
    InitWlanAccessPoint();

    const std::wstring title = platform::loadString(IDS_APP_TITLE, kResourceStringChars);
    const std::wstring windowClass = platform::loadString(IDC_HALVERN, kResourceStringChars);
    MyRegisterClass(windowClass);
    const platform::WindowHandle window = InitInstance(title, windowClass);
    if (!window) {
        WriteLog("Halvern [%s] [ERROR]: Failed to initialize instance of the application!", kFunctionName);
        return -1;
    }
    WriteLog("InitInstance done!");
    platform::forwardCloseRequestsTo(window);

    StartDriverEventSink();

    const StartUpSettings settings = ReadStartUpSettings();
    SysManagerC* manager = SysManagerC::Instance();
    manager->SetBackendToFrontendDelay(settings.backendToFrontendDelay);
    manager->SetAllowMxApplicationStartup(settings.allowMxApplicationStartup);
    manager->SetMainWindow(window);
    const platform::UniqueDeviceNotification usbNotification = RegisterUsbDeviceNotification(window);
    // The USB device list as it is now, then kept by the device changes; the overlay watch posts to the
    // window it was given.
    manager->RefreshUsbDevices(false);
    manager->startOverlayWatch();

    LaunchZentorApplication();
    VerifyMoraEthernet();

    const int exitCode = runMessageLoop(window);

    WriteLog("Halvern [%s]: Main Message loop terminated, exiting Halvern application", kFunctionName);
    platform::forwardCloseRequestsTo(platform::WindowHandle{});
    StopDriverEventSink();
    WriteLog("[1] DestroyLocalComponents");
    SysManagerC::DestroyInstance();
    return exitCode;
}

}  // namespace halvern

int programEntry()
{
    return halvern::wWinMain(platform::commandLineArguments());
}
