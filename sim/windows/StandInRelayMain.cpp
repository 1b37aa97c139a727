// halvern-standin.exe: the instrument's Windows programs (applications, ssh, the device and system
// tools) in a Wine run of Halvern.exe. One image is copied to every program path; started there, it asks
// the simulated instrument (over its loopback relay) to run the stand-in of that path, prints what the
// stand-in prints and ends with its exit code. Ended early (TerminateProcess), it takes the stand-in
// with it. For the stand-ins that own Windows objects it makes them: the diagnostics service's pipe, the
// calibration applications' running mutexes.
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "platform/CommandLine.h"
#include "platform/Sync.h"
#include "platform/Text.h"
#include "sim/windows/RelayWire.h"

int main()
{
    const std::uint16_t port = halvern::sim::relayPort();
    if (port == 0) {
        std::fprintf(stderr, "halvern-standin: no simulated instrument to run on (no relay port)\n");
        return 9009;
    }
    platform::UniqueSocket relay = halvern::sim::connectRelay(port);
    if (!relay) {
        std::fprintf(stderr, "halvern-standin: the simulated instrument does not answer on port %u\n", port);
        return 9009;
    }
    std::vector<std::string> arguments;
    const std::vector<std::wstring> commandLine = platform::commandLineArguments();
    for (std::size_t i = 1; i < commandLine.size(); ++i)
        arguments.push_back(platform::narrow(commandLine[i]).value_or("?"));
    const std::string program = platform::narrow(platform::currentProgramPath()).value_or("");
    if (!halvern::sim::sendRelayFrame(relay.get(), halvern::sim::RelayFrameE::Run,
                                      halvern::sim::joinRunRequest(program, arguments)))
        return 9009;
    std::vector<platform::UniqueHandle> held;
    halvern::sim::RelayFrameE kind{};
    std::string payload;
    while (halvern::sim::receiveRelayFrame(relay.get(), kind, payload)) {
        switch (kind) {
        case halvern::sim::RelayFrameE::Output:
            std::fwrite(payload.data(), 1, payload.size(), stdout);
            std::fflush(stdout);
            break;
        case halvern::sim::RelayFrameE::ServePipe:
            halvern::sim::serveRelayedPipe(platform::widen(payload), port);
            break;
        case halvern::sim::RelayFrameE::HoldMutex:
            held.push_back(platform::createMutex(nullptr, false, platform::widen(payload)));
            break;
        case halvern::sim::RelayFrameE::Exit:
            return std::atoi(payload.c_str());
        default:
            break;
        }
    }
    // The instrument went away under the program.
    return 9009;
}
