#include "client/CommandTable.h"

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <cstring>

#include "sep/CommandSet.h"
#include "sep/HalvernSepRecords.h"

namespace SEP {
namespace {

namespace REC = Varda::SEP::HALVERN;

// The read specs of a record's values, in wire order, with the name of each: the declared field's name,
// and its element number for the values of an array field ("texts[2]").
class ReadSpecVisitorC : public MAL::UTI::FieldVisitorI {
public:
    explicit ReadSpecVisitorC(const char* fieldNames)
    {
        std::string names = fieldNames;
        for (std::size_t start = 0; start < names.size();) {
            std::size_t end = names.find(',', start);
            if (end == std::string::npos) end = names.size();
            std::string name = names.substr(start, end - start);
            name.erase(0, name.find_first_not_of(' '));
            name.erase(name.find_last_not_of(' ') + 1);
            m_declared.push_back(name);
            start = end + 1;
        }
    }
    bool field(bool&) override { return add("bool"); }
    bool field(std::uint16_t&) override { return add("u16"); }
    bool field(std::uint32_t&) override { return add("u32"); }
    bool field(std::int8_t&) override { return add("i8"); }
    bool field(std::int32_t&) override { return add("i32"); }
    bool bytes(std::uint8_t*, std::size_t length) override { return add("bytes:" + std::to_string(length)); }
    bool string(char*, std::size_t) override { return add("str"); }
    void beginField(std::size_t index) override
    {
        m_field = index;
        m_element = 0;
    }

