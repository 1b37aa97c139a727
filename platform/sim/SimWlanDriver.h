#pragma once
// The WLAN driver's device on the simulated instrument, kept in the sim root for Halvern, halvern-sim and
// tests:
//
//   sim/dosdevices              the DOS device names, one "NAME=TARGET" a line (a name may repeat, one
//                               line per target)
//   sim/devices/wlan-channels   the channels the driver offers, one "CHANNEL WIDTHFLAGS DFS MARKED" a line
//                               (width flags 1 HT20, 2 HT40+, 4 HT40-; DFS and MARKED 0 or 1)
//   sim/devices/wlan-ready-at   when the module last switched on is up, in milliseconds of the machine's
//                               monotonic clock (written by the IO expander's model; absent: long since)
//
// The driver device is there while the card is powered and runs a driver that offers an interface; it
// answers the channel-list request from the channels file as it is at the moment of the request.
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace platform::sim {

// The card's driver device on a fresh instrument: its DOS name and the target naming the card.
constexpr const char* kWlanDriverDeviceName = "AthrWlan0";
constexpr const char* kWlanDriverDeviceTarget =
    "\\Device\\PCI#VEN_168C&DEV_0033&SUBSYS_3112168C&REV_01#4&2e3f4a5b&0&00E3";

struct SimDriverChannelS {
    std::uint32_t channel = 0;
    std::uint32_t widthFlags = 0;
    bool dfs = false;
    bool marked = false;
};

std::vector<std::pair<std::string, std::string>> readDosDevices(const std::string& root);
bool writeDosDevices(const std::string& root, const std::vector<std::pair<std::string, std::string>>& devices);

std::vector<SimDriverChannelS> readDriverChannels(const std::string& root);
bool writeDriverChannels(const std::string& root, const std::vector<SimDriverChannelS>& channels);

// The DOS device names and the driver's channels of a fresh instrument (set up for Switzerland): 2.4 GHz
// channels 1 to 13, 5 GHz channels 36 to 48 without and 52 to 140 with radar detection.
bool provideWlanDriverDevice(const std::string& root);

// The monotonic clock that halvern-sim's devices and Halvern share (CLOCK_MONOTONIC), in milliseconds.
std::uint64_t monotonicMs();
std::string wlanReadyAtPath(const std::string& root);
bool writeWlanReadyAt(const std::string& root, std::uint64_t monotonicMs);
// True once the powered module has come up: its interface and driver device only then appear.
bool wlanModuleUp(const std::string& root);

}  // namespace platform::sim
