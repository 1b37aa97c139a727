// halvernctl's commands of the system manager and the boards: clocks, name, command execution, device
// modes, firmware update, USB, calibration applications and system information.
#include <algorithm>
#include <cstdio>

#include "client/CtlCommandSupport.h"
#include "client/CtlReports.h"
#include "client/DateTimeText.h"
#include "client/TimeZones.h"

namespace SEP {
namespace {

using namespace ctl;

CLI::Validator dateTimeArgument()
{
    return CLI::Validator(
        [](std::string& text) -> std::string {
            DateTimeT parsed;
            if (parseDateTime(text, parsed)) return {};
            return "not a date and time of the form \"2026-11-23 10:00:00\": " + text;
        },
        "\"YYYY-MM-DD HH:MM:SS\"");
}

// A zone the instrument has, by its Windows name in any case; a city or an "Area/City" name is answered
// with the zones that hold the city.
CLI::Validator knownZone()
{
    return CLI::Validator(
        [](std::string& text) -> std::string {
            if (const TimeZoneT* zone = findTimeZone(text)) {
                text = zone->name;
                return {};
            }
            const std::string city = text.substr(text.rfind('/') + 1);
            std::string suggestions;
            for (const TimeZoneT* zone : matchingTimeZones(city.size() >= 3 ? city : text))
                if (suggestions.size() < 200)
                    suggestions += (suggestions.empty() ? "" : ", ") + ("\"" + zone->name + "\"");
            return "the instrument has no time zone \"" + text + "\"" +
                   (suggestions.empty() ? "; `halvernctl time zones FILTER` lists them"
                                        : "; did you mean " + suggestions + "?");
        },
        "ZONE", "zones");
}

// The record of a local time in a zone: the first six fields of a C tm (seconds first, month from 0, year
// from 1900), and a flag that is set when automatic daylight saving is off.
REC::WindowsOsTimeInfo timeInformation(const DateTimeT& local, const std::string& zone, bool daylightSaving)
{
    REC::WindowsOsTimeInfo record;
    const std::int32_t fields[6] = {local.second, local.minute,    local.hour,
                                    local.day,    local.month - 1, local.year - 1900};
    std::copy(std::begin(fields), std::end(fields), std::begin(record.fields));
    copyText(record.timeZone, zone);
    record.daylightSaving = !daylightSaving;
    return record;
}

DateTimeT parsedDateTime(const std::string& text)
{
    DateTimeT value;
    parseDateTime(text, value);  // checked when the command line was read
    return value;
}

// A NUL-terminated text in a byte field.
template <std::size_t N>
std::string byteText(const std::uint8_t (&field)[N])
{
    return bufferText(reinterpret_cast<const char*>(field), N);
}

void addClockCommands(CLI::App& app, CtlChoiceT& chosen)
{
    auto rtc = addGroup(app, "rtc", "The real-time clock on the I2C bus, the instrument's clock across power cycles.");
    addCommand(
        *rtc, "get", "Reads the real-time clock (RTC_GET, 1018).", chosen, [](SepExchangeC& sep, ReportC& report) {
            return askCommand<REC::TimeSpec>(sep, 1018, nullptr, [&](const REC::TimeSpec& r) { reportRtc(report, r); });
        });
    auto rtcTime = options<std::string>();
    addCommand(*rtc, "set",
               "Sets the real-time clock (RTC_SET, 1019). The Windows time follows at the next start; a time "
               "offset set with \"time set\" is dropped.",
               chosen,
               [rtcTime](SepExchangeC& sep, ReportC& report) {
                   const DateTimeT time = parsedDateTime(*rtcTime);
                   REC::TimeSpec request;
                   request.year = time.year;
                   request.month = time.month;
                   request.day = time.day;
                   request.hour = time.hour;
                   request.minute = time.minute;
                   request.second = time.second;
                   return doCommand(sep, report, 1019, &request, "RTC set to " + formatDateTime(time));
               })
        ->add_option("time", *rtcTime, "\"YYYY-MM-DD HH:MM:SS\"")
        ->required()
        ->check(dateTimeArgument());

    auto time = addGroup(app, "time", "The Windows local time, time zone and daylight saving.");
    addCommand(*time, "get", "Reads the Windows local time, time zone and daylight saving (1053).", chosen,
               [](SepExchangeC& sep, ReportC& report) {
                   return askCommand<REC::WindowsOsTimeInfo>(
                       sep, 1053, nullptr, [&](const REC::WindowsOsTimeInfo& r) { reportLocalTime(report, r); });
               });
    struct TimeT {
        std::string time;
        std::string zone;
        bool dst = true;
    };
    auto timeSet = options<TimeT>();
    auto* setTime =
        addCommand(*time, "set",
                   "Sets the Windows local time and time zone (1054); the RTC keeps its time and Halvern keeps the "
                   "difference.",
                   chosen, [timeSet](SepExchangeC& sep, ReportC& report) {
                       const DateTimeT local = parsedDateTime(timeSet->time);
                       REC::WindowsOsTimeInfo request = timeInformation(local, timeSet->zone, timeSet->dst);
                       return doCommand(sep, report, 1054, &request,
                                        "time set to " + formatDateTime(local) + ", zone \"" + timeSet->zone +
                                            "\", daylight saving " + (timeSet->dst ? "automatic" : "off"));
                   });
    setTime->add_option("time", timeSet->time, "local time, \"YYYY-MM-DD HH:MM:SS\"")
        ->required()
        ->check(dateTimeArgument());
    setTime
        ->add_option("--zone", timeSet->zone,
                     "the zone's standard name as Windows knows it, e.g. \"W. Europe Standard Time\"")
        ->required()
        ->transform(knownZone());
    setTime->add_flag("--dst,!--no-dst", timeSet->dst, "automatic daylight saving adjustment on (the default) or off");

    auto zone = addGroup(*time, "zone", "The time zone alone.");
    addCommand(*zone, "get", "Reads the time zone (1053).", chosen, [](SepExchangeC& sep, ReportC& report) {
        return askCommand<REC::WindowsOsTimeInfo>(sep, 1053, nullptr, [&](const REC::WindowsOsTimeInfo& r) {
            report.text("timeZone", "time zone", bufferText(r.timeZone));
        });
    });
    struct ZoneT {
        std::string name;
        bool dst = true;
    };
    auto zoneSet = options<ZoneT>();
    auto* setZone = addCommand(
        *zone, "set", "Sets the time zone and keeps the instant: the local time moves with the zone (1053, then 1054).",
        chosen, [zoneSet](SepExchangeC& sep, ReportC& report) {
            REC::WindowsOsTimeInfo now;
            ExchangeResultE result = sep.call(1053, nullptr, &now);
            if (result != ExchangeResultE::Done) return result;
            const TimeZoneT* from = findTimeZone(bufferText(now.timeZone));
            const TimeZoneT* to = findTimeZone(zoneSet->name);
            if (from == nullptr)
                return sep.refuse("the instrument's zone \"" + bufferText(now.timeZone) + "\" is not one it lists",
                                  "give the local time as well: `halvernctl time set \"YYYY-MM-DD HH:MM:SS\" --zone " +
                                      zoneSet->name + "`");
            const DateTimeT moved = convertLocalTime(localTimeOf(now), *from, *to, !now.daylightSaving);
            REC::WindowsOsTimeInfo request = timeInformation(moved, to->name, zoneSet->dst);
            return doCommand(sep, report, 1054, &request,
                             "time zone set to \"" + to->name + "\", local time now " + formatDateTime(moved));
        });
    setZone->add_option("name", zoneSet->name, "the zone's name, e.g. \"W. Europe Standard Time\" (see time zones)")
        ->required()
        ->transform(knownZone());
    setZone->add_flag("--dst,!--no-dst", zoneSet->dst, "automatic daylight saving adjustment on (the default) or off");

    auto filter = options<std::string>();
    addCommand(*time, "zones",
               "Lists the instrument's time zones by name and display name, those holding FILTER (any case) "
               "only when one is given; no command is sent.",
               chosen,
               [filter](SepExchangeC&, ReportC& report) {
                   ReportC::JsonT list = ReportC::JsonT::array();
                   for (const TimeZoneT* zone : matchingTimeZones(*filter)) {
                       list.push_back({{"name", zone->name}, {"display", zone->display}});
                       report.note(zone->name + "  " + zone->display);
                   }
                   report.add("zones", "zones", list, std::to_string(list.size()));
                   return ExchangeResultE::Done;
               })
        ->add_option("filter", *filter, "part of a name or city, e.g. Berlin");
}

void addIdentityCommands(CLI::App& app, CtlChoiceT& chosen)
{
    auto name = addGroup(app, "name", "The instrument's name (also: hostname).");
    name->alias("hostname");
    addCommand(*name, "get", "Reads the instrument's name (HOSTNAME_CFG_GET, 1020).", chosen,
               [](SepExchangeC& sep, ReportC& report) {
                   return askCommand<REC::InstrumentNameCfg>(sep, 1020, nullptr, [&](const REC::InstrumentNameCfg& r) {
                       report.text("name", "name", bufferText(r.name));
                   });
               });
    auto newName = options<std::string>();
    addCommand(*name, "set", "Sets the instrument's name (HOSTNAME_CFG_SET, 1021).", chosen,
               [newName](SepExchangeC& sep, ReportC& report) {
                   REC::InstrumentNameCfg request;
                   copyText(request.name, *newName);
                   return doCommand(sep, report, 1021, &request, "name set to \"" + *newName + "\"");
               })
        ->add_option("name", *newName, "the new name")
        ->required()
        ->check(fitsBuffer(sizeof REC::InstrumentNameCfg{}.name));

    addCommand(app, "board-content",
               "The board data: BIOS release, version and date, board version, and the sensor-board Ethernet "
               "adapter's physical and IPv4 address (GET_BOARD_CONTENT, 1010).",
               chosen, [](SepExchangeC& sep, ReportC& report) {
                   return askCommand<REC::GetBoardContent>(sep, 1010, nullptr, [&](const REC::GetBoardContent& r) {
                       const std::string release =
                           std::to_string(r.version >> 8) + "." + std::to_string(r.version & 0xFF);
                       report.add("biosRelease", "BIOS release", release, release);
                       report.text("biosVersion", "BIOS version", byteText(r.fourth));
                       char date[16];
                       std::snprintf(date, sizeof date, "%04u-%02u-%02u", static_cast<unsigned>(r.last / 10000),
                                     static_cast<unsigned>(r.last / 100 % 100), static_cast<unsigned>(r.last % 100));
                       report.add("biosDate", "BIOS date", date, date);
                       report.text("boardVersion", "board version", byteText(r.third));
                       char mac[24];
                       std::snprintf(mac, sizeof mac, "%02x-%02x-%02x-%02x-%02x-%02x", r.first[0], r.first[1],
                                     r.first[2], r.first[3], r.first[4], r.first[5]);
                       report.text("moraMac", "MORA Ethernet address", mac);
                       const std::string ipv4 = std::to_string(r.second[0]) + "." + std::to_string(r.second[1]) + "." +
                                                std::to_string(r.second[2]) + "." + std::to_string(r.second[3]);
                       report.text("moraIpv4", "MORA Ethernet IPv4", ipv4);
                   });
               });
    addCommand(app, "os-info", "Information about the Windows system (1050).", chosen,
               [](SepExchangeC& sep, ReportC& report) {
                   return askCommand<REC::WindowsOsInfo>(sep, 1050, nullptr, [&](const REC::WindowsOsInfo& r) {
                       report.text("product", "product", bufferText(r.texts[0]));
                       report.text("edition", "edition", bufferText(r.texts[1]));
                       report.text("version", "version", bufferText(r.texts[2]));
                       report.text("build", "build", bufferText(r.texts[3]));
                       report.text("computerName", "computer name", bufferText(r.texts[4]));
                       report.text("installed", "installed (UTC)", bufferText(r.texts[5]));
                   });
               });
    auto component = options<std::uint32_t>();
    addCommand(
        app, "hw-component",
        "One hardware component by its id: 1 WLAN, 2 MORA Ethernet, 3 Lemo Ethernet, 4 Quillo DMA (1051).", chosen,
        [component](SepExchangeC& sep, ReportC& report) {
            REC::HwComponentId request;
            request.componentId = *component;
            return askCommand<REC::CurHwComponInfo>(sep, 1051, &request, [&](const REC::CurHwComponInfo& r) {
                static const char* const kStates[] = {"not present", "present and working", "present, not working"};
                const std::string state = r.a < 3 ? kStates[r.a] : "state " + std::to_string(r.a);
                report.add("state", "state", r.a, state);
                report.text("description", "description", byteText(r.data));
            });
        })
        ->add_option("id", *component, "component id: 1 WLAN, 2 MORA Ethernet, 3 Lemo Ethernet, 4 Quillo DMA")
        ->required()
        ->check(CLI::Range(1, 4));
    auto stringId = options<std::int32_t>();
    addCommand(app, "string", "One of Halvern's fixed strings by its id (1029).", chosen,
               [stringId](SepExchangeC& sep, ReportC& report) {
                   REC::GetString request;
                   request.id = *stringId;
                   return askCommand<REC::GetString>(sep, 1029, &request, [&](const REC::GetString& r) {
                       report.number("stringId", "string id", r.id);
                       report.text("text", "text", bufferText(r.text));
                   });
               })
        ->add_option("id", *stringId, "string id")
        ->required();
}

void addExecutionCommands(CLI::App& app, CtlChoiceT& chosen)
{
    struct ExecT {
        std::vector<std::string> words;
        std::string directory;
        bool vant = false;
        bool mora = false;
        std::uint32_t waitMs = 0;
        std::string commandLine() const
        {
            std::string line;
            for (const auto& word : words)
                line += (line.empty() ? "" : " ") + word;
            return line;
        }
    };
    auto exec = options<ExecT>();
    auto* execCommand = addCommand(
        app, "exec",
        "Runs a command line on the computer module (or with --mora on the sensor board's shell) and prints its "
        "output and return code (EXE_CMD, 1025). Put -- before a command line that has options of its own.",
        chosen, [exec](SepExchangeC& sep, ReportC& report) {
            REC::ExeCmdRequest request;
            request.vantNotMora = !exec->mora;
            copyText(request.commandLine, exec->commandLine());
            copyText(request.directory, exec->directory);
            request.runnerValue = exec->waitMs;
            return askCommand<REC::ExeCmdReply>(sep, 1025, &request, [&](const REC::ExeCmdReply& r) {
                report.number("returnCode", "return code", r.returnCode);
                report.number("truncated", "characters cut off the front", r.truncated);
                report.block("output", "output", bufferText(reinterpret_cast<const char*>(r.output), sizeof r.output));
            });
        });
    execCommand->add_option("command", exec->words, "the command line")
        ->required()
        ->check(fitsBuffer(sizeof REC::ExeCmdRequest{}.commandLine));
    auto* vantFlag = execCommand->add_flag("--vant", exec->vant, "run it on the computer module (the default)");
    execCommand->add_flag("--mora", exec->mora, "run it on the sensor board's shell; a non-zero status is an error")
        ->excludes(vantFlag);
    execCommand->add_option("--dir", exec->directory, "working directory")
        ->check(fitsBuffer(sizeof REC::ExeCmdRequest{}.directory));
    execCommand->add_option("--wait", exec->waitMs, "how long it may run, in ms (0: the default)");
    // The joined line must fit as well as each word.
    execCommand->parse_complete_callback([exec] {
        if (exec->commandLine().size() + 1 > sizeof REC::ExeCmdRequest{}.commandLine)
            throw CLI::ValidationError("command", "longer than 1023 characters");
    });

    struct UartT {
        std::string port;
        std::string input;
        std::string config;
        std::uint32_t waitMs = 100;
    };
    auto uart = options<UartT>();
    auto* uartCommand = addCommand(
        app, "uart",
        "One transaction on a serial port by its role (MORA, EFI, DIVO): sends INPUT, waits and prints what came "
        "back (1036).",
        chosen, [uart](SepExchangeC& sep, ReportC& report) {
            REC::UartTransCmd request;
            copyText(request.uartName, uart->port);
            copyText(request.input, unescapeControls(uart->input));
            copyText(request.config, unescapeControls(uart->config));
            request.a = uart->waitMs;
            return askCommand<REC::UartTransCmd>(sep, 1036, &request, [&](const REC::UartTransCmd& r) {
                report.text("port", "port", bufferText(r.uartName));
                report.block("reply", "reply", bufferText(r.reply));
            });
        });
    uartCommand->add_option("port", uart->port, "MORA, EFI or DIVO")
        ->required()
        ->check(fitsBuffer(sizeof REC::UartTransCmd{}.uartName));
    uartCommand
        ->add_option("input", uart->input,
                     "what to send, e.g. 'uname -o\\r\\n' (\\r, \\n, \\t and \\\\ stand for those characters)")
        ->required()
        ->check(fitsBuffer(sizeof REC::UartTransCmd{}.input));
    uartCommand
        ->add_option("--config", uart->config,
                     "where replies are cut into lines, e.g. '\\n' (default: the port's own terminator)")
        ->check(fitsBuffer(sizeof REC::UartTransCmd{}.config));
    uartCommand->add_option("--wait", uart->waitMs, "how long to collect the reply, in ms (default 100)");

    struct TestT {
        std::int32_t number = 0;
        std::int32_t waitMs = 0;
        std::string text;
    };
    auto test = options<TestT>();
    auto* testCommand = addCommand(app, "test",
                                   "One of Halvern's test commands (1046, also: test-cmd): 0 wait for the sensor "
                                   "board's boot, 1 verify and fix its Ethernet, "
                                   "2 fix its Ethernet, 3 wait for its Ethernet.",
                                   chosen, [test](SepExchangeC& sep, ReportC& report) {
                                       REC::TestCmd request;
                                       request.a = test->number;
                                       request.b = test->waitMs;
                                       copyText(request.text, test->text);
                                       return askCommand<REC::TestCmd>(sep, 1046, &request,
                                                                       [&](auto& r) { report.values("values", r); });
                                   });
    testCommand->alias("test-cmd");
    testCommand->add_option("number", test->number, "test command number")->required();
    testCommand->add_option("--wait", test->waitMs, "time-out in ms, at most 60000 (below 1: the command's default)");
    testCommand->add_option("--text", test->text, "string parameter")->check(fitsBuffer(sizeof REC::TestCmd{}.text));
}

template <typename Request>
void addModeCommand(CLI::App& app, CtlChoiceT& chosen, const char* name, const char* what, std::uint16_t id)
{
    static const char* const kLabels[8] = {"result",         "services and port forwarding",
                                           "remote desktop", "file explorer",
                                           "firewall",       "Ethernet speed",
                                           "write filter",   "restart"};
    static const char* const kKeys[8] = {"result",   "services", "remoteDesktop", "fileExplorer",
                                         "firewall", "ethernet", "writeFilter",   "restart"};
    auto request = options<Request>();
    addCommand(app, name,
               std::string("Switches ") + what +
                   " mode on, or back to customer mode (off), and prints what each "
                   "step did (" +
                   std::to_string(id) + ").",
               chosen,
               [request, id](SepExchangeC& sep, ReportC& report) {
                   return askCommand<REC::CurDevModeInfo>(sep, id, request.get(), [&](const REC::CurDevModeInfo& r) {
                       for (int i = 0; i < 8; ++i)
                           report.text(kKeys[i], kLabels[i], bufferText(r.texts[i]));
                       report.flag("restartRequired", "restart required", r.flag);
                   });
               })
        ->add_option("value", request->enable, "on|off")
        ->required()
        ->transform(onOff());
}

void addModeCommands(CLI::App& app, CtlChoiceT& chosen)
{
    addModeCommand<REC::ProdMode>(app, chosen, "production-mode", "production", 1031);
    addModeCommand<REC::ServMode>(app, chosen, "service-mode", "service", 1032);

    auto features = addGroup(app, "production-features", "Write filter, remote desktop and port forwarding.");
    addCommand(*features, "get", "Reads the three features (PROD_FEATURES_GET, 1015).", chosen,
               [](SepExchangeC& sep, ReportC& report) {
                   return askCommand<REC::EnaProdFeat>(sep, 1015, nullptr,
                                                       [&](const REC::EnaProdFeat& r) { reportFeatures(report, r); });
               });
    auto wanted = options<REC::EnaProdFeat>();
    auto* setFeatures = addCommand(*features, "set", "Sets all three features (PROD_FEATURES_SET, 1014).", chosen,
                                   [wanted](SepExchangeC& sep, ReportC& report) {
                                       const auto word = [](bool on) { return on ? "on" : "off"; };
                                       return doCommand(sep, report, 1014, wanted.get(),
                                                        std::string("features set: write filter ") + word(wanted->uwf) +
                                                            ", remote desktop " + word(wanted->remoteDesktop) +
                                                            ", port forwarding " + word(wanted->portForwarding));
                                   });
    setFeatures->add_option("--uwf", wanted->uwf, "write filter on|off")->required()->transform(onOff());
    setFeatures->add_option("--remote-desktop", wanted->remoteDesktop, "on|off")->required()->transform(onOff());
    setFeatures->add_option("--port-forwarding", wanted->portForwarding, "on|off")->required()->transform(onOff());
}

void addFirmwareCommands(CLI::App& app, CtlChoiceT& chosen)
{
    struct UpdateT {
        std::string path;
        bool force = false;
        bool legacy = false;
        std::uint32_t waitS = 120;
    };
    auto update = options<UpdateT>();
    auto* updateCommand = addCommand(
        app, "update",
        "Starts the firmware updater with an image (1035; with --legacy the old form, START_UPDATE, 1011) and "
        "waits until Halvern ends for the updater, which asks it to.",
        chosen, [update](SepExchangeC& sep, ReportC& report) {
            REC::StartUpdate request;
            request.force = update->force;
            copyText(request.path, update->path);
            ExchangeResultE result = sep.call(update->legacy ? 1011 : 1035, &request, nullptr);
            if (result != ExchangeResultE::Done || update->waitS == 0) {
                if (result == ExchangeResultE::Done) report.note("update started with \"" + update->path + "\"");
                return result;
            }
            // The updater takes over by asking Halvern to end: the end of this connection is its outcome here.
            result = sep.awaitClose(update->waitS * 1000, "the update");
            if (result == ExchangeResultE::Done)
                report.note("update started with \"" + update->path + "\"; Halvern ended for the updater");
            return result;
        });
    updateCommand->add_option("path", update->path, "the firmware image")
        ->required()
        ->check(fitsBuffer(sizeof REC::StartUpdate{}.path));
    updateCommand->add_flag("--force", update->force, "update even when the versions are the same");
    updateCommand->add_flag("--legacy", update->legacy, "use the legacy request");
    updateCommand
        ->add_option("--wait", update->waitS, "seconds to wait for Halvern to end for the updater (0: do not wait)")
        ->capture_default_str();

    auto file = options<std::string>();
    addCommand(app, "update-info",
               "Firmware update information, of the installed firmware or, with a file, of that image (1033, 1034).",
               chosen,
               [file](SepExchangeC& sep, ReportC& report) {
                   const auto print = [&](auto& r) { report.values("values", r); };
                   if (file->empty()) return askCommand<REC::FwUpdateInfo>(sep, 1033, nullptr, print);
                   REC::FwNewFileName request;
                   copyText(request.name, *file);
                   return askCommand<REC::FwUpdateInfo>(sep, 1034, &request, print);
               })
        ->add_option("file", *file, "a firmware image")
        ->check(fitsBuffer(sizeof REC::FwNewFileName{}.name));

    auto object = options<std::int64_t>();
    *object = -1;
    addCommand(app, "firmware",
               "Information on the current firmware, or on one of its objects with --object (1040, 1041).", chosen,
               [object](SepExchangeC& sep, ReportC& report) {
                   const auto print = [&](auto& r) { report.values("values", r); };
                   if (*object < 0) return askCommand<REC::CurFWinfo>(sep, 1040, nullptr, print);
                   REC::FwObjectId request;
                   request.objectId = static_cast<std::uint32_t>(*object);
                   return askCommand<REC::CurFWinfo>(sep, 1041, &request, print);
               })
        ->add_option("--object", *object, "object id")
        ->check(CLI::Range(std::int64_t{0}, std::int64_t{0xFFFFFFFF}));
}

// USB ids as the device manager shows them: four hex digits.
std::string hexId(std::uint16_t id)
{
    char text[8];
    std::snprintf(text, sizeof text, "%04X", static_cast<unsigned>(id));
    return text;
}

void addUsbCommands(CLI::App& app, CtlChoiceT& chosen)
{
    auto usb = addGroup(app, "usb", "USB devices of the computer module.");
    addCommand(*usb, "count", "The number of USB devices and of those enumerated completely (USB_GET_DEV_COUNT, 1037).",
               chosen, [](SepExchangeC& sep, ReportC& report) {
                   return askCommand<REC::UsbDeviceCountInfo>(sep, 1037, nullptr, [&](auto& r) {
                       report.number("devices", "USB devices", r.a);
                       report.number("enumerated", "enumerated completely", r.b);
                   });
               });
    auto index = options<std::uint32_t>();
    addCommand(*usb, "at", "The USB device at an index of the list (USB_GET_DEV_AT_IDX, 1038).", chosen,
               [index](SepExchangeC& sep, ReportC& report) {
                   REC::UsbDeviceIndex request;
                   request.index = *index;
                   return askCommand<REC::UsbDeviceInfo>(sep, 1038, &request, [&](auto& r) {
                       report.add("vendorId", "vendor id", r.a, hexId(r.a));
                       report.add("productId", "product id", r.b, hexId(r.b));
                       report.flag("massStorage", "mass storage", r.c);
                       report.number("port", "port", r.d);
                   });
               })
        ->add_option("index", *index, "list index, from 0")
        ->required();
    auto port = options<std::uint32_t>();
    addCommand(*usb, "reset", "Resets the USB device on a port (USB_DEV_RESET, 1039).", chosen,
               [port](SepExchangeC& sep, ReportC& report) {
                   REC::UsbDeviceResetCmd request;
                   request.portId = *port;
                   return doCommand(sep, report, 1039, &request, "USB port " + std::to_string(*port) + " reset");
               })
        ->add_option("port", *port, "port id")
        ->required();
    // Halvern answers once the stick is formatted, which takes as long as the stick needs.
    addCommand(app, "format-usb", "Formats the USB stick and waits until it is done, up to 10 minutes (1058).", chosen,
               [](SepExchangeC& sep, ReportC& report) {
                   const ExchangeResultE result = sep.callWaiting(1058, nullptr, nullptr, 600000, "the formatting");
                   if (result == ExchangeResultE::Done) report.note("USB stick formatted");
                   return result;
               });
}

void addApplicationCommands(CLI::App& app, CtlChoiceT& chosen)
{
    const auto addPlain = [&](const char* name, const std::string& description, std::uint16_t id, const char* done) {
        addCommand(app, name, description, chosen, [id, done](SepExchangeC& sep, ReportC& report) {
            return doCommand(sep, report, id, nullptr, done);
        });
    };
    addPlain("erase-calibration",
             "The calibration erase that older clients send (ERASE_CAL, 1012); Halvern logs it and erases nothing.",
             1012, "erase request acknowledged, nothing erased");
    addPlain("touch-calibration", "Starts the touch screen calibration application (CAL_TOUCH, 1013).", 1013,
             "touch calibration started");
    addPlain("voltage-calibration", "Starts the screen voltage calibration application (CAL_VLTG_SCRN, 1042).", 1042,
             "screen voltage calibration started");
    addPlain("show-desktop", "Shows the Windows desktop (1028).", 1028, "desktop shown");

    const auto addResult = [&](const char* name, const std::string& description, std::uint16_t id) {
        addCommand(app, name, description, chosen, [id](SepExchangeC& sep, ReportC& report) {
            return askCommand<REC::CurScreenAppExecInfo>(sep, id, nullptr, [&](const REC::CurScreenAppExecInfo& r) {
                report.number("status", "status", r.status);
            });
        });
    };
    addResult("touch-calibration-result", "The HMI board's status of the last touch calibration run (1043).", 1043);
    addResult("voltage-calibration-result", "The HMI board's status of the last screen voltage calibration run (1044).",
              1044);

    // Both results in words, as a technician checks a screen after calibrating it.
    addCommand(app, "calibration-status",
               "What the HMI board says of the last touch (1043) and screen voltage (1044) calibration runs: running "
               "now, new settings stored, not stored (the previous ones stay), or not decodable.",
               chosen, [](SepExchangeC& sep, ReportC& report) {
                   static const char* const kMeanings[] = {"running now", "new settings not stored",
                                                           "new settings stored", "not decodable"};
                   const std::pair<std::uint16_t, const char*> questions[] = {{1043, "touch"}, {1044, "voltage"}};
                   for (const auto& [id, name] : questions) {
                       const ExchangeResultE result = askCommand<REC::CurScreenAppExecInfo>(
                           sep, id, nullptr, [&](const REC::CurScreenAppExecInfo& r) {
                               const std::string meaning =
                                   r.status < 4 ? kMeanings[r.status] : "status " + std::to_string(r.status);
                               report.add(name, std::string(name) + " calibration", r.status,
                                          meaning + " (" + std::to_string(r.status) + ")");
                           });
                       if (result != ExchangeResultE::Done) return result;
                   }
                   return ExchangeResultE::Done;
               });
}

}  // namespace

void addSystemCommands(CLI::App& app, CtlChoiceT& chosen)
{
    addClockCommands(app, chosen);
    addIdentityCommands(app, chosen);
    addExecutionCommands(app, chosen);
    addModeCommands(app, chosen);
    addFirmwareCommands(app, chosen);
    addUsbCommands(app, chosen);
    addApplicationCommands(app, chosen);
}

}  // namespace SEP
