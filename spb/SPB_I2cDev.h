#pragma once
// One device on the simple peripheral bus, opened for this process alone.
#include <cstdint>
#include <ostream>
#include <string>
#include <vector>

#include "platform/Handle.h"

namespace halvern::spb {

class SPB_I2cDev {
public:
    explicit SPB_I2cDev(std::ostream& errors) : m_errors(errors) {}

    bool open(const std::string& path);
    // False when the device was not open.
    bool close();
    bool isOpen() const { return static_cast<bool>(m_handle); }
    // Sends `write`, then reads `readBytes` into `read` (which holds what came back).
    bool writeRead(const std::vector<std::uint8_t>& write, std::size_t readBytes, std::vector<std::uint8_t>& read);
    bool write(const std::vector<std::uint8_t>& data);

private:
    std::ostream& m_errors;
    platform::UniqueHandle m_handle;
};

}  // namespace halvern::spb
