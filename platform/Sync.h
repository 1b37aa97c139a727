#pragma once
// Named and unnamed mutexes and events with Windows semantics. On the simulation platform named objects
// are shared by every process that uses the same sim root.
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "platform/Handle.h"

namespace platform {

constexpr std::uint32_t kWaitObject0 = 0;
constexpr std::uint32_t kWaitAbandoned = 0x80;
constexpr std::uint32_t kWaitTimeout = 258;
constexpr std::uint32_t kWaitFailed = 0xFFFFFFFF;
constexpr std::uint32_t kInfinite = 0xFFFFFFFF;

// Security attributes whose descriptor carries a null DACL: every account, services included, may open
// the object. create() answers nullptr (last error set) when the descriptor cannot be set up.
class NullDaclSecurityC {
public:
    static std::unique_ptr<NullDaclSecurityC> create();
    ~NullDaclSecurityC();
    NullDaclSecurityC(const NullDaclSecurityC&) = delete;
    NullDaclSecurityC& operator=(const NullDaclSecurityC&) = delete;
    void* attributes() const;  // what the platform passes as SECURITY_ATTRIBUTES

private:
    NullDaclSecurityC();
    struct Impl;
    std::unique_ptr<Impl> m_impl;
};

// CreateMutexW: an existing mutex of that name yields a valid handle with last error 183.
UniqueHandle createMutex(const NullDaclSecurityC* security, bool initialOwner, const std::wstring& name);
bool releaseMutex(HandleValue mutex);
// OpenMutexW for waiting on it: an invalid handle with last error 2 when no process has that mutex.
UniqueHandle openMutex(const std::wstring& name);

// CreateEventW: same naming rule as mutexes.
UniqueHandle createEvent(const NullDaclSecurityC* security, bool manualReset, bool initialState,
                         const std::wstring& name);
bool setEvent(HandleValue event);
bool resetEvent(HandleValue event);

// WaitForSingleObject on a mutex, event, process or thread handle; timeouts follow the installed clock.
std::uint32_t waitForSingleObject(HandleValue handle, std::uint32_t milliseconds);
// WaitForMultipleObjects for any one of `handles`: kWaitObject0 + the index of the one that was signalled,
// kWaitTimeout or kWaitFailed.
std::uint32_t waitForAnyObject(const std::vector<HandleValue>& handles, std::uint32_t milliseconds);

}  // namespace platform
