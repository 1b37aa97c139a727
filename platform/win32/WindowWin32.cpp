#include <windows.h>
// dbt.h after windows.h: it builds on its types.
#include <dbt.h>

#include <climits>
#include <map>
#include <mutex>

#include "platform/WinError.h"
#include "platform/Window.h"
#include "platform/win32/UsbDeviceInterface.h"

namespace platform {

namespace {

HWND toHwnd(WindowHandle window)
{
    return static_cast<HWND>(window.value);
}

WindowHandle fromHwnd(HWND window)
{
    return WindowHandle{window};
}

MSG toMsg(const Message& message)
{
    MSG msg{};
    msg.hwnd = toHwnd(message.window);
    msg.message = message.message;
    msg.wParam = message.wParam;
    msg.lParam = message.lParam;
    return msg;
}

// Our procedures take a WindowHandle, not an HWND, so every class we register gets the same Win32
// procedure, which finds the class's own procedure by class atom. The table lives for the whole process
// (never destroyed) because windows may still receive messages while static objects are torn down.
class ClassProceduresC {
public:
    static ClassProceduresC& instance()
    {
        static ClassProceduresC* const procedures = new ClassProceduresC;
        return *procedures;
    }

    std::mutex& lock() { return m_lock; }
    // Callers hold lock().
    void add(ATOM atom, WindowProcedure procedure) { m_procedures[atom] = procedure; }

    WindowProcedure find(HWND window)
    {
        const auto atom = static_cast<ATOM>(GetClassLongPtrW(window, GCW_ATOM));
        std::lock_guard<std::mutex> guard(m_lock);
        const auto found = m_procedures.find(atom);
        return found != m_procedures.end() ? found->second : nullptr;
    }

private:
    std::mutex m_lock;
    std::map<ATOM, WindowProcedure> m_procedures;
};

// Set while this thread is inside CreateWindowW. The messages sent from there (WM_GETMINMAXINFO,
// WM_NCCREATE, WM_CREATE ...) are not part of the platform's window model, which has no creation-time
// messages: they get the default handling, so a procedure that answers 0 to what it does not know cannot
// make the creation fail.
thread_local bool t_creatingWindow = false;

// Called by the system, so nothing may unwind out of it: an exception here ends the process instead of
// running through user32's frames.
LRESULT CALLBACK classWindowProcedure(HWND window, UINT message, WPARAM wParam, LPARAM lParam) noexcept
{
    if (t_creatingWindow) return DefWindowProcW(window, message, wParam, lParam);
    const WindowProcedure procedure = ClassProceduresC::instance().find(window);
    if (procedure == nullptr) return DefWindowProcW(window, message, wParam, lParam);
    return procedure(fromHwnd(window), message, wParam, lParam);
}

HINSTANCE programInstance()
{
    return GetModuleHandleW(nullptr);
}

}  // namespace

bool registerWindowClass(const WindowClassDesc& windowClass)
{
    if (windowClass.procedure == nullptr || windowClass.className.empty()) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return false;
    }
    WNDCLASSEXW desc{};
    desc.cbSize = sizeof(desc);
    desc.style = windowClass.style;
    desc.lpfnWndProc = classWindowProcedure;
    desc.hInstance = programInstance();
    desc.hCursor = windowClass.arrowCursor ? LoadCursorW(nullptr, IDC_ARROW) : nullptr;
    desc.hbrBackground = windowClass.blackBackground ? static_cast<HBRUSH>(GetStockObject(BLACK_BRUSH)) : nullptr;
    desc.lpszMenuName = windowClass.menuResourceId != 0 ? MAKEINTRESOURCEW(windowClass.menuResourceId) : nullptr;
    desc.lpszClassName = windowClass.className.c_str();

    ATOM atom = 0;
    DWORD error = ERROR_SUCCESS;
    {
        // Held across the registration so that a window created on another thread cannot see the class
        // before its procedure is known.
        auto& procedures = ClassProceduresC::instance();
        std::lock_guard<std::mutex> guard(procedures.lock());
        atom = RegisterClassExW(&desc);
        if (atom != 0)
            procedures.add(atom, windowClass.procedure);
        else
            error = GetLastError();
    }
    if (atom == 0) SetLastError(error);
    return atom != 0;
}

WindowHandle createWindow(const std::wstring& className, const std::wstring& title, std::uint32_t style)
{
    t_creatingWindow = true;
    const HWND window = CreateWindowW(className.c_str(), title.c_str(), style, CW_USEDEFAULT, 0, CW_USEDEFAULT, 0,
                                      nullptr, nullptr, programInstance(), nullptr);
    t_creatingWindow = false;
    // Wine reports an unknown class as ERROR_CLASS_DOES_NOT_EXIST; Windows, and so the rest of Halvern,
    // expects ERROR_CANNOT_FIND_WND_CLASS.
    if (window == nullptr && GetLastError() == ERROR_CLASS_DOES_NOT_EXIST) SetLastError(ERROR_CANNOT_FIND_WND_CLASS);
    return fromHwnd(window);
}

