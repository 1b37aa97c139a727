// The EFI-backed commands against the simulated power controller: what a frontend reads is the
// controller's state at that moment, and a controller that does not answer gives code 1.
#include <gtest/gtest.h>

#include "sep/SepCommandTestSupport.h"
#include "sim/ControlCommands.h"
#include "sim/efi/EfiControlCommands.h"
#include "support/TestEnvironment.h"
#include "sysmanager/SysManagerC.h"

namespace halvern::test {
namespace {

class EfiCommandsTest : public InstrumentTest {
protected:
    void SetUp() override
    {
        InstrumentTest::SetUp();
        sim::addEfiControlCommands(m_commands, m_model, m_service);
        ASSERT_TRUE(m_service.start());
        ASSERT_TRUE(SysManagerC::Instance()->GetEFIServiceIPC().InitializeEFICommunication());
        port = std::make_unique<SepCommandPort>();
    }
    void TearDown() override
    {
        port.reset();
        SysManagerC::DestroyInstance();
        m_service.stop();
        InstrumentTest::TearDown();
    }
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

    sim::ControlCommandsC m_commands;
    sim::EfiControllerModelC m_model;
    sim::EfiServiceSimC m_service{m_model};
    std::unique_ptr<SepCommandPort> port;
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

}  // namespace
}  // namespace halvern::test
