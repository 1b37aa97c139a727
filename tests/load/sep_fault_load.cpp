// Load and faults on a running Halvern over the simulated instrument: ten clients send a mix of commands,
// one in ten preceded by a garbage frame, while the controller service is stopped and started, the sensor
// board's cable is pulled and put back, the log folder goes away and comes back, an eleventh client and one
// from outside the allowed range knock, and one client sends 100 MB without a line end. Every request must
// get exactly one reply, in order, success or an error with the documented header and text; the server must
// answer afterwards. Prints one line of figures; exit code 0 when every check held.
#include <CLI/CLI.hpp>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <mutex>
#include <random>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "client/SepClientC.h"
#include "platform/Socket.h"
#include "sep/server/HalvernSepImpl.h"

namespace {

using Bytes = std::vector<std::uint8_t>;

constexpr std::uint32_t kReplyWaitMs = 30000;
// Commands without a request record that read the instrument through every link: the command table
// itself, the power controller's pipe, the I2C clock, the registry and the time keeping.
constexpr std::uint16_t kMix[] = {1001, 1004, 1009, 1018, 1020, 1023, 1053, 1056, 1017, 1015};
const std::string kRefusal("connection refused: too many clients or address not in range", 61);

struct SettingsT {
    std::uint16_t port = 0;
    // The flood goes to the other port: its own server task, so the load on the first one does not pace it.
    std::uint16_t floodPort = 0;
    std::string root;
    std::string halvernSim;
    int halvernPid = 0;
    unsigned seconds = 40;
    unsigned floodMegabytes = 100;
    // 0: the rise is reported, not judged (sanitizer builds keep freed memory resident on purpose).
    long rssLimitKiB = 2048;
    std::string outsideAddress = "127.0.0.2";
};

struct FiguresT {
    std::atomic<std::uint64_t> requests{0};
    std::atomic<std::uint64_t> errorReplies{0};
    std::atomic<std::uint64_t> garbageFrames{0};
    std::atomic<unsigned> faults{0};
    std::atomic<unsigned> knocksRefused{0};
    long rssBeforeKiB = 0;
    long rssPeakKiB = 0;
};

std::mutex g_failuresLock;
std::vector<std::string> g_failures;

void fail(const std::string& text)
{
    std::lock_guard<std::mutex> guard(g_failuresLock);
    if (g_failures.size() < 20) g_failures.push_back(text);
}

bool failed()
{
    std::lock_guard<std::mutex> guard(g_failuresLock);
    return !g_failures.empty();
}

long residentKiB(int pid)
{
    std::ifstream status("/proc/" + std::to_string(pid) + "/status");
    std::string line;
    while (std::getline(status, line))
        if (line.rfind("VmRSS:", 0) == 0) return std::atol(line.c_str() + 6);
    return 0;
}

Bytes command(SEP::CodingE coding, std::uint16_t id)
{
    return SEP::encodeFrame(coding, id, SEP::MESSAGE_KIND_COMMAND, {}, {}, nullptr);
}

// Noise that no coding reads as a message (no start byte, no CR, no escape), or a real binary command
// with one byte of its body changed, which its CRC rejects.
Bytes garbage(std::mt19937& random)
{
    Bytes bytes;
    if (random() % 2 == 0) {
        static const char kAlphabet[] = "abcdefghijklmnopqrstuvwxyz0123456789 ,:;#";
        bytes.resize(1 + random() % 300);
        for (auto& byte : bytes)
            byte = static_cast<std::uint8_t>(kAlphabet[random() % (sizeof kAlphabet - 1)]);
    } else {
        bytes = command(SEP::CodingE::Binary, kMix[random() % std::size(kMix)]);
        bytes.resize(bytes.size() - 2);  // without its CR LF
        const std::size_t at = 3 + random() % (bytes.size() - 3);
        std::uint8_t changed = static_cast<std::uint8_t>(bytes[at] ^ (1 + random() % 0x7F));
        if (changed == 0x0D || changed == 0x0A || changed == 0x1B || changed == 0xD3) changed = 0x55;
        bytes[at] = changed;
    }
    bytes.push_back(0x0D);
    bytes.push_back(0x0A);
    return bytes;
}

bool isDocumentedError(SEP::DecodedFrameT& reply)
{
    std::string text;
    if (!reply.coder->readString(text)) return false;
    for (int code = HalvernRpc::SEP_ERR_DECODE; code <= HalvernRpc::SEP_ERR_RANGE; ++code)
        if (text.rfind(HalvernRpc::composeErrorText(code, "", nullptr), 0) == 0) return true;
    return false;
}

// The next reply of the connection (events pass by); false with a failure noted.
bool expectReply(SEP::SepClientC& client, std::uint16_t id, unsigned number, FiguresT& figures)
{
    for (;;) {
        Bytes frame;
        SEP::DecodedFrameT reply;
        if (!client.receiveFrame(frame, kReplyWaitMs)) {
            fail("client " + std::to_string(number) + ": no reply to " + std::to_string(id) +
                 (client.closed() ? " (closed)" : " (silence)"));
            return false;
        }
        if (!SEP::decodeFrame(frame, reply)) {
            fail("client " + std::to_string(number) + ": unreadable frame");
            return false;
        }
        if (reply.kind == SEP::MESSAGE_KIND_EVENT) continue;
        std::int32_t code = 0, facility = 0;
        std::uint16_t level = 0;
        if (reply.kind != SEP::MESSAGE_KIND_REPLY || reply.messageId != id || !reply.coder->readI32(code) ||
            !reply.coder->readI32(facility) || !reply.coder->readU16(level)) {
            fail("client " + std::to_string(number) + ": expected the reply to " + std::to_string(id) + ", got kind " +
                 std::to_string(reply.kind) + " id " + std::to_string(reply.messageId));
            return false;
        }
        if (code == HalvernRpc::kReturnCodeSuccess && facility == HalvernRpc::kFacility && level == 0) return true;
        if (code == HalvernRpc::kReturnCodeError && facility == HalvernRpc::kFacility && level == 1 &&
            isDocumentedError(reply)) {
            ++figures.errorReplies;
            return true;
        }
        fail("client " + std::to_string(number) + ": reply to " + std::to_string(id) + " with header " +
             std::to_string(code) + "/" + std::to_string(facility) + "/" + std::to_string(level));
        return false;
    }
}

class ClientLoopC {
public:
    ClientLoopC(const SettingsT& settings, FiguresT& figures, unsigned number)
        : m_settings(settings), m_figures(figures), m_number(number), m_random(number * 7919u + 1)
    {}

