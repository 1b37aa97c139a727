#include "platform/Socket.h"

#include <cstdio>
#include <cstdlib>

namespace platform {

bool parseIpv4(const std::string& text, std::uint32_t& address)
{
    std::uint32_t result = 0;
    std::size_t position = 0;
    for (int part = 0; part < 4; ++part) {
        if (part > 0) {
            if (position >= text.size() || text[position] != '.') return false;
            ++position;
        }
        std::uint32_t value = 0;
        std::size_t digits = 0;
        while (position < text.size() && text[position] >= '0' && text[position] <= '9' && digits < 3) {
            value = value * 10 + static_cast<std::uint32_t>(text[position] - '0');
            ++position;
            ++digits;
        }
        if (digits == 0 || value > 255) return false;
        result = (result << 8) | value;
    }
    if (position != text.size()) return false;
    address = result;
    return true;
}

std::string formatIpv4(std::uint32_t address)
{
    char text[16];
    std::snprintf(text, sizeof text, "%u.%u.%u.%u", (address >> 24) & 0xFF, (address >> 16) & 0xFF,
                  (address >> 8) & 0xFF, address & 0xFF);
    return text;
}

namespace {

const char* serverPortOverride(std::uint16_t defaultPort)
{
    const std::string name = "HALVERN_SEP_PORT_" + std::to_string(defaultPort);
    const char* value = std::getenv(name.c_str());
    return value != nullptr && *value != '\0' ? value : nullptr;
}

}  // namespace

std::uint16_t serverPort(std::uint16_t defaultPort)
{
    // HALVERN_SEP_PORT_<default port>=<port>, 0 for any free port.
    const char* value = serverPortOverride(defaultPort);
    if (value == nullptr) return defaultPort;
    char* end = nullptr;
    const unsigned long port = std::strtoul(value, &end, 10);
    if (*end != '\0' || port > 65535) return defaultPort;
    return static_cast<std::uint16_t>(port);
}

bool serverPortMoved()
{
    return serverPortOverride(55557) != nullptr || serverPortOverride(55558) != nullptr;
}

}  // namespace platform
