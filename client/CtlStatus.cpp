// `halvernctl status`: the instrument on one screen, each value decoded, asked with the instrument's own
// commands on one connection. A part the instrument cannot answer shows why and leaves the rest standing.
#include <chrono>
#include <cstdio>
#include <initializer_list>
#include <sstream>
#include <thread>

#include "client/CtlCommandSupport.h"
#include "client/CtlReports.h"
#include "client/CtlWatch.h"
#include "client/HalvernCtl.h"

namespace SEP {
namespace {

using namespace ctl;

// The instrument's name for the next start, as Windows keeps it until then.
constexpr const char* kPendingNameQuery =
    "C:\\Windows\\System32\\reg.exe query "
    "\"HKLM\\SYSTEM\\CurrentControlSet\\Control\\ComputerName\\ComputerName\" /v ComputerName";

// Asks one command; on failure the report gets the values `keys` would have had as null, one line with
// the reason, and the status goes on unless the connection itself is gone.
template <typename Reply, typename Fill>
bool ask(SepExchangeC& sep, ReportC& report, std::uint16_t id, MAL::UTI::SerializableI* request,
         std::initializer_list<const char*> keys, const char* label, Fill fill, ExchangeResultE& fatal)
{
    Reply reply;
    const ExchangeResultE result = sep.call(id, request, &reply);
    if (result == ExchangeResultE::Done) {
        fill(reply);
        return true;
    }
    if (result == ExchangeResultE::NoConnection || result == ExchangeResultE::NoReply) fatal = result;
    for (const char* key : keys)
        report.value(key, nullptr);
    report.note(std::string(label) + ": unavailable (" + sep.failure() + ")");
    return false;
}

std::string pendingNameOf(const std::string& output)
{
    const std::string marker = "REG_SZ";
    const std::size_t at = output.find(marker);
    if (at == std::string::npos) return {};
    const std::size_t start = output.find_first_not_of(" \t", at + marker.size());
    if (start == std::string::npos) return {};
    const std::size_t end = output.find_first_of("\r\n", start);
    return output.substr(start, end == std::string::npos ? std::string::npos : end - start);
}

// The device mode as the production features show it: production and service mode open remote desktop
// and port forwarding (and cannot be told apart from outside), customer mode closes both. The write
// filter is no sign: it changes only at the next start.
std::string modeOf(const REC::EnaProdFeat& r)
{
    return r.remoteDesktop || r.portForwarding ? "production or service" : "customer";
}

std::string powerSourceNames(const bool (&flags)[11])
{
    static const char* const kNames[11] = {"mains", "battery"};
    std::string names;
    for (int bit = 0; bit < 11; ++bit)
        if (flags[bit])
            names += (names.empty() ? "" : ", ") +
                     (kNames[bit] != nullptr ? std::string(kNames[bit]) : "bit " + std::to_string(bit));
    return names.empty() ? "none" : names;
}

ExchangeResultE collectStatus(SepExchangeC& sep, ReportC& report)
{
    ExchangeResultE fatal = ExchangeResultE::Done;
    const auto stop = [&] { return fatal != ExchangeResultE::Done; };

    ask<REC::InstrumentNameCfg>(
        sep, report, 1020, nullptr, {"name"}, "instrument name",
        [&](const auto& r) { report.text({"name"}, "instrument name", bufferText(r.name)); }, fatal);
    if (stop()) return fatal;
    REC::ExeCmdRequest query;
    query.vantNotMora = true;
    copyText(query.commandLine, kPendingNameQuery);
    ask<REC::ExeCmdReply>(
        sep, report, 1025, &query, {"pendingName"}, "name at the next start",
        [&](const auto& r) {
            const std::string pending =
                pendingNameOf(bufferText(reinterpret_cast<const char*>(r.output), sizeof r.output));
            if (r.returnCode == 0 && !pending.empty())
                report.text("pendingName", "name at the next start", pending);
            else
                report.add("pendingName", "name at the next start", nullptr, "unavailable (not readable)");
        },
        fatal);
    ask<REC::ApiLvl>(
        sep, report, 1001, nullptr, {"apiLevel"}, "API level",
        [&](const auto& r) { report.number("apiLevel", "API level", r.level); }, fatal);
    if (stop()) return fatal;

    ask<REC::EfiBatStatus>(
        sep, report, 1004, nullptr, {"batteryLStatus", "batteryLCharge", "batteryHStatus", "batteryHCharge"},
        "batteries", [&](const auto& r) { reportBatteries(report, r); }, fatal);
    ask<REC::EfiPwrSrc>(
        sep, report, 1009, nullptr, {"powerSource", "powerSourceCode"}, "power source",
        [&](const auto& r) {
            std::int64_t value = 0;
            for (int bit = 0; bit < 11; ++bit)
                if (r.flags[bit]) value |= std::int64_t{1} << bit;
            report.choice("powerSource", "power source", powerSourceNames(r.flags), value);
        },
        fatal);
    ask<REC::EfiExtSup>(
        sep, report, 1005, nullptr, {"voltage", "peak"}, "external supply",
        [&](const auto& r) { reportExternalSupply(report, r); }, fatal);
    ask<REC::CriticalHwStatusInfo>(
        sep, report, 1056, nullptr, {"fpgaReady", "hpsReady", "teloReady", "fourthReady", "fifthReady"},
        "hardware status", [&](const auto& r) { reportHardwareStatus(report, r); }, fatal);
    if (stop()) return fatal;

    ask<REC::WlanCfg>(
        sep, report, 1003, nullptr, {"enabled", "ssid", "password", "band", "bandCode"}, "access point",
        [&](const auto& r) { reportWlanConfig(report, r.enabled, bufferText(r.ssid), bufferText(r.password), r.band); },
        fatal);
    ask<REC::WlanChannel>(
        sep, report, 1048, nullptr, {"channel", "width", "widthCode"}, "channel",
        [&](const auto& r) { reportChannel(report, r); }, fatal);
    ask<REC::CtryCode>(
        sep, report, 1017, nullptr, {"country"}, "country",
        [&](const auto& r) { report.text("country", "country", bufferText(r.code)); }, fatal);
    if (stop()) return fatal;

    ask<REC::WindowsOsTimeInfo>(
        sep, report, 1053, nullptr, {"localTime", "timeZone", "automaticDaylightSaving"}, "local time",
        [&](const auto& r) { reportLocalTime(report, r); }, fatal);
    ask<REC::TimeSpec>(
        sep, report, 1018, nullptr, {"rtc"}, "RTC time", [&](const auto& r) { reportRtc(report, r); }, fatal);
    if (stop()) return fatal;

    ask<REC::UsbDeviceCountInfo>(
        sep, report, 1037, nullptr, {"usbDevices"}, "USB devices",
        [&](const auto& count) {
            ReportC::JsonT devices = ReportC::JsonT::array();
            std::string listed;
            for (std::uint32_t index = 0; index < count.a && !stop(); ++index) {
                REC::UsbDeviceIndex request;
                request.index = index;
                REC::UsbDeviceInfo device;
                if (sep.call(1038, &request, &device) != ExchangeResultE::Done) continue;
                char id[16];
                std::snprintf(id, sizeof id, "%04X:%04X", static_cast<unsigned>(device.a),
                              static_cast<unsigned>(device.b));
                devices.push_back({{"id", id}, {"massStorage", device.c}, {"port", device.d}});
                listed += std::string(listed.empty() ? "" : ", ") + id + (device.c ? " mass storage" : "") + " port " +
                          std::to_string(device.d);
            }
            report.add("usbDevices", "USB devices", devices,
                       std::to_string(count.a) + (listed.empty() ? "" : " (" + listed + ")"));
        },
        fatal);
    if (stop()) return fatal;

    ask<REC::EnaProdFeat>(
        sep, report, 1015, nullptr, {"uwf", "remoteDesktop", "portForwarding", "mode"}, "production features",
        [&](const auto& r) {
            reportFeatures(report, r);
            const std::string mode = modeOf(r);
            report.add("mode", "mode", mode, mode);
        },
        fatal);
    return fatal;
}

}  // namespace

void addStatusCommands(CLI::App& app, CtlChoiceT& chosen)
{
    addCommand(app, "status",
               "The instrument on one screen: name, API level, batteries and power source, external supply, "
               "hardware status, access point, clock and RTC, USB devices, production features and mode "
               "(commands 1020, 1025, 1001, 1004, 1009, 1005, 1056, 1003, 1048, 1017, 1053, 1018, 1037, 1038, "
               "1015). The WLAN password shows with --show-password.",
               chosen, collectStatus);
}

int runWatch(const WatchOptionsT& watch, SepExchangeC& sep, const CtlOutputT& output, bool terminal, std::ostream& out,
             std::ostream& err)
{
    CtlChoiceT status{"status", collectStatus};
    // Redrawn in place only where a person reads it; a pipe or --json gets one block or line per refresh.
    const bool redraw = terminal && !output.json && !watch.plain;
    for (long shown = 0; watch.count < 0 || shown < watch.count; ++shown) {
        if (shown > 0) std::this_thread::sleep_for(std::chrono::milliseconds(watch.intervalMs));
        std::ostringstream text;
        const int code = runChosen(status, sep, output, text, err);
        if (code == CTL_EXIT_NO_CONNECTION) return code;
        if (redraw)
            out << "\033[H\033[J";
        else if (shown > 0 && !output.json)
            out << "\n";
        out << text.str() << std::flush;
    }
    return CTL_EXIT_DONE;
}

}  // namespace SEP
