// halvernctl's named commands against the instrument's own command set: what a technician types, what
// reaches Halvern, what comes back, and what is refused before anything is sent.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <set>
#include <sstream>

#include "client/CommandTable.h"
#include "client/CtlTestSupport.h"
#include "client/DateTimeText.h"
#include "client/TimeZones.h"
#include "sep/SepCommandTestSupport.h"
#include "sep/server/HalvernSepImpl.h"
#include "sep/HalvernSepRecords.h"
#include "support/TestEnvironment.h"
#include "sysmanager/SysManagerC.h"

namespace halvern::test {
namespace {

// Nothing listens here; a command that tried to connect would end with "no connection" instead.
constexpr std::uint16_t kNobodyListens = 9;

TEST(CtlCommandTableTest, EveryCommandOfTheTableHasANamedSubcommandWhoseHelpNamesItsId)
{
    std::set<std::uint16_t> ids;
    for (const auto& command : SEP::commandTable()) {
        ids.insert(command.id);
        // The sub-command's words, without the option or placeholder that picks this id among several.
        std::vector<std::string> words;
        std::istringstream line(command.subcommand);
        for (std::string word; line >> word && word[0] != '-' && !std::isupper(static_cast<unsigned char>(word[0]));)
            words.push_back(word);
        words.push_back("--help");
        const CtlRunT run = runCtl(kNobodyListens, words);
        EXPECT_EQ(run.exitCode, 0) << command.subcommand << ": " << run.err;
        EXPECT_NE(run.out.find(std::to_string(command.id)), std::string::npos) << command.subcommand << "\n" << run.out;
    }
    std::set<std::uint16_t> expected;
    for (std::uint16_t id = 1001; id <= 1065; ++id)
        if (id != 1045) expected.insert(id);
    EXPECT_EQ(ids, expected);
    EXPECT_EQ(SEP::findCommand("efi_get_bat_status")->subcommand, "battery");
    EXPECT_EQ(SEP::findCommand("power-off")->id, 1027);
}

TEST(CtlArgumentsTest, BadArgumentsAreRefusedBeforeAnythingIsSent)
{
    const std::string tooLong(256, 'n');
    const std::vector<std::vector<std::string>> refused = {
        {"led", "--state", "pulsing", "--colour", "green"},
        {"led", "--state", "blinking", "--colour", "blue"},
        {"led", "--state", "blinking"},
        {"rtc", "set", "2026-02-30 10:00:00"},
        {"rtc", "set", "23.11.2026 10:00"},
        {"time", "set", "2026-11-23 24:00:00", "--zone", "UTC"},
        {"time", "set", "2026-11-23 10:00:00"},
        {"time", "set", "2026-11-23 10:00:00", "--zone", tooLong},
        {"name", "set", tooLong},
        {"name", "set", "tab\x01"},
        {"wlan", "set", "--ssid", tooLong, "--password", "secret", "--band", "both"},
        {"wlan", "set", "--ssid", "x", "--password", "secret", "--band", "6"},
        {"power-off"},
        {"power-off", "--reboot", "--shutdown"},
        {"power-off", "--reboot", "--legacy", "--timeout", "5"},
        {"power-off", "--reboot", "--timeout", "-1"},
        {"battery-offset", "set", "--slot", "3", "--which", "1", "4"},
        {"battery-offset", "set", "--slot", "1", "--which", "1", "200"},
        {"channel", "set", "15", "--width", "HT20"},
        {"autorun", "set", "maybe"},
        {"shutdown-state", "later"},
        {"battery", "extra"},
        {"exec", "--vant", "--mora", "ls"},
    };
    for (const auto& arguments : refused) {
        const CtlRunT run = runCtl(kNobodyListens, arguments);
        std::string line;
        for (const auto& argument : arguments)
            line += argument.substr(0, 20) + " ";
        EXPECT_EQ(run.exitCode, SEP::CTL_EXIT_BAD_ARGUMENTS) << line << "\n" << run.err;
        EXPECT_FALSE(run.err.empty()) << line;
        EXPECT_TRUE(run.out.empty()) << line;
    }
    const CtlRunT run = runCtl(kNobodyListens, {"led", "--state", "pulsing", "--colour", "green"});
    EXPECT_NE(run.err.find("pulsing is not one of steady|blinking"), std::string::npos) << run.err;
    // A well-formed command does try to connect.
    EXPECT_EQ(runCtl(kNobodyListens, {"api-level"}).exitCode, SEP::CTL_EXIT_NO_CONNECTION);
}

TEST(CtlArgumentsTest, AMistypedVerbIsNamedWithTheNearestOnesAndNothingIsSent)
{
    CtlRunT run = runCtl(kNobodyListens, {"batery"});
    EXPECT_EQ(run.exitCode, SEP::CTL_EXIT_BAD_ARGUMENTS);
    EXPECT_EQ(run.err, "halvernctl: unknown command \"batery\"\n  hint: did you mean battery?\n");
    run = runCtl(kNobodyListens, {"wlan", "gte"});
    EXPECT_NE(run.err.find("unknown command \"wlan gte\"\n  hint: did you mean wlan get?"), std::string::npos)
        << run.err;
    run = runCtl(kNobodyListens, {"--json", "stauts"});
    const auto json = run.json();
    ASSERT_TRUE(json.is_object()) << run.out;
    EXPECT_EQ(json["ok"], false);
    EXPECT_EQ(json["error"], "unknown command \"stauts\"");
    EXPECT_EQ(json["hint"], "did you mean status?");
    EXPECT_EQ(json["exitCode"], SEP::CTL_EXIT_BAD_ARGUMENTS);
    // A bad argument is an error object as well with --json.
    run = runCtl(kNobodyListens, {"--json", "led", "--state", "pulsing", "--colour", "red"});
    EXPECT_EQ(run.exitCode, SEP::CTL_EXIT_BAD_ARGUMENTS);
    EXPECT_EQ(run.json()["ok"], false) << run.out;
    // And so is a connection that fails.
    run = runCtl(kNobodyListens, {"--json", "api-level"});
    EXPECT_EQ(run.exitCode, SEP::CTL_EXIT_NO_CONNECTION);
    EXPECT_EQ(run.json()["ok"], false) << run.out;
    EXPECT_NE(run.err.find("hint: is the instrument running"), std::string::npos) << run.err;
}

TEST(CtlArgumentsTest, VersionHelpAndABareCommandLineAnswerWithoutTheInstrument)
{
    CtlRunT run = runCtl(kNobodyListens, {"--version"});
    EXPECT_EQ(run.exitCode, 0);
    EXPECT_EQ(run.out.rfind("halvernctl ", 0), 0u) << run.out;
    run = runCtl(kNobodyListens, {"help"});
    EXPECT_EQ(run.exitCode, 0) << run.err;
    EXPECT_NE(run.out.find("status"), std::string::npos) << run.out;
    run = runCtl(kNobodyListens, {"help", "wlan", "set"});
    EXPECT_EQ(run.exitCode, 0) << run.err;
    EXPECT_NE(run.out.find("--ssid"), std::string::npos) << run.out;
    // Not a terminal: no interactive mode, but a reason.
    run = runCtl(kNobodyListens, {});
    EXPECT_EQ(run.exitCode, SEP::CTL_EXIT_BAD_ARGUMENTS);
    EXPECT_NE(run.err.find("a command is required"), std::string::npos) << run.err;
}

TEST(CtlArgumentsTest, ZoneNamesAreTheInstrumentsAndOthersAreAnsweredWithTheNearOnes)
{
    CtlRunT run = runCtl(kNobodyListens, {"time", "zones"});
    ASSERT_EQ(run.exitCode, 0) << run.err;
    EXPECT_NE(run.out.find("W. Europe Standard Time  (UTC+01:00) Amsterdam, Berlin"), std::string::npos) << run.out;
    run = runCtl(kNobodyListens, {"--json", "time", "zones", "tokyo"});
    ASSERT_EQ(run.exitCode, 0) << run.err;
    ASSERT_EQ(run.json()["zones"].size(), 1u) << run.out;
    EXPECT_EQ(run.json()["zones"][0]["name"], "Tokyo Standard Time");
    run = runCtl(kNobodyListens, {"time", "zone", "set", "Europe/Berlin"});
    EXPECT_EQ(run.exitCode, SEP::CTL_EXIT_BAD_ARGUMENTS);
    EXPECT_NE(run.err.find("did you mean \"W. Europe Standard Time\"?"), std::string::npos) << run.err;
    // Case does not matter: the instrument's spelling goes on the wire (and here meets no instrument).
    EXPECT_EQ(runCtl(kNobodyListens, {"time", "zone", "set", "w. europe standard time"}).exitCode,
              SEP::CTL_EXIT_NO_CONNECTION);
}

TEST(CtlTimeZoneTest, ChangingTheZoneKeepsTheInstant)
{
    const SEP::TimeZoneT* berlin = SEP::findTimeZone("W. Europe Standard Time");
    const SEP::TimeZoneT* tokyo = SEP::findTimeZone("Tokyo Standard Time");
    const SEP::TimeZoneT* utc = SEP::findTimeZone("UTC");
    const SEP::TimeZoneT* sydney = SEP::findTimeZone("AUS Eastern Standard Time");
    ASSERT_TRUE(berlin && tokyo && utc && sydney);
    const auto text = [](const SEP::DateTimeT& t) { return SEP::formatDateTime(t); };
    // Winter in Berlin (UTC+1), summer (UTC+2); Tokyo has no daylight saving (UTC+9).
    EXPECT_EQ(text(SEP::convertLocalTime({2026, 1, 15, 12, 0, 30}, *berlin, *tokyo, true)), "2026-01-15 20:00:30");
    EXPECT_EQ(text(SEP::convertLocalTime({2026, 7, 15, 12, 0, 0}, *berlin, *utc, true)), "2026-07-15 10:00:00");
    EXPECT_EQ(text(SEP::convertLocalTime({2026, 7, 15, 12, 0, 0}, *berlin, *utc, false)), "2026-07-15 11:00:00");
    // Sydney's summer spans the turn of the year (UTC+11 in January).
    EXPECT_EQ(text(SEP::convertLocalTime({2026, 1, 1, 0, 30, 0}, *utc, *sydney, true)), "2026-01-01 11:30:00");
    EXPECT_EQ(text(SEP::convertLocalTime({2026, 7, 1, 0, 30, 0}, *utc, *sydney, true)), "2026-07-01 10:30:00");
}

// The words the shell offers next, as the completion script receives them.
std::vector<std::string> completions(std::vector<std::string> typed)
{
    typed.insert(typed.begin(), {"halvernctl", "__complete"});
    std::vector<const char*> argv;
    for (const auto& word : typed)
        argv.push_back(word.c_str());
    std::ostringstream out, err;
    SEP::runHalvernCtl(static_cast<int>(argv.size()), argv.data(), out, err);
    std::istringstream lines(out.str());
    std::vector<std::string> offered;
    for (std::string line; std::getline(lines, line);)
        offered.push_back(line);
    return offered;
}

TEST(CtlCompletionTest, TheShellIsOfferedTheSubcommandsAndOptionsThatFitWhereTheCursorIs)
{
    using ::testing::Contains;
    using ::testing::Not;
    const auto top = completions({""});
    for (const char* word : {"battery", "watch", "events", "hostname", "calibration-status", "--port", "--ascii"})
        EXPECT_THAT(top, Contains(word));
    EXPECT_THAT(top, Not(Contains("get"))) << "a sub-command's own words come after it";
    const auto wlan = completions({"--port", "55558", "wlan", ""});
    EXPECT_THAT(wlan, Contains("get"));
    EXPECT_THAT(wlan, Contains("set"));
    EXPECT_THAT(wlan, Not(Contains("battery")));
    const auto led = completions({"led", "--state", "steady", ""});
    EXPECT_THAT(led, Contains("--colour"));
    EXPECT_THAT(led, Contains("--json")) << "halvernctl's own options stay valid after the command";
    // Values where values belong.
    EXPECT_EQ(completions({"wlan", "set", "--band", ""}), (std::vector<std::string>{"2.4", "5", "both"}));
    EXPECT_EQ(completions({"led", "--state", ""}), (std::vector<std::string>{"steady", "blinking"}));
    EXPECT_THAT(completions({"led", "--state", "steady", "--colour", ""}), Contains("green"));
    EXPECT_THAT(completions({"autorun", "set", ""}), Contains("off"));
    EXPECT_THAT(completions({"time", "zone", "set", ""}), Contains("W. Europe Standard Time"));
    const auto powerOff = completions({"power-off", ""});
    EXPECT_EQ(std::count(powerOff.begin(), powerOff.end(), "--timeout"), 1) << "offered once";
}

TEST(CtlDateTimeTest, OnlyRealCalendarTimesParse)
{
    SEP::DateTimeT time;
    ASSERT_TRUE(SEP::parseDateTime("2028-02-29 23:59:59", time));
    EXPECT_EQ(SEP::formatDateTime(time), "2028-02-29 23:59:59");
    ASSERT_TRUE(SEP::parseDateTime("2000-02-29T00:00:00", time));
    EXPECT_EQ(time.month, 2);
    for (const char* bad : {"2026-02-29 10:00:00", "1900-02-29 10:00:00", "2026-13-01 10:00:00", "2026-04-31 10:00:00",
                            "2026-11-23 10:60:00", "2026-11-23 10:00", "2026-11-23  10:00:00", "2026-1-23 10:00:00",
                            "+026-11-23 10:00:00", ""})
        EXPECT_FALSE(SEP::parseDateTime(bad, time)) << bad;
}

class CtlCommandSetTest : public SepPortTest {
protected:
    CtlRunT ctl(std::vector<std::string> arguments) { return runCtl(port->server().port(), std::move(arguments)); }
};

TEST_F(CtlCommandSetTest, ACompletedCommandPrintsItsRecordAsTextAndAsJsonInBothCodings)
{
    CtlRunT run = ctl({"api-level"});
    EXPECT_EQ(run.exitCode, 0) << run.err;
    EXPECT_EQ(run.out, "API level: 51\n");

    for (const char* coding : {"--json", "--ascii"}) {
        run = ctl({"--json", coding, "api-level"});
        ASSERT_EQ(run.exitCode, 0) << run.err;
        const auto json = run.json();
        ASSERT_TRUE(json.is_object()) << run.out;
        EXPECT_EQ(json["command"], "api-level");
        EXPECT_EQ(json["id"], 1001);
        EXPECT_EQ(json["ok"], true);
        EXPECT_EQ(json["level"], 51);
    }
}

TEST_F(CtlCommandSetTest, StatusShowsEveryPartDecodedOrWhyItHasNone)
{
    // The instrument's own name: the simulated one's, or the machine's under Wine.
    CtlRunT run = ctl({"--json", "name", "get"});
    ASSERT_EQ(run.exitCode, 0) << run.err;
    const std::string name = run.json()["name"];
    run = ctl({"--json", "status"});
    EXPECT_EQ(run.exitCode, 0) << run.err;
    const auto json = run.json();
    ASSERT_TRUE(json.is_object()) << run.out;
    for (const char* key :
         {"name", "pendingName", "apiLevel", "batteryLCharge", "powerSource",    "voltage", "fpgaReady", "enabled",
          "ssid", "password",    "band",     "channel",        "width",          "country", "localTime", "timeZone",
          "rtc",  "usbDevices",  "uwf",      "remoteDesktop",  "portForwarding", "mode"})
        EXPECT_TRUE(json.contains(key)) << key << " in " << run.out;
    EXPECT_EQ(json["apiLevel"], 51);
    EXPECT_EQ(json["name"], name);
    EXPECT_TRUE(json["usbDevices"].is_array()) << run.out;
    // No power controller behind this port: its parts say so instead of showing stale values.
    EXPECT_TRUE(json["batteryLCharge"].is_null()) << run.out;

    run = ctl({"status"});
    EXPECT_EQ(run.exitCode, 0) << run.err;
    EXPECT_NE(run.out.find("instrument name: \"" + name + "\"\n"), std::string::npos) << run.out;
    EXPECT_NE(run.out.find("batteries: unavailable (Internal error, failed to communicate with EFI!)\n"),
              std::string::npos)
        << run.out;
    EXPECT_NE(run.out.find("\nAPI level: 51\n"), std::string::npos) << run.out;
    EXPECT_TRUE(run.out.find("\nmode: ") != std::string::npos ||
                run.out.find("\nproduction features: unavailable (") != std::string::npos)
        << run.out;
    EXPECT_EQ(ctl({"--value", "apiLevel", "status"}).out, "51\n");
    run = ctl({"--value", "nothing", "status"});
    EXPECT_EQ(run.exitCode, SEP::CTL_EXIT_BAD_ARGUMENTS);
    EXPECT_NE(run.err.find("status has no value nothing; it has: name, "), std::string::npos) << run.err;
}

TEST_F(CtlCommandSetTest, WatchRepeatsTheStatusAsBlocksOrJsonLinesWithoutEscapesIntoAPipe)
{
    CtlRunT run = ctl({"watch", "--count", "2", "--interval", "1"});
    EXPECT_EQ(run.exitCode, 0) << run.err;
    const auto first = run.out.find("API level: 51\n");
    ASSERT_NE(first, std::string::npos) << run.out;
    EXPECT_NE(run.out.find("API level: 51\n", first + 1), std::string::npos) << "the second refresh";
    EXPECT_EQ(run.out.find("\033["), std::string::npos) << "not a terminal: no redrawing";

    run = ctl({"--json", "watch", "--count", "2", "--interval", "1"});
    EXPECT_EQ(run.exitCode, 0) << run.err;
    std::istringstream lines(run.out);
    int objects = 0;
    for (std::string line; std::getline(lines, line); ++objects)
        EXPECT_EQ(nlohmann::json::parse(line, nullptr, false)["apiLevel"], 51) << line;
    EXPECT_EQ(objects, 2);
}

TEST_F(CtlCommandSetTest, AnErrorReplyExitsWithItsCodeAndTheServersText)
{
    // No USB stick is plugged.
    CtlRunT run = ctl({"format-usb"});
    EXPECT_EQ(run.exitCode, SEP::CTL_EXIT_ERROR_REPLY);
    EXPECT_EQ(run.err,
              "halvernctl: format-usb: General failure ( failed to run format usb device)\n"
              "  hint: is a USB stick plugged in? `halvernctl usb count` lists the devices\n");
    EXPECT_TRUE(run.out.empty());

    run = ctl({"--json", "format-usb"});
    EXPECT_EQ(run.exitCode, SEP::CTL_EXIT_ERROR_REPLY);
    const auto json = run.json();
    ASSERT_TRUE(json.is_object()) << run.out;
    EXPECT_EQ(json["ok"], false);
    EXPECT_EQ(json["id"], 1058);
    EXPECT_EQ(json["error"], "format-usb: General failure ( failed to run format usb device)");
    EXPECT_EQ(json["hint"], "is a USB stick plugged in? `halvernctl usb count` lists the devices");
}

TEST_F(CtlCommandSetTest, UsbCommandsPrintTheirCountsOrTheServersRefusal)
{
    // No device change has filled the list yet.
    CtlRunT run = ctl({"usb", "count"});
    EXPECT_EQ(run.exitCode, 0) << run.err;
    EXPECT_EQ(run.out, "USB devices: 0\nenumerated completely: 0\n");
    run = ctl({"--json", "usb", "count"});
    const auto json = run.json();
    ASSERT_TRUE(json.is_object()) << run.out;
    EXPECT_EQ(json["devices"], 0);
    EXPECT_EQ(json["enumerated"], 0);

    run = ctl({"usb", "at", "0"});
    EXPECT_EQ(run.exitCode, SEP::CTL_EXIT_ERROR_REPLY);
    EXPECT_EQ(run.err,
              "halvernctl: usb at: General failure ( Failed to retrieve USB Device at given index.)\n"
              "  hint: the index is beyond the list: `halvernctl usb count` tells its length\n");
}

TEST_F(CtlCommandSetTest, PowerOffAsksForWhatItNamesAndTheApplicationsAnswerIsStored)
{
    SysManagerC* manager = SysManagerC::Instance();
    CtlRunT run = ctl({"power-off", "--reboot", "--force", "--timeout", "5"});
    EXPECT_EQ(run.exitCode, 0) << run.err;
    EXPECT_EQ(run.out, "reboot requested, force: yes, time-out: 5 s\n");
    // The request is stored before the answer.
    ASSERT_EQ(ctl({"api-level"}).exitCode, 0);
    EXPECT_EQ(manager->GetApplicationPowerRequestType(), POWER_REQUEST_REBOOT);
    EXPECT_TRUE(manager->GetPowerRequestForce());
    EXPECT_EQ(manager->GetPowerRequestTimeout(), 5u);

    EXPECT_EQ(ctl({"power-off", "--shutdown", "--legacy"}).exitCode, 0);
    ASSERT_EQ(ctl({"api-level"}).exitCode, 0);
    EXPECT_EQ(manager->GetApplicationPowerRequestType(), POWER_REQUEST_SHUTDOWN);
    EXPECT_FALSE(manager->GetPowerRequestForce());
    EXPECT_EQ(manager->GetPowerRequestTimeout(), 0u);

    EXPECT_EQ(ctl({"shutdown-state", "no-start"}).exitCode, 0);
    EXPECT_EQ(manager->GetAppShutdownAnswer(), APP_SHUTDOWN_NOT_STARTED);
    run = ctl({"shutdown-state", "start"});
    EXPECT_EQ(run.exitCode, 0);
    EXPECT_EQ(run.out, "shutdown state answered: start\n");
    EXPECT_EQ(manager->GetAppShutdownAnswer(), APP_SHUTDOWN_STARTED);
}

// The clocks' records as the time keeping reads them: a C tm's fields with the month from 0 and the year
// from 1900, and a flag that is set when automatic daylight saving is off.
class CtlClockTest : public InstrumentTest {
protected:
    void SetUp() override
    {
        InstrumentTest::SetUp();
        BSS::NET::NetTcpIpServerCfgT config = HalvernRpc::TcpIpServerChannelSetupC::defaultConfig(0);
        config.listenAddress = platform::kLoopbackAddress;
        config.passTimeoutMs = 20;
        server = std::make_unique<HalvernRpc::TcpIpServerChannelSetupC>(config);
        auto& channel = server->channel();
        channel.registerCommandHandler(1019, [this](SEP::ReceivedCommandC& command) {
            if (HalvernSepImpl::DecodeRequest(command, rtcSet)) HalvernSepImpl::SendSuccess(command, nullptr);
        });
        channel.registerCommandHandler(
            1018, [this](SEP::ReceivedCommandC& command) { HalvernSepImpl::SendSuccess(command, &rtcNow); });
        channel.registerCommandHandler(1054, [this](SEP::ReceivedCommandC& command) {
            if (HalvernSepImpl::DecodeRequest(command, timeSet)) HalvernSepImpl::SendSuccess(command, nullptr);
        });
        channel.registerCommandHandler(
            1053, [this](SEP::ReceivedCommandC& command) { HalvernSepImpl::SendSuccess(command, &timeNow); });
        ASSERT_TRUE(server->start(3600000));
    }
    void TearDown() override
    {
        server.reset();
        InstrumentTest::TearDown();
    }
    CtlRunT ctl(std::vector<std::string> arguments) { return runCtl(server->port(), std::move(arguments)); }

