#pragma once
// A device whose DeviceIoControl the simulation answers in-process from the sim root, without a device
// model on a socket behind it.
#include <cstdint>

#include "platform/sim/SimObject.h"

namespace platform::sim {

class SimControlDeviceC : public SimObjectC {
public:
    // DeviceIoControl semantics: false with the last error set.
    virtual bool control(std::uint32_t code, const void* in, std::uint32_t inBytes, void* out, std::uint32_t outBytes,
                         std::uint32_t& bytesReturned) = 0;
};

}  // namespace platform::sim
