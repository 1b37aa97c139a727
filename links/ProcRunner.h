#pragma once
// Commands run on this computer as hidden children whose standard output and error are captured, and on
// the sensor board through its telnet shell.
#include <cstdint>
#include <ostream>
#include <string>

#include "framework/CancelTokenC.h"
#include "platform/Handle.h"

namespace halvern::links {

class ProcRunner {
public:
    enum class PipeE { StdOut, StdErr };

    // Messages go to `log`, one line each.
    explicit ProcRunner(std::ostream& log);
    ProcRunner(const ProcRunner&) = delete;
    ProcRunner& operator=(const ProcRunner&) = delete;
    ~ProcRunner();

    bool start(const std::wstring& commandLine, const std::wstring& directory);
    // Also false, as a time-out, when `cancel` is cancelled first.
    bool wait(std::uint32_t timeoutMs, const BSS::CancelTokenC* cancel = nullptr);
    // True only when the child had already ended with exit code 0; a running one is ended.
    bool terminate(std::uint32_t* exitCode = nullptr);
    bool read(PipeE pipe, std::string& text);

private:
    bool createPipe(platform::UniqueHandle& readEnd, platform::UniqueHandle& writeEnd);
    void logLine(const std::string& text);
    void logLine(const std::string& text, std::uint32_t error);

    std::ostream& m_log;
    platform::UniqueHandle m_stdOutRead;
    platform::UniqueHandle m_stdOutWrite;
    platform::UniqueHandle m_stdErrRead;
    platform::UniqueHandle m_stdErrWrite;
    platform::UniqueHandle m_process;
};

// Runs `command` here; true when it started and ended in time, whatever its exit code. Timeout 0 waits
// for ever.
bool runVantCommand(const std::string& command, std::string& output, std::uint32_t& exitCode, std::uint32_t timeoutMs,
                    const std::string& directory);
// Runs `command` on the sensor board; true when it ran with status 0. Timeout 0 means the telnet default.
// `output` keeps the end of what the board printed; `dropped`, when given, counts the bytes before it.
bool runMoraCommand(const std::string& command, std::string& output, int& status, std::uint32_t timeoutMs,
                    const std::string& directory, std::size_t* dropped = nullptr);

}  // namespace halvern::links
