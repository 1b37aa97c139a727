#include "sim/standin/WlanDeviceModel.h"

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <fstream>
#include <sstream>

#include "platform/sim/SimRoot.h"

namespace halvern::sim {

namespace {

struct DriverFolderT {
    const char* folder;  // below the sim root
    const char* infName;
    const char* driverFile;
    const char* driverVer;
};
const DriverFolderT kDriverFolders[] = {
    {"F/wlan_regular_drv", "qcwlan.inf", "qcwlan.sys", "11/02/2016,10.0.0.340"},
    {"F/wlan_test_drv", "qcwlantest.inf", "qcwlantest.sys", "03/15/2017,17.40.52.232"},
};

// What a fresh instrument's store holds: the wired adapters' package and the WLAN card's regular one.
const DriverPackageT kFreshStore[] = {
    {"oem1.inf", "e1r68x64.inf", "Intel", "Net", "04/18/2016 12.15.22.6", "PCI\\VEN_8086&DEV_1533", "e1r68x64.sys"},
    {"oem3.inf", "qcwlan.inf", "Qualcomm Atheros", "Net", "11/02/2016 10.0.0.340", "PCI\\VEN_168C&DEV_0033",
     "qcwlan.sys"},
};
constexpr const char* kFreshLoadedDrivers =
    "ntoskrnl.exe\nhal.dll\nkd.dll\nACPI.sys\npci.sys\nNDIS.SYS\ne1r68x64.sys\nvwifimp.sys\n";

std::string storePath(const std::string& root)
{
    return root + "/sim/drivers/store";
}
std::string loadedPath(const std::string& root)
{
    return root + "/sim/drivers/loaded";
}
std::string devicePath(const std::string& root)
{
    return root + "/sim/devices/wlan";
}

std::string trimmed(const std::string& text)
{
    const std::size_t first = text.find_first_not_of(" \t\r\n");
    if (first == std::string::npos) return std::string();
    return text.substr(first, text.find_last_not_of(" \t\r\n") - first + 1);
}

std::string lower(std::string text)
{
    std::transform(text.begin(), text.end(), text.begin(), [](unsigned char c) { return std::tolower(c); });
    return text;
}

// Replaces `path` in one step, so that no reader sees half of it.
bool replaceFile(const std::string& path, const std::string& content)
{
    const std::size_t slash = path.rfind('/');
    if (!platform::sim::makeDirectories(path.substr(0, slash))) return false;
    const std::string partial = path + ".new";
    {
        std::ofstream out(partial, std::ios::trunc);
        out << content;
        if (!out) return false;
    }
    return std::rename(partial.c_str(), path.c_str()) == 0;
}

std::vector<std::string> readLines(const std::string& path)
{
    std::vector<std::string> lines;
    std::ifstream in(path);
    for (std::string line; std::getline(in, line);)
        if (!trimmed(line).empty()) lines.push_back(trimmed(line));
    return lines;
}

std::string readText(const std::string& path)
{
    std::ifstream in(path);
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

std::string infText(const DriverFolderT& folder)
{
    return std::string(
               "; The instrument's WLAN driver package\n[Version]\nSignature=\"$WINDOWS NT$\"\nClass=Net\n"
               "Provider=Qualcomm Atheros\nDriverVer=") +
           folder.driverVer +
           "\n\n[Atheros.NTamd64]\nWireless Network Adapter=Install, PCI\\VEN_168C&DEV_0033\n\n"
           "[Install.CopyFiles]\n" +
           folder.driverFile + "\n";
}

std::string classDescription(const std::string& className)
{
    return className == "Net" ? "Network adapters" : className;
}

// Windows publishes a package under the lowest "oemN.inf" name not taken.
std::string freePublishedName(const std::vector<DriverPackageT>& packages)
{
    for (int number = 0;; ++number) {
        const std::string name = "oem" + std::to_string(number) + ".inf";
        if (std::none_of(packages.begin(), packages.end(),
                         [&name](const DriverPackageT& p) { return lower(p.published) == name; }))
            return name;
    }
}

const char* const kPnputilBanner = "Microsoft PnP Utility\n\n";

int pnputilUsage()
{
    std::printf("%sPnPUtil [-f | -i] [ -? | -a | -d | -e ] <INF name>\n", kPnputilBanner);
    return 1;
}

int pnputilEnumerate(const std::string& root)
{
    const std::vector<DriverPackageT> packages = readDriverStore(root);
    std::printf("%s", kPnputilBanner);
    if (packages.empty()) {
        std::printf("No published driver packages were found on the system.\n");
        return 0;
    }
    for (const auto& package : packages)
        std::printf(
            "Published name :            %s\nDriver package provider :   %s\nClass :                     %s\n"
            "Driver version and date :   %s\nSigner name :               Microsoft Windows Hardware "
            "Compatibility Publisher\n\n",
            package.published.c_str(), package.provider.c_str(), classDescription(package.className).c_str(),
            package.dateVersion.c_str());
    return 0;
}

int pnputilAdd(const std::string& root, const std::string& inf)
{
    const std::size_t slash = inf.find_last_of("\\/");
    const std::string name = slash == std::string::npos ? inf : inf.substr(slash + 1);
    std::printf("%sProcessing inf :            %s\n", kPnputilBanner, name.c_str());
    DriverPackageT added;
    if (!addDriverPackage(root, platform::sim::resolveWindowsPath(inf), added)) {
        std::printf(
            "Adding the driver package failed : The system cannot find the file specified.\n\n"
            "Total attempted:              1\nNumber successfully imported: 0\n\n");
        return 2;
    }
    std::printf(
        "Driver package added successfully.\nPublished name :            %s\n\n\n"
        "Total attempted:              1\nNumber successfully imported: 1\n\n",
        added.published.c_str());
    return 0;
}

int pnputilDelete(const std::string& root, const std::string& published)
{
    std::vector<DriverPackageT> packages = readDriverStore(root);
    const auto it = std::find_if(packages.begin(), packages.end(),
                                 [&](const DriverPackageT& p) { return lower(p.published) == lower(published); });
    std::printf("%s", kPnputilBanner);
    if (it == packages.end()) {
        std::printf("Deleting the driver package failed : Invalid INF passed as parameter.\n");
        return 2;
    }
    // A device running on the package keeps its driver until it is next installed.
    packages.erase(it);
    if (!writeDriverStore(root, packages)) {
        std::printf("Deleting the driver package failed : Access is denied.\n");
        return 5;
    }
    std::printf("Driver package deleted successfully.\n");
    return 0;
}

}  // namespace

std::vector<DriverPackageT> readDriverStore(const std::string& root)
{
    std::vector<DriverPackageT> packages;
    for (const std::string& line : readLines(storePath(root))) {
        std::vector<std::string> fields;
        std::istringstream in(line);
        for (std::string field; std::getline(in, field, '|');)
            fields.push_back(field);
        if (fields.size() != 7) continue;
        packages.push_back({fields[0], fields[1], fields[2], fields[3], fields[4], fields[5], fields[6]});
    }
    return packages;
}

bool writeDriverStore(const std::string& root, const std::vector<DriverPackageT>& packages)
{
    std::string text;
    for (const auto& p : packages)
        text += p.published + "|" + p.original + "|" + p.provider + "|" + p.className + "|" + p.dateVersion + "|" +
                p.hardwareId + "|" + p.driverFile + "\n";
    return replaceFile(storePath(root), text);
}

WlanDeviceT readWlanDevice(const std::string& root)
{
    WlanDeviceT device;
    for (const std::string& line : readLines(devicePath(root))) {
        const std::size_t equals = line.find('=');
        if (equals == std::string::npos) continue;
        const std::string key = line.substr(0, equals);
        const std::string value = line.substr(equals + 1);
        if (key == "enabled") device.enabled = value == "1";
        if (key == "package") device.package = value;
        if (key == "driver") device.driver = value;
        if (key == "test") device.test = value == "1";
    }
    return device;
}

bool writeWlanDevice(const std::string& root, const WlanDeviceT& device)
{
    const WlanDeviceT before = readWlanDevice(root);
    std::vector<std::string> loaded = readLines(loadedPath(root));
    loaded.erase(std::remove_if(loaded.begin(), loaded.end(),
                                [&](const std::string& name) {
                                    return !before.driver.empty() && lower(name) == lower(before.driver);
                                }),
                 loaded.end());
    const bool alreadyLoaded = std::any_of(
        loaded.begin(), loaded.end(), [&](const std::string& name) { return lower(name) == lower(device.driver); });
    if (device.enabled && !device.driver.empty() && !alreadyLoaded) loaded.push_back(device.driver);
    std::string names;
    for (const auto& name : loaded)
        names += name + "\n";
    const bool offersInterface = device.enabled && !device.driver.empty() && !device.test;
    return replaceFile(devicePath(root), std::string("enabled=") + (device.enabled ? "1" : "0") +
                                             "\npackage=" + device.package + "\ndriver=" + device.driver +
                                             "\ntest=" + (device.test ? "1" : "0") +
                                             "\ninterface=" + (offersInterface ? "1" : "0") + "\n") &&
           replaceFile(loadedPath(root), names);
}

bool packageFromInf(const std::string& text, const std::string& infName, DriverPackageT& package)
{
    package = DriverPackageT{};
    package.original = infName;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) {
        line = trimmed(line);
        if (line.empty() || line[0] == ';') continue;
        if (line.rfind("Provider=", 0) == 0) package.provider = line.substr(9);
        if (line.rfind("Class=", 0) == 0) package.className = line.substr(6);
        if (line.rfind("DriverVer=", 0) == 0) {
            package.dateVersion = line.substr(10);
            std::replace(package.dateVersion.begin(), package.dateVersion.end(), ',', ' ');
        }
        const std::size_t id = line.find("PCI\\VEN_");
        if (id != std::string::npos && package.hardwareId.empty())
            package.hardwareId = line.substr(id, line.find_first_of(", \t", id) - id);
        if (lower(line).size() > 4 && lower(line).compare(line.size() - 4, 4, ".sys") == 0 &&
            package.driverFile.empty())
            package.driverFile =
                line.substr(line.find_last_of("=, \t") == std::string::npos ? 0 : line.find_last_of("=, \t") + 1);
    }
    return !package.provider.empty() && !package.className.empty() && !package.dateVersion.empty() &&
           !package.hardwareId.empty() && !package.driverFile.empty();
}

bool addDriverPackage(const std::string& root, const std::string& nativePath, DriverPackageT& added)
{
    std::ifstream probe(nativePath);
    if (nativePath.empty() || !probe) return false;
    const std::size_t slash = nativePath.rfind('/');
    if (!packageFromInf(readText(nativePath), nativePath.substr(slash + 1), added)) return false;
    std::vector<DriverPackageT> packages = readDriverStore(root);
    for (const auto& package : packages) {
        if (lower(package.original) == lower(added.original) && package.dateVersion == added.dateVersion) {
            added = package;
            return true;
        }
    }
    added.published = freePublishedName(packages);
    packages.push_back(added);
    return writeDriverStore(root, packages);
}

bool provideWlanDriverLayout(const std::string& root)
{
    for (const auto& folder : kDriverFolders) {
        const std::string path = root + "/" + folder.folder;
        if (!platform::sim::makeDirectories(path)) return false;
        std::ifstream present(path + "/" + folder.infName);
        if (present) continue;
        std::ofstream(path + "/" + folder.infName) << infText(folder);
        std::ofstream driver(path + "/" + folder.driverFile);
        driver << "simulated WLAN driver " << folder.driverFile << "\n";
        if (!driver) return false;
    }
    std::ifstream present(devicePath(root));
    if (present) return true;
    WlanDeviceT device;
    device.package = "oem3.inf";
    device.driver = "qcwlan.sys";
    return writeDriverStore(root, std::vector<DriverPackageT>(std::begin(kFreshStore), std::end(kFreshStore))) &&
           replaceFile(loadedPath(root), kFreshLoadedDrivers) && writeWlanDevice(root, device);
}

int runPnputil(const std::string& root, const std::vector<std::string>& arguments)
{
    std::vector<std::string> words;
    bool force = false;
    for (const auto& argument : arguments) {
        const std::string word = lower(argument);
        if (word == "-f" || word == "/f")
            force = true;
        else
            words.push_back(argument);
    }
    if (words.empty()) return pnputilUsage();
    const std::string verb = lower(words[0]);
    if ((verb == "-e" || verb == "/e") && words.size() == 1) return pnputilEnumerate(root);
    if ((verb == "-a" || verb == "/a") && words.size() == 2) return pnputilAdd(root, words[1]);
    if ((verb == "-d" || verb == "/d") && words.size() == 2) {
        // Without -f a package that a present device uses stays.
        if (!force && lower(readWlanDevice(root).package) == lower(words[1])) {
            std::printf(
                "%sDeleting the driver package failed : One or more devices are presently installed "
                "using the specified INF.\n",
                kPnputilBanner);
            return 3;
        }
        return pnputilDelete(root, words[1]);
    }
    return pnputilUsage();
}

}  // namespace halvern::sim
