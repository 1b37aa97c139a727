#include "sim/board/CalibrationMutexesC.h"

#include "platform/Sync.h"

namespace halvern::sim {

std::wstring CalibrationMutexesC::mutexName(const std::string& which)
{
    if (which == "touch") return L"Global\\TOUCHSCRAPP";
    if (which == "voltage") return L"Global\\VLTGSCRAPP";
    return {};
}

bool CalibrationMutexesC::hold(const std::string& which)
{
    const std::wstring name = mutexName(which);
    if (name.empty()) return false;
    std::lock_guard<std::mutex> guard(m_lock);
    platform::UniqueHandle& slot = which == "touch" ? m_touch : m_voltage;
    if (!slot) slot = platform::createMutex(nullptr, false, name);
    return static_cast<bool>(slot);
}

bool CalibrationMutexesC::release(const std::string& which)
{
    if (mutexName(which).empty()) return false;
    std::lock_guard<std::mutex> guard(m_lock);
    (which == "touch" ? m_touch : m_voltage).reset();
    return true;
}

bool CalibrationMutexesC::held(const std::string& which) const
{
    std::lock_guard<std::mutex> guard(m_lock);
    return static_cast<bool>(which == "touch" ? m_touch : m_voltage);
}

}  // namespace halvern::sim
