#include "client/CommandTable.h"

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <cstring>

#include "sep/server/HalvernSepImpl.h"
#include "sep/server/HalvernSepRecords.h"

namespace SEP {
namespace {

namespace REC = Varda::SEP::HALVERN;

// The read specs of a record's fields, in wire order.
class ReadSpecVisitorC : public MAL::UTI::FieldVisitorI {
public:
    bool field(bool&) override { return add("bool"); }
    bool field(std::uint16_t&) override { return add("u16"); }
    bool field(std::uint32_t&) override { return add("u32"); }
    bool field(std::int8_t&) override { return add("i8"); }
    bool field(std::int32_t&) override { return add("i32"); }
    bool bytes(std::uint8_t*, std::size_t length) override { return add("bytes:" + std::to_string(length)); }
    bool string(char*, std::size_t) override { return add("str"); }
    std::vector<std::string> specs;

private:
    bool add(std::string spec)
    {
        specs.push_back(std::move(spec));
        return true;
    }
};

struct NoRecordT {};

template <typename Reply>
std::vector<std::string> replyOf()
{
    if constexpr (std::is_same_v<Reply, NoRecordT>) {
        return {};
    } else {
        Reply record;
        ReadSpecVisitorC visitor;
        record.visit(visitor);
        return visitor.specs;
    }
}

template <typename Reply = NoRecordT>
CommandInfoT entry(std::uint16_t id, const char* subcommand)
{
    const std::string serverName = HalvernSepImpl::CommandName(id);
    return {id, serverName == "UKNOWN SEP CMD" ? std::string() : serverName, subcommand, replyOf<Reply>()};
}

bool sameIgnoringCase(const std::string& a, const std::string& b)
{
    return a.size() == b.size() && std::equal(a.begin(), a.end(), b.begin(), [](char x, char y) {
               return std::toupper(static_cast<unsigned char>(x)) == std::toupper(static_cast<unsigned char>(y));
           });
}

}  // namespace

const std::vector<CommandInfoT>& commandTable()
{
    static const std::vector<CommandInfoT> table = {
        entry<REC::ApiLvl>(1001, "api-level"),
        entry(1002, "wlan set"),
        entry<REC::WlanCfg>(1003, "wlan get"),
        entry<REC::EfiBatStatus>(1004, "battery"),
        entry<REC::EfiExtSup>(1005, "ext-supply"),
        entry(1006, "power-select set"),
        entry<REC::EfiPwrSelect>(1007, "power-select get"),
        entry(1008, "power-off --legacy"),
        entry<REC::EfiPwrSrc>(1009, "power-source"),
        entry<REC::GetBoardContent>(1010, "board-content"),
        entry(1011, "update --legacy"),
        entry(1012, "erase-calibration"),
        entry(1013, "touch-calibration"),
        entry(1014, "production-features set"),
        entry<REC::EnaProdFeat>(1015, "production-features get"),
        entry(1016, "country set"),
        entry<REC::CtryCode>(1017, "country get"),
        entry<REC::TimeSpec>(1018, "rtc get"),
        entry(1019, "rtc set"),
        entry<REC::InstrumentNameCfg>(1020, "name get"),
        entry(1021, "name set"),
        entry(1022, "autorun set"),
        entry<REC::EfiAutoRun>(1023, "autorun get"),
        entry(1024, "wlan-driver"),
        entry<REC::ExeCmdReply>(1025, "exec"),
        entry(1026, "wlan-power"),
        entry(1027, "power-off"),
        entry(1028, "show-desktop"),
        entry<REC::GetString>(1029, "string"),
        entry<REC::EfiSrvcCmd>(1030, "efi"),
        entry<REC::CurDevModeInfo>(1031, "production-mode"),
        entry<REC::CurDevModeInfo>(1032, "service-mode"),
        entry<REC::FwUpdateInfo>(1033, "update-info"),
        entry<REC::FwUpdateInfo>(1034, "update-info FILE"),
        entry(1035, "update"),
        entry<REC::UartTransCmd>(1036, "uart"),
        entry<REC::UsbDeviceCountInfo>(1037, "usb count"),
        entry<REC::UsbDeviceInfo>(1038, "usb at"),
        entry(1039, "usb reset"),
        entry<REC::CurFWinfo>(1040, "firmware"),
        entry<REC::CurFWinfo>(1041, "firmware --object"),
        entry(1042, "voltage-calibration"),
        entry<REC::CurScreenAppExecInfo>(1043, "touch-calibration-result"),
        entry<REC::CurScreenAppExecInfo>(1044, "voltage-calibration-result"),
        entry<REC::TestCmd>(1046, "test"),
        entry<REC::NetIntfceInfo>(1047, "net-info"),
        entry<REC::WlanChannel>(1048, "channel get"),
        entry(1049, "channel set"),
        entry<REC::WindowsOsInfo>(1050, "os-info"),
        entry<REC::CurHwComponInfo>(1051, "hw-component"),
        entry(1052, "led"),
        entry<REC::WindowsOsTimeInfo>(1053, "time get"),
        entry(1054, "time set"),
        entry(1055, "shutdown-state"),
        entry<REC::CriticalHwStatusInfo>(1056, "hw-status"),
        entry(1057, "channel-selection"),
        entry(1058, "format-usb"),
        entry<REC::EfiBatteryType>(1059, "battery-type"),
        entry<REC::EfiBatteryTypeOffset>(1060, "battery-offset get --which 1"),
        entry(1061, "battery-offset set --which 1"),
        entry<REC::EfiBatteryTypeOffset>(1062, "battery-offset get --which 2"),
        entry(1063, "battery-offset set --which 2"),
        entry(1064, "wlan set --extension"),
        entry<REC::WlanCfgExt>(1065, "wlan get --ext"),
    };
    return table;
}

const CommandInfoT* findCommand(const std::string& nameOrId)
{
    for (const auto& command : commandTable())
        if (std::to_string(command.id) == nameOrId || command.subcommand == nameOrId ||
            (!command.serverName.empty() && sameIgnoringCase(command.serverName, nameOrId)))
            return &command;
    return nullptr;
}

bool resolveCommandId(const std::string& nameOrId, std::uint16_t& id)
{
    if (const CommandInfoT* command = findCommand(nameOrId)) {
        id = command->id;
        return true;
    }
    if (nameOrId.empty() || nameOrId.size() > 5 || nameOrId.find_first_not_of("0123456789") != std::string::npos)
        return false;
    const unsigned long value = std::strtoul(nameOrId.c_str(), nullptr, 10);
    if (value > 65535) return false;
    id = static_cast<std::uint16_t>(value);
    return true;
}

std::string commandLabel(const CommandInfoT& command)
{
    return command.serverName.empty() ? command.subcommand : command.serverName;
}

}  // namespace SEP
