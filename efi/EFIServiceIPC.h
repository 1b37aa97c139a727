#pragma once
// The client of the EFI service, which fronts the power, LED and battery microcontroller: one named pipe
// for request/reply commands, one on which the service pushes notifications. A thread of its own reads
// the notifications and posts each one to the main window as WM_EFI_NOTIFICATION.
#include <atomic>
#include <cstdint>
#include <memory>
#include <string>

#include "efi/EFIServiceIPCBasicCommand.h"
#include "efi/EFIServiceIPCBatteryCommand.h"
#include "efi/EFIServiceIPCExtSupplyCommand.h"
#include "efi/EFIServiceIPCLEDCommand.h"
#include "efi/EFIServiceIPCStatusControlCommand.h"
#include "platform/Handle.h"
#include "platform/Window.h"

extern const wchar_t* const kEFICommandPipeName;
extern const wchar_t* const kEFINotificationPipeName;

class EFIServiceIPC {
public:
    // Notifications are read in buffers of this many wide characters.
    static constexpr std::uint32_t kNotificationChars = 32768;

    EFIServiceIPC() = default;
    // Shuts the link down if it is still open: the thread must not outlive the object it reads for.
    ~EFIServiceIPC();
    EFIServiceIPC(const EFIServiceIPC&) = delete;
    EFIServiceIPC& operator=(const EFIServiceIPC&) = delete;

    bool InitializeEFICommunication();
    void ShutdownEFICommunication();

    static platform::UniqueHandle OpenEFINamedPipe(const std::wstring& name);
    bool ExecuteCommandTransaction(EFIServiceIPCMessageI& message);
    // Reads one notification into `buffer` (kNotificationChars wide characters).
    bool ReadResponseFromEFI(char16_t* buffer);

    // Each answers the message when `wantReply` is set and the command succeeded, else an empty pointer.
    std::shared_ptr<EFIServiceIPCBasicCommand> ExecuteBasicCommand(int commandId, bool wantReply);
    std::shared_ptr<EFIServiceIPCLEDCommand> ExecuteLEDCommand(int red, int green, int blue, bool wantReply);
    std::shared_ptr<EFIServiceIPCBatteryCommand> ExecuteBatteryCommand(int batteryId, int itemId, bool wantReply);
    std::shared_ptr<EFIServiceIPCExtSupplyCommand> ExecuteExtSupplyCommand(int itemId, bool wantReply);
    std::shared_ptr<EFIServiceIPCStatusControlCommand> ExecuteStatusControlCommand(int itemId, int access,
                                                                                   std::int32_t value, bool wantReply);

    // The main window, once it exists; notifications read before that are dropped.
    void SetTargetWindow(platform::WindowHandle window) { m_targetWindow.store(window.value); }

private:
    void NotificationThread();
    void DispatchNotification(const char16_t* text);
    template <typename Message>
    std::shared_ptr<Message> Execute(std::shared_ptr<Message> message, bool wantReply, const char* function,
                                     const char* failureFormat);

    platform::UniqueHandle m_notificationThread;
    std::atomic<std::int32_t> m_runCounter{0};
    platform::UniqueHandle m_commandPipe;
    platform::UniqueHandle m_notificationPipe;
    std::atomic<void*> m_targetWindow{nullptr};
};