    bool connect(std::uint16_t port) { return m_client.connect("127.0.0.1", port); }

    void run(const std::atomic<bool>& stop)
    {
        while (!stop && !failed())
            if (!burst()) return;
        // Nothing may follow the last reply but events.
        Bytes frame;
        SEP::DecodedFrameT extra;
        while (m_client.receiveFrame(frame, 300))
            if (SEP::decodeFrame(frame, extra) && extra.kind != SEP::MESSAGE_KIND_EVENT)
                fail("client " + std::to_string(m_number) + ": a reply nobody asked for, id " +
                     std::to_string(extra.messageId));
    }

    bool answersStill() { return burst(); }

private:
    // One to three commands in one write, each perhaps behind a garbage frame, then their replies in order.
    bool burst()
    {
        const SEP::CodingE coding = m_random() % 3 == 0 ? SEP::CodingE::Ascii : SEP::CodingE::Binary;
        Bytes wire;
        std::vector<std::uint16_t> ids;
        for (unsigned i = 1 + m_random() % 3; i > 0; --i) {
            if (m_random() % 10 == 0) {
                const Bytes noise = garbage(m_random);
                wire.insert(wire.end(), noise.begin(), noise.end());
                ++m_figures.garbageFrames;
            }
            ids.push_back(kMix[m_random() % std::size(kMix)]);
            const Bytes frame = command(coding, ids.back());
            wire.insert(wire.end(), frame.begin(), frame.end());
        }
        if (!m_client.sendBytes(wire)) {
            fail("client " + std::to_string(m_number) + ": send failed");
            return false;
        }
        for (const std::uint16_t id : ids) {
            if (!expectReply(m_client, id, m_number, m_figures)) return false;
            ++m_figures.requests;
        }
        return true;
    }

public:
    // Megabytes without CR LF, then the line end and a command that must be answered as usual.
    bool flood()
    {
        const Bytes chunk(64 * 1024, 'A');
        for (unsigned sent = 0; sent < m_settings.floodMegabytes * 16; ++sent)
            if (!m_client.sendBytes(chunk)) {
                fail("flood: send failed");
                return false;
            }
        return m_client.sendBytes({0x0D, 0x0A}) && burst();
    }

private:
    const SettingsT& m_settings;
    FiguresT& m_figures;
    unsigned m_number;
    std::mt19937 m_random;
    SEP::SepClientC m_client;
};

bool ctl(const SettingsT& settings, const std::string& words)
{
    const std::string line =
        "'" + settings.halvernSim + "' ctl --root '" + settings.root + "' " + words + " >/dev/null";
    if (std::system(line.c_str()) != 0) {
        fail("halvern-sim ctl " + words + " failed");
        return false;
    }
    return true;
}

// A client beyond the ten, and one from an address outside the allowed ranges: each must read the refusal.
void knock(const SettingsT& settings, FiguresT& figures)
{
    SEP::SepClientC eleventh;
    Bytes ignored;
    if (eleventh.connect("127.0.0.1", settings.port)) {
        while (eleventh.receiveFrame(ignored, 5000)) {
        }
        if (std::string(eleventh.rawBytes().begin(), eleventh.rawBytes().end()) == kRefusal)
            ++figures.knocksRefused;
        else
            fail("the eleventh client was not refused with the exact text");
    }
    std::uint32_t outside = 0;
    platform::UniqueSocket socket = platform::createTcpSocket();
    if (!platform::parseIpv4(settings.outsideAddress, outside) || !socket ||
        !platform::bindSocket(socket.get(), outside, 0) ||
        !platform::connectSocket(socket.get(), platform::kLoopbackAddress, settings.port)) {
        fail("cannot knock from " + settings.outsideAddress);
        return;
    }
    std::string received;
    char buffer[128];
    for (;;) {
        // A server that let it in would send nothing: the wait ends that knock as a failure.
        std::vector<platform::SocketPollT> readable{{socket.get(), false}};
        if (platform::selectSockets(&readable, nullptr, nullptr, 5000) <= 0) break;
        const int result = platform::receiveSocket(socket.get(), buffer, sizeof buffer);
        if (result <= 0) break;
        received.append(buffer, static_cast<std::size_t>(result));
    }
    if (received == kRefusal)
        ++figures.knocksRefused;
    else
        fail("the client from " + settings.outsideAddress + " was not refused");
}

void pause(unsigned milliseconds)
{
    std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds));
}

