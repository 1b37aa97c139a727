#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <map>
#include <thread>

#include "platform/Clock.h"
#include "platform/Sync.h"
#include "platform/Text.h"
#include "platform/WinError.h"
#include "platform/sim/SimObject.h"
#include "platform/sim/SimRoot.h"
#include "platform/sim/UniqueFd.h"

namespace platform {

struct NullDaclSecurityC::Impl {};
NullDaclSecurityC::NullDaclSecurityC() : m_impl(std::make_unique<Impl>()) {}
NullDaclSecurityC::~NullDaclSecurityC() = default;
std::unique_ptr<NullDaclSecurityC> NullDaclSecurityC::create()
{
    return std::unique_ptr<NullDaclSecurityC>(new NullDaclSecurityC());
}
// Every object in the sim root is open to every process that uses it: nothing to describe.
void* NullDaclSecurityC::attributes() const
{
    return m_impl.get();
}

namespace {

// A file descriptor in the sim root's "kernel" folder that stands for a named object while a process
// holds it: an exclusive lock says "this process created it", a shared one "this process has it open".
class NamedObjectFileC {
public:
    // Opens the object's file; true when another process already holds the object.
    bool open(const std::wstring& name, bool exclusiveOwner)
    {
        const std::string rootPath = sim::root();
        if (rootPath.empty()) return false;
        auto narrowName = narrow(name).value_or("object");
        std::string scope = "Local";
        if (auto slash = narrowName.find('\\'); slash != std::string::npos) {
            scope = narrowName.substr(0, slash);
            narrowName = narrowName.substr(slash + 1);
        }
        for (char& c : narrowName) {
            if (c == '/' || c == '\\') c = '_';
        }
        const std::string dir = rootPath + "/kernel/" + scope;
        if (!sim::makeDirectories(dir)) return false;
        m_path = dir + "/" + narrowName;
        m_fd.reset(::open(m_path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644));
        if (!m_fd) return false;
        if (::flock(m_fd.get(), LOCK_EX | LOCK_NB) == 0) {
            if (!exclusiveOwner) ::flock(m_fd.get(), LOCK_SH);
            return false;
        }
        if (!exclusiveOwner) ::flock(m_fd.get(), LOCK_SH | LOCK_NB);
        return true;
    }
    void writeState(const char* text)
    {
        if (!m_fd) return;
        if (::ftruncate(m_fd.get(), 0) != 0) return;
        const ssize_t length = static_cast<ssize_t>(std::char_traits<char>::length(text));
        if (::pwrite(m_fd.get(), text, static_cast<size_t>(length), 0) != length) return;
    }
    std::string readState() const
    {
        char buffer[32] = {};
        if (!m_fd || ::pread(m_fd.get(), buffer, sizeof buffer - 1, 0) < 0) return {};
        return buffer;
    }

private:
    sim::UniqueFd m_fd;
    std::string m_path;
};

struct MutexStateC {
    std::mutex lock;
    std::condition_variable cv;
    std::thread::id owner;
    unsigned recursion = 0;
    bool heldElsewhere = false;  // another process created it; this process cannot own it
    NamedObjectFileC file;
};

struct EventStateC {
    std::mutex lock;
    std::condition_variable cv;
    bool manualReset = true;
    bool signalled = false;
    bool named = false;
    NamedObjectFileC file;

