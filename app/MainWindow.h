#pragma once
// The hidden main window: the main thread's event hub and the shutdown state machine that lets the
// instrument application finish before the power sequence runs.
#include <cstdint>
#include <string>

#include "framework/WindowMessages.h"
#include "platform/Window.h"

enum class AppShutdownRequestState : std::int32_t {
    WAIT_SHUTDOWN_CALL = 0,
    SHUTDOWN_NOT_STARTED = 1,
    SHUTDOWN_STARTED = 2,
};

constexpr std::uintptr_t SHUTDOWN_TIMER1 = 1;
constexpr std::uint32_t kShutdownTimerPeriodMs = 1000;

namespace halvern {

// Registers the main window class (its name is resource string 109).
bool MyRegisterClass(const std::wstring& windowClass);
// Creates the hidden main window; a null handle on failure.
platform::WindowHandle InitInstance(const std::wstring& title, const std::wstring& windowClass);
// Registers the window for arrival and removal of every USB device, not only of volumes; logged when it fails.
// The window hears them for as long as the owner lives.
platform::UniqueDeviceNotification RegisterUsbDeviceNotification(platform::WindowHandle window);

platform::LResult WndProc(platform::WindowHandle window, std::uint32_t message, platform::WParam wParam,
                          platform::LParam lParam);

AppShutdownRequestState GetAppShutdownRequestState();
int GetShutdownCounter();

}  // namespace halvern
