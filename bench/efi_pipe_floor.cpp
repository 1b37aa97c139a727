// efi-pipe-floor: the floor under EFI_GET_BAT_STATUS. Sends the very four battery requests that the
// command's handler sends, as raw transactions on the power controller service's command pipe, and prints
// one JSON object (rounds of four per second, latency percentiles) in the shape sep-load prints. Run with
// HALVERN_ROOT pointing at the simulated instrument.
#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <chrono>
#include <iostream>
#include <memory>
#include <vector>

#include "bench/LoadGenerator.h"
#include "bench/ReportJson.h"
#include "efi/EFIServiceIPCBatteryCommand.h"
#include "platform/NamedPipe.h"

int main(int argc, char** argv)
{
    CLI::App app{"Raw round trips on the EFI command pipe: the floor of EFI_GET_BAT_STATUS"};
    unsigned rounds = 2000;
    app.add_option("-n", rounds, "rounds of the four battery requests");
    CLI11_PARSE(app, argc, argv);

    const std::wstring name = L"\\\\.\\pipe\\EFIServiceIPC";
    if (!platform::waitNamedPipe(name, 5000)) {
        std::cerr << "efi-pipe-floor: no command pipe\n";
        return 1;
    }
    platform::UniqueHandle pipe = platform::openPipe(name);
    if (!pipe || !platform::setPipeMessageReadMode(pipe.get())) {
        std::cerr << "efi-pipe-floor: cannot open the command pipe\n";
        return 1;
    }
    const int items[4][2] = {{EFI_BATTERY_L, EFI_BATTERY_STATUS},
                             {EFI_BATTERY_L, EFI_BATTERY_RSOC},
                             {EFI_BATTERY_H, EFI_BATTERY_STATUS},
                             {EFI_BATTERY_H, EFI_BATTERY_RSOC}};
    std::vector<std::unique_ptr<EFIServiceIPCBatteryCommand>> requests;
    for (const auto& item : items)
        requests.push_back(std::make_unique<EFIServiceIPCBatteryCommand>(item[0], item[1]));

    HalvernBench::LoadReportT report;
    std::vector<char16_t> reply(1024);
    const auto begin = std::chrono::steady_clock::now();
    for (unsigned round = 0; round < rounds; ++round) {
        const auto start = std::chrono::steady_clock::now();
        for (auto& request : requests) {
            std::uint32_t got = 0;
            if (!platform::transactPipe(pipe.get(), request->GetRequest(), request->GetRequestBytes(), reply.data(),
                                        static_cast<std::uint32_t>(reply.size() * sizeof(char16_t)), got)) {
                std::cerr << "efi-pipe-floor: a transaction failed\n";
                return 1;
            }
        }
        report.latenciesNs.push_back(static_cast<std::uint64_t>(
            std::chrono::duration_cast<std::chrono::nanoseconds>(std::chrono::steady_clock::now() - start).count()));
        ++report.completed;
    }
    report.elapsedSeconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
    std::sort(report.latenciesNs.begin(), report.latenciesNs.end());
    nlohmann::json result{{"connections", 1}, {"pipeline", 1}, {"command", "raw pipe x4"}};
    std::cout << HalvernBench::addFigures(result, report) << '\n';
    return 0;
}
