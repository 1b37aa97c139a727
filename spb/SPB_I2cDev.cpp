#include "spb/SPB_I2cDev.h"

#include <new>

#include "platform/I2c.h"
#include "platform/WinError.h"

namespace halvern::spb {

bool SPB_I2cDev::open(const std::string& path)
{
    m_handle.reset();
    platform::UniqueHandle handle = platform::openI2cDevice(path);
    if (!handle) {
        m_errors << "SPB_I2cDev: failed to open handle! (" << platform::lastError() << ")" << std::endl;
        return false;
    }
    std::uint32_t returned = 0;
    if (!platform::deviceIoControl(handle.get(), platform::kIoctlSpbOpen, nullptr, 0, nullptr, 0, returned)) {
        const std::uint32_t error = platform::lastError();
        handle.reset();
        m_errors << "SPB_I2cDev: OPEN IOCTL failed! (" << error << ")" << std::endl;
        return false;
    }
    m_handle = std::move(handle);
    return true;
}

bool SPB_I2cDev::close()
{
    if (!m_handle) return false;
    return platform::closeHandle(m_handle.release());
}

bool SPB_I2cDev::writeRead(const std::vector<std::uint8_t>& write, std::size_t readBytes,
                           std::vector<std::uint8_t>& read)
{
    read.clear();
    // The driver takes the write part as input and fills the read part; one buffer holds both.
    std::vector<std::uint8_t> buffer;
    try {
        buffer.resize(write.size() + (readBytes == 0 ? 1 : readBytes));
    } catch (const std::bad_alloc&) {
        m_errors << "SPB_I2cDev: failed to allocate memory!" << std::endl;
        return false;
    }
    std::copy(write.begin(), write.end(), buffer.begin());
    std::uint8_t* readPart = buffer.data() + write.size();
    const auto readPartBytes = static_cast<std::uint32_t>(buffer.size() - write.size());
    std::uint32_t returned = 0;
    if (!platform::deviceIoControl(m_handle.get(), platform::kIoctlSpbWriteRead, buffer.data(),
                                   static_cast<std::uint32_t>(write.size()), readPart, readPartBytes, returned)) {
        m_errors << "Failed to write-read i2c device: " << platform::lastError() << std::endl;
        return false;
    }
    const std::size_t count = returned < readBytes ? returned : readBytes;
    read.assign(readPart, readPart + count);
    return true;
}

bool SPB_I2cDev::write(const std::vector<std::uint8_t>& data)
{
    std::uint32_t written = 0;
    if (!platform::writeI2cDevice(m_handle.get(), data.data(), static_cast<std::uint32_t>(data.size()), written)) {
        m_errors << "SPB_I2cDev: failed to write data: " << platform::lastError() << std::endl;
        return false;
    }
    if (written != data.size()) {
        m_errors << "SPB_I2cDev: failed to write all requested data (" << written << " of " << data.size() << ")"
                 << std::endl;
        return false;
    }
    return true;
}

}  // namespace halvern::spb