    void publish() { file.writeState(signalled ? "signalled\n" : "nonsignalled\n"); }
    // What another process of the sim root last made of a named event.
    void refresh()
    {
        if (!named) return;
        const std::string state = file.readState();
        if (state == "signalled\n") signalled = true;
        if (state == "nonsignalled\n") signalled = false;
    }
};

template <typename State>
struct NamedTableC {
    std::mutex lock;
    std::map<std::wstring, std::weak_ptr<State>> objects;
};

template <typename State>
NamedTableC<State>& namedTable()
{
    static auto* table = new NamedTableC<State>();
    return *table;
}

class MutexObjectC final : public sim::SimObjectC {
public:
    explicit MutexObjectC(std::shared_ptr<MutexStateC> state) : m_state(std::move(state)) {}
    std::uint32_t wait(std::uint32_t milliseconds) override
    {
        auto& s = *m_state;
        std::unique_lock<std::mutex> guard(s.lock);
        const auto me = std::this_thread::get_id();
        if (s.heldElsewhere) {
            setLastError(kErrorAccessDenied);
            return kWaitFailed;
        }
        const bool got =
            sim::waitWithClock(guard, s.cv, milliseconds, [&] { return s.recursion == 0 || s.owner == me; });
        if (!got) return kWaitTimeout;
        s.owner = me;
        ++s.recursion;
        return kWaitObject0;
    }
    bool release()
    {
        auto& s = *m_state;
        std::lock_guard<std::mutex> guard(s.lock);
        if (s.recursion == 0 || s.owner != std::this_thread::get_id()) {
            setLastError(288);  // ERROR_NOT_OWNER
            return false;
        }
        if (--s.recursion == 0) {
            s.owner = {};
            s.cv.notify_all();
        }
        return true;
    }

private:
    std::shared_ptr<MutexStateC> m_state;
};

class EventObjectC final : public sim::SimObjectC {
public:
    explicit EventObjectC(std::shared_ptr<EventStateC> state) : m_state(std::move(state)) {}
    std::uint32_t wait(std::uint32_t milliseconds) override
    {
        auto& s = *m_state;
        std::unique_lock<std::mutex> guard(s.lock);
        if (!(s.named ? waitNamed(guard, milliseconds)
                      : sim::waitWithClock(guard, s.cv, milliseconds, [&] { return s.signalled; })))
            return kWaitTimeout;
        if (!s.manualReset) {
            s.signalled = false;
            s.publish();
        }
        return kWaitObject0;
    }
    void set(bool signalled)
    {
        auto& s = *m_state;
        std::lock_guard<std::mutex> guard(s.lock);
        s.signalled = signalled;
        s.publish();
        if (signalled) s.cv.notify_all();
    }

private:
    // Another process signals a named event through its file, which no condition variable here hears of:
    // the waiter looks at it a short while apart.
    bool waitNamed(std::unique_lock<std::mutex>& guard, std::uint32_t milliseconds)
    {
        constexpr std::uint64_t kSliceMs = 10;
        auto& s = *m_state;
        return sim::pollWithClock(
            milliseconds, kSliceMs,
            [&s] {
                s.refresh();
                return s.signalled;
            },
            [&s, &guard](std::chrono::milliseconds pause) { s.cv.wait_for(guard, pause); });
    }

