#include "client/CtlReports.h"

#include "client/DateTimeText.h"

namespace SEP::ctl {

const WordsT kBands = {{"2.4", "1"}, {"5", "2"}, {"both", "3"}};
// The WLAN driver's own width codes (its "ApChanExtOffset" setting: secondary channel below, above, none).
const WordsT kDriverWidths = {{"HT40-", "0"}, {"HT40+", "1"}, {"HT20", "2"}};
const WordsT kChannelWidths = {{"HT20", "1"}, {"HT40+", "2"}, {"HT40-", "4"}, {"INVALID_CHAN_WIDTH", "8"}};

std::string wordOf(const WordsT& words, std::int64_t value)
{
    for (const auto& word : words)
        if (word.second == std::to_string(value)) return word.first;
    return "unknown";
}

void reportWlanConfig(ReportC& report, bool enabled, const std::string& ssid, const std::string& password,
                      std::int32_t band)
{
    report.flag("enabled", "access point", enabled, "on", "off");
    report.text("ssid", "SSID", ssid);
    report.secret("password", "password", password);
    report.choice("band", "band", wordOf(kBands, band), band);
}

void reportBatteries(ReportC& report, const REC::EfiBatStatus& r)
{
    report.number("batteryLStatus", "battery L status", r.values[0]);
    report.number("batteryLCharge", "battery L charge", r.values[1], "%");
    report.number("batteryHStatus", "battery H status", r.values[2]);
    report.number("batteryHCharge", "battery H charge", r.values[3], "%");
}

void reportExternalSupply(ReportC& report, const REC::EfiExtSup& r)
{
    report.number("voltage", "external supply voltage", r.values[0], "mV");
    report.number("peak", "external supply peak", r.values[1], "mV");
}

void reportHardwareStatus(ReportC& report, const REC::CriticalHwStatusInfo& r)
{
    report.flag("fpgaReady", "FPGA ready", r.flags[0]);
    report.flag("hpsReady", "HPS ready", r.flags[1]);
    report.flag("teloReady", "TELO ready", r.flags[2]);
    // The controller's status line carries two more flags after TELO's, without settled names.
    report.flag("fourthReady", "fourth component ready", r.flags[3]);
    report.flag("fifthReady", "fifth component ready", r.flags[4]);
}

void reportChannel(ReportC& report, const REC::WlanChannel& r)
{
    report.number("channel", "channel", r.channel);
    report.choice("width", "width", wordOf(kDriverWidths, r.b), r.b);
}

DateTimeT localTimeOf(const REC::WindowsOsTimeInfo& r)
{
    // The first six fields of a C tm: seconds first, month from 0, year from 1900.
    return {r.fields[5] + 1900, r.fields[4] + 1, r.fields[3], r.fields[2], r.fields[1], r.fields[0]};
}

void reportLocalTime(ReportC& report, const REC::WindowsOsTimeInfo& r)
{
    const std::string local = formatDateTime(localTimeOf(r));
    report.add("localTime", "local time", local, local);
    report.text("timeZone", "time zone", bufferText(r.timeZone));
    // On the wire the flag says that automatic adjustment is off.
    report.flag("automaticDaylightSaving", "daylight saving", !r.daylightSaving, "automatic", "off");
}

void reportRtc(ReportC& report, const REC::TimeSpec& r)
{
    const std::string time = formatDateTime({r.year, r.month, r.day, r.hour, r.minute, r.second});
    report.add("rtc", "RTC time", time, time);
}

void reportFeatures(ReportC& report, const REC::EnaProdFeat& r)
{
    report.flag("uwf", "write filter (UWF)", r.uwf, "on", "off");
    report.flag("remoteDesktop", "remote desktop", r.remoteDesktop, "on", "off");
    report.flag("portForwarding", "port forwarding", r.portForwarding, "on", "off");
}

}  // namespace SEP::ctl
