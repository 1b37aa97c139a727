// Windows and message queues of the simulation platform, with the Win32 rules Halvern relies on: a window
// belongs to the thread that created it, posted messages wait in that thread's queue, WM_QUIT comes only
// when nothing else is queued, and WM_TIMER is made when the queue is idle and a timer is due.
#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <condition_variable>
#include <cstring>
#include <cwctype>
#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "platform/Clock.h"
#include "platform/Resources.h"
#include "platform/Text.h"
#include "platform/WinError.h"
#include "platform/Window.h"
#include "platform/sim/SimRoot.h"
#include "platform/sim/SimUsbBus.h"
#include "platform/sim/UniqueFd.h"

namespace platform {

namespace {

struct TimerC {
    WindowHandle window;
    std::uintptr_t id = 0;
    std::uint32_t period = 0;
    std::uint64_t due = 0;
};

struct ThreadQueueC {
    std::mutex lock;
    std::condition_variable cv;
    std::deque<Message> posted;
    bool quitPosted = false;
    int quitCode = 0;
    std::vector<TimerC> timers;
};

struct WindowRecordC {
    std::wstring classKey;
    WindowProcedure procedure = nullptr;
    std::shared_ptr<ThreadQueueC> queue;
    std::thread::id thread;
};

struct WindowTableC {
    std::mutex lock;
    std::map<std::wstring, WindowClassDesc> classes;
    std::map<void*, WindowRecordC> windows;
    std::uintptr_t nextHandle = 0x10010;
};

WindowTableC& windowTable()
{
    static auto* table = new WindowTableC();
    return *table;
}

std::shared_ptr<ThreadQueueC>& threadQueue()
{
    thread_local auto queue = std::make_shared<ThreadQueueC>();
    return queue;
}

std::wstring classKey(const std::wstring& name)
{
    std::wstring key = name;
    for (auto& c : key)
        c = static_cast<wchar_t>(std::towlower(static_cast<wint_t>(c)));
    return key;
}

bool lookupWindow(WindowHandle window, WindowRecordC& record)
{
    auto& table = windowTable();
    std::lock_guard<std::mutex> guard(table.lock);
    auto it = table.windows.find(window.value);
    if (it == table.windows.end()) return false;
    record = it->second;
    return true;
}

std::atomic<void*> g_closeTarget{nullptr};
std::atomic<bool> g_closePending{false};

}  // namespace

bool registerWindowClass(const WindowClassDesc& windowClass)
{
    auto& table = windowTable();
    std::lock_guard<std::mutex> guard(table.lock);
    if (windowClass.procedure == nullptr || windowClass.className.empty()) {
        setLastError(kErrorInvalidParameter);
        return false;
    }
    if (!table.classes.emplace(classKey(windowClass.className), windowClass).second) {
        setLastError(kErrorClassAlreadyExists);
        return false;
    }
    return true;
}

WindowHandle createWindow(const std::wstring& className, const std::wstring&, std::uint32_t)
{
    auto& table = windowTable();
    std::lock_guard<std::mutex> guard(table.lock);
    auto cls = table.classes.find(classKey(className));
    if (cls == table.classes.end()) {
        setLastError(kErrorCannotFindWndClass);
        return {};
    }
    WindowHandle handle{reinterpret_cast<void*>(table.nextHandle)};
    table.nextHandle += 2;
    table.windows[handle.value] =
        WindowRecordC{cls->first, cls->second.procedure, threadQueue(), std::this_thread::get_id()};
    return handle;
}

bool isWindow(WindowHandle window)
{
    WindowRecordC record;
    return lookupWindow(window, record);
}

WindowHandle findWindow(const std::wstring& className)
{
    auto& table = windowTable();
    std::lock_guard<std::mutex> guard(table.lock);
    const std::wstring key = classKey(className);
    for (const auto& [handle, record] : table.windows) {
        if (record.classKey == key) return WindowHandle{handle};
    }
    return {};
}

// ShowWindow answers whether the window was visible before; the host's windows never are.
bool showWindow(WindowHandle, int)
{
    return false;
}

bool updateWindow(WindowHandle window)
{
    if (!isWindow(window)) {
        setLastError(kErrorInvalidWindowHandle);
        return false;
    }
    return true;
}

bool destroyWindow(WindowHandle window)
{
    WindowRecordC record;
    if (!lookupWindow(window, record)) {
        setLastError(kErrorInvalidWindowHandle);
        return false;
    }
    if (record.thread != std::this_thread::get_id()) {
        setLastError(kErrorAccessDenied);
        return false;
    }
    record.procedure(window, wm::Destroy, 0, 0);
    record.procedure(window, wm::NcDestroy, 0, 0);
    {
        std::lock_guard<std::mutex> guard(record.queue->lock);
        auto& timers = record.queue->timers;
        timers.erase(std::remove_if(timers.begin(), timers.end(), [&](const TimerC& t) { return t.window == window; }),
                     timers.end());
        auto& posted = record.queue->posted;
        posted.erase(std::remove_if(posted.begin(), posted.end(), [&](const Message& m) { return m.window == window; }),
                     posted.end());
    }
    auto& table = windowTable();
    std::lock_guard<std::mutex> guard(table.lock);
    table.windows.erase(window.value);
    return true;
}

int getMessage(Message& message)
{
    auto queue = threadQueue();
    std::unique_lock<std::mutex> guard(queue->lock);
    for (;;) {
        if (!queue->posted.empty()) {
            message = queue->posted.front();
            queue->posted.pop_front();
            return 1;
        }
        if (queue->quitPosted) {
            queue->quitPosted = false;
            message = Message{WindowHandle{}, wm::Quit, static_cast<WParam>(queue->quitCode), 0};
            return 0;
        }
        if (queue->timers.empty()) {
            queue->cv.wait(guard);
            continue;
        }
        auto next = std::min_element(queue->timers.begin(), queue->timers.end(),
                                     [](const TimerC& a, const TimerC& b) { return a.due < b.due; });
        auto& clk = clock();
        const std::uint64_t now = clk.tickCount64();
        if (next->due <= now) {
            next->due = now + next->period;
            message = Message{next->window, wm::Timer, next->id, 0};
            return 1;
        }
        const auto realWait = clk.idleWait(next->due - now);
        if (realWait.count() > 0) queue->cv.wait_for(guard, realWait);
    }
}

bool translateMessage(const Message&)
{
    return false;
}

LResult dispatchMessage(const Message& message)
{
    WindowRecordC record;
    if (!message.window || !lookupWindow(message.window, record)) return 0;
    return record.procedure(message.window, message.message, message.wParam, message.lParam);
}

bool postMessage(WindowHandle window, std::uint32_t message, WParam wParam, LParam lParam)
{
    WindowRecordC record;
    if (!lookupWindow(window, record)) {
        setLastError(kErrorInvalidWindowHandle);
        return false;
    }
    std::lock_guard<std::mutex> guard(record.queue->lock);
    record.queue->posted.push_back(Message{window, message, wParam, lParam});
    record.queue->cv.notify_all();
    return true;
}

void postQuitMessage(int exitCode)
{
    auto queue = threadQueue();
    std::lock_guard<std::mutex> guard(queue->lock);
    queue->quitPosted = true;
    queue->quitCode = exitCode;
    queue->cv.notify_all();
}

LResult defWindowProc(WindowHandle window, std::uint32_t message, WParam, LParam)
{
    switch (message) {
        case wm::Close:
            destroyWindow(window);
            return 0;
        case wm::QueryEndSession:
        case wm::QueryOpen:
            return 1;
        default:
            return 0;
    }
}

bool setTimer(WindowHandle window, std::uintptr_t timerId, std::uint32_t milliseconds)
{
    WindowRecordC record;
    if (!lookupWindow(window, record)) {
        setLastError(kErrorInvalidWindowHandle);
        return false;
    }
    const std::uint32_t period = std::max<std::uint32_t>(milliseconds, 10);  // USER_TIMER_MINIMUM
    std::lock_guard<std::mutex> guard(record.queue->lock);
    auto& timers = record.queue->timers;
    const std::uint64_t due = clock().tickCount64() + period;
    auto it = std::find_if(timers.begin(), timers.end(),
                           [&](const TimerC& t) { return t.window == window && t.id == timerId; });
    if (it != timers.end()) {
        it->period = period;
        it->due = due;
    } else {
        timers.push_back(TimerC{window, timerId, period, due});
    }
    record.queue->cv.notify_all();
    return true;
}

bool killTimer(WindowHandle window, std::uintptr_t timerId)
{
    WindowRecordC record;
    if (!lookupWindow(window, record)) {
        setLastError(kErrorInvalidWindowHandle);
        return false;
    }
    std::lock_guard<std::mutex> guard(record.queue->lock);
    auto& timers = record.queue->timers;
    auto it = std::find_if(timers.begin(), timers.end(),
                           [&](const TimerC& t) { return t.window == window && t.id == timerId; });
    if (it == timers.end()) {
        setLastError(1402);  // ERROR_INVALID_TIMER_ID
        return false;
    }
    timers.erase(it);
    return true;
}

std::wstring loadString(unsigned id, std::size_t bufferChars)
{
    for (const auto* entry = g_hostStringResources; entry->text != nullptr; ++entry) {
        if (entry->id == id) {
            std::wstring text = entry->text;
            if (bufferChars == 0) return {};
            if (text.size() >= bufferChars) text.resize(bufferChars - 1);
            return text;
        }
    }
    setLastError(kErrorResourceNameNotFound);
    return {};
}

// The host has no keyboard input for the hidden window: a table exists, but no key ever matches it.
AcceleratorTable loadAccelerators(unsigned id)
{
    return AcceleratorTable(reinterpret_cast<void*>(0x20000 + id));
}

bool translateAccelerator(WindowHandle, const AcceleratorTable&, const Message&)
{
    return false;
}

namespace {

// A window's registration for USB device notifications: the endpoint the simulated instrument sends its bus
// changes to, and the thread that turns each into WM_DEVICECHANGE posted to the window.
class UsbNotificationEndpointC {
    // The owner's end wakes the thread through its pipe; the slice only bounds each single wait, and is
    // long, so that an idle instrument makes no periodic wake-ups.
    static constexpr int kReceiveSliceMs = 3600 * 1000;

public:
    // Null with the last error set when the endpoint cannot be made.
    static UsbNotificationEndpointC* open(WindowHandle window)
    {
        if (!isWindow(window)) {
            setLastError(kErrorInvalidWindowHandle);
            return nullptr;
        }
        static std::atomic<unsigned> s_sequence{0};
        auto endpoint = std::unique_ptr<UsbNotificationEndpointC>(new UsbNotificationEndpointC(window));
        const auto bound =
            endpoint->m_endpoint.bind(sim::root(), std::to_string(::getpid()) + "." + std::to_string(++s_sequence));
        if (bound == sim::UsbNotifyEndpointC::BindE::NoFolder) {
            setLastError(kErrorPathNotFound);
            return nullptr;
        }
        if (bound != sim::UsbNotifyEndpointC::BindE::Bound ||
            !sim::makePipe(endpoint->m_wakeRead, endpoint->m_wakeWrite)) {
            setLastError(kErrorAccessDenied);
            return nullptr;
        }
        endpoint->m_thread = std::thread([raw = endpoint.get()] { raw->receive(); });
        return endpoint.release();
    }

