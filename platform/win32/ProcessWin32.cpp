#include <windows.h>
// windows.h first: the tool help, terminal services and user environment headers build on it.
#include <tlhelp32.h>
#include <userenv.h>
#include <wtsapi32.h>

#include <vector>

#include "platform/Process.h"
#include "platform/win32/OwnHandle.h"
#include "platform/win32/WineGuard.h"

namespace platform {
namespace {

struct StartupBlockT {
    STARTUPINFOW info{};
    std::wstring desktop;
};

// The record lives as long as the caller's; CreateProcess only reads it during the call.
void fillStartup(const StartupInfoT& startup, StartupBlockT& block)
{
    block.info.cb = sizeof block.info;
    if (startup.useShowWindow) block.info.dwFlags |= STARTF_USESHOWWINDOW;
    if (startup.useStdHandles) block.info.dwFlags |= STARTF_USESTDHANDLES;
    block.info.wShowWindow = startup.showWindow;
    block.info.hStdInput = startup.stdInput;
    block.info.hStdOutput = startup.stdOutput;
    block.info.hStdError = startup.stdError;
    block.desktop = startup.desktop;
    if (!block.desktop.empty()) block.info.lpDesktop = block.desktop.data();
}

void takeStarted(const PROCESS_INFORMATION& info, ProcessInformationT& started)
{
    started.process.reset(info.hProcess);
    started.thread.reset(info.hThread);
    started.processId = info.dwProcessId;
    started.threadId = info.dwThreadId;
}

LUID toLuid(std::uint64_t packed)
{
    LUID luid;
    luid.LowPart = static_cast<DWORD>(packed & 0xFFFFFFFFu);
    luid.HighPart = static_cast<LONG>(packed >> 32);
    return luid;
}

COMPUTER_NAME_FORMAT toFormat(ComputerNameE format)
{
    switch (format) {
        case ComputerNameE::NetBios:
            return ComputerNameNetBIOS;
        case ComputerNameE::DnsHostname:
            return ComputerNameDnsHostname;
        case ComputerNameE::PhysicalNetBios:
            return ComputerNamePhysicalNetBIOS;
        case ComputerNameE::PhysicalDnsHostname:
            return ComputerNamePhysicalDnsHostname;
    }
    return ComputerNameNetBIOS;
}

}  // namespace

bool createProcess(const std::wstring& application, const std::wstring& commandLine, std::uint32_t creationFlags,
                   const StartupInfoT& startup, ProcessInformationT& started)
{
    if (win32::launchRefusedUnderWine(application, commandLine)) return false;
    StartupBlockT block;
    fillStartup(startup, block);
    // CreateProcessW may write into the command line.
    std::wstring line = commandLine;
    PROCESS_INFORMATION info{};
    if (!CreateProcessW(application.empty() ? nullptr : application.c_str(), line.empty() ? nullptr : line.data(),
                        nullptr, nullptr, FALSE, creationFlags, nullptr, nullptr, &block.info, &info))
        return false;
    takeStarted(info, started);
    return true;
}

bool createProcessInheriting(const std::wstring& commandLine, std::uint32_t creationFlags,
                             const std::wstring& currentDirectory, const StartupInfoT& startup,
                             ProcessInformationT& started)
{
    if (win32::launchRefusedUnderWine(std::wstring(), commandLine)) return false;
    StartupBlockT block;
    fillStartup(startup, block);
    std::wstring line = commandLine;
    PROCESS_INFORMATION info{};
    if (!CreateProcessW(nullptr, line.data(), nullptr, nullptr, TRUE, creationFlags, nullptr,
                        currentDirectory.empty() ? nullptr : currentDirectory.c_str(), &block.info, &info))
        return false;
    takeStarted(info, started);
    return true;
}

bool createAnonymousPipe(UniqueHandle& readEnd, UniqueHandle& writeEnd, std::uint32_t bufferBytes)
{
    SECURITY_ATTRIBUTES attributes{};
    attributes.nLength = sizeof attributes;
    attributes.bInheritHandle = TRUE;
    HANDLE reading = nullptr;
    HANDLE writing = nullptr;
    if (!CreatePipe(&reading, &writing, &attributes, bufferBytes)) return false;
    readEnd.reset(reading);
    writeEnd.reset(writing);
    return true;
}

bool setPipeNoWait(HandleValue pipe)
{
    DWORD mode = PIPE_NOWAIT;
    return SetNamedPipeHandleState(pipe, &mode, nullptr, nullptr) != FALSE;
}

bool readFile(HandleValue file, void* buffer, std::uint32_t bytes, std::uint32_t& bytesRead)
{
    DWORD read = 0;
    if (!ReadFile(file, buffer, bytes, &read, nullptr)) return false;
    bytesRead = read;
    return true;
}

bool getExitCodeProcess(HandleValue process, std::uint32_t& exitCode)
{
    DWORD code = 0;
    if (!GetExitCodeProcess(process, &code)) return false;
    exitCode = code;
    return true;
}

bool terminateProcess(HandleValue process, std::uint32_t exitCode)
{
    return TerminateProcess(process, exitCode) != FALSE;
}

SnapshotResultE snapshotProcesses(std::vector<ProcessEntryT>& processes)
{
    processes.clear();
    UniqueHandle snapshot = win32::ownFileHandle(CreateToolhelp32Snapshot(TH32CS_SNAPPROCESS, 0));
    if (!snapshot) return SnapshotResultE::SnapshotFailed;
    PROCESSENTRY32W entry{};
    entry.dwSize = sizeof entry;
    if (!Process32FirstW(snapshot.get(), &entry)) return SnapshotResultE::FirstFailed;
    do {
        ProcessEntryT process;
        process.processId = entry.th32ProcessID;
        process.exeFile = entry.szExeFile;
        DWORD session = 0xFFFFFFFF;
        if (ProcessIdToSessionId(entry.th32ProcessID, &session))
            process.sessionId = session;
        else
            process.sessionId = 0xFFFFFFFF;
        processes.push_back(process);
    } while (Process32NextW(snapshot.get(), &entry));
    return SnapshotResultE::Ok;
}

bool getUserName(std::wstring& name)
{
    wchar_t buffer[257 + 1] = {};
    DWORD length = 257;
    if (!GetUserNameW(buffer, &length)) return false;
    name = buffer;
    return true;
}

bool terminateProcessById(std::uint32_t processId, std::uint32_t exitCode)
{
    UniqueHandle process(OpenProcess(PROCESS_TERMINATE, FALSE, processId));
    if (!process) return false;
    return TerminateProcess(process.get(), exitCode) != FALSE;
}

bool queryUserToken(std::uint32_t sessionId, UniqueHandle& token)
{
    HANDLE raw = nullptr;
    if (!WTSQueryUserToken(sessionId, &raw)) return false;
    token.reset(raw);
    return true;
}

bool openProcessTokenForSession(std::uint32_t processId, UniqueHandle& token)
{
    UniqueHandle process(OpenProcess(MAXIMUM_ALLOWED, FALSE, processId));
    if (!process) return false;
    HANDLE raw = nullptr;
    const DWORD access = TOKEN_ADJUST_PRIVILEGES | TOKEN_QUERY | TOKEN_DUPLICATE | TOKEN_ASSIGN_PRIMARY |
                         TOKEN_ADJUST_SESSIONID | TOKEN_READ | TOKEN_WRITE;
    if (!OpenProcessToken(process.get(), access, &raw)) return false;
    token.reset(raw);
    return true;
}

bool lookupPrivilege(const std::wstring& name, std::uint64_t& luid)
{
    LUID value{};
    if (!LookupPrivilegeValueW(nullptr, name.c_str(), &value)) return false;
    luid = (static_cast<std::uint64_t>(static_cast<DWORD>(value.HighPart)) << 32) | value.LowPart;
    return true;
}

bool duplicatePrimaryToken(HandleValue token, UniqueHandle& duplicate)
{
    HANDLE raw = nullptr;
    if (!DuplicateTokenEx(token, MAXIMUM_ALLOWED, nullptr, SecurityIdentification, TokenPrimary, &raw)) return false;
    duplicate.reset(raw);
    return true;
}

bool setTokenSessionId(HandleValue token, std::uint32_t sessionId)
{
    DWORD session = sessionId;
    return SetTokenInformation(token, TokenSessionId, &session, sizeof session) != FALSE;
}

bool enableTokenPrivilege(HandleValue token, std::uint64_t luid)
{
    TOKEN_PRIVILEGES privileges{};
    privileges.PrivilegeCount = 1;
    privileges.Privileges[0].Luid = toLuid(luid);
    privileges.Privileges[0].Attributes = SE_PRIVILEGE_ENABLED;
    return AdjustTokenPrivileges(token, FALSE, &privileges, sizeof privileges, nullptr, nullptr) != FALSE;
}

bool openOwnProcessToken(UniqueHandle& token)
{
    HANDLE raw = nullptr;
    if (!OpenProcessToken(GetCurrentProcess(), TOKEN_ADJUST_PRIVILEGES | TOKEN_QUERY, &raw)) return false;
    token.reset(raw);
    return true;
}

void EnvironmentBlockTraits::close(Value block) noexcept
{
    DestroyEnvironmentBlock(block);
}

bool EnvironmentBlockC::create(HandleValue token, bool inherit)
{
    m_block.reset();
    void* block = nullptr;
    if (!CreateEnvironmentBlock(&block, token, inherit ? TRUE : FALSE)) return false;
    m_block.reset(block);
    return true;
}

bool createProcessAsUser(HandleValue token, const std::wstring& application, const std::wstring& commandLine,
                         std::uint32_t creationFlags, const EnvironmentBlockC& environment, const StartupInfoT& startup,
                         ProcessInformationT& started)
{
    if (win32::launchRefusedUnderWine(application, commandLine)) return false;
    StartupBlockT block;
    fillStartup(startup, block);
    std::wstring line = commandLine;
    PROCESS_INFORMATION info{};
    if (!CreateProcessAsUserW(token, application.empty() ? nullptr : application.c_str(),
                              line.empty() ? nullptr : line.data(), nullptr, nullptr, FALSE, creationFlags,
                              environment.get(), nullptr, &block.info, &info))
        return false;
    takeStarted(info, started);
    return true;
}

bool getComputerName(ComputerNameE format, std::wstring& name)
{
    DWORD length = 0;
    GetComputerNameExW(toFormat(format), nullptr, &length);
    std::vector<wchar_t> buffer(length + 1);
    length = static_cast<DWORD>(buffer.size());
    if (!GetComputerNameExW(toFormat(format), buffer.data(), &length)) return false;
    name.assign(buffer.data(), length);
    return true;
}

bool setComputerName(ComputerNameE format, const std::wstring& name)
{
    if (win32::refusedUnderWine()) return false;
    return SetComputerNameExW(toFormat(format), name.c_str()) != FALSE;
}

bool initiateSystemShutdown(std::uint32_t timeoutSeconds, bool forceAppsClosed, bool reboot, std::uint32_t reason)
{
    if (win32::refusedUnderWine()) return false;
    return InitiateSystemShutdownExW(nullptr, nullptr, timeoutSeconds, forceAppsClosed ? TRUE : FALSE,
                                     reboot ? TRUE : FALSE, reason) != FALSE;
}

}  // namespace platform
