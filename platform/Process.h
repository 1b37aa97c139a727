#pragma once
// Processes, the interactive user's session and the computer's identity, with Windows semantics. On the
// simulation platform programs named by Windows paths are stand-ins in the sim root, the process list,
// the logged-on user and the computer names are files under $HALVERN_ROOT/sim/, and a shutdown request
// is recorded there: the host's own processes, users and power are never touched.
#include <cstdint>
#include <string>
#include <vector>

#include "platform/Handle.h"
#include "platform/Owner.h"
#include "platform/WinError.h"

namespace platform {

constexpr std::uint32_t kCreateNewConsole = 0x00000010;
constexpr std::uint32_t kNormalPriorityClass = 0x00000020;
constexpr std::uint32_t kCreateUnicodeEnvironment = 0x00000400;
constexpr std::uint32_t kCreateNoWindow = 0x08000000;
constexpr std::uint16_t kSwHide = 0;
constexpr std::uint16_t kSwShow = 5;

// STARTUPINFOW as far as the instrument uses it.
struct StartupInfoT {
    bool useShowWindow = false;
    bool useStdHandles = false;
    std::uint16_t showWindow = 0;
    std::wstring desktop;  // empty: the caller's
    // With useStdHandles: the child's standard handles (inheritable; null leaves that one without).
    HandleValue stdInput = nullptr;
    HandleValue stdOutput = nullptr;
    HandleValue stdError = nullptr;
};

// PROCESS_INFORMATION with owned handles.
struct ProcessInformationT {
    UniqueHandle process;
    UniqueHandle thread;
    std::uint32_t processId = 0;
    std::uint32_t threadId = 0;
};

// CreateProcessW. An empty `application` lets the first word of `commandLine` be found through the search
// path; an empty `commandLine` passes none.
bool createProcess(const std::wstring& application, const std::wstring& commandLine, std::uint32_t creationFlags,
                   const StartupInfoT& startup, ProcessInformationT& started);
// CreateProcessW of `commandLine` (no separate application name) inheriting this process's inheritable
// handles, with the parent's environment and `currentDirectory` (empty: the parent's). On the simulation
// platform a first word that is a Windows path names a program in the sim root.
bool createProcessInheriting(const std::wstring& commandLine, std::uint32_t creationFlags,
                             const std::wstring& currentDirectory, const StartupInfoT& startup,
                             ProcessInformationT& started);

// ShellExecuteExW with the verb "runas" (elevated), hidden, asking for the process handle: `process` owns
// it. On the simulation platform `file` is a program in the sim root started with `parameters`.
bool shellExecuteElevated(const std::wstring& file, const std::wstring& parameters, UniqueHandle& process);

// CreatePipe with both ends inheritable and a buffer of `bufferBytes`.
bool createAnonymousPipe(UniqueHandle& readEnd, UniqueHandle& writeEnd, std::uint32_t bufferBytes);
// SetNamedPipeHandleState(PIPE_NOWAIT): a read with nothing in the pipe fails at once with 232.
bool setPipeNoWait(HandleValue pipe);
// ReadFile of what is there, up to `bytes`.
bool readFile(HandleValue file, void* buffer, std::uint32_t bytes, std::uint32_t& bytesRead);

// GetExitCodeProcess: kStillActive while the process runs.
bool getExitCodeProcess(HandleValue process, std::uint32_t& exitCode);
bool terminateProcess(HandleValue process, std::uint32_t exitCode);

// One entry of a process snapshot (CreateToolhelp32Snapshot, Process32First/Next) with its session
// (ProcessIdToSessionId; 0xFFFFFFFF when it cannot be read).
struct ProcessEntryT {
    std::uint32_t processId = 0;
    std::wstring exeFile;
    std::uint32_t sessionId = 0;
};
enum class SnapshotResultE { Ok, SnapshotFailed, FirstFailed };
SnapshotResultE snapshotProcesses(std::vector<ProcessEntryT>& processes);

// OpenProcess(PROCESS_TERMINATE) of a process found in a snapshot, then TerminateProcess. On the
// simulation platform only a stand-in of this sim root can be ended this way; it also leaves the sim
// root's process list.
bool terminateProcessById(std::uint32_t processId, std::uint32_t exitCode);

// GetUserNameW.
bool getUserName(std::wstring& name);

// Access tokens for starting a program in the interactive user's session.
// WTSQueryUserToken.
bool queryUserToken(std::uint32_t sessionId, UniqueHandle& token);
// OpenProcess with MAXIMUM_ALLOWED, then OpenProcessToken with the access a primary token for another
// session needs (assign primary, duplicate, query, adjust privileges, groups, default and session id,
// read control).
bool openProcessTokenForSession(std::uint32_t processId, UniqueHandle& token);
// LookupPrivilegeValueW on the local system; the LUID packed into 64 bits.
bool lookupPrivilege(const std::wstring& name, std::uint64_t& luid);
// DuplicateTokenEx as a primary token at identification level.
bool duplicatePrimaryToken(HandleValue token, UniqueHandle& duplicate);
// SetTokenInformation(TokenSessionId).
bool setTokenSessionId(HandleValue token, std::uint32_t sessionId);
// AdjustTokenPrivileges enabling one privilege. Succeeds with the last error left as the call left it:
// kErrorNotAllAssigned when the token does not hold the privilege.
bool enableTokenPrivilege(HandleValue token, std::uint64_t luid);
// OpenProcessToken(current process, query | adjust privileges).
bool openOwnProcessToken(UniqueHandle& token);

// DestroyEnvironmentBlock.
struct EnvironmentBlockTraits {
    using Value = void*;
    static Value invalid() noexcept { return nullptr; }
    static void close(Value block) noexcept;
};
using UniqueEnvironmentBlock = UniqueOwner<EnvironmentBlockTraits>;

// CreateEnvironmentBlock; a new block replaces the one made before, and no block is left when it fails.
class EnvironmentBlockC {
public:
    bool create(HandleValue token, bool inherit);
    bool valid() const { return static_cast<bool>(m_block); }
    void* get() const { return m_block.get(); }

private:
    UniqueEnvironmentBlock m_block;
};

// CreateProcessAsUserW.
bool createProcessAsUser(HandleValue token, const std::wstring& application, const std::wstring& commandLine,
                         std::uint32_t creationFlags, const EnvironmentBlockC& environment, const StartupInfoT& startup,
                         ProcessInformationT& started);

// GetComputerNameExW / SetComputerNameExW for the formats the instrument uses.
enum class ComputerNameE { NetBios, DnsHostname, PhysicalNetBios, PhysicalDnsHostname };
bool getComputerName(ComputerNameE format, std::wstring& name);
bool setComputerName(ComputerNameE format, const std::wstring& name);

// InitiateSystemShutdownExW on the local machine without a message.
bool initiateSystemShutdown(std::uint32_t timeoutSeconds, bool forceAppsClosed, bool reboot, std::uint32_t reason);

}  // namespace platform