    ~UsbNotificationEndpointC()
    {
        if (m_thread.joinable()) {
            const char stop = 0;
            while (::write(m_wakeWrite.get(), &stop, 1) < 0 && errno == EINTR) {
            }
            m_thread.join();
        }
    }
    UsbNotificationEndpointC(const UsbNotificationEndpointC&) = delete;
    UsbNotificationEndpointC& operator=(const UsbNotificationEndpointC&) = delete;

private:
    explicit UsbNotificationEndpointC(WindowHandle window) : m_window(window) {}

    void receive()
    {
        for (;;) {
            pollfd fds[2] = {{m_endpoint.socket(), POLLIN, 0}, {m_wakeRead.get(), POLLIN, 0}};
            const int ready = ::poll(fds, 2, kReceiveSliceMs);
            if (ready < 0 && errno != EINTR) return;
            if (ready <= 0) continue;
            if (fds[1].revents != 0) return;
            char word[16] = {};
            const ssize_t got = ::recv(m_endpoint.socket(), word, sizeof word - 1, 0);
            if (got <= 0) continue;
            if (std::strcmp(word, sim::kUsbArrivalWord) == 0)
                postMessage(m_window, wm::DeviceChange, kDbtDeviceArrival, 0);
            else if (std::strcmp(word, sim::kUsbRemovalWord) == 0)
                postMessage(m_window, wm::DeviceChange, kDbtDeviceRemoveComplete, 0);
        }
    }