    // Values of array fields are numbered from 1; a field with one value keeps its plain name.
    std::vector<std::string> names() const
    {
        std::vector<std::string> named;
        for (std::size_t i = 0; i < specs.size(); ++i) {
            const std::string& base = m_owner[i] < m_declared.size() ? m_declared[m_owner[i]] : "value";
            const bool array = std::count(m_owner.begin(), m_owner.end(), m_owner[i]) > 1;
            named.push_back(array ? base + "[" + std::to_string(m_number[i]) + "]" : base);
        }
        return named;
    }
    std::vector<std::string> specs;

private:
    bool add(std::string spec)
    {
        specs.push_back(std::move(spec));
        m_owner.push_back(m_field);
        m_number.push_back(++m_element);
        return true;
    }
    std::vector<std::string> m_declared;
    std::vector<std::size_t> m_owner;
    std::vector<std::size_t> m_number;
    std::size_t m_field = 0;
    std::size_t m_element = 0;
};

struct NoRecordT {};

// The read specs and value names of a record type; none for a command without that record.
template <typename Record>
void layoutOf(std::vector<std::string>& specs, std::vector<std::string>& names)
{
    if constexpr (!std::is_same_v<Record, NoRecordT>) {
        Record record;
        ReadSpecVisitorC visitor(record.fieldNames());
        record.visit(visitor);
        specs = visitor.specs;
        names = visitor.names();
    }
}

template <typename Reply = NoRecordT, typename Request = NoRecordT>
CommandInfoT entry(std::uint16_t id, const char* subcommand)
{
    const std::string serverName = HalvernRpc::commandName(id);
    CommandInfoT info{id, serverName == "UKNOWN SEP CMD" ? std::string() : serverName, subcommand, {}, {}, {}, {}};
    layoutOf<Reply>(info.replyFields, info.replyNames);
    layoutOf<Request>(info.requestFields, info.requestNames);
    return info;
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
        entry<NoRecordT, REC::WlanCfg>(1002, "wlan set"),
        entry<REC::WlanCfg>(1003, "wlan get"),
        entry<REC::EfiBatStatus>(1004, "battery"),
        entry<REC::EfiExtSup>(1005, "ext-supply"),
        entry<NoRecordT, REC::EfiPwrSelect>(1006, "power-select set"),
        entry<REC::EfiPwrSelect>(1007, "power-select get"),
        entry<NoRecordT, REC::DoPowerOff>(1008, "power-off --legacy"),
        entry<REC::EfiPwrSrc>(1009, "power-source"),
        entry<REC::GetBoardContent>(1010, "board-content"),
        entry<NoRecordT, REC::StartUpdate>(1011, "update --legacy"),
        entry(1012, "erase-calibration"),
        entry(1013, "touch-calibration"),
        entry<NoRecordT, REC::EnaProdFeat>(1014, "production-features set"),
        entry<REC::EnaProdFeat>(1015, "production-features get"),
        entry<NoRecordT, REC::CtryCode>(1016, "country set"),
        entry<REC::CtryCode>(1017, "country get"),
        entry<REC::TimeSpec>(1018, "rtc get"),
        entry<NoRecordT, REC::TimeSpec>(1019, "rtc set"),
        entry<REC::InstrumentNameCfg>(1020, "name get"),
        entry<NoRecordT, REC::InstrumentNameCfg>(1021, "name set"),
        entry<NoRecordT, REC::EfiAutoRun>(1022, "autorun set"),
        entry<REC::EfiAutoRun>(1023, "autorun get"),
        entry<NoRecordT, REC::WlanDrv>(1024, "wlan-driver"),
        entry<REC::ExeCmdReply, REC::ExeCmdRequest>(1025, "exec"),
        entry<NoRecordT, REC::WlanPower>(1026, "wlan-power"),
        entry<NoRecordT, REC::DoPowerOffExt>(1027, "power-off"),
        entry(1028, "show-desktop"),
        entry<REC::GetString, REC::GetString>(1029, "string"),
        entry<REC::EfiSrvcCmd, REC::EfiSrvcCmd>(1030, "efi"),
        entry<REC::CurDevModeInfo, REC::ProdMode>(1031, "production-mode"),
        entry<REC::CurDevModeInfo, REC::ServMode>(1032, "service-mode"),
        entry<REC::FwUpdateInfo>(1033, "update-info"),
        entry<REC::FwUpdateInfo, REC::FwNewFileName>(1034, "update-info FILE"),
        entry<NoRecordT, REC::StartUpdate>(1035, "update"),
        entry<REC::UartTransCmd, REC::UartTransCmd>(1036, "uart"),
        entry<REC::UsbDeviceCountInfo>(1037, "usb count"),
        entry<REC::UsbDeviceInfo, REC::UsbDeviceIndex>(1038, "usb at"),
        entry<NoRecordT, REC::UsbDeviceResetCmd>(1039, "usb reset"),
        entry<REC::CurFWinfo>(1040, "firmware"),
        entry<REC::CurFWinfo, REC::FwObjectId>(1041, "firmware --object"),
        entry(1042, "voltage-calibration"),
        entry<REC::CurScreenAppExecInfo>(1043, "touch-calibration-result"),
        entry<REC::CurScreenAppExecInfo>(1044, "voltage-calibration-result"),
        entry<REC::TestCmd, REC::TestCmd>(1046, "test"),
        entry<REC::NetIntfceInfo, REC::NetIntfceInfo>(1047, "net-info"),
        entry<REC::WlanChannel>(1048, "channel get"),
        entry<NoRecordT, REC::WlanChannel>(1049, "channel set"),
        entry<REC::WindowsOsInfo>(1050, "os-info"),
        entry<REC::CurHwComponInfo, REC::HwComponentId>(1051, "hw-component"),
        entry<NoRecordT, REC::PowerLedCfg>(1052, "led"),
        entry<REC::WindowsOsTimeInfo>(1053, "time get"),
        entry<NoRecordT, REC::WindowsOsTimeInfo>(1054, "time set"),
        entry<NoRecordT, REC::ShutdownStateHandle>(1055, "shutdown-state"),
        entry<REC::CriticalHwStatusInfo>(1056, "hw-status"),
        entry<NoRecordT, REC::WlanChannelSelection>(1057, "wlan select"),
        entry(1058, "format-usb"),
        entry<REC::EfiBatteryType>(1059, "battery-type"),
        entry<REC::EfiBatteryTypeOffset>(1060, "battery-offset get --which 1"),
        entry<NoRecordT, REC::EfiBatteryTypeOffset>(1061, "battery-offset set --which 1"),
        entry<REC::EfiBatteryTypeOffset>(1062, "battery-offset get --which 2"),
        entry<NoRecordT, REC::EfiBatteryTypeOffset>(1063, "battery-offset set --which 2"),
        entry<NoRecordT, REC::WlanCfgExt>(1064, "wlan set --extension"),
        entry<REC::WlanCfgExt>(1065, "wlan get --ext"),
    };
    return table;
}

template <typename Record = NoRecordT>
EventInfoT event(std::uint16_t id, const char* name)
{
    EventInfoT info{id, name, {}, {}};
    layoutOf<Record>(info.fields, info.names);
    return info;
}

const std::vector<EventInfoT>& eventTable()
{
    static const std::vector<EventInfoT> table = {
        event<REC::EfiBtn>(1000, "button"),
        event<REC::EfiPwrSrc>(1001, "power-source"),
        event(1002, "supervisor-intervention"),
        event<REC::ShutdownEvent>(1003, "shutdown"),
        event<REC::UsbMonitorEvent>(1004, "usb"),
        event<REC::WlanChannelSelection>(1005, "wlan-channel-selected"),
        event<REC::UWFOverlayStateEvent>(1006, "uwf-overlay"),
        event<REC::WlanRadarEvent>(1007, "wlan-radar"),
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
