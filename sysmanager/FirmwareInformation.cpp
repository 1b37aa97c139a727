// What the updater tells about the installed firmware and about an image it would install.
#include <cstdlib>
#include <sstream>
#include <vector>

#include "app/Log.h"
#include "platform/FileSystem.h"
#include "platform/Text.h"
#include "sysmanager/FirmwareUpdateC.h"

namespace {

const char* const kImageConfig = "C:\\vexarBatches\\FirmwareUpdater\\IMG_CONFIG";
constexpr std::size_t kObjectFields = 7;
constexpr std::size_t kDescriptionLimit = 1 << 20;
// An image's header is its first line; the rest of the image is not read.
constexpr std::size_t kImageHeaderLimit = 4096;

bool parseNumber(const std::string& text, std::uint64_t limit, std::uint64_t& value)
{
    if (text.empty() || text.find_first_not_of("0123456789") != std::string::npos || text.size() > 10) return false;
    value = std::strtoull(text.c_str(), nullptr, 10);
    return value <= limit;
}

// "ID;NAME;MAJOR;MINOR;BUILD;SIZE;TYPE".
bool parseObject(std::string line, FwObjectInfoT& info)
{
    if (!line.empty() && line.back() == '\r') line.pop_back();
    std::vector<std::string> fields;
    std::istringstream in(line);
    for (std::string field; std::getline(in, field, ';');)
        fields.push_back(field);
    std::uint64_t id = 0, major = 0, minor = 0, build = 0, size = 0, type = 0;
    if (fields.size() != kObjectFields || !parseNumber(fields[0], 0xFFFFFFFFu, id) ||
        !parseNumber(fields[2], 0xFFFF, major) || !parseNumber(fields[3], 0xFFFF, minor) ||
        !parseNumber(fields[4], 0xFFFFFFFFu, build) || !parseNumber(fields[5], 0xFFFFFFFFu, size) ||
        !parseNumber(fields[6], 0xFFFF, type))
        return false;
    info.objectId = static_cast<std::uint32_t>(id);
    info.name = fields[1];
    info.versionMajor = static_cast<std::uint16_t>(major);
    info.versionMinor = static_cast<std::uint16_t>(minor);
    info.build = static_cast<std::uint32_t>(build);
    info.sizeBytes = static_cast<std::uint32_t>(size);
    info.type = static_cast<std::uint16_t>(type);
    return true;
}

// The lines in the first `limit` bytes of a file, or false when it cannot be opened.
bool readLines(const std::string& windowsPath, std::size_t limit, std::vector<std::string>& lines)
{
    int error = 0;
    const platform::UniqueFile file = platform::openFile(windowsPath, "rb", error);
    if (!file) return false;
    std::string content;
    char buffer[4096];
    for (std::size_t n = 0; content.size() < limit && (n = std::fread(buffer, 1, sizeof buffer, file.get())) > 0;)
        content.append(buffer, n);
    std::istringstream in(content);
    for (std::string line; std::getline(in, line);)
        lines.push_back(line);
    return true;
}

}  // namespace

bool FirmwareUpdateC::GetFirmwareObjectInfo(std::uint32_t objectId, FwObjectInfoT& info)
{
    const char* const tag = "SysManagerC::GetFirmwareObjectInfo";
    std::vector<std::string> lines;
    if (!readLines(kImageConfig, kDescriptionLimit, lines)) {
        WriteLog("[%s] [ERROR]: Cannot read the firmware description %s", tag, kImageConfig);
        return false;
    }
    for (const auto& line : lines) {
        FwObjectInfoT object;
        if (parseObject(line, object) && object.objectId == objectId) {
            info = object;
            return true;
        }
    }
    WriteLog("[%s] [ERROR]: No firmware object %u in %s", tag, objectId, kImageConfig);
    return false;
}

bool FirmwareUpdateC::GetFirmwareUpdateInfo(const std::wstring& imagePath, FwUpdateInfoT& info)
{
    const char* const tag = "SysManagerC::GetFirmwareUpdateInfo";
    FwObjectInfoT installed;
    if (!GetFirmwareObjectInfo(0, installed)) return false;
    std::wstring path = imagePath;
    if (path.empty()) path = readFwUpdateState() && isFwUpdatePending() ? GetPendingUpdateImage() : kInternalImage;
    const std::string narrowPath = platform::narrow(path).value_or(std::string());
    std::vector<std::string> lines;
    if (narrowPath.empty() || !readLines(narrowPath, kImageHeaderLimit, lines)) {
        WriteLog("[%s] [ERROR]: Cannot read the firmware image %ls", tag, path.c_str());
        return false;
    }
    if (lines.empty() || !parseObject(lines.front(), info.image) || info.image.objectId != 0) {
        WriteLog("[%s] [ERROR]: The firmware image %ls has no valid header", tag, path.c_str());
        return false;
    }
    info.installedName = installed.name;
    info.imagePath = narrowPath;
    return true;
}
