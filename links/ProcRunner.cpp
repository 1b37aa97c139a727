#include "links/ProcRunner.h"

#include <iostream>
#include <thread>

#include "app/Log.h"
#include "framework/CancelTokenC.h"
#include "links/TelnetConnection.h"
#include "platform/Process.h"
#include "platform/Sync.h"
#include "platform/Text.h"
#include "platform/WinError.h"

namespace halvern::links {
namespace {

constexpr std::uint32_t kPipeBufferBytes = 16384;

// Byte by byte, as the tools' command lines are plain ASCII.
std::wstring widenBytes(const std::string& text)
{
    std::wstring wide;
    for (unsigned char c : text)
        wide += static_cast<wchar_t>(c);
    return wide;
}

// A command for the sensor board; it may own a worker for asynchronous runs, which it joins when it goes.
class MoraCommandC {
public:
    explicit MoraCommandC(std::string command) : m_command(std::move(command)) {}
    ~MoraCommandC()
    {
        if (m_worker.joinable()) {
            WriteLog("Joining thread used to execute asynchronous command.");
            m_worker.join();
        }
    }
    bool run(std::string& output, int& status, int timeoutMs, std::size_t* dropped)
    {
        return runTelnetCommand(m_command, status, output, timeoutMs, dropped);
    }

private:
    std::string m_command;
    std::thread m_worker;
};

}  // namespace

ProcRunner::ProcRunner(std::ostream& log) : m_log(log) {}

ProcRunner::~ProcRunner()
{
    if (m_process && !terminate()) logLine("Failed to terminate process in ProcRunner destructor");
    for (auto* pipe : {&m_stdErrRead, &m_stdErrWrite, &m_stdOutRead, &m_stdOutWrite}) {
        if (*pipe && !platform::closeHandle(pipe->release()))
            std::cerr << (pipe == &m_stdErrRead || pipe == &m_stdOutRead ? "Failed to close pipe's read handle!"
                                                                         : "Failed to close pipe's write handle!")
                      << std::endl;
    }
}

void ProcRunner::logLine(const std::string& text)
{
    m_log << "BSPProcRunner: " << text << std::endl;
}

void ProcRunner::logLine(const std::string& text, std::uint32_t error)
{
    m_log << "BSPProcRunner: " << text << error << std::endl;
}

bool ProcRunner::createPipe(platform::UniqueHandle& readEnd, platform::UniqueHandle& writeEnd)
{
    if (!platform::createAnonymousPipe(readEnd, writeEnd, kPipeBufferBytes)) {
        logLine("Failed to create output pipe: ", platform::lastError());
        return false;
    }
    if (!platform::setPipeNoWait(readEnd.get())) {
        logLine("Failed to set pipe non-blocking: ", platform::lastError());
        return false;
    }
    return true;
}

bool ProcRunner::start(const std::wstring& commandLine, const std::wstring& directory)
{
    if (!createPipe(m_stdOutRead, m_stdOutWrite)) {
        logLine("Failed to create stdout pipe!");
        return false;
    }
    if (!createPipe(m_stdErrRead, m_stdErrWrite)) {
        logLine("Failed to create stderr pipe!");
        return false;
    }
    // Narrowed: a wide write would fix the C runtime's standard output to wide text on the host, where
    // every narrow line after it would be lost.
    std::cout << "BSPProcRunner: starting process: " << platform::narrow(commandLine).value_or(std::string())
              << std::endl;
    platform::StartupInfoT startup;
    startup.useStdHandles = true;
    startup.stdOutput = m_stdOutWrite.get();
    startup.stdError = m_stdErrWrite.get();
    platform::ProcessInformationT started;
    if (!platform::createProcessInheriting(commandLine, platform::kCreateNoWindow, directory, startup, started)) {
        logLine("Failed to create process: ", platform::lastError());
        return false;
    }
    m_process = std::move(started.process);
    return true;
}

bool ProcRunner::wait(std::uint32_t timeoutMs, const BSS::CancelTokenC* cancel)
{
    if (!m_process) {
        logLine("Tried to wait for prcoess, but handle is NULL!");
        return false;
    }
    BSS::announceWait();
    const std::uint32_t result = cancel != nullptr && cancel->event() != nullptr
                                     ? platform::waitForAnyObject({m_process.get(), cancel->event()}, timeoutMs)
                                     : platform::waitForSingleObject(m_process.get(), timeoutMs);
    if (result == platform::kWaitObject0) return true;
    m_log << "BSPProcRunner: Failed to wait for process: " << result << ", last error: " << platform::lastError()
          << std::endl;
    return false;
}

bool ProcRunner::terminate(std::uint32_t* exitCode)
{
    if (!m_process) {
        logLine("Trying to terminate process, but handle is NULL");
        return false;
    }
    std::uint32_t code = static_cast<std::uint32_t>(-1);
    const bool queried = platform::getExitCodeProcess(m_process.get(), code);
    if (!queried) {
        logLine("Failed to get exit code of a process: ", platform::lastError());
        code = static_cast<std::uint32_t>(-1);
    }
    if (exitCode != nullptr) *exitCode = code;
    if (queried && code != platform::kStillActive) {
        m_process.reset();
        if (code == 0) return true;
        logLine("Process reported failure, exit code: ", code);
        return false;
    }
    if (platform::terminateProcess(m_process.get(), 0)) {
        m_process.reset();
        return false;
    }
    logLine("Failed to terminate the process: ", platform::lastError());
    return false;
}

bool ProcRunner::read(PipeE pipe, std::string& text)
{
    const platform::HandleValue readEnd = pipe == PipeE::StdOut ? m_stdOutRead.get() : m_stdErrRead.get();
    std::string buffer(kPipeBufferBytes, '\0');
    std::uint32_t got = 0;
    if (!platform::readFile(readEnd, buffer.data(), kPipeBufferBytes, got) || got == 0) {
        logLine("Failed to read: ", platform::lastError());
        return false;
    }
    text.append(buffer.data(), got);
    return true;
}

bool runVantCommand(const std::string& command, std::string& output, std::uint32_t& exitCode, std::uint32_t timeoutMs,
                    const std::string& directory)
{
    ProcRunner runner(std::cerr);
    if (!runner.start(widenBytes(command), widenBytes(directory))) {
        WriteLog("[ERROR]: Failed to start the process on VANT!");
        return false;
    }
    if (!runner.wait(timeoutMs == 0 ? platform::kInfinite : timeoutMs, BSS::CancelTokenC::current())) {
        WriteLog("[ERROR]: Failed to wait for the process to terminate!");
        runner.terminate();
        return false;
    }
    runner.terminate(&exitCode);
    runner.read(ProcRunner::PipeE::StdOut, output);
    runner.read(ProcRunner::PipeE::StdErr, output);
    return true;
}

bool runMoraCommand(const std::string& command, std::string& output, int& status, std::uint32_t timeoutMs,
                    const std::string& directory, std::size_t* dropped)
{
    MoraCommandC remote(directory.empty() ? command : "cd " + directory + " && " + command);
    return remote.run(output, status, timeoutMs == 0 ? -1 : static_cast<int>(timeoutMs), dropped);
}

}  // namespace halvern::links
