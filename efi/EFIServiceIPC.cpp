#include "efi/EFIServiceIPC.h"

#include <algorithm>
#include <cstring>
#include <cwchar>
#include <mutex>
#include <new>

#include "app/Log.h"
#include "framework/WindowMessages.h"
#include "platform/Clock.h"
#include "platform/NamedPipe.h"
#include "platform/Sync.h"
#include "platform/Text.h"
#include "platform/Thread.h"
#include "platform/WinError.h"

const wchar_t* const kEFICommandPipeName = L"\\\\.\\pipe\\EFIServiceIPC";
const wchar_t* const kEFINotificationPipeName = L"\\\\.\\pipe\\EFIServiceNotify";

namespace {

constexpr std::uint32_t kPipeBusyWaitMs = 20000;
constexpr std::uint32_t kNotificationBytes = EFIServiceIPC::kNotificationChars * sizeof(char16_t);
constexpr std::uint32_t kBrokenPipeRetryMs = 100;
constexpr std::uint32_t kThreadEndWaitMs = 5000;
constexpr int kThreadEndWaits = 3;

}  // namespace

EFIServiceIPC::~EFIServiceIPC()
{
    if (m_commandPipe) ShutdownEFICommunication();
}

platform::UniqueHandle EFIServiceIPC::OpenEFINamedPipe(const std::wstring& name)
{
    static const char* const kFunction = "EFIServiceIPC::OpenEFINamedPipe";
    platform::UniqueHandle pipe = platform::openPipe(name);
    while (!pipe) {
        const std::uint32_t error = platform::lastError();
        if (error != platform::kErrorPipeBusy) {
            WriteLog("[%s] [ERROR]: Could not open pipe. GLE=%d", kFunction, static_cast<int>(error));
            return platform::UniqueHandle();
        }
        if (!platform::waitNamedPipe(name, kPipeBusyWaitMs)) {
            WriteLog("[%s] [ERROR]: Could not open pipe: 20 second wait timed out", kFunction);
            return platform::UniqueHandle();
        }
        pipe = platform::openPipe(name);
    }
    if (!platform::setPipeMessageReadMode(pipe.get())) {
        WriteLog("[%s] [ERROR]: SetNamedPipeHandleState failed. GLE=%d", kFunction,
                 static_cast<int>(platform::lastError()));
        return platform::UniqueHandle();
    }
    return pipe;
}

bool EFIServiceIPC::InitializeEFICommunication()
{
    static const char* const kFunction = "EFIServiceIPC::InitializeEFICommunication";
    m_commandPipe = OpenEFINamedPipe(kEFICommandPipeName);
    if (!m_commandPipe) {
        WriteLog("[%s] [ERROR]: Cannot open EFI Main Communication pipe!", kFunction);
        return false;
    }
    m_notificationPipe = OpenEFINamedPipe(kEFINotificationPipeName);
    if (!m_notificationPipe) {
        WriteLog("[%s] [ERROR]: Cannot open EFI Auxiliary Notification pipe!", kFunction);
        m_commandPipe.reset();
        return false;
    }
    ++m_runCounter;
    m_notificationThread = platform::createThread([this] { NotificationThread(); });
    if (!m_notificationThread) {
        WriteLog("[%s] [ERROR]: Notification thread is not instantiated, no EFI Notifications would be delivered!",
                 kFunction);
        return false;
    }
    return true;
}

void EFIServiceIPC::ShutdownEFICommunication()
{
    static const char* const kFunction = "EFIServiceIPC::ShutdownEFICommunication";
    if (!m_commandPipe) {
        WriteLog("[%s] Tried to deinitialize, but not initialized", kFunction);
        return;
    }
    ExecuteBasicCommand(EFI_BASIC_CLOSE, false);
    if (m_notificationThread) {
        --m_runCounter;
        // The reader may sit in a read that only the service could end; cancelling it lets the thread see
        // the cleared counter. Cancelled again before every wait, since a read it had not yet begun at the
        // first cancel would block anew.
        for (int wait = 0; wait < kThreadEndWaits; ++wait) {
            if (m_notificationPipe) platform::cancelPipeIo(m_notificationPipe.get());
            if (platform::waitForSingleObject(m_notificationThread.get(), kThreadEndWaitMs) != platform::kWaitTimeout)
                break;
        }
        if (platform::waitForSingleObject(m_notificationThread.get(), 0) == platform::kWaitTimeout) {
            WriteLog("[%s] [ERROR]: Notification Thread is still running, calling TerminateThread [H:0x%X]", kFunction,
                     logValue(m_notificationThread));
            platform::terminateThread(m_notificationThread.get(), 0);
        }
        m_notificationThread.reset();
    }
    m_commandPipe.reset();
    m_notificationPipe.reset();
}

bool EFIServiceIPC::ExecuteCommandTransaction(EFIServiceIPCMessageI& message)
{
    if (message.GetRequest() == nullptr || message.GetReplyBuffer() == nullptr || message.GetReplySize() == 0 ||
        !m_commandPipe)
        return false;
    std::uint32_t bytesRead = 0;
    // One transaction at a time on the command pipe: the SEP connections' command threads and the main
    // thread share it, and the replies must not cross.
    static std::mutex transactions;
    std::unique_lock<std::mutex> transaction(transactions);
    if (!platform::transactPipe(m_commandPipe.get(), message.GetRequest(), message.GetRequestBytes(),
                                message.GetReplyBuffer(), message.GetReplySize(), bytesRead)) {
        const int error = static_cast<int>(platform::lastError());
        transaction.unlock();
        WriteLog("[%s] [ERROR]: WriteFile to pipe failed. GLE=%d", "EFIServiceIPC::ExecuteCommandTransaction", error);
        return false;
    }
    transaction.unlock();
    return message.ParseReply();
}