    std::unique_ptr<HalvernRpc::TcpIpServerChannelSetupC> server;
    Varda::SEP::HALVERN::TimeSpec rtcSet, rtcNow;
    Varda::SEP::HALVERN::WindowsOsTimeInfo timeSet, timeNow;
};

TEST_F(CtlClockTest, DatesGoOnTheWireInEachRecordsOwnCountingAndComeBackAsDates)
{
    ASSERT_EQ(ctl({"time", "set", "2026-11-23 10:00:05", "--zone", "W. Europe Standard Time"}).exitCode, 0);
    const std::vector<std::int32_t> tm(std::begin(timeSet.fields), std::end(timeSet.fields));
    EXPECT_EQ(tm, (std::vector<std::int32_t>{5, 0, 10, 23, 10, 126}));
    EXPECT_STREQ(timeSet.timeZone, "W. Europe Standard Time");
    EXPECT_FALSE(timeSet.daylightSaving) << "automatic daylight saving is the default";
    CtlRunT run = ctl({"time", "set", "2026-11-23 10:00:05", "--zone", "UTC", "--no-dst"});
    EXPECT_EQ(run.out, "time set to 2026-11-23 10:00:05, zone \"UTC\", daylight saving off\n");
    EXPECT_TRUE(timeSet.daylightSaving);

    const std::int32_t newYearsEve[6] = {59, 58, 23, 31, 11, 126};
    std::copy(std::begin(newYearsEve), std::end(newYearsEve), std::begin(timeNow.fields));
    std::strcpy(timeNow.timeZone, "GMT Standard Time");
    timeNow.daylightSaving = true;
    run = ctl({"time", "get"});
    EXPECT_EQ(run.out, "local time: 2026-12-31 23:58:59\ntime zone: \"GMT Standard Time\"\ndaylight saving: off\n");
    timeNow.daylightSaving = false;
    EXPECT_EQ(ctl({"--json", "time", "get"}).json()["automaticDaylightSaving"], true);

    ASSERT_EQ(ctl({"rtc", "set", "2026-11-23 10:00:00"}).exitCode, 0);
    EXPECT_EQ(rtcSet.year, 2026);
    EXPECT_EQ(rtcSet.month, 11);
    EXPECT_EQ(rtcSet.day, 23);
    EXPECT_EQ(rtcSet.hour, 10);
    rtcNow = rtcSet;
    rtcNow.second = 7;
    EXPECT_EQ(ctl({"rtc", "get"}).out, "RTC time: 2026-11-23 10:00:07\n");
}

}  // namespace
}  // namespace halvern::test
