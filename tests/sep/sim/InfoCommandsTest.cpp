// The hardware and system information commands through a SEP port of the simulated instrument.
#include <gtest/gtest.h>

#include <cstring>

#include "platform/sim/SimRegistry.h"
#include "sep/RecordCoding.h"
#include "sep/SepCommandTestSupport.h"
#include "sep/HalvernSepRecords.h"
#include "sim/ControlCommands.h"
#include "sim/HardwareSim.h"
#include "support/TestEnvironment.h"

namespace halvern::test {
namespace {

namespace REC = Varda::SEP::HALVERN;

template <typename Record>
bool decoded(CommandReplyT& reply, Record& record)
{
    return reply.received && reply.returnCode == 1097 &&
           SEP::decodeRecord(*reply.frame.coder, record) == SEP::DecodeResultE::Ok;
}

template <std::size_t N>
std::string text(const std::uint8_t (&field)[N])
{
    return std::string(reinterpret_cast<const char*>(field), strnlen(reinterpret_cast<const char*>(field), N));
}

using InfoCommandsTest = SepPortTest;

TEST_F(InfoCommandsTest, TheBoardContentCarriesTheBiosAndTheSensorBoardAdapter)
{
    auto reply = port->ask(1010);
    REC::GetBoardContent board;
    ASSERT_TRUE(decoded(reply, board)) << reply.errorText;
    EXPECT_EQ(board.version, 0x0107);
    const std::uint8_t mac[6] = {0x00, 0x0b, 0x5d, 0x1a, 0x2c, 0x3f};
    EXPECT_EQ(std::memcmp(board.first, mac, 6), 0);
    const std::uint8_t address[4] = {192, 168, 2, 2};
    EXPECT_EQ(std::memcmp(board.second, address, 4), 0);
    EXPECT_EQ(text(board.third), "REV C");
    EXPECT_EQ(text(board.fourth), "VX1.07.00");
    EXPECT_EQ(board.last, 20250314u);

    ASSERT_TRUE(platform::sim::writeValue(platform::RegHive::LocalMachine, "HARDWARE\\DESCRIPTION\\System\\BIOS",
                                          "BIOSReleaseDate", {platform::kRegSz, "unknown"}));
    reply = port->ask(1010);
    EXPECT_EQ(reply.returnCode, 889);
    EXPECT_EQ(reply.errorText, "General failure ( Failed to get board content.)");
}

TEST_F(InfoCommandsTest, EraseCalibrationIsAcknowledgedWithoutARecord)
{
    auto reply = port->ask(1012);
    ASSERT_TRUE(reply.received);
    EXPECT_EQ(reply.returnCode, 1097);
    std::uint8_t extra = 0;
    EXPECT_FALSE(reply.frame.coder->readU8(extra)) << "the reply has no record";
    EXPECT_NE(findMessage(logMessages(), "Received request to erase calibration data."), -1);
}

TEST_F(InfoCommandsTest, FixedStringsByIdAndAnUnknownId)
{
    const std::pair<std::int32_t, const char*> table[] = {
        {0, "4.0.0.0"}, {1, "tx99tool.exe"}, {2, "D:\\logs\\Halvern.log"}};
    for (const auto& [id, expected] : table) {
        REC::GetString request;
        request.id = id;
        auto reply = port->askRecord(1029, request);
        REC::GetString answer;
        ASSERT_TRUE(decoded(reply, answer)) << id << reply.errorText;
        EXPECT_EQ(answer.id, id);
        EXPECT_STREQ(answer.text, expected);
    }
    for (std::int32_t id : {-1, 3, 1000}) {
        REC::GetString request;
        request.id = id;
        auto reply = port->askRecord(1029, request);
        EXPECT_EQ(reply.returnCode, 889) << id;
        EXPECT_EQ(reply.errorText, "General failure ( invalid string identifier)") << id;
    }
    EXPECT_TRUE(containsInOrder(logMessages(), {"Got request to return string 0", "Got request to return string 1",
                                                "Got request to return string 2", "Got request to return string -1"}));
}

TEST_F(InfoCommandsTest, TheWindowsReleaseAndItsAbsence)
{
    auto reply = port->ask(1050);
    REC::WindowsOsInfo info;
    ASSERT_TRUE(decoded(reply, info)) << reply.errorText;
    const char* const expected[] = {
        "Windows 10 IoT Enterprise", "IoTEnterprise", "21H2", "19044.2965", "ZENTOR-1000001", "2025-03-01 08:15:00"};
    for (int i = 0; i < 6; ++i)
        EXPECT_STREQ(info.texts[i], expected[i]) << i;
    EXPECT_NE(findMessage(logMessages(), "Got request to get information about the Windows OS."), -1);

    std::remove(
        (platform::sim::keyFolder(platform::RegHive::LocalMachine, "SOFTWARE\\Microsoft\\Windows NT\\CurrentVersion") +
         "/CurrentBuild")
            .c_str());
    reply = port->ask(1050);
    EXPECT_EQ(reply.errorText, "General failure ( Failed to get Windows OS information.)");
}

TEST_F(InfoCommandsTest, HardwareComponentsByIdAndAnUnknownId)
{
    sim::ControlCommandsC commands;
    sim::addHardwareControlCommands(commands);
    ASSERT_EQ(commands.execute("hw remove wlan"), "OK");
    const std::pair<std::uint32_t, std::uint16_t> states[] = {{1, 0}, {2, 1}, {3, 1}, {4, 1}};
    for (const auto& [id, state] : states) {
        REC::HwComponentId request;
        request.componentId = id;
        auto reply = port->askRecord(1051, request);
        REC::CurHwComponInfo info;
        ASSERT_TRUE(decoded(reply, info)) << id << reply.errorText;
        EXPECT_EQ(info.a, state) << id;
    }
    REC::HwComponentId request;
    request.componentId = 4;
    auto reply = port->askRecord(1051, request);
    REC::CurHwComponInfo info;
    ASSERT_TRUE(decoded(reply, info));
    EXPECT_EQ(text(info.data), "Quillo DMA Controller");

    request.componentId = 7;
    reply = port->askRecord(1051, request);
    EXPECT_EQ(reply.returnCode, 889);
    EXPECT_EQ(reply.errorText, "General failure ( Failed to get hardware component information.)");
    EXPECT_NE(findMessage(logMessages(), "Got request to get information for the following hardware component id: 7"),
              -1);
}

}  // namespace
}  // namespace halvern::test
