// efi-service-sim: the simulated EFI service as a program of its own, for runs of the Windows build
// under Wine, where halvern-sim does not run. It serves the two pipes until the stop file appears.
//
//   efi-service-sim [--hwstatus TEXT] [--rsoc-l N] [--rsoc-h N] [--battery] [--ready FILE] [--stop FILE]
//                   [--history FILE]
//   efi-service-sim --relay PORT [--ready FILE] [--stop FILE]
//
// --ready names a file it creates once both pipes are served; --stop a file whose appearance ends it;
// --history a file that receives every request text, one a line. With --relay it keeps no controller of
// its own: every pipe client is relayed to the simulated instrument listening on 127.0.0.1:PORT
// (halvern-sim --windows), whose controller `halvern-sim ctl efi` acts on (and records).
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <thread>

#include "platform/FileSystem.h"
#include "platform/Text.h"
#include "sim/efi/EfiControllerModel.h"
#include "sim/efi/EfiServiceSim.h"
#include "sim/windows/RelayWire.h"

int main(int argc, char** argv)
{
    halvern::sim::EfiControllerModelC model;
    std::string readyFile;
    std::string stopFile;
    long relayPort = 0;
    for (int i = 1; i < argc; ++i) {
        const std::string option = argv[i];
        const bool hasValue = i + 1 < argc;
        if (option == "--hwstatus" && hasValue) {
            halvern::sim::EfiHwStatusState status;
            status.rawText = platform::widen(argv[++i]);
            model.setHwStatus(status);
        } else if (option == "--rsoc-l" && hasValue) {
            model.setBattery("L", "rsoc", std::atoi(argv[++i]));
        } else if (option == "--rsoc-h" && hasValue) {
            model.setBattery("H", "rsoc", std::atoi(argv[++i]));
        } else if (option == "--battery") {
            model.setMains(false);
        } else if (option == "--relay" && hasValue) {
            relayPort = std::strtol(argv[++i], nullptr, 10);
        } else if (option == "--ready" && hasValue) {
            readyFile = argv[++i];
        } else if (option == "--history" && hasValue) {
            model.recordCommandsTo(argv[++i]);
        } else if (option == "--stop" && hasValue) {
            stopFile = argv[++i];
        } else {
            std::fprintf(stderr, "efi-service-sim: unknown argument %s\n", option.c_str());
            return 2;
        }
    }
    halvern::sim::EfiServiceSimC service(model);
    if (relayPort > 0 && relayPort < 65536) {
        for (const wchar_t* name : {L"EFIServiceIPC", L"EFIServiceNotify"}) {
            if (!halvern::sim::serveRelayedPipe(name, static_cast<std::uint16_t>(relayPort))) {
                std::fprintf(stderr, "efi-service-sim: cannot serve the EFI service pipes\n");
                return 1;
            }
        }
    } else if (!service.start()) {
        std::fprintf(stderr, "efi-service-sim: cannot serve the EFI service pipes\n");
        return 1;
    }
    if (!readyFile.empty()) {
        int error = 0;
        platform::UniqueFile ready = platform::openFile(readyFile.c_str(), "w", error);
        if (!ready) std::fprintf(stderr, "efi-service-sim: cannot write %s (%d)\n", readyFile.c_str(), error);
    }
    for (;;) {
        if (!stopFile.empty()) {
            int error = 0;
            if (platform::openFile(stopFile.c_str(), "r", error)) break;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
    }
    service.stop();
    return 0;
}
