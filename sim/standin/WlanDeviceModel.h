#pragma once
// The computer module's WLAN card as the device tool and driver store stand-ins see and change it, kept in
// the sim root:
//
//   sim/drivers/store    the driver store's third-party packages, one a line, fields joined by "|":
//                        published name, original .inf name, provider, class, "date version", hardware
//                        id, driver file
//   sim/drivers/loaded   the kernel's loaded drivers, one base name a line (read by EnumDeviceDrivers)
//   sim/devices/wlan     the card: "enabled=0|1", "package=" (the published package it runs on),
//                        "driver=" (its driver file), "test=0|1" and "interface=0|1" (whether the WLAN
//                        client sees an interface: enabled on a driver other than the test driver)
//
// A fresh instrument runs the regular driver from the store, next to the wired adapters' package of
// another vendor; its USB drive F: carries the regular and the test driver folders.
#include <string>
#include <vector>

namespace halvern::sim {

// The card's device instance and the test driver's "date version", by which a package is the test one.
constexpr const char* kWlanDeviceInstance = "PCI\\VEN_168C&DEV_0033&SUBSYS_3112168C&REV_01\\4&2E3F4A5B&0&00E3";
constexpr const char* kTestDriverDateVersion = "03/15/2017 17.40.52.232";

struct DriverPackageT {
    std::string published;  // "oem3.inf"
    std::string original;   // the .inf file's own name
    std::string provider;
    std::string className;
    std::string dateVersion;
    std::string hardwareId;
    std::string driverFile;
};

struct WlanDeviceT {
    bool enabled = true;
    std::string package;
    std::string driver;
    bool test = false;
};

std::vector<DriverPackageT> readDriverStore(const std::string& root);
bool writeDriverStore(const std::string& root, const std::vector<DriverPackageT>& packages);
WlanDeviceT readWlanDevice(const std::string& root);
// Writes the card's record and loads its driver in place of the one it ran before.
bool writeWlanDevice(const std::string& root, const WlanDeviceT& device);

// A package from its .inf text ("Provider=", "Class=", "DriverVer=date,version", the first "PCI\VEN_"
// hardware id and the first ".sys" file it names); false when the text lacks one of them.
bool packageFromInf(const std::string& infText, const std::string& infName, DriverPackageT& package);
// Adds the .inf file at `nativePath` to the store (a package already there keeps its published name).
bool addDriverPackage(const std::string& root, const std::string& nativePath, DriverPackageT& added);

// The driver store, the loaded drivers, the card and the driver folders on F: of a fresh instrument.
bool provideWlanDriverLayout(const std::string& root);

// "pnputil.exe" with its arguments: -e, -a INF, -f -d PUBLISHED (or -d PUBLISHED); its exit code.
int runPnputil(const std::string& root, const std::vector<std::string>& arguments);

}  // namespace halvern::sim
