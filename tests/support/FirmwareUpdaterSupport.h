#pragma once
// The firmware updater stand-in as tests drive it: how it behaves, and ending one that keeps running.
#include <signal.h>
#include <sys/wait.h>

#include <atomic>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "platform/Clock.h"
#include "platform/sim/SimRoot.h"

namespace halvern::test {

// Virtual time that lets real processes run a little while the logic waits: a wait of N ms takes N/2 ms,
// so a stand-in updater can end within the 15 s the update gives it while the link waits pass quickly.
class BriskClockC final : public platform::ClockI {
public:
    std::uint64_t tickCount64() override { return m_now.load(); }
    void sleep(std::uint32_t milliseconds) override { m_now += milliseconds; }
    std::chrono::milliseconds idleWait(std::uint64_t milliseconds) override
    {
        m_now += milliseconds;
        return std::chrono::milliseconds(milliseconds / 2);
    }

private:
    std::atomic<std::uint64_t> m_now{1'000'000};
};

inline std::string simFile(const std::string& relative)
{
    return platform::sim::root() + "/sim/" + relative;
}

inline std::vector<std::string> simLines(const std::string& relative)
{
    std::vector<std::string> lines;
    std::ifstream in(simFile(relative));
    for (std::string line; std::getline(in, line);)
        lines.push_back(line);
    return lines;
}

// "key=value" lines of the stand-in (see sim/standin/StandInMain.cpp).
inline void firmwareUpdaterBehaves(const std::string& settings)
{
    platform::sim::makeDirectories(simFile("apps"));
    std::ofstream(simFile("apps/firmware-updater"), std::ios::trunc) << settings;
}

// Ends the last updater started when it is still running: nothing a test starts outlives it. Without
// `reap` its exit is left to whoever waits for the updater (Halvern's process wait sees it at once).
inline void endFirmwareUpdater(bool reap = true)
{
    std::ifstream in(simFile("apps/firmware-updater.pid"));
    pid_t pid = 0;
    if (!(in >> pid) || pid <= 0) return;
    std::ifstream commandLine("/proc/" + std::to_string(pid) + "/cmdline");
    const std::string text((std::istreambuf_iterator<char>(commandLine)), std::istreambuf_iterator<char>());
    if (text.find("firmware-updater") == std::string::npos) return;
    ::kill(pid, SIGKILL);
    if (reap) ::waitpid(pid, nullptr, 0);
}

}  // namespace halvern::test
