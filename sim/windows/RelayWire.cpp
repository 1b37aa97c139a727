#include "sim/windows/RelayWire.h"

#include <chrono>
#include <cstdlib>
#include <memory>
#include <thread>

#include "platform/FileSystem.h"
#include "platform/NamedPipe.h"
#include "platform/Text.h"
#include "platform/WinError.h"

namespace halvern::sim {

namespace {

bool sendAll(platform::SocketValue socket, const char* data, std::size_t length)
{
    while (length > 0) {
        const int sent = platform::sendSocket(socket, data, length);
        if (sent <= 0) return false;
        data += sent;
        length -= static_cast<std::size_t>(sent);
    }
    return true;
}

bool receiveAll(platform::SocketValue socket, char* data, std::size_t length)
{
    while (length > 0) {
        const int got = platform::receiveSocket(socket, data, length);
        if (got <= 0) return false;
        data += got;
        length -= static_cast<std::size_t>(got);
    }
    return true;
}

std::uint16_t parsePort(const std::string& text)
{
    char* end = nullptr;
    const unsigned long port = std::strtoul(text.c_str(), &end, 10);
    return end != text.c_str() && port > 0 && port < 65536 ? static_cast<std::uint16_t>(port) : 0;
}

}  // namespace

bool sendRelayFrame(platform::SocketValue socket, RelayFrameE kind, const std::string& payload)
{
    const auto length = static_cast<std::uint32_t>(payload.size() + 1);
    std::string frame;
    frame.reserve(payload.size() + 5);
    for (int shift = 0; shift < 32; shift += 8)
        frame.push_back(static_cast<char>((length >> shift) & 0xFF));
    frame.push_back(static_cast<char>(kind));
    frame += payload;
    return sendAll(socket, frame.data(), frame.size());
}

bool receiveRelayFrame(platform::SocketValue socket, RelayFrameE& kind, std::string& payload)
{
    unsigned char header[5] = {};
    if (!receiveAll(socket, reinterpret_cast<char*>(header), sizeof header)) return false;
    const std::uint32_t length = header[0] | (header[1] << 8) | (header[2] << 16) | (static_cast<std::uint32_t>(header[3]) << 24);
    if (length == 0 || length > kMaxRelayFrame) return false;
    kind = static_cast<RelayFrameE>(header[4]);
    payload.assign(length - 1, '\0');
    return payload.empty() || receiveAll(socket, payload.data(), payload.size());
}

platform::UniqueSocket connectRelay(std::uint16_t port)
{
    platform::UniqueSocket socket = platform::createTcpSocket();
    if (!socket || !platform::connectSocket(socket.get(), platform::kLoopbackAddress, port)) return {};
    platform::setNoDelay(socket.get());
    return socket;
}

std::uint16_t relayPort()
{
    if (const char* fromEnvironment = std::getenv("HALVERN_SIM_RELAY_PORT")) return parsePort(fromEnvironment);
    int error = 0;
    platform::UniqueFile file = platform::openFile(kRelayPortFile, "r", error);
    if (!file) return 0;
    char text[16] = {};
    const std::size_t got = std::fread(text, 1, sizeof text - 1, file.get());
    return parsePort(std::string(text, got));
}

namespace {

constexpr int kServedPollMs = 100;

bool instrumentServes(const std::string& name, std::uint16_t port)
{
    platform::UniqueSocket relay = connectRelay(port);
    RelayFrameE kind{};
    std::string answer;
    return relay && sendRelayFrame(relay.get(), RelayFrameE::Served, name) &&
           receiveRelayFrame(relay.get(), kind, answer) && answer == "1";
}

}  // namespace

bool serveRelayedPipe(const std::wstring& name, std::uint16_t port)
{
    const std::wstring path = L"\\\\.\\pipe\\" + name;
    const std::string narrowName = platform::narrow(name).value_or("");
    // The first instance exists on return, so that a client started next finds the name served.
    auto instance = std::make_shared<platform::UniqueHandle>(platform::createPipeServer(path));
    if (!*instance) return false;
    std::thread([instance, path, narrowName, port]() mutable {
        while (*instance && platform::connectPipeClient(instance->get())) {
            std::thread([instance, narrowName, port] {
                platform::UniqueSocket relay = connectRelay(port);
                if (relay && sendRelayFrame(relay.get(), RelayFrameE::Pipe, narrowName))
                    relayPipeMessages(instance->get(), relay.get(), true);
                // Closed, not disconnected: the client sees the broken pipe (109) of a service that ended,
                // as on Windows, and opens the pipe anew.
                instance->reset();
            }).detach();
            while (!instrumentServes(narrowName, port))
                std::this_thread::sleep_for(std::chrono::milliseconds(kServedPollMs));
            instance = std::make_shared<platform::UniqueHandle>(platform::createPipeServer(path));
        }
    }).detach();
    return true;
}

void relayPipeMessages(platform::HandleValue pipe, platform::SocketValue socket, bool serverEnd)
{
    std::thread toPipe([pipe, socket, serverEnd] {
        RelayFrameE kind{};
        std::string payload;
        while (receiveRelayFrame(socket, kind, payload)) {
            if (kind != RelayFrameE::Message) continue;
            if (!platform::writePipe(pipe, payload.data(), static_cast<std::uint32_t>(payload.size()))) break;
        }
        // The instrument's last reply (the diagnostics service's answer before it ends) is read before the
        // client is let go. The reader below waits in the pipe: only ending the pipe's I/O lets it see the end.
        if (serverEnd) platform::flushPipe(pipe);
        platform::cancelPipeIo(pipe);
    });
    std::string message;
    char chunk[4096];
    for (;;) {
        std::uint32_t got = 0;
        const bool ok = platform::readPipe(pipe, chunk, sizeof chunk, got);
        message.append(chunk, got);
        if (!ok && platform::lastError() == platform::kErrorMoreData) continue;
        if (!ok || !sendRelayFrame(socket, RelayFrameE::Message, message)) break;
        message.clear();
    }
    platform::shutdownSocket(socket);
    toPipe.join();
}

std::string joinRunRequest(const std::string& program, const std::vector<std::string>& arguments)
{
    std::string payload = program;
    for (const auto& argument : arguments)
        payload += '\0' + argument;
    return payload;
}

std::vector<std::string> splitRunRequest(const std::string& payload)
{
    std::vector<std::string> parts(1);
    for (char c : payload) {
        if (c == '\0')
            parts.emplace_back();
        else
            parts.back().push_back(c);
    }
    return parts;
}

}  // namespace halvern::sim
