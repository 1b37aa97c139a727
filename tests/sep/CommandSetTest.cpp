// The instrument's command set as a client meets it: reply header, error texts, the power-cycle and
// shutdown-state commands, the default callback and commands whose subsystem has not landed yet.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <functional>
#include <limits>
#include <string>
#include <typeinfo>
#include <vector>

#include "sep/RecordCoding.h"
#include "sep/SepCommandTestSupport.h"
#include "sep/SepTestSupport.h"
#include "sep/HalvernSepRecords.h"
#include "support/TestEnvironment.h"
#include "sysmanager/SysManagerC.h"

namespace halvern::test {
namespace {

namespace REC = Varda::SEP::HALVERN;

bool logged(const std::string& text)
{
    const auto messages = logMessages();
    return std::find(messages.begin(), messages.end(), text) != messages.end();
}

using CommandSetTest = SepPortTest;

TEST(ErrorTextTest, ComposesCodeTextDetailAndFailureNumber)
{
    EXPECT_EQ(HalvernRpc::composeErrorText(6, {}, nullptr), "General failure");
    EXPECT_EQ(HalvernRpc::composeErrorText(4, "new name", nullptr),
              "Received string is not NULL terminated ( new name)");
    const std::int32_t failure = 109;
    EXPECT_EQ(HalvernRpc::composeErrorText(1, {}, &failure),
              "Internal error, failed to communicate with EFI!error code: 109");
    EXPECT_EQ(HalvernRpc::composeErrorText(5, "RTC", &failure), "Failed to access RTC ( RTC)error code: 109");
    EXPECT_EQ(HalvernRpc::composeErrorText(8, {}, nullptr), "Unknown error");
    EXPECT_EQ(HalvernRpc::composeErrorText(-1, {}, nullptr), "Unknown error");
}

TEST(RecordCodingTest, AStringThatFillsItsWholeBufferIsNotSentAndNotAccepted)
{
    REC::WlanCfg config;
    std::fill(std::begin(config.ssid), std::end(config.ssid), 'a');
    auto coder = SEP::makeCoder(SEP::CodingE::Binary);
    Bytes message;
    EXPECT_FALSE(encode(
        *coder, 1002, SEP::MESSAGE_KIND_COMMAND, {}, {},
        [&](SEP::DataWriterI& w) { return SEP::encodeRecord(w, config); }, message));

    // A peer that sends 256 characters leaves no room for the NUL on this side.
    const std::string longSsid(256, 's');
    ASSERT_TRUE(encode(
        *coder, 1002, SEP::MESSAGE_KIND_COMMAND, {}, {},
        [&](SEP::DataWriterI& w) {
            return w.writeBool(true) && w.writeString(longSsid.c_str()) && w.writeString("pw") && w.writeI32(1);
        },
        message));
    coder->setReadFrame(message.data(), message.size());
    std::uint32_t kind = 0;
    std::uint16_t id = 0;
    SEP::AddressC source, destination;
    ASSERT_TRUE(coder->readHeader(kind, id, source, destination));
    int badString = -1;
    EXPECT_EQ(SEP::decodeRecord(*coder, config, &badString), SEP::DecodeResultE::NotTerminated);
    EXPECT_EQ(badString, 0) << "the ssid";
}

// A record against its wire layout written field by field, in both codings: the record's frame must be the
// layout's frame byte for byte, and the layout's frame must decode into the named fields. A record that
// swaps two fields of one type fails both.
class RecordLayoutTest : public ::testing::Test {
protected:
    using Fields = std::function<bool(SEP::DataWriterI&)>;

    static Bytes frame(SEP::CodingE coding, const Fields& fields)
    {
        auto coder = SEP::makeCoder(coding);
        Bytes message;
        EXPECT_TRUE(encode(*coder, 1, SEP::MESSAGE_KIND_COMMAND, {}, {}, fields, message));
        return message;
    }

