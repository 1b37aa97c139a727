#pragma once
// The command handlers of the instrument's SEP command set, grouped by the subsystem that does their work.
// Each group lives in its own source file and hands its (id, handler) pairs to the registration; together
// they answer every id of the table (the command-set fuzz target's seeds send each one and insist on a reply).
#include <cstdint>
#include <vector>

#include "sep/ChannelC.h"

class EFIServiceIPC;

namespace HalvernSepHandlers {

using HandlerFn = void (*)(SEP::ReceivedCommandC&);

struct HandlerEntryT {
    std::uint16_t id;
    HandlerFn handler;
};

// The EFI client of the system manager.
EFIServiceIPC& efiService();
// Code 1 without a failure number: the EFI service did not answer or refused.
void sendEfiFailure(SEP::ReceivedCommandC& command);
// The detail of a failed operation that runs once at a time: `busy` when it was refused because another
// client's run of it was under way (last error ERROR_BUSY), else `failed`.
const char* failureOrBusy(const char* failed, const char* busy);

// Power controller commands answered through the EFI service.
std::vector<HandlerEntryT> efiHandlers();
// API level, power cycle and shutdown state.
std::vector<HandlerEntryT> systemHandlers();
// Command lines here and on the sensor board, serial transactions, HMI and sensor board checks.
std::vector<HandlerEntryT> linkHandlers();
// The network adapters' settings: WLAN country and channel, interface addresses.
std::vector<HandlerEntryT> networkHandlers();
// The WLAN access point's configuration and its channel selection.
std::vector<HandlerEntryT> wlanHandlers();
// The I2C real-time clock and the Windows time information.
std::vector<HandlerEntryT> timeHandlers();
// The firmware update.
std::vector<HandlerEntryT> updateHandlers();
// The device modes and the production features.
std::vector<HandlerEntryT> modeHandlers();
// Board data, fixed strings, the Windows release, hardware components and the calibration erase.
std::vector<HandlerEntryT> infoHandlers();
// The USB devices, their reset and the USB stick's format.
std::vector<HandlerEntryT> usbHandlers();

}  // namespace HalvernSepHandlers
