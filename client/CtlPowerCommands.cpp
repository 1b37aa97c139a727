// halvernctl's commands of the power controller: batteries, external supply, power selection and source,
// auto-run, the power LED, raw controller commands, the power cycle and the application's shutdown answer.
#include <limits>

#include "client/CtlCommandSupport.h"
#include "client/CtlReports.h"
#include "client/EventPrinter.h"

namespace SEP {
namespace {

using namespace ctl;

void addBatteryCommands(CLI::App& app, CtlChoiceT& chosen)
{
    addCommand(app, "battery",
               "Status word and relative charge (%) of both batteries, L and H, as the power controller reports "
               "them (EFI_GET_BAT_STATUS, 1004).",
               chosen, [](SepExchangeC& sep, ReportC& report) {
                   return askCommand<REC::EfiBatStatus>(
                       sep, 1004, nullptr, [&](const REC::EfiBatStatus& r) { reportBatteries(report, r); });
               });

    addCommand(app, "battery-type",
               "Battery type of both slots from the controller's registers 76/77 (slot 1) and 80/81 (slot 2), low "
               "byte first (1059).",
               chosen, [](SepExchangeC& sep, ReportC& report) {
                   return askCommand<REC::EfiBatteryType>(sep, 1059, nullptr, [&](const REC::EfiBatteryType& r) {
                       report.number("value", "value", r.a);
                       for (int slot = 0; slot < 2; ++slot) {
                           const auto low = static_cast<std::uint8_t>(r.types[2 * slot]);
                           const auto high = static_cast<std::uint8_t>(r.types[2 * slot + 1]);
                           const int type = high << 8 | low;
                           char hex[8];
                           std::snprintf(hex, sizeof hex, "0x%04X", type);
                           const std::string number = std::to_string(slot + 1);
                           report.add("slot" + number + "Type", "slot " + number + " battery type", type,
                                      std::string(hex) + " (" + std::to_string(type) + ")");
                       }
                   });
               });

    struct OffsetT {
        int slot = 1;
        int which = 1;
        int value = 0;
    };
    auto offset = addGroup(app, "battery-offset",
                           "The two battery type offsets of a slot: offset 1 is register 74 (slot 1) or 78 (slot 2), "
                           "offset 2 is register 75 or 79.");
    const auto offsetOptions = [](CLI::App* command, OffsetT& o) {
        command->add_option("--slot", o.slot, "battery slot")->required()->check(CLI::IsMember({1, 2}));
        command->add_option("--which", o.which, "which of the two offsets")->required()->check(CLI::IsMember({1, 2}));
    };
    const auto printOffset = [](ReportC& report, const REC::EfiBatteryTypeOffset& r) {
        report.number("slot", "slot", r.a);
        report.number("offset", "offset", r.offset);
    };
    auto get = options<OffsetT>();
    offsetOptions(addCommand(*offset, "get", "Reads one offset (1060, 1062).", chosen,
                             [get, printOffset](SepExchangeC& sep, ReportC& report) {
                                 REC::EfiBatteryTypeOffset request;
                                 request.a = static_cast<std::uint32_t>(get->slot);
                                 return askCommand<REC::EfiBatteryTypeOffset>(
                                     sep, get->which == 1 ? 1060 : 1062, &request,
                                     [&](const REC::EfiBatteryTypeOffset& r) { printOffset(report, r); });
                             }),
                  *get);
    auto set = options<OffsetT>();
    auto* setCommand = addCommand(
        *offset, "set", "Writes one offset (1061, 1063).", chosen, [set](SepExchangeC& sep, ReportC& report) {
            REC::EfiBatteryTypeOffset request;
            request.a = static_cast<std::uint32_t>(set->slot);
            request.offset = static_cast<std::int8_t>(set->value);
            return doCommand(sep, report, set->which == 1 ? 1061 : 1063, &request,
                             "battery slot " + std::to_string(set->slot) + " offset " + std::to_string(set->which) +
                                 " set to " + std::to_string(set->value));
        });
    offsetOptions(setCommand, *set);
    setCommand->add_option("value", set->value, "the new offset, -128..127")->required()->check(CLI::Range(-128, 127));
}

void addSupplyCommands(CLI::App& app, CtlChoiceT& chosen)
{
    addCommand(app, "ext-supply", "Voltage and peak voltage of the external supply, in mV (EFI_GET_EXT_VOLT, 1005).",
               chosen, [](SepExchangeC& sep, ReportC& report) {
                   return askCommand<REC::EfiExtSup>(sep, 1005, nullptr,
                                                     [&](const REC::EfiExtSup& r) { reportExternalSupply(report, r); });
               });

    addCommand(app, "power-source",
               "The controller's 11 power-source flags, by bit from the lowest (EFI_GET_PWR_SRC, 1009). Their "
               "meaning is the controller's; on the simulated instrument bit 0 is mains, bit 1 battery.",
               chosen, [](SepExchangeC& sep, ReportC& report) {
                   return askCommand<REC::EfiPwrSrc>(
                       sep, 1009, nullptr, [&](const REC::EfiPwrSrc& r) { reportPowerSource(report, r.flags); });
               });

    auto select = addGroup(app, "power-select", "The three selection bits of the controller's PWRSELECT register.");
    addCommand(*select, "get", "Reads the selection bits, bit 0 first (EFI_GET_PWR_SEL, 1007).", chosen,
               [](SepExchangeC& sep, ReportC& report) {
                   return askCommand<REC::EfiPwrSelect>(sep, 1007, nullptr, [&](const REC::EfiPwrSelect& r) {
                       report.bits("selection", "power selection", r.selection, 3);
                   });
               });
    auto bits = options<REC::EfiPwrSelect>();
    auto* setSelect = addCommand(*select, "set", "Writes all three selection bits (EFI_SET_PWR_SEL, 1006).", chosen,
                                 [bits](SepExchangeC& sep, ReportC& report) {
                                     std::string done = "power selection set:";
                                     for (int bit = 0; bit < 3; ++bit)
                                         done +=
                                             " bit " + std::to_string(bit) + (bits->selection[bit] ? " on" : " off");
                                     return doCommand(sep, report, 1006, bits.get(), done);
                                 });
    for (int bit = 0; bit < 3; ++bit)
        setSelect->add_option("--bit" + std::to_string(bit), bits->selection[bit], "on|off")
            ->required()
            ->transform(onOff());

    auto autorun = addGroup(app, "autorun", "The controller's auto-run flag (AUTORUN register).");
    addCommand(*autorun, "get", "Reads the auto-run flag (EFI_AUTORUN_GET, 1023).", chosen,
               [](SepExchangeC& sep, ReportC& report) {
                   return askCommand<REC::EfiAutoRun>(sep, 1023, nullptr, [&](const REC::EfiAutoRun& r) {
                       report.flag("autorun", "autorun", r.enabled, "on", "off");
                   });
               });
    auto autorunValue = options<REC::EfiAutoRun>();
    addCommand(*autorun, "set", "Sets the auto-run flag (EFI_AUTORUN_SET, 1022).", chosen,
               [autorunValue](SepExchangeC& sep, ReportC& report) {
                   return doCommand(sep, report, 1022, autorunValue.get(),
                                    std::string("autorun set ") + (autorunValue->enabled ? "on" : "off"));
               })
        ->add_option("value", autorunValue->enabled, "on|off")
        ->required()
        ->transform(onOff());
}

void addControllerCommands(CLI::App& app, CtlChoiceT& chosen)
{
    struct LedT {
        int state = 0;
        int colour = 0;
    };
    static const WordsT kStates = {{"steady", "0"}, {"blinking", "1"}};
    static const WordsT kColours = {{"yellow", "0"}, {"green", "1"}, {"red", "2"}};
    auto led = options<LedT>();
    auto* ledCommand =
        addCommand(app, "led", "Sets the power LED through the power controller (1052).", chosen,
                   [led](SepExchangeC& sep, ReportC& report) {
                       REC::PowerLedCfg request;
                       request.state = led->state;
                       request.colour = led->colour;
                       return doCommand(sep, report, 1052, &request,
                                        std::string("power LED set: ") + (led->state == 1 ? "blinking " : "steady ") +
                                            (led->colour == 0   ? "yellow"
                                             : led->colour == 1 ? "green"
                                                                : "red"));
                   });
    ledCommand->add_option("--state", led->state, "steady|blinking")->required()->transform(oneOf(kStates));
    ledCommand->add_option("--colour,--color", led->colour, "yellow|green|red")->required()->transform(oneOf(kColours));

    auto efi = options<std::string>();
    addCommand(app, "efi",
               "Sends one command text to the power controller as it is and prints its reply, e.g. "
               "\"BASIC:FWVERSION\", \"BAT:L:VOLTAGE\", \"REG:GET:74\" (1030).",
               chosen,
               [efi](SepExchangeC& sep, ReportC& report) {
                   REC::EfiSrvcCmd request;
                   copyText(request.command, *efi);
                   return askCommand<REC::EfiSrvcCmd>(sep, 1030, &request, [&](const REC::EfiSrvcCmd& r) {
                       report.text("request", "request", bufferText(r.command));
                       report.text("reply", "reply", bufferText(r.reply));
                   });
               })
        ->add_option("text", *efi, "the controller command")
        ->required()
        ->check(fitsBuffer(sizeof REC::EfiSrvcCmd{}.command));

    addCommand(app, "hw-status",
               "Whether the critical hardware is ready, from the controller's hardware status (1056): FPGA, HPS and "
               "TELO, then two further flags.",
               chosen, [](SepExchangeC& sep, ReportC& report) {
                   return askCommand<REC::CriticalHwStatusInfo>(
                       sep, 1056, nullptr,
                       [&](const REC::CriticalHwStatusInfo& r) { reportHardwareStatus(report, r); });
               });
}

void addPowerCycleCommands(CLI::App& app, CtlChoiceT& chosen)
{
    struct PowerOffT {
        bool reboot = false;
        bool shutdown = false;
        bool force = false;
        std::int32_t timeout = 0;
        bool legacy = false;
    };
    auto off = options<PowerOffT>();
    auto* powerOff = addCommand(
        app, "power-off",
        "Asks Halvern to reboot or shut the instrument down: the applications are asked to exit, then the power "
        "cycle runs (1027; with --legacy the old form, 1008, without force and time-out).",
        chosen, [off](SepExchangeC& sep, ReportC& report) {
            const std::int32_t type = off->shutdown ? 1 : 2;
            const std::string what = off->shutdown ? "shutdown" : "reboot";
            if (off->legacy) {
                REC::DoPowerOff request;
                request.type = type;
                return doCommand(sep, report, 1008, &request, what + " requested (legacy form)");
            }
            REC::DoPowerOffExt request;
            request.type = type;
            request.force = off->force;
            request.timeout = off->timeout;
            return doCommand(sep, report, 1027, &request,
                             what + " requested, force: " + (off->force ? "yes" : "no") +
                                 ", time-out: " + std::to_string(off->timeout) + " s");
        });
    auto* kind = powerOff->add_option_group("kind", "what to do (one of them)");
    kind->add_flag("--reboot", off->reboot, "restart the instrument");
    kind->add_flag("--shutdown", off->shutdown, "switch the instrument off");
    kind->require_option(1);
    auto* force = powerOff->add_flag("--force", off->force, "close applications that do not exit by themselves");
    auto* timeout = powerOff
                        ->add_option("--timeout", off->timeout,
                                     "seconds that Windows waits before it shuts down (default 0); give the "
                                     "reply wait of halvernctl before the sub-command")
                        ->check(CLI::Range(0, std::numeric_limits<std::int32_t>::max()));
    powerOff->add_flag("--legacy", off->legacy, "use the legacy request (DO_POWER_OFF, 1008)")
        ->excludes(force)
        ->excludes(timeout);

    auto start = options<REC::ShutdownStateHandle>();
    static const WordsT kAnswers = {{"start", "1"}, {"no-start", "0"}};
    addCommand(app, "shutdown-state",
               "The instrument application's answer to a shutdown notification: start (15 s until the power "
               "sequence) or no-start (60 s more) (1055).",
               chosen,
               [start](SepExchangeC& sep, ReportC& report) {
                   return doCommand(sep, report, 1055, start.get(),
                                    std::string("shutdown state answered: ") + (start->start ? "start" : "no-start"));
               })
        ->add_option("answer", start->start, "start|no-start")
        ->required()
        ->transform(oneOf(kAnswers));
}

}  // namespace

void addPowerCommands(CLI::App& app, CtlChoiceT& chosen)
{
    addCommand(app, "api-level", "Level of the command set that Halvern serves (GET_API_LVL, 1001).", chosen,
               [](SepExchangeC& sep, ReportC& report) {
                   return askCommand<REC::ApiLvl>(
                       sep, 1001, nullptr, [&](const REC::ApiLvl& r) { report.number("level", "API level", r.level); });
               });
    addBatteryCommands(app, chosen);
    addSupplyCommands(app, chosen);
    addControllerCommands(app, chosen);
    addPowerCycleCommands(app, chosen);
}

}  // namespace SEP
