#include "links/MoraManagerC.h"

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <cstdlib>

#include "app/Log.h"
#include "efi/EFIServiceIPCBasicCommand.h"
#include "framework/CancelTokenC.h"
#include "links/ProcRunner.h"
#include "links/SerialPortC.h"
#include "links/TelnetConnection.h"
#include "efi/EFIServiceIPC.h"
#include "platform/Clock.h"

namespace halvern::links {
namespace {

constexpr const char* kMoraRole = "MORA";
// Each console transaction waits this long for the console's answer.
constexpr std::uint32_t kMoraUartWaitMs = 100;
constexpr int kEthConnectWaitMs = 100;
constexpr std::uint32_t kUartRetryPauseMs = 100;
constexpr std::uint32_t kAdapterRestartPauseMs = 500;
constexpr const char* kDeviceToolFolder = "C:\\vexarBatches\\FirmwareUpdater\\";
constexpr const char* kDeviceTool = "devcon.exe";
constexpr const char* kMoraAdapterInstance = "@PCI\\VEN_8086&DEV_1533&SUBSYS_00000000&REV_03\\4&213D5DE2&0&00E1";

// Milliseconds since `start` on the wait clock, truncated as the waits compare them.
long long elapsedSince(std::uint64_t start)
{
    return static_cast<long long>(platform::tickCount64() - start);
}

std::atomic<EFIServiceIPC*> g_efiService{nullptr};

std::shared_ptr<EFIServiceIPCBasicCommand> queryHwStatus()
{
    EFIServiceIPC* service = g_efiService.load();
    return service != nullptr ? service->ExecuteBasicCommand(EFI_BASIC_HWSTATUS, true) : nullptr;
}

bool moraTransaction(const std::string& request, std::string& reply)
{
    return comPortTransaction(kMoraRole, "", request, reply, kMoraUartWaitMs);
}

// A console that is still booting sends control and line-noise bytes; the log keeps them readable.
void sanitiseReply(std::string& reply)
{
    for (char& c : reply) {
        // Bytes of 128 and above are negative here and so fall under the same test.
        if (c != '\n' && static_cast<signed char>(c) < 32) c = '?';
    }
}

}  // namespace

bool MoraManagerC::verifyMoraSignals()
{
    const char* const tag = "MoraManagerC::verifyMoraSignals";
    const auto reply = queryHwStatus();
    if (!reply) {
        WriteLog("[%s] [ERROR]: Failed to execute HW status EFI command", tag);
        return false;
    }
    EFIHwStatus status;
    if (!parseHwStatus(*reply, status)) {
        WriteLog("[%s] [ERROR]: Failed to parse EFI's HW status", tag);
        return false;
    }
    if (status.fpgaReady && status.hpsReady) return true;
    WriteLog("[%s] [ERROR]: FPGA or HPS not ready: %d, %d", tag, status.fpgaReady ? 1 : 0, status.hpsReady ? 1 : 0);
    return false;
}

bool MoraManagerC::verifyEFIMode()
{
    const auto reply = queryHwStatus();
    if (!reply) {
        WriteLog("[%s] [ERROR]: Failed to execute HW status EFI command", "MoraManagerC::verifyEFIMode");
        return false;
    }
    std::wstring text = reply->GetReplyText();
    if (text.find(L"EFIRunningMode:") == std::wstring::npos) return false;
    text = text.substr(text.find(L':') + 1);
    text = text.substr(0, text.find(L','));
    if (text.find_first_not_of(L"0123456789") != std::wstring::npos) return false;
    // Only the low byte tells the firmware's mode; an empty value reads as runware.
    const unsigned long mode = text.empty() ? 0 : std::wcstoul(text.c_str(), nullptr, 10);
    return (mode & 0xFFu) == 0;
}

bool MoraManagerC::verifyMoraUBootState()
{
    const char* const tag = "MoraManagerC::verifyMoraUBootState";
    std::string reply;
    if (!moraTransaction("md 0xFF200118 1\r\n", reply)) {
        WriteLog("[%s] [ERROR]: Failed to execute MORA UART transaction", tag);
        return false;
    }
    // Only that an answer came matters; the line names the function, not the reply, as the instrument's
    // logs have always read.
    WriteLog("Read MORA HW version from U-Boot, UART connection available: %s", tag);
    return true;
}

bool MoraManagerC::waitForBootUart(int timeoutMs)
{
    const char* const tag = "MoraManagerC::waitForBootUart";
    if (!verifyEFIMode()) {
        WriteLog("[%s] [ERROR]: waitForBootUart(): EFI not started in runware mode!", tag);
        return false;
    }
    const std::uint64_t start = platform::tickCount64();
    std::string reply;
    bool loggedIn = false;
    for (;;) {
        if (reply.size() >= 9 && reply.find("GNU/Linux") != std::string::npos) break;
        reply.clear();
        if (!verifyMoraSignals()) WriteLog("[%s] [ERROR]: Failed to verify MORA signals!", tag);
        if (!loggedIn) {
            if (moraTransaction("root\r\n", reply)) {
                sanitiseReply(reply);
                WriteLog("Waiting for MORA boot (UART), login: %s", reply.c_str());
                loggedIn = true;
            } else {
                WriteLog("[%s] [ERROR]: Failed to execute MORA login UART transaction", tag);
                platform::sleepMs(kUartRetryPauseMs);
            }
        } else if (moraTransaction("uname -o\r\n", reply)) {
            sanitiseReply(reply);
            WriteLog("Waiting for MORA boot (UART), command: %s", reply.c_str());
        } else {
            WriteLog("[%s] [ERROR]: Failed to execute MORA UART transaction", tag);
            platform::sleepMs(kUartRetryPauseMs);
        }
        if (elapsedSince(start) > timeoutMs || BSS::CancelTokenC::currentCancelled()) {
            WriteLog("[%s] [ERROR]: Failed to wait for MORA's boot (UART)", tag);
            return false;
        }
    }
    WriteLog("Waiting for MORA's boot took %d milliseconds", static_cast<int>(elapsedSince(start)));
    return true;
}

bool MoraManagerC::waitForEth(int timeoutMs)
{
    const char* const tag = "MoraManagerC::waitForEth";
    WriteLog("Waiting for MORA Ethernet, timeout: %d", timeoutMs);
    const std::uint64_t start = platform::tickCount64();
    if (!verifyEFIMode()) {
        WriteLog("[%s] [ERROR]: waitForEth(): EFI not started in runware mode!", tag);
        return false;
    }
    for (;;) {
        TelnetConnection connection;
        if (connection.connect(kEthConnectWaitMs)) {
            WriteLog("MORA Ethernet connection successful.");
            return true;
        }
        if (elapsedSince(start) > timeoutMs || BSS::CancelTokenC::currentCancelled()) {
            WriteLog("[%s] [ERROR]: Failed to wait for MORA's Ethernet", tag);
            return false;
        }
    }
}

bool MoraManagerC::fixEth(int timeoutMs)
{
    WriteLog("Attempting to fix MORA Ethernet, timeout: %d", timeoutMs);
    const std::uint64_t start = platform::tickCount64();
    // Without a booted board there is nothing behind the link that an adapter restart could bring back.
    if (!waitForBootUart(timeoutMs)) {
        WriteLog("[%s] [ERROR]: Failed to wait for MORA's boot (UART) while trying to fix Ethernet",
                 "MoraManagerC::fixEth");
        return false;
    }
    writeKernelLog("Restarting VANT Ethernet adapter");
    WriteLog("Executing command to restart VANT Ethernet");
    enableMoraEthernet(false);
    platform::sleepMs(kAdapterRestartPauseMs);
    enableMoraEthernet(true);
    const long long remaining = timeoutMs - elapsedSince(start);
    if (remaining > 0) return waitForEth(static_cast<int>(remaining));
    WriteLog("[%s] [ERROR]: No more time left to verify Ethernet connection (durring attempt to fix)",
             "MoraManagerC::fixEth");
    return false;
}

bool MoraManagerC::verifyEth(int verifyTimeoutMs, int fixTimeoutMs)
{
    WriteLog("Attempting to verify MORA Ethernet, timeouts: verify: %d, fix: %d", verifyTimeoutMs, fixTimeoutMs);
    if (waitForEth(verifyTimeoutMs)) {
        WriteLog("MORA Eth verification: connection OK");
        return true;
    }
    WriteLog("MORA Eth verification: connection failed, attempting to fix");
    return fixEth(fixTimeoutMs);
}

bool MoraManagerC::writeKernelLog(const std::string& text)
{
    std::string reply;
    return moraTransaction("echo VANT: " + text + " > /dev/kmsg\r\n", reply);
}

void MoraManagerC::enableMoraEthernet(bool enable)
{
    const std::string command =
        std::string(kDeviceToolFolder) + kDeviceTool + (enable ? " enable " : " disable ") + kMoraAdapterInstance;
    WriteLog("Executing command to enable/disable MORA Ethernet: %s", command.c_str());
    std::string output;
    std::uint32_t exitCode = 0;
    const bool ran = runVantCommand(command, output, exitCode, 0, "");
    if (!ran || exitCode != 0)
        WriteLog("[ERROR]: Failed to enable/disable MORA Ethernet card! (%d, %d), %s", ran ? 1 : 0,
                 static_cast<int>(exitCode), output.c_str());
}

void MoraManagerC::setEfiService(EFIServiceIPC* service)
{
    g_efiService = service;
}

}  // namespace halvern::links
