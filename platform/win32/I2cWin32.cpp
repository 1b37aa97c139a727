#include <windows.h>

#include "platform/win32/OwnHandle.h"

#include "platform/I2c.h"

namespace platform {

UniqueHandle openI2cDevice(const std::string& path)
{
    return win32::ownFileHandle(
        CreateFileA(path.c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, 0, nullptr));
}

bool deviceIoControl(HandleValue device, std::uint32_t code, const void* in, std::uint32_t inBytes, void* out,
                     std::uint32_t outBytes, std::uint32_t& bytesReturned)
{
    DWORD returned = 0;
    const BOOL ok = DeviceIoControl(device, code, const_cast<void*>(in), inBytes, out, outBytes, &returned, nullptr);
    bytesReturned = returned;
    return ok != FALSE;
}

bool writeI2cDevice(HandleValue device, const void* data, std::uint32_t bytes, std::uint32_t& bytesWritten)
{
    DWORD written = 0;
    const BOOL ok = WriteFile(device, data, bytes, &written, nullptr);
    bytesWritten = written;
    return ok != FALSE;
}

}  // namespace platform
