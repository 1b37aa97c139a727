// halvernctl's commands of the network: the WLAN access point, its country, channel, driver and radio, the
// channel selection and the network interfaces.
#include "client/CtlCommandSupport.h"

namespace SEP {
namespace {

using namespace ctl;

const WordsT kBands = {{"2.4", "1"}, {"5", "2"}, {"both", "3"}};
// The WLAN driver's own width codes (its "ApChanExtOffset" setting: secondary channel below, above, none).
const WordsT kDriverWidths = {{"HT40-", "0"}, {"HT40+", "1"}, {"HT20", "2"}};
const WordsT kInterfaces = {{"wired", "0"}, {"wired2", "1"}, {"wlan", "2"}, {"hosted", "3"}};
const WordsT kInterfaceProperties = {{"mac", "0"}, {"ipv4", "1"}};

std::string wordOf(const WordsT& words, std::int32_t value)
{
    for (const auto& word : words)
        if (word.second == std::to_string(value)) return word.first;
    return "unknown (" + std::to_string(value) + ")";
}

std::string bandText(std::int32_t band)
{
    switch (band) {
        case 1:
            return "2.4 GHz (1)";
        case 2:
            return "5 GHz (2)";
        case 3:
            return "2.4 and 5 GHz (3)";
        default:
            return "unknown (" + std::to_string(band) + ")";
    }
}

template <typename Config>
void printWlanConfig(ReportC& report, const Config& r)
{
    report.flag("enabled", "access point", r.enabled, "on", "off");
    report.text("ssid", "SSID", bufferText(r.ssid));
    report.text("password", "password", bufferText(r.password));
    report.add("band", "band", r.band, bandText(r.band));
}

void addAccessPointCommands(CLI::App& app, CtlChoiceT& chosen)
{
    auto wlan = addGroup(app, "wlan", "The configuration of the instrument's WLAN access point.");
    auto extended = options<bool>();
    addCommand(*wlan, "get",
               "Reads the access point configuration (WLAN_CFG_GET, 1003; with --ext WLAN_CFG_EXT_GET, 1065, which "
               "adds the extension flag).",
               chosen,
               [extended](SepExchangeC& sep, ReportC& report) {
                   if (!*extended)
                       return askCommand<REC::WlanCfg>(sep, 1003, nullptr,
                                                       [&](const REC::WlanCfg& r) { printWlanConfig(report, r); });
                   return askCommand<REC::WlanCfgExt>(sep, 1065, nullptr, [&](const REC::WlanCfgExt& r) {
                       printWlanConfig(report, r);
                       report.flag("extension", "extension", r.extension, "on", "off");
                   });
               })
        ->add_flag("--ext", *extended, "the extended form");

    struct WlanSetT {
        std::string ssid;
        std::string password;
        std::int32_t band = 0;
        bool off = false;
        std::string extension;
    };
    auto config = options<WlanSetT>();
    auto* set = addCommand(
        *wlan, "set", "Configures the access point (WLAN_CFG_SET, 1002; with --extension WLAN_CFG_EXT_SET, 1064).",
        chosen, [config](SepExchangeC& sep, ReportC& report) {
            const std::string done = std::string("access point ") + (config->off ? "off" : "on") + ", SSID \"" +
                                     config->ssid + "\", band " + bandText(config->band);
            if (config->extension.empty()) {
                REC::WlanCfg request;
                request.enabled = !config->off;
                copyText(request.ssid, config->ssid);
                copyText(request.password, config->password);
                request.band = config->band;
                return doCommand(sep, report, 1002, &request, done);
            }
            REC::WlanCfgExt request;
            request.enabled = !config->off;
            copyText(request.ssid, config->ssid);
            copyText(request.password, config->password);
            request.band = config->band;
            request.extension = config->extension == "1";
            return doCommand(sep, report, 1064, &request, done + ", extension " + (request.extension ? "on" : "off"));
        });
    set->add_option("--ssid", config->ssid, "network name")->required()->check(fitsBuffer(sizeof REC::WlanCfg{}.ssid));
    set->add_option("--password", config->password, "pass phrase")
        ->required()
        ->check(fitsBuffer(sizeof REC::WlanCfg{}.password));
    set->add_option("--band", config->band, "2.4|5|both")->required()->transform(oneOf(kBands));
    set->add_flag("--off", config->off, "configure it switched off");
    set->add_option("--extension", config->extension, "on|off: send the extended form with this flag")
        ->transform(onOff());

    auto power = options<REC::WlanPower>();
    addCommand(app, "wlan-power", "Switches the WLAN module on or off (WLAN_PWR_SET, 1026).", chosen,
               [power](SepExchangeC& sep, ReportC& report) {
                   return doCommand(sep, report, 1026, power.get(),
                                    std::string("WLAN module ") + (power->enable ? "on" : "off"));
               })
        ->add_option("value", power->enable, "on|off")
        ->required()
        ->transform(onOff());

    auto driver = options<REC::WlanDrv>();
    auto path = options<std::string>();
    auto* driverCommand = addCommand(app, "wlan-driver", "Installs the WLAN driver from a folder (WLAN_DRV_SET, 1024).",
                                     chosen, [driver, path](SepExchangeC& sep, ReportC& report) {
                                         copyText(driver->path, *path);
                                         return doCommand(sep, report, 1024, driver.get(),
                                                          "WLAN driver installed from \"" + *path + "\"");
                                     });
    driverCommand->add_option("path", *path, "driver path")->required()->check(fitsBuffer(sizeof driver->path));
    driverCommand->add_flag("--test", driver->testNotRegular, "install the test driver instead of the regular one");

    // The result comes as the channel-selected event (halvernctl events shows it as wlan-channel-selected).
    auto selection = options<REC::WlanChannelSelection>();
    auto* select = addCommand(*wlan, "select",
                              "Runs the WLAN channel selection (WLAN_RUN_CH_SEL, 1057); the chosen channel is "
                              "announced as event 1005 and written to the driver.",
                              chosen, [selection](SepExchangeC& sep, ReportC& report) {
                                  return doCommand(sep, report, 1057, selection.get(), "channel selection started");
                              });
    select->add_flag("--no-dfs", selection->a, "avoid channels that need radar detection in this run");
    select->add_option("--band", selection->b, "2.4|5|both (default: the access point's band)")
        ->transform(oneOf(kBands));
    select->add_option("--scan-ms", selection->c, "how long the scan may take (default 7000)");
}

void addRadioCommands(CLI::App& app, CtlChoiceT& chosen)
{
    auto country = addGroup(app, "country", "The WLAN country code.");
    addCommand(*country, "get", "Reads the WLAN country code (WLAN_CC_GET, 1017).", chosen,
               [](SepExchangeC& sep, ReportC& report) {
                   return askCommand<REC::CtryCode>(sep, 1017, nullptr, [&](const REC::CtryCode& r) {
                       report.text("country", "country code", bufferText(r.code));
                   });
               });
    auto code = options<std::string>();
    addCommand(*country, "set", "Sets the WLAN country code, then the channel (WLAN_CC_SET, 1016).", chosen,
               [code](SepExchangeC& sep, ReportC& report) {
                   REC::CtryCode request;
                   copyText(request.code, *code);
                   return doCommand(sep, report, 1016, &request, "country code set to \"" + *code + "\"");
               })
        ->add_option("code", *code, "e.g. DE")
        ->required()
        ->check(fitsBuffer(sizeof REC::CtryCode{}.code));

    auto channel = addGroup(app, "channel",
                            "The access point's WLAN channel and channel width in the WLAN driver's settings, taken "
                            "at the driver's next start (also: wlan-channel).");
    channel->alias("wlan-channel");
    addCommand(*channel, "get", "Reads the channel and width (1048).", chosen, [](SepExchangeC& sep, ReportC& report) {
        return askCommand<REC::WlanChannel>(sep, 1048, nullptr, [&](const REC::WlanChannel& r) {
            report.number("channel", "channel", r.channel);
            report.add("width", "width", r.b, wordOf(kDriverWidths, r.b));
        });
    });
    auto wanted = options<REC::WlanChannel>();
    auto* set = addCommand(
        *channel, "set", "Sets the channel and width (1049).", chosen, [wanted](SepExchangeC& sep, ReportC& report) {
            return doCommand(
                sep, report, 1049, wanted.get(),
                "channel set to " + std::to_string(wanted->channel) + " " + wordOf(kDriverWidths, wanted->b));
        });
    set->add_option("channel", wanted->channel, "1..14 or 34..196")
        ->required()
        ->check(CLI::Range(1, 14) | CLI::Range(34, 196));
    wanted->b = 2;
    set->add_option("--width", wanted->b, "HT20 (default)|HT40+|HT40-")->transform(oneOf(kDriverWidths));

    auto property = options<REC::NetIntfceInfo>();
    auto* netInfo = addCommand(
        app, "net-info",
        "The physical address or the IPv4 addresses of a network interface: the wired adapter towards the sensor "
        "board, the second wired one, the WLAN module or the hosted network (1047).",
        chosen, [property](SepExchangeC& sep, ReportC& report) {
            return askCommand<REC::NetIntfceInfo>(sep, 1047, property.get(), [&](const REC::NetIntfceInfo& r) {
                report.add("interface", "interface", r.a, wordOf(kInterfaces, r.a));
                report.text(r.b == 0 ? "mac" : "ipv4", r.b == 0 ? "physical address" : "IPv4 addresses",
                            bufferText(r.text));
            });
        });
    netInfo->add_option("interface", property->a, "wired|wired2|wlan|hosted")
        ->required()
        ->transform(oneOf(kInterfaces));
    netInfo->add_option("property", property->b, "mac|ipv4")->required()->transform(oneOf(kInterfaceProperties));
}

}  // namespace

void addNetworkCommands(CLI::App& app, CtlChoiceT& chosen)
{
    addAccessPointCommands(app, chosen);
    addRadioCommands(app, chosen);
}

}  // namespace SEP
