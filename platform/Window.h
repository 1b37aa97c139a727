#pragma once
// Windows, the message queue and timers with Win32 semantics. Messages are posted to the queue of the
// thread that created the window; GetMessage answers WM_QUIT only once the queue is empty; a due timer
// produces WM_TIMER when nothing else is waiting. On the simulation platform timers follow the installed
// clock.
#include <cstdint>
#include <string>

#include "platform/Owner.h"

namespace platform {

struct WindowHandle {
    void* value = nullptr;
    explicit operator bool() const { return value != nullptr; }
    friend bool operator==(WindowHandle a, WindowHandle b) { return a.value == b.value; }
    friend bool operator!=(WindowHandle a, WindowHandle b) { return a.value != b.value; }
};

using WParam = std::uintptr_t;
using LParam = std::intptr_t;
using LResult = std::intptr_t;
using WindowProcedure = LResult (*)(WindowHandle window, std::uint32_t message, WParam wParam, LParam lParam);

// Message numbers of the Windows API.
namespace wm {
constexpr std::uint32_t Destroy = 0x0002;
constexpr std::uint32_t Close = 0x0010;
constexpr std::uint32_t QueryEndSession = 0x0011;
constexpr std::uint32_t Quit = 0x0012;
constexpr std::uint32_t QueryOpen = 0x0013;
constexpr std::uint32_t EndSession = 0x0016;
constexpr std::uint32_t Power = 0x0048;
constexpr std::uint32_t NcDestroy = 0x0082;
constexpr std::uint32_t Command = 0x0111;
constexpr std::uint32_t Timer = 0x0113;
constexpr std::uint32_t DeviceChange = 0x0219;
constexpr std::uint32_t User = 0x0400;
}  // namespace wm

// Window class and window styles, ShowWindow commands.
constexpr std::uint32_t kClassStyleVRedraw = 0x0001;
constexpr std::uint32_t kClassStyleHRedraw = 0x0002;
constexpr std::uint32_t kStyleOverlappedWindow = 0x00CF0000;
constexpr std::uint32_t kStyleMinimize = 0x20000000;
constexpr int kShowHide = 0;

struct WindowClassDesc {
    std::wstring className;
    WindowProcedure procedure = nullptr;
    std::uint32_t style = 0;
    bool blackBackground = false;  // the stock black brush
    bool arrowCursor = false;      // the standard arrow cursor
    unsigned menuResourceId = 0;   // 0: no menu
};

// RegisterClassExW; false with the last error set.
bool registerWindowClass(const WindowClassDesc& windowClass);

// CreateWindowW at the default position and size, without parent or menu; a null handle with the last
// error set on failure. WM_CREATE-time messages are not used by Halvern.
WindowHandle createWindow(const std::wstring& className, const std::wstring& title, std::uint32_t style);
// Answers whether the window was visible before.
bool showWindow(WindowHandle window, int command);
bool updateWindow(WindowHandle window);
// Sends WM_DESTROY and then WM_NCDESTROY to the window procedure, kills its timers and invalidates the
// handle.
bool destroyWindow(WindowHandle window);
bool isWindow(WindowHandle window);
// FindWindowW by class name: a top-level window of this desktop (on the host: of this process).
WindowHandle findWindow(const std::wstring& className);

struct Message {
    WindowHandle window;
    std::uint32_t message = 0;
    WParam wParam = 0;
    LParam lParam = 0;
};

// GetMessageW for any window of the calling thread: 1 for a message, 0 for WM_QUIT, -1 on error.
int getMessage(Message& message);
bool translateMessage(const Message& message);
LResult dispatchMessage(const Message& message);
bool postMessage(WindowHandle window, std::uint32_t message, WParam wParam, LParam lParam);
void postQuitMessage(int exitCode);
LResult defWindowProc(WindowHandle window, std::uint32_t message, WParam wParam, LParam lParam);

bool setTimer(WindowHandle window, std::uintptr_t timerId, std::uint32_t milliseconds);
bool killTimer(WindowHandle window, std::uintptr_t timerId);

// The program's resources: strings of its string table and its accelerator tables.
// LoadStringW into a buffer of `bufferChars` characters (the text is cut to bufferChars - 1).
std::wstring loadString(unsigned id, std::size_t bufferChars);

class AcceleratorTable {
public:
    AcceleratorTable() = default;
    explicit AcceleratorTable(void* table) : m_table(table) {}
    void* get() const { return m_table; }
    explicit operator bool() const { return m_table != nullptr; }

private:
    // Resource-backed: freed with the image, so no owner is needed.
    void* m_table = nullptr;
};
AcceleratorTable loadAccelerators(unsigned id);
// TranslateAcceleratorW: true when the message was a key of the table and has been handled.
bool translateAccelerator(WindowHandle window, const AcceleratorTable& table, const Message& message);

// WM_DEVICECHANGE's events (wParam) that Halvern acts on.
constexpr WParam kDbtDeviceArrival = 0x8000;
constexpr WParam kDbtDeviceRemoveComplete = 0x8004;

// Windows tells every top-level window about volumes coming and going, and about other devices only a window
// that registered for their device interface (RegisterDeviceNotificationW). The owner of such a registration
// unregisters it (UnregisterDeviceNotification) when it ends. On the simulation platform a registration is an
// endpoint in the sim root, "sim/usb/notify/", to which the simulated instrument sends its USB bus changes;
// they reach the window as WM_DEVICECHANGE with the events above (lParam 0).
struct DeviceNotificationTraits {
    using Value = void*;
    static Value invalid() noexcept { return nullptr; }
    static void close(Value registration) noexcept;
};
using UniqueDeviceNotification = UniqueOwner<DeviceNotificationTraits>;

// Registers `window` for arrival and removal of devices of the USB device interface
// (GUID_DEVINTERFACE_USB_DEVICE); an empty owner with the last error set on failure.
UniqueDeviceNotification registerUsbDeviceNotification(WindowHandle window);

// Sends WM_DEVICECHANGE with `event` to `window` as the system does when a device of the USB device interface
// comes or goes: with the device's broadcast record as lParam (Windows refuses to post such a message), waiting
// at most `timeoutMs` for the window's thread. For tools that act on a running Halvern; false with the last
// error set. On the simulation platform the message is posted with lParam 0, as the registrations above
// deliver it.
bool sendUsbDeviceChange(WindowHandle window, WParam event, std::uint32_t timeoutMs);

// A console or session asking the program to end (Ctrl-C, SIGTERM on the host) reaches this window as
// WM_CLOSE; a request that comes before the window exists is delivered when it is set.
void forwardCloseRequestsTo(WindowHandle window);

}  // namespace platform