    WindowHandle m_window;
    sim::UsbNotifyEndpointC m_endpoint;
    sim::UniqueFd m_wakeRead;
    sim::UniqueFd m_wakeWrite;
    std::thread m_thread;
};

}  // namespace

bool sendUsbDeviceChange(WindowHandle window, WParam event, std::uint32_t)
{
    return postMessage(window, wm::DeviceChange, event, 0);
}

void DeviceNotificationTraits::close(Value registration) noexcept
{
    delete static_cast<UsbNotificationEndpointC*>(registration);
}

UniqueDeviceNotification registerUsbDeviceNotification(WindowHandle window)
{
    return UniqueDeviceNotification(UsbNotificationEndpointC::open(window));
}

void forwardCloseRequestsTo(WindowHandle window)
{
    g_closeTarget.store(window.value);
    if (window && g_closePending.exchange(false)) postMessage(window, wm::Close, 0, 0);
}

namespace sim {
// Called by the host entry's signal thread for SIGINT and SIGTERM.
void requestClose()
{
    WindowHandle target{g_closeTarget.load()};
    if (target && postMessage(target, wm::Close, 0, 0)) return;
    g_closePending.store(true);
    // The window may have been set between the load and the store: deliver to it now.
    target = WindowHandle{g_closeTarget.load()};
    if (target && g_closePending.exchange(false)) postMessage(target, wm::Close, 0, 0);
}
}  // namespace sim

}  // namespace platform
