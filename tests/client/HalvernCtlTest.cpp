// halvernctl against a SEP port in the same process: what a service engineer types and what comes back.
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <regex>
#include <sstream>
#include <thread>

#include "client/HalvernCtl.h"
#include "platform/Clock.h"
#include "sep/server/TcpIpServerChannelSetupC.h"
#include "support/TestEnvironment.h"

namespace halvern::test {
namespace {

class HalvernCtlTest : public InstrumentTest {
protected:
    void start(const std::vector<BSS::NET::AddressRangeT>& allowed = BSS::NET::defaultAllowedRanges())
    {
        BSS::NET::NetTcpIpServerCfgT config = HalvernRpc::TcpIpServerChannelSetupC::defaultConfig(0);
        config.listenAddress = platform::kLoopbackAddress;
        config.passTimeoutMs = 20;
        config.allowedRanges = allowed;
        server = std::make_unique<HalvernRpc::TcpIpServerChannelSetupC>(config);
        server->channel().registerCommandHandler(1001, [](SEP::ReceivedCommandC& command) {
            std::uint32_t value = 0;
            std::string text;
            if (!command.reader().readU32(value) || !command.reader().readString(text)) return;
            command.sendReply([&](SEP::DataWriterI& w) {
                return w.writeI32(1097) && w.writeI32(10) && w.writeU16(0) && w.writeU32(value + 1) &&
                       w.writeString(("re: " + text).c_str()) && w.writeDouble(-0.5);
            });
        });
        server->channel().registerCommandHandler(1002, [](SEP::ReceivedCommandC& command) {
            command.sendReply([](SEP::DataWriterI& w) {
                return w.writeI32(889) && w.writeI32(10) && w.writeU16(1) && w.writeString("it \"broke\"");
            });
        });
        // A level the protocol does not know (0..2).
        server->channel().registerCommandHandler(1023, [](SEP::ReceivedCommandC& command) {
            command.sendReply([](SEP::DataWriterI& w) {
                return w.writeI32(1097) && w.writeI32(10) && w.writeU16(3) && w.writeBool(true);
            });
        });
        ASSERT_TRUE(server->start(3600000));
    }
    void TearDown() override
    {
        server.reset();
        InstrumentTest::TearDown();
    }
    int run(std::vector<std::string> arguments)
    {
        arguments.insert(arguments.begin(), {"halvernctl", "--port", std::to_string(server->port())});
        std::vector<const char*> argv;
        for (const auto& argument : arguments)
            argv.push_back(argument.c_str());
        out.str("");
        err.str("");
        return SEP::runHalvernCtl(static_cast<int>(argv.size()), argv.data(), out, err);
    }

