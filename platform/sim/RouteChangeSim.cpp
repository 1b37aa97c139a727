// Route table changes of the simulated instrument: a watcher looks at the route table file a short while
// apart and signals the event of a pending request when the file has changed since the request.
#include <sys/stat.h>

#include <atomic>
#include <chrono>
#include <mutex>
#include <thread>

#include "platform/RouteChange.h"
#include "platform/Sync.h"
#include "platform/WinError.h"
#include "platform/sim/SimRoot.h"

namespace platform {

namespace {

constexpr auto kWatchInterval = std::chrono::milliseconds(20);

// What tells one state of the table from another: its modification time and size.
struct TableStampT {
    long long seconds = -1;
    long long nanoseconds = -1;
    long long size = -1;
    bool operator!=(const TableStampT& other) const
    {
        return seconds != other.seconds || nanoseconds != other.nanoseconds || size != other.size;
    }
};

TableStampT stampOf(const std::string& path)
{
    struct stat status {};
    if (::stat(path.c_str(), &status) != 0) return {};
    return {static_cast<long long>(status.st_mtim.tv_sec), static_cast<long long>(status.st_mtim.tv_nsec),
            static_cast<long long>(status.st_size)};
}

}  // namespace

struct RouteChangeNotificationC::Impl {
    UniqueHandle event;
    std::string table;
    std::mutex lock;
    bool pending = false;
    TableStampT requestedAt;
    std::atomic<bool> stopping{false};
    std::thread watcher;

    void watch()
    {
        while (!stopping) {
            std::this_thread::sleep_for(kWatchInterval);
            std::lock_guard<std::mutex> guard(lock);
            if (pending && stampOf(table) != requestedAt) {
                pending = false;
                setEvent(event.get());
            }
        }
    }
};

RouteChangeNotificationC::RouteChangeNotificationC() : m_impl(std::make_unique<Impl>()) {}

RouteChangeNotificationC::~RouteChangeNotificationC()
{
    m_impl->stopping = true;
    if (m_impl->watcher.joinable()) m_impl->watcher.join();
}

bool RouteChangeNotificationC::create()
{
    m_impl->event = createEvent(nullptr, true, false, L"");
    if (!m_impl->event) return false;
    m_impl->table = sim::root() + "/sim/network/routes";
    m_impl->watcher = std::thread([impl = m_impl.get()] { impl->watch(); });
    return true;
}

std::uint32_t RouteChangeNotificationC::request()
{
    std::lock_guard<std::mutex> guard(m_impl->lock);
    m_impl->pending = true;
    m_impl->requestedAt = stampOf(m_impl->table);
    return kErrorIoPending;
}

HandleValue RouteChangeNotificationC::event() const
{
    return m_impl->event.get();
}

bool RouteChangeNotificationC::resetEvent()
{
    return platform::resetEvent(m_impl->event.get());
}

}  // namespace platform