// One pass over every fault, with time for the clients to meet each.
void faultCycle(const SettingsT& settings, FiguresT& figures)
{
    if (ctl(settings, "efi service stop")) ++figures.faults;
    pause(1500);
    ctl(settings, "efi service start");
    pause(1500);
    if (ctl(settings, "board eth unplug")) ++figures.faults;
    pause(1500);
    ctl(settings, "board eth plug");
    const std::filesystem::path logs = std::filesystem::path(settings.root) / "D" / "logs";
    const std::filesystem::path away = std::filesystem::path(settings.root) / "D" / "logs.away";
    std::error_code error;
    std::filesystem::rename(logs, away, error);
    if (error) {
        fail("cannot take the log folder away: " + error.message());
    } else {
        ++figures.faults;
        pause(1000);
        std::filesystem::rename(away, logs, error);
        if (error) fail("cannot put the log folder back: " + error.message());
    }
    knock(settings, figures);
}

}  // namespace

int main(int argc, char** argv)
{
    SettingsT settings;
    CLI::App app("Load and faults on Halvern over the simulated instrument");
    app.add_option("--port", settings.port, "the SEP port of the ten clients")->required();
    app.add_option("--flood-port", settings.floodPort, "the SEP port of the flooding client")->required();
    app.add_option("--root", settings.root, "the simulated instrument's root")->required();
    app.add_option("--halvern-sim", settings.halvernSim, "halvern-sim, for its ctl commands")->required();
    app.add_option("--halvern-pid", settings.halvernPid, "Halvern's process, for its resident set")->required();
    app.add_option("--seconds", settings.seconds, "how long the clients run (faults repeat every ~8 s)");
    app.add_option("--flood-mb", settings.floodMegabytes, "megabytes one client sends without a line end");
    app.add_option("--rss-limit-kib", settings.rssLimitKiB, "the most the flood may raise the resident set (0: any)");
    app.add_option("--outside-address", settings.outsideAddress, "a loopback address outside the allowed ranges");
    CLI11_PARSE(app, argc, argv);

    FiguresT figures;
    std::vector<std::unique_ptr<ClientLoopC>> clients;
    for (unsigned i = 0; i < 10; ++i) {
        clients.push_back(std::make_unique<ClientLoopC>(settings, figures, i));
        if (!clients.back()->connect(settings.port)) {
            std::fprintf(stderr, "FAIL: client %u cannot connect to port %u\n", i, settings.port);
            return 1;
        }
    }
    std::atomic<bool> stop{false};
    std::vector<std::thread> threads;
    for (auto& client : clients)
        threads.emplace_back([&client, &stop] { client->run(stop); });

    const auto start = std::chrono::steady_clock::now();
    const auto elapsed = [&start] {
        return std::chrono::duration_cast<std::chrono::seconds>(std::chrono::steady_clock::now() - start).count();
    };
    // The resident set settles under the load first; the flood then may not raise it by more than 2 MiB.
    pause(2000);
    figures.rssBeforeKiB = residentKiB(settings.halvernPid);
    figures.rssPeakKiB = figures.rssBeforeKiB;
    ClientLoopC flooder(settings, figures, 10);
    std::atomic<bool> floodDone{false};
    std::thread flooding;
    if (!flooder.connect(settings.floodPort)) {
        fail("the flooding client cannot connect to port " + std::to_string(settings.floodPort));
    } else {
        flooding = std::thread([&flooder, &floodDone] {
            if (!flooder.flood()) fail("the flooding client was not answered after its line end");
            floodDone = true;
        });
        while (!floodDone) {
            figures.rssPeakKiB = std::max(figures.rssPeakKiB, residentKiB(settings.halvernPid));
            pause(50);
        }
        flooding.join();
    }
    const auto floodSeconds = elapsed() - 2;
    do
        faultCycle(settings, figures);
    while (!failed() && elapsed() + 9 < settings.seconds);
    while (!failed() && elapsed() < settings.seconds)
        pause(100);
    stop = true;
    for (auto& thread : threads)
        thread.join();
    for (std::size_t i = 0; i < clients.size() && !failed(); ++i)
        if (!clients[i]->answersStill()) fail("the server no longer answers client " + std::to_string(i));

    const long rssRiseKiB = figures.rssPeakKiB - figures.rssBeforeKiB;
    if (settings.rssLimitKiB > 0 && rssRiseKiB >= settings.rssLimitKiB) fail("the flood raised the resident set by " + std::to_string(rssRiseKiB) + " KiB");
    std::printf(
        "requests %llu, error replies %llu, garbage frames %llu, faults %u, knocks refused %u, "
        "flood %u MB in %lld s, resident set %ld KiB before, +%ld KiB at most during the flood, %lld s in all\n",
        static_cast<unsigned long long>(figures.requests.load()),
        static_cast<unsigned long long>(figures.errorReplies.load()),
        static_cast<unsigned long long>(figures.garbageFrames.load()), figures.faults.load(),
        figures.knocksRefused.load(), settings.floodMegabytes, static_cast<long long>(floodSeconds),
        figures.rssBeforeKiB, rssRiseKiB, static_cast<long long>(elapsed()));
    for (const auto& failure : g_failures)
        std::fprintf(stderr, "FAIL: %s\n", failure.c_str());
    return g_failures.empty() ? 0 : 1;
}