    std::unique_ptr<HalvernRpc::TcpIpServerChannelSetupC> server;
    std::ostringstream out;
    std::ostringstream err;
};

TEST_F(HalvernCtlTest, SendsTypedParametersAndPrintsTheReplyInBothCodings)
{
    start();
    EXPECT_EQ(run({"send", "1001", "u32:41", "str:hello world", "--reply", "u32", "str", "f64"}), 0) << err.str();
    EXPECT_EQ(out.str(),
              "reply 1001 (GET_API_LVL) coding binary from - to -\n"
              "  return code: 1097\n  facility: 10\n  level: 0\n"
              "  field 1 (u32): 42\n  field 2 (str): \"re: hello world\"\n  field 3 (f64): -0.5\n");

    EXPECT_EQ(run({"--ascii", "--json", "send", "1001", "u32:1", "str:a\"b", "--reply", "u32", "str"}), 0) << err.str();
    EXPECT_EQ(out.str(),
              "{\"kind\":\"reply\",\"id\":1001,\"name\":\"GET_API_LVL\",\"coding\":\"ascii\",\"source\":null,"
              "\"destination\":null,"
              "\"returnCode\":1097,\"facility\":10,\"level\":0,\"fields\":[{\"type\":\"u32\",\"value\":2},"
              "{\"type\":\"str\",\"value\":\"re: a\\\"b\"}]}\n");
}

TEST_F(HalvernCtlTest, PrintsTheErrorTextOfAFailedCommandAndSaysSoInItsExitCode)
{
    start();
    EXPECT_EQ(run({"--json", "send", "1002"}), SEP::CTL_EXIT_ERROR_REPLY);
    EXPECT_EQ(err.str(), "halvernctl: it \"broke\"\n");
    EXPECT_EQ(out.str(),
              "{\"kind\":\"reply\",\"id\":1002,\"name\":\"WLAN_CFG_SET\",\"coding\":\"binary\",\"source\":null,"
              "\"destination\":null,"
              "\"returnCode\":889,\"facility\":10,\"level\":1,\"fields\":[],\"error\":\"it \\\"broke\\\"\"}\n");
}

TEST_F(HalvernCtlTest, AReplyWithAnUnknownNotificationLevelIsNotTakenForAnAnswer)
{
    start();
    EXPECT_EQ(run({"autorun", "get"}), SEP::CTL_EXIT_SHORT_REPLY);
    EXPECT_EQ(err.str(), "halvernctl: autorun get: Invalid NotificationLevel: 3\n");
    EXPECT_TRUE(out.str().empty()) << out.str();
}

TEST_F(HalvernCtlTest, RejectsBadParametersBeforeConnectingAndReportsARefusal)
{
    start({{0xC0A80200, 0xFFFFFF00}});
    EXPECT_EQ(run({"send", "1001", "u8:300"}), 1);
    EXPECT_NE(err.str().find("not a valid u8 value: u8:300"), std::string::npos) << err.str();
    EXPECT_EQ(run({"send", "70000"}), 1);
    EXPECT_EQ(run({"send", "1001", "bytes:ABC"}), 1);
    EXPECT_EQ(run({"send", "1001", "u32:1", "str:x"}), 3);
    EXPECT_EQ(err.str(), "halvernctl: connection refused: too many clients or address not in range\n");
}

TEST_F(HalvernCtlTest, EventsModeNamesTheInstrumentsEventsAndReadsOthersByTheGivenFields)
{
    start();
    const auto push = [&](std::uint16_t id, const std::function<bool(SEP::DataWriterI&)>& record) {
        EXPECT_TRUE(server->readerWriter().sendToAll(id, SEP::MESSAGE_KIND_EVENT, [&](SEP::DataWriterI& w) {
            return w.writeI32(1097) && w.writeI32(10) && w.writeU16(0) && record(w);
        }));
    };
    const auto listen = [&](std::vector<std::string> arguments) {
        int exitCode = -1;
        std::thread listener([&] { exitCode = run(arguments); });
        for (int attempt = 0; attempt < 1000 && server->server().clientCount() == 0; ++attempt)
            platform::sleepMs(5);
        push(1000, [](SEP::DataWriterI& w) { return w.writeI32(1); });
        push(1003, [](SEP::DataWriterI& w) { return w.writeU32(16000); });
        push(1200, [](SEP::DataWriterI& w) { return w.writeI32(7); });
        listener.join();
        EXPECT_EQ(exitCode, 0);
        for (int attempt = 0; attempt < 1000 && server->server().clientCount() != 0; ++attempt)
            platform::sleepMs(5);
    };

    listen({"events", "--count", "3"});
    // Each known event carries the moment it arrived.
    const std::regex stamp(" at 20[0-9][0-9]-[01][0-9]-[0-3][0-9]T[0-2][0-9]:[0-5][0-9]:[0-5][0-9]\\.[0-9]{3}Z\n");
    EXPECT_TRUE(std::regex_search(out.str(), stamp)) << out.str();
    EXPECT_EQ(std::regex_replace(out.str(), stamp, "\n"),
              "event 1000 button\n  power button: pressed (1)\n"
              "event 1003 shutdown\n  shutdown in: 16000 ms\n"
              "event 1200 coding binary from - to -\n  return code: 1097\n  facility: 10\n  level: 0\n");

    listen({"--json", "events", "--count", "3"});
    std::istringstream lines(out.str());
    std::string line;
    std::vector<nlohmann::json> printed;
    while (std::getline(lines, line))
        printed.push_back(nlohmann::json::parse(line, nullptr, false));
    ASSERT_EQ(printed.size(), 3u) << out.str();
    EXPECT_EQ(printed[0]["event"], "button");
    EXPECT_EQ(printed[0]["button"], "pressed");
    EXPECT_EQ(printed[0]["buttonCode"], 1);
    EXPECT_TRUE(printed[0]["time"].is_string()) << printed[0];
    EXPECT_EQ(printed[1]["timeoutMs"], 16000);
    EXPECT_EQ(printed[2]["id"], 1200);

    listen({"events", "--count", "3", "--fields", "i32"});
    EXPECT_EQ(out.str().substr(0, out.str().find('\n') + 1), "event 1000 (button) coding binary from - to -\n");
    EXPECT_NE(out.str().find("  field 1 (i32): 7\n"), std::string::npos) << out.str();
}

TEST_F(HalvernCtlTest, EventsModePrintsTheOverlayStateWithItsFigures)
{
    start();
    int exitCode = -1;
    std::thread listener([&] { exitCode = run({"events", "--count", "1"}); });
    for (int attempt = 0; attempt < 1000 && server->server().clientCount() == 0; ++attempt)
        platform::sleepMs(5);
    EXPECT_TRUE(server->readerWriter().sendToAll(1006, SEP::MESSAGE_KIND_EVENT, [](SEP::DataWriterI& w) {
        return w.writeI32(1097) && w.writeI32(10) && w.writeU16(0) && w.writeI32(2) && w.writeU32(600) &&
               w.writeU32(400);
    }));
    listener.join();
    EXPECT_EQ(exitCode, 0);
    EXPECT_EQ(std::regex_replace(out.str(), std::regex(" at [-0-9T:.]+Z\n"), "\n"),
              "event 1006 uwf-overlay\n  write filter overlay: warning (2)\n  overlay used: 600 MB\n"
              "  overlay available: 400 MB\n");
}

}  // namespace
}  // namespace halvern::test
