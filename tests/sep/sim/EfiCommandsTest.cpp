// The EFI-backed commands against the simulated power controller: what a frontend reads is the
// controller's state at that moment, and a controller that does not answer gives code 1.
#include <gtest/gtest.h>

#include "support/EfiInstrumentTest.h"

namespace halvern::test {
namespace {

class EfiCommandsTest : public EfiInstrumentTest {
protected:
    static std::vector<bool> bools(CommandReplyT& reply, int count)
    {
        std::vector<bool> values;
        for (int i = 0; i < count; ++i) {
            bool value = false;
            if (!reply.frame.coder->readBool(value)) return {};
            values.push_back(value);
        }
        return values;
    }
};

TEST_F(EfiCommandsTest, ReadsBatteriesSupplyAndPowerSourceAsTheControllerHasThem)
{
    EXPECT_EQ(m_commands.execute("efi battery L rsoc 77").rfind("OK", 0), 0u);
    EXPECT_EQ(m_commands.execute("efi battery H rsoc 12").rfind("OK", 0), 0u);
    auto reply = port->ask(1004);
    ASSERT_TRUE(reply.received);
    ASSERT_EQ(reply.returnCode, 1097);
    std::uint32_t values[4] = {};
    for (auto& value : values)
        ASSERT_TRUE(reply.frame.coder->readU32(value));
    EXPECT_EQ(values[1], 77u);
    EXPECT_EQ(values[3], 12u);

    EXPECT_EQ(m_commands.execute("efi ext voltage 18000").rfind("OK", 0), 0u);
    reply = port->ask(1005);
    ASSERT_EQ(reply.returnCode, 1097);
    std::uint32_t voltage = 0;
    ASSERT_TRUE(reply.frame.coder->readU32(voltage));
    EXPECT_EQ(voltage, 18000u);

    reply = port->ask(1009);
    ASSERT_EQ(reply.returnCode, 1097);
    const auto onMains = bools(reply, 11);
    ASSERT_EQ(onMains.size(), 11u);
    EXPECT_EQ(m_commands.execute("efi power battery").rfind("OK", 0), 0u);
    reply = port->ask(1009);
    ASSERT_EQ(reply.returnCode, 1097);
    EXPECT_NE(bools(reply, 11), onMains) << "the flags follow the controller's power source";
}

TEST_F(EfiCommandsTest, SettingsGoToTheControllerAndComeBack)
{
    auto reply = port->ask(1022, [](SEP::DataWriterI& w) { return w.writeBool(true); });
    EXPECT_EQ(reply.returnCode, 1097);
    reply = port->ask(1023);
    ASSERT_EQ(reply.returnCode, 1097);
    EXPECT_EQ(bools(reply, 1), std::vector<bool>{true});

    reply = port->ask(1006,
                      [](SEP::DataWriterI& w) { return w.writeBool(true) && w.writeBool(false) && w.writeBool(true); });
    EXPECT_EQ(reply.returnCode, 1097);
    reply = port->ask(1007);
    ASSERT_EQ(reply.returnCode, 1097);
    EXPECT_EQ(bools(reply, 3), (std::vector<bool>{true, false, true}));

    reply = port->ask(1030, [](SEP::DataWriterI& w) { return w.writeString("AUTORUN:GET") && w.writeString(""); });
    ASSERT_EQ(reply.returnCode, 1097);
    std::string echoed, answer;
    ASSERT_TRUE(reply.frame.coder->readString(echoed));
    ASSERT_TRUE(reply.frame.coder->readString(answer));
    EXPECT_EQ(echoed, "AUTORUN:GET");
    EXPECT_EQ(answer, "1");

    const std::string tooLong(256, 'X');
    reply = port->ask(1030, [&](SEP::DataWriterI& w) { return w.writeString(tooLong.c_str()) && w.writeString(""); });
    EXPECT_EQ(reply.errorText, "Received string is not NULL terminated ( EFI command)");
}

TEST_F(EfiCommandsTest, AControllerThatDoesNotAnswerGivesCodeOne)
{
    m_service.stop();
    for (std::uint16_t id : {1004, 1005, 1007, 1009, 1023}) {
        auto reply = port->ask(id);
        ASSERT_TRUE(reply.received) << id;
        EXPECT_EQ(reply.returnCode, 889) << id;
        EXPECT_EQ(reply.errorText, "Internal error, failed to communicate with EFI!") << id;
    }
    auto reply = port->ask(1030, [](SEP::DataWriterI& w) { return w.writeString("BASIC:PING") && w.writeString(""); });
    EXPECT_EQ(reply.errorText.rfind("Internal error, failed to communicate with EFI!error code: ", 0), 0u)
        << reply.errorText;
}

TEST_F(EfiCommandsTest, PowerLedTakesStateAndColourAndRefusesOthersWithoutTouchingTheLed)
{
    const auto led = [](std::int32_t state, std::int32_t colour) {
        return [=](SEP::DataWriterI& w) { return w.writeI32(state) && w.writeI32(colour); };
    };
    auto reply = port->ask(1052, led(1, 0));
    EXPECT_EQ(reply.returnCode, 1097);
    EXPECT_EQ(m_model.leds(), L"BLINK:BLINK:OFF") << "yellow is red and green";
    reply = port->ask(1052, led(0, 2));
    EXPECT_EQ(reply.returnCode, 1097);
    EXPECT_EQ(m_model.leds(), L"ON:OFF:OFF");
    EXPECT_TRUE(containsInOrder(logMessages(),
                                {"Got request to set Power LED Status.", "LED State: 'Steady'", "LED Color: 'red'"}));

    reply = port->ask(1052, led(2, 1));
    EXPECT_EQ(reply.returnCode, 889);
    EXPECT_EQ(reply.errorText, "Invalid set power led status command requested.");
    reply = port->ask(1052, led(0, 3));
    EXPECT_EQ(reply.errorText, "Invalid set power led color command requested.");
    EXPECT_EQ(m_model.leds(), L"ON:OFF:OFF") << "a refused request changes nothing";

    m_service.stop();
    reply = port->ask(1052, led(0, 1));
    EXPECT_EQ(reply.errorText.rfind("Internal error, failed to communicate with EFI!error code: ", 0), 0u)
        << reply.errorText;
}

TEST_F(EfiCommandsTest, CriticalHardwareFlagsFollowTheControllersStatusText)
{
    EXPECT_EQ(m_commands.execute("efi hwstatus raw EFIRunningMode:0,FPGAReady:1,HPSReady:0,TELOReady:1,ETH:1,FAN:0,")
                  .rfind("OK", 0),
              0u);
    auto reply = port->ask(1056);
    ASSERT_EQ(reply.returnCode, 1097);
    EXPECT_EQ(bools(reply, 5), (std::vector<bool>{true, false, true, true, false}));

    // A controller that names no further parts leaves them not ready.
    EXPECT_EQ(m_commands.execute("efi hwstatus 0 1 1 1").rfind("OK", 0), 0u);
    reply = port->ask(1056);
    ASSERT_EQ(reply.returnCode, 1097);
    EXPECT_EQ(bools(reply, 5), (std::vector<bool>{true, true, true, false, false}));

    EXPECT_EQ(m_commands.execute("efi hwstatus raw EFIRunningMode:0,FPGA:1").rfind("OK", 0), 0u);
    reply = port->ask(1056);
    EXPECT_EQ(reply.errorText, "General failure ( Failed to parse EFI's HW status)");
    m_service.stop();
    reply = port->ask(1056);
    EXPECT_EQ(reply.errorText, "General failure ( Failed to execute HW status EFI command)");
}

TEST_F(EfiCommandsTest, BatteryRegistersPerSlotWithRangeChecks)
{
    for (const char* line : {"efi register 76 4", "efi register 77 1", "efi register 80 7", "efi register 81 0"})
        ASSERT_EQ(m_commands.execute(line).rfind("OK", 0), 0u) << line;
    auto reply = port->ask(1059);
    ASSERT_EQ(reply.returnCode, 1097);
    std::uint32_t types = 0;
    ASSERT_TRUE(reply.frame.coder->readU32(types));
    EXPECT_EQ(types, 0x0104u | (0x0007u << 16));

    const auto slotValue = [](std::uint32_t slot, std::int8_t value) {
        return [=](SEP::DataWriterI& w) { return w.writeU32(slot) && w.writeI8(value); };
    };
    EXPECT_EQ(port->ask(1061, slotValue(2, -5)).returnCode, 1097);
    EXPECT_EQ(port->ask(1063, slotValue(1, 9)).returnCode, 1097);
    const auto offset = [&](std::uint16_t id, std::uint32_t slot) {
        auto answer = port->ask(id, [=](SEP::DataWriterI& w) { return w.writeU32(slot); });
        std::uint32_t echoed = 0;
        std::int8_t value = 0;
        EXPECT_EQ(answer.returnCode, 1097) << answer.errorText;
        EXPECT_TRUE(answer.frame.coder->readU32(echoed) && answer.frame.coder->readI8(value));
        EXPECT_EQ(echoed, slot);
        return static_cast<int>(value);
    };
    EXPECT_EQ(offset(1060, 2), -5) << "register 78";
    EXPECT_EQ(offset(1060, 1), 0) << "register 74 untouched";
    EXPECT_EQ(offset(1062, 1), 9) << "register 75";

    reply = port->ask(1061, slotValue(3, 1));
    EXPECT_EQ(reply.errorText, "Value out of range");
    ASSERT_EQ(m_commands.execute("efi register 77 300").rfind("OK", 0), 0u);
    reply = port->ask(1059);
    EXPECT_EQ(reply.errorText, "Value out of range") << "a register value that is no byte";
    m_service.stop();
    reply = port->ask(1060);
    EXPECT_EQ(reply.errorText.rfind("Internal error, failed to communicate with EFI!error code: ", 0), 0u)
        << reply.errorText;
}

}  // namespace
}  // namespace halvern::test
