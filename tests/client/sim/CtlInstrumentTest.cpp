// halvernctl against Halvern's command set on a simulated instrument: a technician reads the power
// controller as it is at that moment, changes its settings, hears its events, and sees its failures.
#include <gtest/gtest.h>

#include <algorithm>
#include <regex>
#include <sstream>
#include <thread>

#include "app/StartUpSteps.h"
#include "client/CtlShell.h"
#include "client/CtlTestSupport.h"
#include "sep/server/HalvernSepImpl.h"
#include "support/EfiInstrumentTest.h"

namespace halvern::test {
namespace {

class CtlInstrumentTest : public EfiInstrumentTest {
protected:
    CtlRunT ctl(std::vector<std::string> arguments) { return runCtl(port->server().port(), std::move(arguments)); }
};

TEST_F(CtlInstrumentTest, ReadsBatteriesSupplyAndPowerSourceAsTheControllerHasThemNow)
{
    simulate("efi battery L rsoc 77");
    simulate("efi battery H rsoc 12");
    simulate("efi battery H status 3");
    CtlRunT run = ctl({"battery"});
    ASSERT_EQ(run.exitCode, 0) << run.err;
    EXPECT_NE(run.out.find("battery L charge: 77 %\n"), std::string::npos) << run.out;
    EXPECT_NE(run.out.find("battery H status: 3\n"), std::string::npos) << run.out;
    EXPECT_NE(run.out.find("battery H charge: 12 %\n"), std::string::npos) << run.out;

    simulate("efi battery L rsoc 76");
    simulate("efi ext voltage 18000");
    run = ctl({"battery", "--json"});
    ASSERT_EQ(run.exitCode, 0) << run.err;
    auto json = run.json();
    EXPECT_EQ(json["batteryLCharge"], 76);
    EXPECT_EQ(json["batteryHCharge"], 12);
    EXPECT_EQ(json["batteryHStatus"], 3);
    run = ctl({"--json", "ext-supply"});
    EXPECT_EQ(run.json()["voltage"], 18000) << run.out;

    run = ctl({"--json", "power-source"});
    ASSERT_EQ(run.exitCode, 0) << run.err;
    EXPECT_EQ(run.json()["register"], sim::kPowerSourceMains);
    simulate("efi power battery");
    run = ctl({"power-source"});
    EXPECT_NE(run.out.find("power-source register: 2\n"), std::string::npos) << run.out;
    EXPECT_NE(run.out.find("power-source flag bit  0: clear\npower-source flag bit  1: set\n"), std::string::npos)
        << run.out;
    EXPECT_NE(run.out.find("power-source flag bit 10: clear\n"), std::string::npos) << run.out;
}

TEST_F(CtlInstrumentTest, SettingsReachTheControllerAndReadBack)
{
    EXPECT_EQ(ctl({"autorun", "set", "on"}).out, "autorun set on\n");
    EXPECT_EQ(m_model.statusControl(L"AUTORUN"), 1);
    EXPECT_EQ(ctl({"autorun", "get"}).out, "autorun: on\n");

    EXPECT_EQ(ctl({"power-select", "set", "--bit0", "on", "--bit1", "off", "--bit2", "on"}).exitCode, 0);
    EXPECT_EQ(m_model.statusControl(L"PWRSELECT"), 5);
    const auto json = ctl({"--json", "power-select", "get"}).json();
    EXPECT_EQ(json["selection"], nlohmann::json::parse("[true,false,true]")) << json;

    // A raw controller command comes back with the controller's own answer.
    CtlRunT run = ctl({"efi", "PWRSELECT:GET"});
    ASSERT_EQ(run.exitCode, 0) << run.err;
    EXPECT_EQ(run.out, "request: \"PWRSELECT:GET\"\nreply: \"5\"\n");
}

TEST_F(CtlInstrumentTest, AControllerThatFailsGivesTheServersErrorText)
{
    CtlRunT run = ctl({"efi", "BASIC:NOSUCHTHING"});
    EXPECT_EQ(run.exitCode, SEP::CTL_EXIT_ERROR_REPLY);
    EXPECT_EQ(run.err.rfind("halvernctl: efi: Internal error, failed to communicate with EFI!error code: ", 0), 0u)
        << run.err;

    m_service.stop();
    run = ctl({"battery"});
    EXPECT_EQ(run.exitCode, SEP::CTL_EXIT_ERROR_REPLY);
    EXPECT_EQ(run.err,
              "halvernctl: battery: Internal error, failed to communicate with EFI!\n"
              "  hint: the power controller's EFI service did not answer: it may be stopped or restarting\n");
    EXPECT_TRUE(run.out.empty());
}

TEST_F(CtlInstrumentTest, EventsArePrintedByNameWithTheControllersStateWhenRaised)
{
    ASSERT_TRUE(StartSepServer());
    std::uint16_t primary = 0;
    forEachSepServer([&](HalvernRpc::TcpIpServerChannelSetupC& server) {
        primary = server.port();
        return false;
    });
    CtlRunT run;
    std::thread listener([&] { run = runCtl(primary, {"events", "--count", "3"}); });
    bool listening = false;
    for (int attempt = 0; attempt < 1000 && !listening; ++attempt) {
        forEachSepServer([&](HalvernRpc::TcpIpServerChannelSetupC& server) {
            listening = server.server().clientCount() > 0;
            return false;
        });
        platform::sleepMs(5);
    }
    simulate("efi power battery");
    EXPECT_TRUE(HalvernSepImpl::raisePwrSrcStatus());
    EXPECT_TRUE(HalvernSepImpl::raiseEfiBtnReleased());
    EXPECT_TRUE(HalvernSepImpl::raiseShutdownNotif(16000));
    listener.join();
    EXPECT_EQ(run.exitCode, 0) << run.err;
    const std::string out = std::regex_replace(run.out, std::regex(" at [-0-9T:.]+Z\n"), "\n");
    EXPECT_EQ(out.rfind("event 1001 power-source\n  power-source register: 2\n", 0), 0u) << run.out;
    EXPECT_NE(out.find("event 1000 button\n  power button: released (2)\n"
                       "event 1003 shutdown\n  shutdown in: 16000 ms\n"),
              std::string::npos)
        << run.out;
}

TEST_F(CtlInstrumentTest, TheInteractiveModeRunsEachLineAndShowsEventsBetweenThem)
{
    ASSERT_TRUE(StartSepServer());
    std::uint16_t primary = 0;
    const auto clients = [&] {
        std::size_t count = 0;
        forEachSepServer([&](HalvernRpc::TcpIpServerChannelSetupC& server) {
            primary = server.port();
            count = server.server().clientCount();
            return false;
        });
        return count;
    };
    clients();
    // A command that takes a while, so that the event comes while the mode runs.
    std::istringstream in("api-level\nbatery\n\nwatch --count 5 --interval 300\nexit\nefi PWRSELECT:GET\n");
    std::ostringstream out, err;
    const SEP::ShellSetupT setup{"127.0.0.1", primary, {"--port", std::to_string(primary)}, false};
    int exitCode = -1;
    std::thread shell([&] { exitCode = SEP::runShell(setup, false, in, out, err); });
    for (int attempt = 0; attempt < 1000 && clients() == 0; ++attempt)
        platform::sleepMs(5);
    platform::sleepMs(300);
    EXPECT_TRUE(HalvernSepImpl::raiseEfiBtnReleased());
    shell.join();
    EXPECT_EQ(exitCode, 0) << err.str();
    const std::string text = out.str();
    EXPECT_NE(text.find("events are shown as they come"), std::string::npos) << text;
    EXPECT_NE(text.find("halvernctl> API level: 51\n"), std::string::npos) << text;
    EXPECT_NE(text.find("event 1000 button at "), std::string::npos) << text;
    EXPECT_NE(text.find("  power button: released (2)\n"), std::string::npos) << text;
    EXPECT_NE(err.str().find("unknown command \"batery\"\n  hint: did you mean battery?"), std::string::npos)
        << err.str();
    EXPECT_EQ(text.find("PWRSELECT"), std::string::npos) << "nothing runs after exit";
}

TEST_F(CtlInstrumentTest, TheInteractiveModeSplitsLinesAsAShellDoesAndCompletesVerbsAndValues)
{
    EXPECT_EQ(SEP::splitWords("led --state 'steady' \"a b\" c\\ d"),
              (std::vector<std::string>{"led", "--state", "steady", "a b", "c d"}));
    const SEP::ShellSetupT setup{"127.0.0.1", 9, {"--port", "9"}, false};
    const auto first = SEP::shellCompletions(setup, "bat");
    EXPECT_NE(std::find(first.begin(), first.end(), "battery"), first.end());
    EXPECT_NE(std::find(first.begin(), first.end(), "exit"), first.end());
    EXPECT_EQ(SEP::shellCompletions(setup, "wlan set --band "), (std::vector<std::string>{"2.4", "5", "both"}));
    EXPECT_EQ(SEP::shellCompletions(setup, "led --colour gr"), (std::vector<std::string>{"yellow", "green", "red"}))
        << "the word under the cursor is left to the line editor to match";
}

TEST_F(CtlInstrumentTest, TheWlanDriversChannelAndCountryAndTheInterfacesAddressesAreReadAndSet)
{
    CtlRunT run = ctl({"wlan-channel", "set", "36"});
    ASSERT_EQ(run.exitCode, 0) << run.err;
    run = ctl({"--json", "wlan-channel", "get"});
    ASSERT_EQ(run.exitCode, 0) << run.err;
    EXPECT_EQ(run.json()["channel"], 36);
    EXPECT_EQ(run.json()["width"], "HT20") << "HT20 unless asked otherwise";
    EXPECT_EQ(run.json()["widthCode"], 2);
    run = ctl({"channel", "set", "165", "--width", "HT40+"});
    ASSERT_EQ(run.exitCode, 0) << run.err;
    EXPECT_EQ(ctl({"channel", "get"}).out, "channel: 165\nwidth: HT40+ (1)\n");
    EXPECT_EQ(ctl({"wlan-channel", "set", "33"}).exitCode, SEP::CTL_EXIT_BAD_ARGUMENTS);

    EXPECT_EQ(ctl({"country", "get"}).out, "country code: \"CH\"\n");
    run = ctl({"net-info", "wired", "mac"});
    ASSERT_EQ(run.exitCode, 0) << run.err;
    EXPECT_EQ(run.out, "interface: wired (0)\nphysical address: \"00-0b-5d-1a-2c-3f\"\n");
    run = ctl({"--json", "net-info", "hosted", "ipv4"});
    EXPECT_EQ(run.json()["ipv4"], "192.168.137.1") << run.out;
    run = ctl({"net-info", "wlan", "ipv4"});
    EXPECT_EQ(run.exitCode, SEP::CTL_EXIT_ERROR_REPLY);
    EXPECT_EQ(run.err, "halvernctl: net-info: General failure ( failed to obtain net interface property)\n");
}

}  // namespace
}  // namespace halvern::test
