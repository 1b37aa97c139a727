#pragma once
// halvern-sim --windows: the Windows build's Halvern.exe under Wine on the simulated instrument, whose
// devices are already up. Its peers are reached the Windows way: the EFI service's named pipes and the
// stand-in programs through the loopback relay (RelayWire.h), the boards' consoles as COM3, COM4 and COM5
// on their pseudo-terminals, the sensor board's telnet on 127.0.0.1.
#include <csignal>
#include <string>
#include <vector>

namespace halvern::sim {

struct WindowsRunT {
    std::string root;
    // The Windows build: Halvern.exe, efi-service-sim.exe, halvern-standin.exe, post_close.exe, post_device_change.exe.
    std::string windowsBuild;
    // The host's halvern-standin, which runs each stand-in's logic, and the prefix script wine-instrument.
    std::string hostStandIn;
    std::string prefixScript;
    std::vector<std::string> halvernArguments;
};

// Makes or reuses the sim root's Wine prefix, runs Halvern.exe in it until it ends and answers its exit
// code (2 when it could not be started). `closeRequested` turning non-zero asks Halvern.exe to close
// through WM_CLOSE, as Ctrl-C does for the host build.
int runHalvernUnderWine(const WindowsRunT& run, const volatile std::sig_atomic_t& closeRequested);

}  // namespace halvern::sim
