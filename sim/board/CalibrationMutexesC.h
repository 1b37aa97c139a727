#pragma once
// The running mutexes of the instrument's two calibration applications, held by the simulated instrument
// itself so that Halvern sees an application running without starting one.
#include <mutex>
#include <string>

#include "platform/Handle.h"

namespace halvern::sim {

class CalibrationMutexesC {
public:
    // "touch" or "voltage"; false for another name or when the mutex cannot be made.
    bool hold(const std::string& which);
    bool release(const std::string& which);
    bool held(const std::string& which) const;

    // The mutex a calibration application holds while it runs; empty for another name.
    static std::wstring mutexName(const std::string& which);

private:
    mutable std::mutex m_lock;
    platform::UniqueHandle m_touch;
    platform::UniqueHandle m_voltage;
};

}  // namespace halvern::sim
