#pragma once
// Windows services through the service control manager. On the simulation platform a service exists when
// its key "SYSTEM\CurrentControlSet\Services\NAME" is in the sim root's registry (a "Start" value of 4
// disables it), and its state is the file "services/NAME" of the sim root (absent: stopped). A started
// service answers one status query as start pending and then runs, as a quick Windows service does.
#include <cstdint>
#include <string>

#include "platform/Owner.h"

namespace platform {

constexpr std::uint32_t kServiceStopped = 1;
constexpr std::uint32_t kServiceStartPending = 2;
constexpr std::uint32_t kServiceStopPending = 3;
constexpr std::uint32_t kServiceRunning = 4;

// Service start types (the "Start" value of the service's key).
constexpr std::uint32_t kServiceAutoStart = 2;
constexpr std::uint32_t kServiceDemandStart = 3;
constexpr std::uint32_t kServiceDisabled = 4;

// SC_HANDLE and its one owner (CloseServiceHandle).
struct ServiceHandleTraits {
    using Value = void*;
    static Value invalid() noexcept { return nullptr; }
    static void close(Value handle) noexcept;
};
using UniqueServiceHandle = UniqueOwner<ServiceHandleTraits>;

// OpenSCManagerW / OpenServiceW with full access: an empty owner with the last error set on failure.
UniqueServiceHandle openServiceManager();
UniqueServiceHandle openService(const UniqueServiceHandle& manager, const std::wstring& name);
// QueryServiceStatusEx: the current state (kServiceStopped ...).
bool queryServiceState(const UniqueServiceHandle& service, std::uint32_t& state);
// StartServiceW without arguments.
bool startService(const UniqueServiceHandle& service);
// ChangeServiceConfigW of the start type alone (kServiceAutoStart ...); the new type holds from the next
// start request on, a running service keeps running.
bool changeServiceStartType(const UniqueServiceHandle& service, std::uint32_t startType);

}  // namespace platform