bool showWindow(WindowHandle window, int command)
{
    return ShowWindow(toHwnd(window), command) != FALSE;
}

bool updateWindow(WindowHandle window)
{
    return UpdateWindow(toHwnd(window)) != FALSE;
}

bool destroyWindow(WindowHandle window)
{
    return DestroyWindow(toHwnd(window)) != FALSE;
}

bool isWindow(WindowHandle window)
{
    return IsWindow(toHwnd(window)) != FALSE;
}

WindowHandle findWindow(const std::wstring& className)
{
    return WindowHandle{FindWindowW(className.c_str(), nullptr)};
}

int getMessage(Message& message)
{
    MSG msg{};
    const BOOL result = GetMessageW(&msg, nullptr, 0, 0);
    if (result == -1) return -1;
    message.window = fromHwnd(msg.hwnd);
    message.message = msg.message;
    message.wParam = msg.wParam;
    message.lParam = msg.lParam;
    return result != 0 ? 1 : 0;
}

bool translateMessage(const Message& message)
{
    const MSG msg = toMsg(message);
    return TranslateMessage(&msg) != FALSE;
}

LResult dispatchMessage(const Message& message)
{
    const MSG msg = toMsg(message);
    return DispatchMessageW(&msg);
}

bool postMessage(WindowHandle window, std::uint32_t message, WParam wParam, LParam lParam)
{
    return PostMessageW(toHwnd(window), message, wParam, lParam) != FALSE;
}

void postQuitMessage(int exitCode)
{
    PostQuitMessage(exitCode);
}

LResult defWindowProc(WindowHandle window, std::uint32_t message, WParam wParam, LParam lParam)
{
    return DefWindowProcW(toHwnd(window), message, wParam, lParam);
}

bool setTimer(WindowHandle window, std::uintptr_t timerId, std::uint32_t milliseconds)
{
    return SetTimer(toHwnd(window), timerId, milliseconds, nullptr) != 0;
}

bool killTimer(WindowHandle window, std::uintptr_t timerId)
{
    return KillTimer(toHwnd(window), timerId) != FALSE;
}

std::wstring loadString(unsigned id, std::size_t bufferChars)
{
    // A zero-length buffer would make LoadStringW hand out a pointer into the resource instead of a copy.
    if (bufferChars == 0) return std::wstring();
    const int chars = bufferChars > static_cast<std::size_t>(INT_MAX) ? INT_MAX : static_cast<int>(bufferChars);
    std::wstring buffer(static_cast<std::size_t>(chars), L'\0');
    const int copied = LoadStringW(programInstance(), id, buffer.data(), chars);
    buffer.resize(copied > 0 ? static_cast<std::size_t>(copied) : 0);
    return buffer;
}

AcceleratorTable loadAccelerators(unsigned id)
{
    return AcceleratorTable(LoadAcceleratorsW(programInstance(), MAKEINTRESOURCEW(id)));
}

bool translateAccelerator(WindowHandle window, const AcceleratorTable& table, const Message& message)
{
    if (!table) return false;
    MSG msg = toMsg(message);
    return TranslateAcceleratorW(toHwnd(window), static_cast<HACCEL>(table.get()), &msg) != 0;
}

void DeviceNotificationTraits::close(Value registration) noexcept
{
    UnregisterDeviceNotification(static_cast<HDEVNOTIFY>(registration));
}

UniqueDeviceNotification registerUsbDeviceNotification(WindowHandle window)
{
    DEV_BROADCAST_DEVICEINTERFACE_W filter{};
    filter.dbcc_size = sizeof filter;
    filter.dbcc_devicetype = DBT_DEVTYP_DEVICEINTERFACE;
    filter.dbcc_classguid = win32::kUsbDeviceInterface;
    return UniqueDeviceNotification(RegisterDeviceNotificationW(toHwnd(window), &filter, DEVICE_NOTIFY_WINDOW_HANDLE));
}

bool sendUsbDeviceChange(WindowHandle window, WParam event, std::uint32_t timeoutMs)
{
    DEV_BROADCAST_DEVICEINTERFACE_W device{};
    device.dbcc_size = sizeof device;
    device.dbcc_devicetype = DBT_DEVTYP_DEVICEINTERFACE;
    device.dbcc_classguid = win32::kUsbDeviceInterface;
    DWORD_PTR result = 0;
    return SendMessageTimeoutW(toHwnd(window), WM_DEVICECHANGE, event, reinterpret_cast<LPARAM>(&device),
                               SMTO_ABORTIFHUNG | SMTO_BLOCK, timeoutMs, &result) != 0;
}

void forwardCloseRequestsTo(WindowHandle)
{
    // Nothing to forward: Halvern.exe is a GUI process without a console, and the session's end and
    // close requests reach the window directly as WM_QUERYENDSESSION and WM_CLOSE.
}

}  // namespace platform
