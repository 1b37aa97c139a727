// halvernctl's commands of the network: the WLAN access point, its country, channel, driver and radio, the
// channel selection and the network interfaces.
#include "client/CtlCommandSupport.h"
#include "client/CtlReports.h"

namespace SEP {
namespace {

using namespace ctl;

const WordsT kInterfaces = {{"wired", "0"}, {"wired2", "1"}, {"wlan", "2"}, {"hosted", "3"}};
const WordsT kInterfaceProperties = {{"mac", "0"}, {"ipv4", "1"}};

// What the access point takes: an SSID of 1 to 32 bytes and a WPA2 pass phrase of 8 to 63 characters,
// both printable ASCII.
CLI::Validator printableText(std::size_t shortest, std::size_t longest, const char* what)
{
    return CLI::Validator(
        [=](std::string& text) -> std::string {
            if (text.size() < shortest || text.size() > longest)
                return std::string(what) + " must have " + std::to_string(shortest) + "-" + std::to_string(longest) +
                       " characters, not " + std::to_string(text.size());
            for (unsigned char c : text)
                if (c < 0x20 || c > 0x7E) return std::string(what) + " must be printable ASCII";
            return {};
        },
        "TEXT(" + std::to_string(shortest) + "-" + std::to_string(longest) + ")");
}
CLI::Validator ssidText()
{
    return printableText(1, 32, "an SSID");
}
CLI::Validator passphraseText()
{
    return printableText(8, 63, "a WPA2 password");
}

template <typename Config>
void printWlanConfig(ReportC& report, const Config& r)
{
    reportWlanConfig(report, r.enabled, bufferText(r.ssid), bufferText(r.password), r.band);
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
        std::int32_t band = 0;  // 0: the access point's own
        bool on = false;
        bool off = false;
        std::string extension;

        // One configuration request in the form asked for; empty texts and band 0 keep the access point's.
        ExchangeResultE send(SepExchangeC& sep, bool enabled, const std::string& newSsid,
                             const std::string& newPassword) const
        {
            if (extension.empty()) {
                REC::WlanCfg request;
                request.enabled = enabled;
                copyText(request.ssid, newSsid);
                copyText(request.password, newPassword);
                request.band = band;
                return sep.call(1002, &request, nullptr);
            }
            REC::WlanCfgExt request;
            request.enabled = enabled;
            copyText(request.ssid, newSsid);
            copyText(request.password, newPassword);
            request.band = band;
            request.extension = extension == "1";
            return sep.call(1064, &request, nullptr);
        }
    };
    auto config = options<WlanSetT>();
    auto* set = addCommand(
        *wlan, "set",
        "Changes the access point's configuration (WLAN_CFG_SET, 1002; with --extension WLAN_CFG_EXT_SET, 1064): "
        "what is not given stays as it is, and a running access point is switched off, configured and started "
        "again. Prints the configuration it then runs with.",
        chosen, [config](SepExchangeC& sep, ReportC& report) {
            REC::WlanCfg current;
            ExchangeResultE result = sep.call(1003, nullptr, &current);
            if (result != ExchangeResultE::Done) return result;
            const bool wanted = config->on || (!config->off && current.enabled);
            // The access point takes a new configuration only while it is off.
            if (current.enabled) {
                result = config->send(sep, false, config->ssid, config->password);
                if (result != ExchangeResultE::Done || !wanted) return result;
                result = config->send(sep, true, {}, {});
            } else {
                result = config->send(sep, wanted, config->ssid, config->password);
            }
            if (result != ExchangeResultE::Done) return result;
            REC::WlanCfg now;
            result = sep.call(1003, nullptr, &now);
            if (result == ExchangeResultE::Done) {
                report.note(current.enabled && wanted ? "access point restarted with the new configuration"
                                                      : "access point configured");
                printWlanConfig(report, now);
            }
            return result;
        });
    set->add_option("--ssid", config->ssid, "network name, 1-32 characters")->check(ssidText());
    set->add_option("--password", config->password, "WPA2 pass phrase, 8-63 characters")->check(passphraseText());
    set->add_option("--band", config->band, "2.4|5|both")->transform(oneOf(kBands));
    auto* on = set->add_flag("--on", config->on, "start the access point");
    set->add_flag("--off", config->off, "stop the access point")->excludes(on);
    set->add_option("--extension", config->extension, "on|off: send the extended form with this flag")
        ->transform(onOff());
    set->parse_complete_callback([set] {
        if (set->count_all() <= 1)
            throw CLI::ValidationError("wlan set", "nothing to change: give --ssid, --password, --band, --on or --off");
    });

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

    // The result comes as the channel-selected event, on this connection like on every other.
    auto selection = options<REC::WlanChannelSelection>();
    auto* select = addCommand(*wlan, "select",
                              "Runs the WLAN channel selection (WLAN_RUN_CH_SEL, 1057) and waits for its outcome, "
                              "the channel-selected event (1005): the chosen channel, which goes to the driver.",
                              chosen, [selection](SepExchangeC& sep, ReportC& report) {
                                  ExchangeResultE result = sep.call(1057, selection.get(), nullptr);
                                  if (result != ExchangeResultE::Done) return result;
                                  const std::int32_t scanMs = selection->c > 0 ? selection->c : 7000;
                                  REC::WlanChannelSelection outcome;
                                  result = sep.awaitEvent(1005, static_cast<std::uint32_t>(scanMs) + 30000,
                                                          "the channel selection", outcome);
                                  if (result != ExchangeResultE::Done) return result;
                                  if (!outcome.a)
                                      return sep.refuse("the channel selection found no channel",
                                                        "the access point keeps the channel it runs");
                                  report.flag("selected", "channel selected", outcome.a);
                                  report.number("channel", "channel", outcome.b);
                                  report.choice("width", "width", wordOf(kChannelWidths, outcome.c), outcome.c);
                                  return result;
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
        return askCommand<REC::WlanChannel>(sep, 1048, nullptr,
                                            [&](const REC::WlanChannel& r) { reportChannel(report, r); });
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
                report.choice("interface", "interface", wordOf(kInterfaces, r.a), r.a);
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