bool EFIServiceIPC::ReadResponseFromEFI(char16_t* buffer)
{
    static const char* const kFunction = "EFIServiceIPC::ReadResponseFromEFI";
    auto* bytes = reinterpret_cast<unsigned char*>(buffer);
    std::memset(bytes, 0, kNotificationBytes);
    std::uint32_t received = 0;
    bool ok = platform::readPipe(m_notificationPipe.get(), bytes, kNotificationBytes, received);
    // The rest of a long notification goes to twice the byte count received so far: the service's
    // notifications are short, and its readers have always stored them this way. The length is bounded
    // so that the doubled offset can never write past the buffer.
    while (!ok && platform::lastError() == platform::kErrorMoreData && received < kNotificationBytes &&
           2 * received < kNotificationBytes) {
        std::uint32_t more = 0;
        const std::uint32_t room = kNotificationBytes - 2 * received;
        ok = platform::readPipe(m_notificationPipe.get(), bytes + 2 * received,
                                std::min(kNotificationBytes - received, room), more);
        received += more;
    }
    if (!ok) {
        const std::uint32_t error = platform::lastError();
        if (error == platform::kErrorPipeNotConnected) {
            WriteLog("[%s] [WARN]: Notification pipe has been disconnected from Service side", kFunction);
            return false;
        }
        if (error == platform::kErrorBrokenPipe) {
            WriteLog("[%s] [WARN]: Notification pipe has been broken", kFunction);
            platform::sleepMs(kBrokenPipeRetryMs);
            return false;
        }
    }
    buffer[kNotificationChars - 1] = u'\0';
    const std::wstring text = halvern::efi::fromWire(buffer, kNotificationChars);
    WriteLog("[%s]: ReadResponseFromEFI [%s]", kFunction, platform::narrow(text).value_or("").c_str());
    return ok;
}

void EFIServiceIPC::NotificationThread()
{
    std::unique_ptr<char16_t[]> buffer(new (std::nothrow) char16_t[kNotificationChars]);
    if (!buffer) return;
    for (;;) {
        std::int32_t stopped = 0;
        if (m_runCounter.compare_exchange_strong(stopped, 0)) break;
        if (ReadResponseFromEFI(buffer.get())) DispatchNotification(buffer.get());
    }
}

void EFIServiceIPC::DispatchNotification(const char16_t* text)
{
    const platform::WindowHandle window{m_targetWindow.load()};
    if (!window) return;
    const std::wstring notification = halvern::efi::fromWire(text, kNotificationChars);
    const platform::WParam category = (!notification.empty() && notification[0] == L'!') ? 0 : 1;
    // Base 15 is what the service's codes have always been read in; "15" is twenty here.
    const std::wstring code = notification.size() > 1 ? notification.substr(1) : std::wstring();
    const auto number = static_cast<platform::LParam>(std::wcstoul(code.c_str(), nullptr, 15));
    platform::postMessage(window, WM_EFI_NOTIFICATION, category, number);
}

template <typename Message>
std::shared_ptr<Message> EFIServiceIPC::Execute(std::shared_ptr<Message> message, bool wantReply, const char* function,
                                                const char* failureFormat)
{
    if (!ExecuteCommandTransaction(*message)) {
        WriteLog(failureFormat, function, message->GetRequestText().c_str(), message->GetReplyText().c_str());
        return nullptr;
    }
    return wantReply ? message : nullptr;
}

std::shared_ptr<EFIServiceIPCBasicCommand> EFIServiceIPC::ExecuteBasicCommand(int commandId, bool wantReply)
{
    return Execute(std::make_shared<EFIServiceIPCBasicCommand>(commandId), wantReply,
                   "EFIServiceIPC::ExecuteBasicCommand",
                   "[%s] [ERROR]: Failed to execute BASIC command: %S, Reply: %S!");
}

std::shared_ptr<EFIServiceIPCLEDCommand> EFIServiceIPC::ExecuteLEDCommand(int red, int green, int blue, bool wantReply)
{
    return Execute(std::make_shared<EFIServiceIPCLEDCommand>(red, green, blue), wantReply,
                   "EFIServiceIPC::ExecuteLEDCommand", "[%s] [ERROR]: Failed to execute LED command: %S, Reply: %S!");
}

std::shared_ptr<EFIServiceIPCBatteryCommand> EFIServiceIPC::ExecuteBatteryCommand(int batteryId, int itemId,
                                                                                  bool wantReply)
{
    return Execute(std::make_shared<EFIServiceIPCBatteryCommand>(batteryId, itemId), wantReply,
                   "EFIServiceIPC::ExecuteBatteryCommand",
                   "[%s] [ERROR]: Failed to execute BATTERY command: %S, Reply: %S!");
}

std::shared_ptr<EFIServiceIPCExtSupplyCommand> EFIServiceIPC::ExecuteExtSupplyCommand(int itemId, bool wantReply)
{
    return Execute(std::make_shared<EFIServiceIPCExtSupplyCommand>(itemId), wantReply,
                   "EFIServiceIPC::ExecuteExtSupplyCommand",
                   "[%s] [ERROR]: Failed to execute EXTSUPPLY command: %S, Reply: %S!");
}

std::shared_ptr<EFIServiceIPCStatusControlCommand> EFIServiceIPC::ExecuteStatusControlCommand(int itemId, int access,
                                                                                              std::int32_t value,
                                                                                              bool wantReply)
{
    return Execute(std::make_shared<EFIServiceIPCStatusControlCommand>(itemId, access, value), wantReply,
                   "EFIServiceIPC::ExecuteStatusControlCommand",
                   "[%s] [ERROR]: Failed to execute STATUS/CONTROL command: %S, Reply: %S!");
}