    std::shared_ptr<EventStateC> m_state;
};

// Finds or creates the state of a (possibly named) object; `existed` tells whether it was already there,
// in this process or in another one using the same sim root.
template <typename State, typename Init>
std::shared_ptr<State> findOrCreate(const std::wstring& name, bool& existed, Init&& init)
{
    existed = false;
    if (name.empty()) {
        auto state = std::make_shared<State>();
        init(*state, false);
        return state;
    }
    auto& table = namedTable<State>();
    std::lock_guard<std::mutex> guard(table.lock);
    if (auto it = table.objects.find(name); it != table.objects.end()) {
        if (auto alive = it->second.lock()) {
            existed = true;
            return alive;
        }
    }
    auto state = std::make_shared<State>();
    existed = init(*state, true);
    table.objects[name] = state;
    return state;
}

template <typename Object>
Object* objectOf(HandleValue handle)
{
    auto* object = dynamic_cast<Object*>(sim::lookupObject(handle));
    if (object == nullptr) setLastError(kErrorInvalidHandle);
    return object;
}

}  // namespace

UniqueHandle createMutex(const NullDaclSecurityC*, bool initialOwner, const std::wstring& name)
{
    bool existed = false;
    auto state = findOrCreate<MutexStateC>(name, existed, [&](MutexStateC& s, bool named) {
        const bool elsewhere = named && s.file.open(name, true);
        s.heldElsewhere = elsewhere;
        return elsewhere;
    });
    if (!existed && initialOwner) {
        std::lock_guard<std::mutex> guard(state->lock);
        state->owner = std::this_thread::get_id();
        state->recursion = 1;
    }
    UniqueHandle handle(sim::registerObject(std::make_unique<MutexObjectC>(std::move(state))));
    setLastError(existed ? kErrorAlreadyExists : kErrorSuccess);
    return handle;
}

UniqueHandle openMutex(const std::wstring& name)
{
    std::shared_ptr<MutexStateC> state;
    if (!name.empty()) {
        auto& table = namedTable<MutexStateC>();
        std::lock_guard<std::mutex> guard(table.lock);
        if (auto it = table.objects.find(name); it != table.objects.end()) state = it->second.lock();
        if (!state) {
            // Held by another process of this sim root, or nowhere: then the probe's lock goes with it.
            auto probe = std::make_shared<MutexStateC>();
            if (probe->file.open(name, false)) {
                probe->heldElsewhere = true;
                table.objects[name] = probe;
                state = std::move(probe);
            }
        }
    }
    if (!state) {
        setLastError(kErrorFileNotFound);
        return UniqueHandle();
    }
    UniqueHandle handle(sim::registerObject(std::make_unique<MutexObjectC>(std::move(state))));
    setLastError(kErrorSuccess);
    return handle;
}

bool releaseMutex(HandleValue mutex)
{
    auto* object = objectOf<MutexObjectC>(mutex);
    return object != nullptr && object->release();
}

UniqueHandle createEvent(const NullDaclSecurityC*, bool manualReset, bool initialState, const std::wstring& name)
{
    bool existed = false;
    auto state = findOrCreate<EventStateC>(name, existed, [&](EventStateC& s, bool named) {
        s.manualReset = manualReset;
        s.signalled = initialState;
        s.named = named;
        const bool elsewhere = named && s.file.open(name, false);
        if (elsewhere) {
            s.signalled = s.file.readState() == "signalled\n";
        } else if (named) {
            s.publish();
        }
        return elsewhere;
    });
    UniqueHandle handle(sim::registerObject(std::make_unique<EventObjectC>(std::move(state))));
    setLastError(existed ? kErrorAlreadyExists : kErrorSuccess);
    return handle;
}

bool setEvent(HandleValue event)
{
    auto* object = objectOf<EventObjectC>(event);
    if (object == nullptr) return false;
    object->set(true);
    return true;
}

bool resetEvent(HandleValue event)
{
    auto* object = objectOf<EventObjectC>(event);
    if (object == nullptr) return false;
    object->set(false);
    return true;
}

std::uint32_t waitForSingleObject(HandleValue handle, std::uint32_t milliseconds)
{
    auto* object = sim::lookupObject(handle);
    return object != nullptr ? object->wait(milliseconds) : kWaitFailed;
}

std::uint32_t waitForAnyObject(const std::vector<HandleValue>& handles, std::uint32_t milliseconds)
{
    // The objects live in different places (events here, processes and threads elsewhere): they are
    // looked at in turn, a short while apart. The time-out runs on the installed clock, as every wait does.
    constexpr std::uint64_t kPollMs = 20;
    std::uint32_t result = kWaitTimeout;
    const auto anySignalled = [&handles, &result] {
        for (std::size_t i = 0; i < handles.size(); ++i) {
            const std::uint32_t single = waitForSingleObject(handles[i], 0);
            if (single == kWaitObject0) result = kWaitObject0 + static_cast<std::uint32_t>(i);
            if (single == kWaitFailed) result = kWaitFailed;
            if (single == kWaitObject0 || single == kWaitFailed) return true;
        }
        return false;
    };
    sim::pollWithClock(milliseconds, kPollMs, anySignalled,
                       [](std::chrono::milliseconds pause) { std::this_thread::sleep_for(pause); });
    return result;
}

}  // namespace platform
