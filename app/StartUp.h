#pragma once
// The start-up sequence: single instance, banner, hardware, update checks, command server, hardware
// check, network, WLAN, main window, applications, and then the message loop until shutdown.
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "platform/Handle.h"

namespace halvern {

// Runs Halvern from start to exit and answers the process exit code. `arguments` is the split command
// line, program name first.
int wWinMain(const std::vector<std::wstring>& arguments);

// Creates "Global\HALVERNBASICWIN" owned; false when another Halvern holds it. The mutex handle is kept in
// `mutex` for the process's life.
bool IsSingleInstance(platform::UniqueHandle& mutex);

std::vector<std::string> BannerLines();
void LogBanner();

// True unless one argument is exactly "-noupdate".
bool UpdatesEnabled(const std::vector<std::wstring>& arguments);

struct StartUpSettings {
    std::uint32_t backendToFrontendDelay = 1000;
    bool allowMxApplicationStartup = true;
    std::optional<std::uint32_t> efiServiceIpcConnectionDelay;
};
// Reads the optional values of "SOFTWARE\Vexar\Halvern" (per user), in their order; the connection delay,
// when set, is logged and waited here.
StartUpSettings ReadStartUpSettings();

}  // namespace halvern
