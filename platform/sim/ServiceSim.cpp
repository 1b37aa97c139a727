#include <fstream>
#include <string>

#include "platform/Registry.h"
#include "platform/Service.h"
#include "platform/Text.h"
#include "platform/WinError.h"
#include "platform/sim/SimRegistry.h"
#include "platform/sim/SimRoot.h"

namespace platform {

namespace {

struct SimServiceC {
    std::string name;  // empty for the service manager
};

const struct {
    std::uint32_t state;
    const char* text;
} kStateNames[] = {{kServiceStopped, "STOPPED"},
                   {kServiceStartPending, "START_PENDING"},
                   {kServiceStopPending, "STOP_PENDING"},
                   {kServiceRunning, "RUNNING"}};

std::string stateFile(const std::string& name)
{
    return sim::root() + "/services/" + name;
}

std::uint32_t readState(const std::string& name)
{
    std::ifstream in(stateFile(name));
    std::string text;
    std::getline(in, text);
    for (const auto& entry : kStateNames)
        if (text == entry.text) return entry.state;
    return kServiceStopped;
}

bool writeState(const std::string& name, std::uint32_t state)
{
    if (!sim::makeDirectories(sim::root() + "/services")) return false;
    for (const auto& entry : kStateNames) {
        if (entry.state != state) continue;
        std::ofstream out(stateFile(name), std::ios::trunc);
        out << entry.text << '\n';
        return static_cast<bool>(out);
    }
    return false;
}

const std::string kServicesKey = "SYSTEM\\CurrentControlSet\\Services\\";

SimServiceC* service(const UniqueServiceHandle& handle)
{
    auto* object = static_cast<SimServiceC*>(handle.get());
    if (object == nullptr || object->name.empty()) {
        setLastError(kErrorInvalidHandle);
        return nullptr;
    }
    return object;
}

}  // namespace

void ServiceHandleTraits::close(Value handle) noexcept
{
    delete static_cast<SimServiceC*>(handle);
}

UniqueServiceHandle openServiceManager()
{
    if (sim::root().empty()) {
        setLastError(kErrorAccessDenied);
        return UniqueServiceHandle();
    }
    return UniqueServiceHandle(new SimServiceC{});
}

UniqueServiceHandle openService(const UniqueServiceHandle& manager, const std::wstring& name)
{
    auto* scm = static_cast<SimServiceC*>(manager.get());
    if (scm == nullptr || !scm->name.empty()) {
        setLastError(kErrorInvalidHandle);
        return UniqueServiceHandle();
    }
    const std::string serviceName = narrow(name).value_or(std::string());
    UniqueRegKey key;
    if (serviceName.empty() || regOpenKeyRead(RegHive::LocalMachine, widen(kServicesKey + serviceName), key) != 0) {
        setLastError(kErrorServiceDoesNotExist);
        return UniqueServiceHandle();
    }
    return UniqueServiceHandle(new SimServiceC{serviceName});
}

bool queryServiceState(const UniqueServiceHandle& handle, std::uint32_t& state)
{
    SimServiceC* object = service(handle);
    if (object == nullptr) return false;
    state = readState(object->name);
    // A service reports its start as pending once, then runs.
    if (state == kServiceStartPending) writeState(object->name, kServiceRunning);
    return true;
}

bool startService(const UniqueServiceHandle& handle)
{
    SimServiceC* object = service(handle);
    if (object == nullptr) return false;
    UniqueRegKey key;
    std::uint32_t start = 0;
    std::uint32_t type = 0;
    if (regOpenKeyRead(RegHive::LocalMachine, widen(kServicesKey + object->name), key) == 0 &&
        regQueryDword(key, L"Start", start, type) == 0 && start == kServiceDisabled) {
        setLastError(kErrorServiceDisabled);
        return false;
    }
    if (readState(object->name) != kServiceStopped) {
        setLastError(kErrorServiceAlreadyRunning);
        return false;
    }
    if (!writeState(object->name, kServiceStartPending)) {
        setLastError(kErrorAccessDenied);
        return false;
    }
    return true;
}

bool changeServiceStartType(const UniqueServiceHandle& handle, std::uint32_t startType)
{
    SimServiceC* object = service(handle);
    if (object == nullptr) return false;
    if (startType > kServiceDisabled) {
        setLastError(kErrorInvalidParameter);
        return false;
    }
    UniqueRegKey key;
    RegStatus status = regOpenKey(RegHive::LocalMachine, widen(kServicesKey + object->name), RegAccess::All, key);
    if (status == 0) status = regSetDword(key, L"Start", startType);
    if (status != 0) {
        setLastError(static_cast<std::uint32_t>(status));
        return false;
    }
    return true;
}

}  // namespace platform
