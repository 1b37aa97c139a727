#pragma once
// Devices on the simple peripheral bus ("\\.\IOExpander", "\\.\RTClock", "\\.\EEPROM"), reached through
// CreateFileA, DeviceIoControl and WriteFile as on the instrument. On the simulation platform a device is
// the SOCK_SEQPACKET Unix socket $HALVERN_ROOT/dev/NAME, served by its device model.
#include <cstdint>
#include <string>

#include "platform/Handle.h"

namespace platform {

// The SPB driver's control codes: lock the target for this handle, and one write followed by a read.
constexpr std::uint32_t kIoctlSpbOpen = 0x4001C00;
constexpr std::uint32_t kIoctlSpbWriteRead = 0x4001C10;
// What a device that does not acknowledge its transfer answers (ERROR_IO_DEVICE).
constexpr std::uint32_t kErrorIoDevice = 1117;

// CreateFileA for reading and writing, no sharing, existing only. An empty owner with the last error set.
UniqueHandle openI2cDevice(const std::string& path);
// DeviceIoControl: `in` is sent, up to `outBytes` come back into `out`.
bool deviceIoControl(HandleValue device, std::uint32_t code, const void* in, std::uint32_t inBytes, void* out,
                     std::uint32_t outBytes, std::uint32_t& bytesReturned);
// WriteFile: one bus write of `bytes`.
bool writeI2cDevice(HandleValue device, const void* data, std::uint32_t bytes, std::uint32_t& bytesWritten);

}  // namespace platform
