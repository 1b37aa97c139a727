#pragma once
// What travels on a simulated I2C device's socket. A request is one message: the control code (0 for a
// plain write), the number of bytes wanted back, then the bytes to write. The reply is one message: a
// Windows error number (0 on success) followed by the bytes read.
#include <cstddef>
#include <cstdint>

namespace platform::sim {

constexpr std::uint32_t kI2cWirePlainWrite = 0;
constexpr std::size_t kI2cWireHeaderBytes = 8;
constexpr std::size_t kI2cWireMaxMessage = 4096;

}  // namespace platform::sim