    template <typename Record>
    static void expectLayout(Record sent, const Fields& layout, const std::function<void(const Record&)>& check)
    {
        for (auto coding : {SEP::CodingE::Binary, SEP::CodingE::Ascii}) {
            EXPECT_EQ(frame(coding, [&sent](SEP::DataWriterI& w) { return SEP::encodeRecord(w, sent); }),
                      frame(coding, layout))
                << "encoded " << typeid(Record).name();
            const Bytes message = frame(coding, layout);
            auto coder = SEP::makeCoder(coding);
            coder->setReadFrame(message.data(), message.size());
            std::uint32_t kind = 0;
            std::uint16_t id = 0;
            SEP::AddressC source, destination;
            ASSERT_TRUE(coder->readHeader(kind, id, source, destination));
            Record received;
            ASSERT_EQ(SEP::decodeRecord(*coder, received), SEP::DecodeResultE::Ok);
            EXPECT_TRUE(coder->atEnd());
            check(received);
        }
    }
};

TEST_F(RecordLayoutTest, PowerCycleTimeAndLedRequestsFollowTheirLayouts)
{
    REC::DoPowerOffExt power;
    power.type = 2;
    power.force = true;
    power.timeout = 30;
    expectLayout<REC::DoPowerOffExt>(
        power, [](SEP::DataWriterI& w) { return w.writeI32(2) && w.writeBool(true) && w.writeI32(30); },
        [](const REC::DoPowerOffExt& r) {
            EXPECT_EQ(r.type, 2);
            EXPECT_TRUE(r.force);
            EXPECT_EQ(r.timeout, 30);
        });

    REC::TimeSpec time;
    time.year = 2026;
    time.month = 11;
    time.day = 25;
    time.hour = 19;
    time.minute = 48;
    time.second = 7;
    expectLayout<REC::TimeSpec>(
        time,
        [](SEP::DataWriterI& w) {
            return w.writeI32(2026) && w.writeI32(11) && w.writeI32(25) && w.writeI32(19) && w.writeI32(48) &&
                   w.writeI32(7);
        },
        [](const REC::TimeSpec& r) {
            EXPECT_EQ(r.year, 2026);
            EXPECT_EQ(r.month, 11);
            EXPECT_EQ(r.day, 25);
            EXPECT_EQ(r.hour, 19);
            EXPECT_EQ(r.minute, 48);
            EXPECT_EQ(r.second, 7);
        });

    REC::PowerLedCfg led;
    led.state = 1;
    led.colour = 2;
    expectLayout<REC::PowerLedCfg>(
        led, [](SEP::DataWriterI& w) { return w.writeI32(1) && w.writeI32(2); },
        [](const REC::PowerLedCfg& r) {
            EXPECT_EQ(r.state, 1);
            EXPECT_EQ(r.colour, 2);
        });

    REC::WindowsOsTimeInfo info;
    for (int i = 0; i < 6; ++i)
        info.fields[i] = 10 + i;
    std::snprintf(info.timeZone, sizeof info.timeZone, "%s", "W. Europe Standard Time");
    info.daylightSaving = true;
    expectLayout<REC::WindowsOsTimeInfo>(
        info,
        [](SEP::DataWriterI& w) {
            for (int i = 0; i < 6; ++i)
                if (!w.writeI32(10 + i)) return false;
            return w.writeString("W. Europe Standard Time") && w.writeBool(true);
        },
        [](const REC::WindowsOsTimeInfo& r) {
            for (int i = 0; i < 6; ++i)
                EXPECT_EQ(r.fields[i], 10 + i);
            EXPECT_STREQ(r.timeZone, "W. Europe Standard Time");
            EXPECT_TRUE(r.daylightSaving);
        });
}

TEST_F(RecordLayoutTest, FeatureWlanCommandAndUartRequestsFollowTheirLayouts)
{
    // The wire order is the reverse of the log line's: port forwarding, remote desktop, write filter.
    REC::EnaProdFeat features;
    features.portForwarding = true;
    features.remoteDesktop = false;
    features.uwf = false;
    expectLayout<REC::EnaProdFeat>(
        features, [](SEP::DataWriterI& w) { return w.writeBool(true) && w.writeBool(false) && w.writeBool(false); },
        [](const REC::EnaProdFeat& r) {
            EXPECT_TRUE(r.portForwarding);
            EXPECT_FALSE(r.remoteDesktop);
            EXPECT_FALSE(r.uwf);
        });

    REC::WlanCfgExt wlan;
    wlan.enabled = true;
    std::snprintf(wlan.ssid, sizeof wlan.ssid, "%s", "Zentor-1");
    std::snprintf(wlan.password, sizeof wlan.password, "%s", "secret-9");
    wlan.band = 2;
    wlan.extension = false;
    expectLayout<REC::WlanCfgExt>(
        wlan,
        [](SEP::DataWriterI& w) {
            return w.writeBool(true) && w.writeString("Zentor-1") && w.writeString("secret-9") && w.writeI32(2) &&
                   w.writeBool(false);
        },
        [](const REC::WlanCfgExt& r) {
            EXPECT_TRUE(r.enabled);
            EXPECT_STREQ(r.ssid, "Zentor-1");
            EXPECT_STREQ(r.password, "secret-9");
            EXPECT_EQ(r.band, 2);
            EXPECT_FALSE(r.extension);
        });

    REC::ExeCmdRequest command;
    command.vantNotMora = true;
    std::snprintf(command.commandLine, sizeof command.commandLine, "%s", "ipconfig /all");
    std::snprintf(command.directory, sizeof command.directory, "%s", "C:\\");
    command.runnerValue = 5000;
    expectLayout<REC::ExeCmdRequest>(
        command,
        [](SEP::DataWriterI& w) {
            return w.writeBool(true) && w.writeString("ipconfig /all") && w.writeString("C:\\") && w.writeU32(5000);
        },
        [](const REC::ExeCmdRequest& r) {
            EXPECT_TRUE(r.vantNotMora);
            EXPECT_STREQ(r.commandLine, "ipconfig /all");
            EXPECT_STREQ(r.directory, "C:\\");
            EXPECT_EQ(r.runnerValue, 5000u);
        });

    REC::UartTransCmd uart;
    std::snprintf(uart.uartName, sizeof uart.uartName, "%s", "MORA");
    std::snprintf(uart.input, sizeof uart.input, "%s", "uname -a");
    std::snprintf(uart.config, sizeof uart.config, "%s", "115200");
    std::snprintf(uart.reply, sizeof uart.reply, "%s", "Linux");
    uart.a = 1000;
    uart.b = 7;
    expectLayout<REC::UartTransCmd>(
        uart,
        [](SEP::DataWriterI& w) {
            return w.writeString("MORA") && w.writeString("uname -a") && w.writeString("115200") &&
                   w.writeString("Linux") && w.writeU32(1000) && w.writeU32(7);
        },
        [](const REC::UartTransCmd& r) {
            EXPECT_STREQ(r.uartName, "MORA");
            EXPECT_STREQ(r.input, "uname -a");
            EXPECT_STREQ(r.config, "115200");
            EXPECT_STREQ(r.reply, "Linux");
            EXPECT_EQ(r.a, 1000u);
            EXPECT_EQ(r.b, 7u);
        });
}

TEST_F(CommandSetTest, ApiLevelComesWithTheSuccessHeaderInBothCodings)
{
    for (auto coding : {SEP::CodingE::Binary, SEP::CodingE::Ascii}) {
        auto reply = port->ask(1001, {}, coding);
        ASSERT_TRUE(reply.received);
        EXPECT_EQ(reply.returnCode, 1097);
        EXPECT_EQ(reply.facility, 10);
        EXPECT_EQ(reply.level, 0);
        std::int32_t level = 0;
        EXPECT_TRUE(reply.frame.coder->readI32(level));
        EXPECT_EQ(level, 51);
    }
}

TEST_F(CommandSetTest, AnAddressedCommandIsAnsweredWithItsAddressesSwappedInBothCodings)
{
    // From node 9, channel 3, to the server's node 1 and its default channel.
    const SEP::AddressC client(9, 3), server(HalvernRpc::ReaderWriterChannelSetupC::NODE_ID, SEP::INVALID_CHANNEL_ID);
    for (auto coding : {SEP::CodingE::Binary, SEP::CodingE::Ascii}) {
        auto reply = port->askWire(1001, SEP::encodeFrame(coding, 1001, SEP::MESSAGE_KIND_COMMAND, client, server, {}));
        ASSERT_TRUE(reply.received) << "no reply in coding " << static_cast<int>(coding);
        EXPECT_EQ(reply.returnCode, 1097);
        EXPECT_TRUE(reply.frame.source == server);
        EXPECT_TRUE(reply.frame.destination == client);
        std::int32_t level = 0;
        EXPECT_TRUE(reply.frame.coder->readI32(level));
        EXPECT_EQ(level, 51);
    }
    // The same as a client types it.
    const std::string typed = "SC1001@1,255,9,3,";
    std::uint16_t crc = 0;
    for (char c : typed + ":")
        crc = SEP::crc16Update(crc, static_cast<std::uint8_t>(c));
    char checksum[5];
    std::snprintf(checksum, sizeof checksum, "%02X%02X", crc & 0xFF, crc >> 8);
    auto reply = port->askWire(1001, bytesOf(typed + checksum + ":\r\n"));
    ASSERT_TRUE(reply.received);
    EXPECT_EQ(reply.frame.coding, SEP::CodingE::Ascii);
    EXPECT_EQ(std::string(reply.frame.bytes.begin(), reply.frame.bytes.begin() + 17), "SR1001@9,3,1,255,");
}

TEST_F(CommandSetTest, ATruncatedRequestIsAnsweredWithCodeZeroNamingTheCommand)
{
    auto reply = port->ask(1008);
    ASSERT_TRUE(reply.received);
    EXPECT_EQ(reply.returnCode, 889);
    EXPECT_EQ(reply.facility, 10);
    EXPECT_EQ(reply.level, 1);
    EXPECT_EQ(reply.errorText, "Failed to decode SEP request! ( DO_POWER_OFF (1008))");
    EXPECT_TRUE(logged("Failed to decode SEP request! ( DO_POWER_OFF (1008))"));

    // An id without a name in the table still says which one it was.
    reply = port->ask(1027, [](SEP::DataWriterI& w) { return w.writeI32(1); });
    EXPECT_EQ(reply.errorText, "Failed to decode SEP request! ( UKNOWN SEP CMD (1027))");
}

// A request record as the wire carries it: "b" bool, "i" i32, "u" u32, a number a string of that buffer size.
struct StringRequestT {
    std::uint16_t id;
    std::vector<std::string> fields;
    std::vector<std::string> stringNames;
};

TEST_F(CommandSetTest, EveryStringThatDoesNotFitItsBufferIsCodeFourNamingTheField)
{
    const std::vector<StringRequestT> requests = {
        {1002, {"b", "256", "256", "i"}, {"(ssid)", "(password)"}},
        {1064, {"b", "256", "256", "i", "b"}, {"(ssid)", "(password)"}},
        {1011, {"b", "256"}, {"firmware path"}},
        {1035, {"b", "256"}, {"firmware path"}},
        {1016, {"256"}, {"country code"}},
        {1021, {"256"}, {"new name"}},
        {1024, {"b", "1024"}, {"driver path"}},
        {1025, {"b", "1024", "1024", "u"}, {"command line", "directory for cmd"}},
        {1029, {"i", "1024"}, {"string text"}},
        {1030, {"256", "256"}, {"EFI command", "EFI reply"}},
        {1034, {"256"}, {"firmware file path"}},
        {1036, {"256", "256", "256", "4096", "u", "u"}, {"UART name", "UART input", "UART cfg", "UART reply"}},
        {1046, {"i", "i", "256"}, {"string parameter"}},
        {1047, {"i", "i", "256"}, {"property text"}},
        {1054, {"i", "i", "i", "i", "i", "i", "256", "b"}, {"time zone"}},
    };
    for (const auto& request : requests) {
        for (std::size_t bad = 0; bad < request.stringNames.size(); ++bad) {
            auto reply = port->ask(request.id, [&request, bad](SEP::DataWriterI& w) {
                std::size_t string = 0;
                for (const auto& field : request.fields) {
                    bool written = false;
                    if (field == "b") {
                        written = w.writeBool(false);
                    } else if (field == "i") {
                        written = w.writeI32(0);
                    } else if (field == "u") {
                        written = w.writeU32(0);
                    } else {
                        // Exactly the buffer's size: no room left for the NUL.
                        const std::size_t capacity = std::stoul(field);
                        written = w.writeString(std::string(string++ == bad ? capacity : 1, 'x').c_str());
                    }
                    if (!written) return false;
                }
                return true;
            });
            ASSERT_TRUE(reply.received) << request.id;
            EXPECT_EQ(reply.returnCode, 889) << request.id;
            EXPECT_EQ(reply.errorText, "Received string is not NULL terminated ( " + request.stringNames[bad] + ")")
                << request.id;
        }
    }
}

TEST_F(CommandSetTest, AnInvalidPowerOffTypeIsRefusedAndChangesNothing)
{
    SysManagerC::Instance()->ConfigurePowerCycleRequest(POWER_REQUEST_QUIT, false, 0);
    for (std::int32_t type : {0, 3}) {
        auto reply = port->ask(1008, [type](SEP::DataWriterI& w) { return w.writeI32(type); });
        ASSERT_TRUE(reply.received);
        EXPECT_EQ(reply.returnCode, 889);
        EXPECT_EQ(reply.errorText, "Invalid poweroff type: " + std::to_string(type));
    }
    auto reply =
        port->ask(1027, [](SEP::DataWriterI& w) { return w.writeI32(7) && w.writeBool(true) && w.writeI32(9); });
    EXPECT_EQ(reply.errorText, "Invalid poweroff type: 7");
    EXPECT_EQ(SysManagerC::Instance()->GetApplicationPowerRequestType(), POWER_REQUEST_QUIT);
    EXPECT_EQ(SysManagerC::Instance()->GetPowerRequestTimeout(), 0u);
    EXPECT_TRUE(logged("Received power cycle request in legacy mode."));
}

TEST_F(CommandSetTest, AnOutOfRangePowerCycleTimeoutIsRefusedAndChangesNothing)
{
    SysManagerC* manager = SysManagerC::Instance();
    manager->ConfigurePowerCycleRequest(POWER_REQUEST_QUIT, false, 0);
    // The longest delay the close sequence can announce: (time-out + 16 s) in milliseconds fits 32 bits.
    constexpr std::int32_t longest = 4294951;
    for (std::int32_t timeout : {-1, -30, longest + 1, std::numeric_limits<std::int32_t>::max()}) {
        auto reply = port->ask(
            1027, [timeout](SEP::DataWriterI& w) { return w.writeI32(1) && w.writeBool(true) && w.writeI32(timeout); });
        ASSERT_TRUE(reply.received);
        EXPECT_EQ(reply.returnCode, 889);
        EXPECT_EQ(reply.errorText, "Invalid poweroff timeout: " + std::to_string(timeout));
        EXPECT_EQ(manager->GetApplicationPowerRequestType(), POWER_REQUEST_QUIT) << timeout;
        EXPECT_EQ(manager->GetPowerRequestTimeout(), 0u) << timeout;
        EXPECT_FALSE(manager->GetPowerRequestForce()) << timeout;
    }
    EXPECT_FALSE(logged("Configured power cycle request: 2, force: 1, timeout: -1"));

    auto reply = port->ask(
        1027, [longest](SEP::DataWriterI& w) { return w.writeI32(1) && w.writeBool(false) && w.writeI32(longest); });
    EXPECT_EQ(reply.returnCode, 1097);
    ASSERT_TRUE(port->ask(1001).received);
    EXPECT_EQ(manager->GetPowerRequestTimeout(), static_cast<std::uint32_t>(longest));
}

TEST_F(CommandSetTest, APowerCycleRequestIsAnsweredThenConfigured)
{
    auto reply =
        port->ask(1027, [](SEP::DataWriterI& w) { return w.writeI32(2) && w.writeBool(true) && w.writeI32(5); });
    ASSERT_TRUE(reply.received);
    EXPECT_EQ(reply.returnCode, 1097);
    EXPECT_TRUE(reply.frame.coder->atEnd());
    // The answer goes out before the request is stored; the next answer comes once the handler is done.
    ASSERT_TRUE(port->ask(1001).received);
    SysManagerC* manager = SysManagerC::Instance();
    EXPECT_EQ(manager->GetApplicationPowerRequestType(), POWER_REQUEST_REBOOT);
    EXPECT_TRUE(manager->GetPowerRequestForce());
    EXPECT_EQ(manager->GetPowerRequestTimeout(), 5u);
    EXPECT_TRUE(logged("Received power cycle request in standard mode."));
    EXPECT_TRUE(logged("Configured power cycle request: 1, force: 1, timeout: 5"));
    // Without a main window there is nobody to close; that is said, not hidden.
    EXPECT_TRUE(logged("[SysManagerC::SendCloseEvent] [ERROR]: tried to send close event, but handle is null."));

    // The legacy form carries neither force nor time-out.
    reply = port->ask(1008, [](SEP::DataWriterI& w) { return w.writeI32(1); });
    EXPECT_EQ(reply.returnCode, 1097);
    ASSERT_TRUE(port->ask(1001).received);
    EXPECT_EQ(manager->GetApplicationPowerRequestType(), POWER_REQUEST_SHUTDOWN);
    EXPECT_FALSE(manager->GetPowerRequestForce());
    EXPECT_EQ(manager->GetPowerRequestTimeout(), 0u);
}

TEST_F(CommandSetTest, TheInstrumentApplicationsShutdownAnswerIsStored)
{
    auto reply = port->ask(1055, [](SEP::DataWriterI& w) { return w.writeBool(false); });
    EXPECT_EQ(reply.returnCode, 1097);
    EXPECT_EQ(SysManagerC::Instance()->GetAppShutdownAnswer(), APP_SHUTDOWN_NOT_STARTED);
    EXPECT_TRUE(logged("Got request not to start Shutdown process."));
    EXPECT_TRUE(logged("Configured shutdown state request: NO START"));

    reply = port->ask(1055, [](SEP::DataWriterI& w) { return w.writeBool(true); });
    EXPECT_EQ(reply.returnCode, 1097);
    EXPECT_EQ(SysManagerC::Instance()->GetAppShutdownAnswer(), APP_SHUTDOWN_STARTED);
    EXPECT_TRUE(logged("Configured shutdown state request: START"));
}

TEST_F(CommandSetTest, EchoAndUnknownIdsReachTheDefaultCallback)
{
    for (std::uint16_t id : {1000, 1045, 2000})
        ASSERT_TRUE(port->client().sendBytes(
            SEP::encodeFrame(SEP::CodingE::Binary, id, SEP::MESSAGE_KIND_COMMAND, {}, {}, {})));
    // Frames of a connection are handled in order: once this answer is in, the three have been seen, and
    // none of them was answered.
    auto reply = port->ask(1001);
    EXPECT_TRUE(reply.received) << "the connection still serves commands";
    for (std::uint16_t id : {1000, 1045, 2000})
        EXPECT_TRUE(logged("Default SEP callback, msg id: " + std::to_string(id))) << id;
    EXPECT_TRUE(logged("Unknown command: ECHO"));
    EXPECT_TRUE(logged("Unknown command: UKNOWN SEP CMD"));
}

}  // namespace
}  // namespace halvern::test
