// The instrument's command set as a client meets it: reply header, error texts, the power-cycle and
// shutdown-state commands, the default callback and commands whose subsystem has not landed yet.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>

#include "sep/RecordCoding.h"
#include "sep/SepCommandTestSupport.h"
#include "sep/SepTestSupport.h"
#include "sep/server/HalvernSepRecords.h"
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

TEST(RecordCodingTest, OneVisitEncodesAndDecodesEveryFieldInOrder)
{
    REC::WindowsOsTimeInfo sent;
    for (int i = 0; i < 6; ++i)
        sent.fields[i] = 2000 + i;
    std::snprintf(sent.timeZone, sizeof sent.timeZone, "%s", "W. Europe Standard Time");
    sent.daylightSaving = true;
    for (auto coding : {SEP::CodingE::Binary, SEP::CodingE::Ascii}) {
        auto coder = SEP::makeCoder(coding);
        Bytes message;
        ASSERT_TRUE(encode(
            *coder, 1054, SEP::MESSAGE_KIND_COMMAND, {}, {},
            [&](SEP::DataWriterI& w) { return SEP::encodeRecord(w, sent); }, message));
        coder->setReadFrame(message.data(), message.size());
        std::uint32_t kind = 0;
        std::uint16_t id = 0;
        SEP::AddressC source, destination;
        ASSERT_TRUE(coder->readHeader(kind, id, source, destination));
        REC::WindowsOsTimeInfo received;
        ASSERT_EQ(SEP::decodeRecord(*coder, received), SEP::DecodeResultE::Ok);
        EXPECT_TRUE(std::equal(std::begin(sent.fields), std::end(sent.fields), std::begin(received.fields)));
        EXPECT_STREQ(received.timeZone, "W. Europe Standard Time");
        EXPECT_TRUE(received.daylightSaving);
        EXPECT_TRUE(coder->atEnd());
    }
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
