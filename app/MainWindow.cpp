#include "app/MainWindow.h"

#include <atomic>

#include "app/Log.h"
#include "app/resource.h"
#include "efi/EFIServiceIPCBasicCommand.h"
#include "platform/Clock.h"
#include "platform/WinError.h"
#include "sep/server/HalvernSepImpl.h"
#include "sysmanager/SysManagerC.h"

namespace halvern {

namespace {

// Touched only on the main thread; atomics so that tests may look from theirs.
std::atomic<AppShutdownRequestState> g_appShutdownRequestState{AppShutdownRequestState::WAIT_SHUTDOWN_CALL};
std::atomic<int> g_shutdownCounter{0};

// The power button's press time; 0 until the first press, so a lone release counts from boot.
std::atomic<std::uint64_t> g_buttonPressTick{0};

constexpr std::uint64_t kMinimumHoldMs = 500;
constexpr std::uint32_t kLedPauseMs = 200;
constexpr std::uint32_t kShutdownNoticeExtraSeconds = 16;
constexpr int kLedOff = 0;
constexpr int kLedOn = 3;
constexpr int kLedBlink = 5;

constexpr int kPassesBeforeTimer = 15;
constexpr int kSecondsNotStarted = 60;
constexpr int kSecondsStarted = 15;

void enterState(AppShutdownRequestState state, int counter)
{
    if (state == AppShutdownRequestState::SHUTDOWN_NOT_STARTED) {
        WriteLog("Change to AppShutdownRequestState::SHUTDOWN_NOT_STARTED state");
    } else if (state == AppShutdownRequestState::SHUTDOWN_STARTED) {
        WriteLog("Change to AppShutdownRequestState::SHUTDOWN_STARTED state");
    }
    g_appShutdownRequestState = state;
    g_shutdownCounter = counter;
}

// Red and green; the blue LED is not fitted.
void setLeds(int red, int green)
{
    SysManagerC::Instance()->GetEFIServiceIPC().ExecuteLEDCommand(red, green, kLedOff, false);
}

// Shows the coming action on the power LED: off, then blinking in the action's colour.
void signalPowerAction(int red, int green, const char* line)
{
    setLeds(kLedOff, kLedOff);
    platform::sleepMs(kLedPauseMs);
    WriteLog("%s", line);
    setLeds(red, green);
    platform::sleepMs(kLedPauseMs);
}

// Carries out the configured quit, reboot or shutdown, then tears the instance down.
void runPowerSequence()
{
    SysManagerC* manager = SysManagerC::Instance();
    WriteLog("Request Zentor Application Exit");
    manager->RequestComApplicationExit();
    switch (manager->GetApplicationPowerRequestType()) {
        case POWER_REQUEST_REBOOT:
            WriteLog("Initiate Reboot sequence");
            signalPowerAction(kLedBlink, kLedOff, "Set power LED to blinking RED");
            manager->GetEFIServiceIPC().ExecuteBasicCommand(EFI_BASIC_REBOOT, false);
            manager->PowerCycleScannerDevice();
            break;
        case POWER_REQUEST_SHUTDOWN:
            WriteLog("Initiate Shutdown sequence");
            signalPowerAction(kLedBlink, kLedOff, "Set power LED to blinking RED");
            manager->PowerCycleScannerDevice();
            break;
        case POWER_REQUEST_QUIT:
            WriteLog("Initiate Quit sequence");
            signalPowerAction(kLedOff, kLedBlink, "Set power LED to blinking GREEN");
            break;
        default:
            break;
    }
    WriteLog("[2] DestroyLocalComponents");
    SysManagerC::DestroyInstance();
}

void finishShutdown(platform::WindowHandle window)
{
    runPowerSequence();
    platform::killTimer(window, SHUTDOWN_TIMER1);
    platform::destroyWindow(window);
}

void onClose(platform::WindowHandle window)
{
    WriteLog("++ WM_CLOSE received");
    SysManagerC* manager = SysManagerC::Instance();
    HalvernSepImpl::raiseShutdownNotif((manager->GetPowerRequestTimeout() + kShutdownNoticeExtraSeconds) * 1000);

    WriteLog("Set AppShutdownRequestState::WAIT_SHUTDOWN_CALL state");
    g_appShutdownRequestState = AppShutdownRequestState::WAIT_SHUTDOWN_CALL;
    g_shutdownCounter = kPassesBeforeTimer;
    manager->SetAppShutdownAnswer(APP_SHUTDOWN_NO_ANSWER);

    for (int pass = kPassesBeforeTimer; pass >= 1; --pass) {
        WriteLog("WM_CLOSE - SHUTDOWN: %d", pass);
        if (!manager->IsZentorApplicationRunning()) break;
        const std::int32_t answer = manager->GetAppShutdownAnswer();
        if (answer == APP_SHUTDOWN_NOT_STARTED) {
            enterState(AppShutdownRequestState::SHUTDOWN_NOT_STARTED, kSecondsNotStarted);
            platform::setTimer(window, SHUTDOWN_TIMER1, kShutdownTimerPeriodMs);
            return;
        }
        if (answer == APP_SHUTDOWN_STARTED) {
            enterState(AppShutdownRequestState::SHUTDOWN_STARTED, kSecondsStarted);
            platform::setTimer(window, SHUTDOWN_TIMER1, kShutdownTimerPeriodMs);
            return;
        }
        if (answer != APP_SHUTDOWN_NO_ANSWER) break;
        platform::sleepMs(1000);
    }
    finishShutdown(window);
}

void onShutdownTimer(platform::WindowHandle window)
{
    WriteLog("WM_TIMER - SHUTDOWN_TIMER1: %d", g_shutdownCounter.load());
    SysManagerC* manager = SysManagerC::Instance();
    const std::int32_t answer = manager->GetAppShutdownAnswer();
    const AppShutdownRequestState state = g_appShutdownRequestState;

    if (answer == APP_SHUTDOWN_NOT_STARTED) {
        if (state != AppShutdownRequestState::SHUTDOWN_NOT_STARTED) {
            enterState(AppShutdownRequestState::SHUTDOWN_NOT_STARTED, kSecondsNotStarted);
        } else if (g_shutdownCounter == 0) {
            finishShutdown(window);
        } else {
            --g_shutdownCounter;
        }
        return;
    }
    if (answer == APP_SHUTDOWN_STARTED && state != AppShutdownRequestState::SHUTDOWN_STARTED) {
        enterState(AppShutdownRequestState::SHUTDOWN_STARTED, kSecondsStarted);
        return;
    }
    if (answer != APP_SHUTDOWN_NO_ANSWER && answer != APP_SHUTDOWN_STARTED) return;

    // No answer, or started and waiting for the process to end.
    if (g_shutdownCounter != 0) {
        if (manager->IsZentorApplicationRunning()) {
            if (--g_shutdownCounter != 0) return;
        } else {
            g_shutdownCounter = 0;
        }
    }
    finishShutdown(window);
}

void onPowerButtonReleased()
{
    if (platform::tickCount64() - g_buttonPressTick.load() < kMinimumHoldMs) {
        WriteLog(">>> Power button discarded - press was too short >>>");
        return;
    }
    setLeds(kLedOff, kLedOff);
    platform::sleepMs(kLedPauseMs);
    WriteLog(">>> Initiate System Shutdown >>>");
    setLeds(kLedOn, kLedOff);
    SysManagerC* manager = SysManagerC::Instance();
    manager->ConfigurePowerCycleRequest(POWER_REQUEST_SHUTDOWN, true, 0);
    WriteLog("Configured power cycle request: %d, force: %d, timeout: %d", POWER_REQUEST_SHUTDOWN, 1, 0);
    WriteLog(" SendCloseEvent");
    manager->SendCloseEvent();
}

void onEfiNotification(platform::WParam category, platform::LParam code)
{
    if (category == 0) {
        WriteLog("[ERROR]: ++WM_EFI_NOTIFICATION : EFI reported ERROR = %x", static_cast<unsigned>(code));
        return;
    }
    if (category != 1) {
        WriteLog("[ERROR]: ++WM_EFI_NOTIFICATION : Unknown EFI Event category!");
        return;
    }
    WriteLog("++WM_EFI_NOTIFICATION : Notification %x received", static_cast<unsigned>(code));
    bool raised = true;
    switch (code) {
        case 1:
            g_buttonPressTick = platform::tickCount64();
            raised = HalvernSepImpl::raiseEfiBtnPressed();
            break;
        case 2:
            onPowerButtonReleased();
            raised = HalvernSepImpl::raiseEfiBtnReleased();
            break;
        case 4:
            raised = HalvernSepImpl::raiseSuperIntervetion();
            break;
        case 5:
            raised = HalvernSepImpl::raisePwrSrcStatus();
            break;
        default:
            break;
    }
    if (!raised) WriteLog("[ERROR]: SEP failed to raise event for EFI notification %d", static_cast<int>(code));
}

}  // namespace

AppShutdownRequestState GetAppShutdownRequestState()
{
    return g_appShutdownRequestState;
}
int GetShutdownCounter()
{
    return g_shutdownCounter;
}

bool MyRegisterClass(const std::wstring& windowClass)
{
    platform::WindowClassDesc desc;
    desc.className = windowClass;
    desc.procedure = WndProc;
    desc.style = platform::kClassStyleHRedraw | platform::kClassStyleVRedraw;
    desc.blackBackground = true;
    desc.arrowCursor = true;
    return platform::registerWindowClass(desc);
}

platform::WindowHandle InitInstance(const std::wstring& title, const std::wstring& windowClass)
{
    const platform::WindowHandle window =
        platform::createWindow(windowClass, title, platform::kStyleOverlappedWindow | platform::kStyleMinimize);
    if (!window) return window;
    platform::showWindow(window, platform::kShowHide);
    platform::updateWindow(window);
    return window;
}

platform::UniqueDeviceNotification RegisterUsbDeviceNotification(platform::WindowHandle window)
{
    platform::UniqueDeviceNotification notification = platform::registerUsbDeviceNotification(window);
    if (!notification)
        WriteLog("[%s] [ERROR]: Failed to register for USB device notifications, ERROR(%d)",
                 "RegisterUsbDeviceNotification", static_cast<int>(platform::lastError()));
    return notification;
}

// The overlay watch saw the write filter's overlay reach a state; clients hear it with the overlay's
// figures, or with zeros when these cannot be read.
static void onOverlayState(std::int32_t state)
{
    std::uint32_t consumption = 0;
    std::uint32_t available = 0;
    SysManagerC::Instance()->ReadUWFOverlay(consumption, available);
    if (!HalvernSepImpl::raiseUWFOverlayStateNotif(state, consumption, available))
        WriteLog("[ERROR]: SEP failed to raise event for overlay state %d", state);
}

platform::LResult WndProc(platform::WindowHandle window, std::uint32_t message, platform::WParam wParam,
                          platform::LParam lParam)
{
    switch (message) {
        case platform::wm::Command:
            if ((wParam & 0xFFFF) == IDM_EXIT) {
                platform::destroyWindow(window);
                return 0;
            }
            return platform::defWindowProc(window, message, wParam, lParam);
        case platform::wm::Destroy:
            WriteLog("++ WM_DESTROY received");
            platform::postQuitMessage(0);
            return 0;
        case platform::wm::Close:
            onClose(window);
            return 0;
        case platform::wm::QueryEndSession:
            WriteLog("-----------------WM_QUERYENDSESSION (0x%X)", static_cast<unsigned>(lParam));
            return 1;
        case platform::wm::QueryOpen:
            WriteLog("-----------------WM_QUERYOPEN");
            return 0;
        case platform::wm::EndSession:
            WriteLog("-----------------WM_ENDSESSION");
            WriteLog("[3] DestroyLocalComponents");
            SysManagerC::DestroyInstance();
            WriteLog("-----------------WM_ENDSESSION Handled");
            return 0;
        case platform::wm::Power:
            WriteLog("-----------------WM_POWER");
            return 0;
        case platform::wm::Timer:
            if (wParam == SHUTDOWN_TIMER1) onShutdownTimer(window);
            return 0;
        case platform::wm::DeviceChange:
            if (wParam == platform::kDbtDeviceArrival) {
                SysManagerC::Instance()->RefreshUsbDevices(true);
                HalvernSepImpl::raiseUsbDeviceAttachNotif(true);
            }
            if (wParam == platform::kDbtDeviceRemoveComplete) {
                SysManagerC::Instance()->RefreshUsbDevices(false);
                HalvernSepImpl::raiseUsbDeviceAttachNotif(false);
            }
            return 0;
        case WM_USB_PORT_RECYCLE:
            SysManagerC::Instance()->RecycleUsbPort(static_cast<std::uint16_t>(wParam & 0xFFFF));
            return 0;
        case WM_UWF_OVERLAY_STATE_1:
        case WM_UWF_OVERLAY_STATE_2:
        case WM_UWF_OVERLAY_STATE_3:
            onOverlayState(static_cast<std::int32_t>(message - WM_UWF_OVERLAY_STATE_1 + 1));
            return 0;
        case WM_EFI_NOTIFICATION:
            WriteLog("-----------------WM_EFI_NOTIFICATION");
            onEfiNotification(wParam, lParam);
            return 0;
        default:
            return platform::defWindowProc(window, message, wParam, lParam);
    }
}

}  // namespace halvern
