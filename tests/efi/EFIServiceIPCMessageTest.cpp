#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "efi/EFIServiceIPC.h"
#include "efi/EFIServiceIPCDirectCommand.h"
#include "support/TestEnvironment.h"

namespace halvern::test {
namespace {

std::wstring request(const EFIServiceIPCMessageI& message)
{
    return message.GetRequestText();
}

// Puts `text` into the message's reply buffer as the service would, UTF-16 with its terminator.
void reply(EFIServiceIPCMessageI& message, const std::u16string& text)
{
    std::memset(message.GetReplyBuffer(), 0, message.GetReplySize());
    std::memcpy(message.GetReplyBuffer(), text.c_str(), (text.size() + 1) * sizeof(char16_t));
}

using EFIMessageTest = InstrumentTest;

TEST_F(EFIMessageTest, RequestsAreBuiltFromTheKeywordTables)
{
    EXPECT_EQ(request(EFIServiceIPCBasicCommand(EFI_BASIC_HWSTATUS)), L"BASIC:HWSTATUS");
    EXPECT_EQ(request(EFIServiceIPCBasicCommand(EFI_BASIC_CLOSE)), L"BASIC:CLOSE");
    // Id 5 is listed twice; the first keyword is the one sent.
    EXPECT_EQ(request(EFIServiceIPCLEDCommand(0, 3, 5)), L"LED:OFF:ON:BLINK");
    EXPECT_EQ(request(EFIServiceIPCLEDCommand(15, 9, 13)), L"LED:BLINK_0_833HZ:BLINK_FAST_1_66HZ:BLINK_FAST_1_25HZ");
    EXPECT_EQ(request(EFIServiceIPCBatteryCommand(EFI_BATTERY_L, EFI_BATTERY_RSOC)), L"BAT:L:RSOC");
    EXPECT_EQ(request(EFIServiceIPCBatteryCommand(EFI_BATTERY_H, EFI_BATTERY_TEMP)), L"BAT:H:TEMP");
    EXPECT_EQ(request(EFIServiceIPCExtSupplyCommand(EFI_EXT_BAT_VOLT)), L"EXT:BAT_VOLT");
    EXPECT_EQ(request(EFIServiceIPCStatusControlCommand(EFI_SC_WAKEUPTIMER, EFI_SC_SET, 60)), L"WAKEUPTIMER:SET:3c");
    EXPECT_EQ(request(EFIServiceIPCStatusControlCommand(EFI_SC_WAKEUPTIMER, EFI_SC_SET, 255)), L"WAKEUPTIMER:SET:ff");
    EXPECT_EQ(request(EFIServiceIPCStatusControlCommand(EFI_SC_WAKEUPTIMER, EFI_SC_SET, 0x1a2b)),
              L"WAKEUPTIMER:SET:1a2b");
    EXPECT_EQ(request(EFIServiceIPCStatusControlCommand(EFI_SC_AUTORUN, EFI_SC_SET, 1)), L"AUTORUN:SET:01");
    EXPECT_EQ(request(EFIServiceIPCStatusControlCommand(EFI_SC_AUTORUN, EFI_SC_GET, 0)), L"AUTORUN:GET");
    EXPECT_EQ(request(EFIServiceIPCStatusControlCommand(EFI_SC_PWRSOURCE, 2, 0)), L"PWRSOURCE:GET");
    EXPECT_EQ(EFIServiceIPCDirectCommand::RegisterSetRequest(79, -2), L"REG:SET:79:-2");
    EXPECT_EQ(EFIServiceIPCDirectCommand::RegisterSetRequest(76, 1), L"");
    EXPECT_EQ(std::wstring(EFIServiceIPCDirectCommand::RegisterGetRequest(81)), L"REG:GET:81");
    EXPECT_EQ(EFIServiceIPCDirectCommand::RegisterGetRequest(82), nullptr);
    // A direct request keeps what fits the buffer with its terminator.
    const EFIServiceIPCDirectCommand longRequest(std::wstring(5000, L'x'));
    EXPECT_EQ(request(longRequest), std::wstring(1023, L'x'));
    EXPECT_EQ(longRequest.GetRequestBytes(), 1024u * 2u);
    EXPECT_TRUE(logMessages().empty());
}

TEST_F(EFIMessageTest, AnIdMissingFromItsTableIsLoggedAndTheCommandNeverReachesThePipe)
{
    EFIServiceIPCBasicCommand basic(8);
    EFIServiceIPCLEDCommand led(1, 0, 0);
    EFIServiceIPCBatteryCommand battery(2, 1);
    EFIServiceIPCExtSupplyCommand ext(3);
    EFIServiceIPCStatusControlCommand control(7, EFI_SC_SET, 1);
    const auto messages = logMessages();
    ASSERT_EQ(messages.size(), 5u);
    EXPECT_EQ(messages[0].rfind("[EFIServiceIPCBasicCommand::EFIServiceIPCBasicCommand] [ERROR]: BASIC command ID 8 "
                                "not found (",
                                0),
              0u);
    EXPECT_EQ(messages[1].rfind("[EFIServiceIPCLEDCommand::EFIServiceIPCLEDCommand] [ERROR]: LED command RGB -> "
                                "LED::: not found (",
                                0),
              0u);
    EXPECT_EQ(messages[2].rfind("[EFIServiceIPCBatteryCommand::EFIServiceIPCBatteryCommand] [ERROR]: Battery command "
                                "ID 2:1 not found (",
                                0),
              0u);
    EXPECT_EQ(messages[3].rfind("[EFIServiceIPCExtSupplyCommand::EFIServiceIPCExtSupplyCommand] [ERROR]: ExtSupply "
                                "command ID 3 not found (",
                                0),
              0u);
    EXPECT_EQ(messages[4].rfind("[EFIServiceIPCStatusControlCommand::EFIServiceIPCStatusControlCommand] [ERROR]: "
                                "Status/Control command ID 7:SET not found (",
                                0),
              0u);
    for (const auto& message : messages)
        EXPECT_EQ(message.substr(message.size() - 2), ")!");

    EXPECT_EQ(basic.GetRequest(), nullptr);
    // Not even a connected client would send it.
    EFIServiceIPC client;
    EXPECT_FALSE(client.ExecuteCommandTransaction(basic));
    EXPECT_EQ(logMessages().size(), 5u);
}

TEST_F(EFIMessageTest, RepliesAreCheckedAndNumbersTakenFromThem)
{
    EFIServiceIPCBatteryCommand battery(EFI_BATTERY_L, EFI_BATTERY_RSOC);
    reply(battery, u"85");
    EXPECT_TRUE(battery.ParseReply());
    EXPECT_EQ(battery.GetValue(), 85);
    reply(battery, u"[ERROR] battery not present");
    EXPECT_FALSE(battery.ParseReply());
    // Only the first seven characters decide.
    reply(battery, u"[ERROR]");
    EXPECT_FALSE(battery.ParseReply());
    reply(battery, u"[ERRO");
    EXPECT_TRUE(battery.ParseReply());

    EFIServiceIPCStatusControlCommand get(EFI_SC_PWRSOURCE, EFI_SC_GET, -1);
    reply(get, u"2");
    EXPECT_TRUE(get.ParseReply());
    EXPECT_EQ(get.GetValue(), 2);
    // Access 2 reads, but its value stays what the caller gave.
    EFIServiceIPCStatusControlCommand otherGet(EFI_SC_PWRSOURCE, 2, 9);
    reply(otherGet, u"2");
    EXPECT_TRUE(otherGet.ParseReply());
    EXPECT_EQ(otherGet.GetValue(), 9);
    EFIServiceIPCStatusControlCommand set(EFI_SC_AUTORUN, EFI_SC_SET, 1);
    reply(set, u"OK");
    EXPECT_TRUE(set.ParseReply());
    EXPECT_EQ(set.GetValue(), 1);
}

TEST_F(EFIMessageTest, HardwareStatusIsParsedOnlyFromAWellFormedStatusReply)
{
    EFIServiceIPCBasicCommand status(EFI_BASIC_HWSTATUS);
    EFIHwStatus hw;
    reply(status, u"EFIRunningMode:2,FPGAReady:1,HPSReady:0,TELOReady:7,");
    ASSERT_TRUE(parseHwStatus(status, hw));
    EXPECT_TRUE(hw.fpgaReady);
    EXPECT_FALSE(hw.hpsReady);
    EXPECT_TRUE(hw.teloReady);

    EFIServiceIPCBasicCommand version(EFI_BASIC_FWVERSION);
    reply(version, u"EFIRunningMode:2,FPGAReady:1,HPSReady:1,TELOReady:1,");
    EXPECT_FALSE(parseHwStatus(version, hw));
    reply(status, u"");
    EXPECT_FALSE(parseHwStatus(status, hw));
    reply(status, u"EFIRunningMode:2,FPGAReady:1,HPSReady:x");
    EXPECT_FALSE(parseHwStatus(status, hw));
    EXPECT_FALSE(hw.fpgaReady);

    EXPECT_EQ(logMessages(), (std::vector<std::string>{
                                 "Got EFI service HW status: EFIRunningMode:2,FPGAReady:1,HPSReady:0,TELOReady:7,",
                                 "[parseHwStatus] [ERROR]: tried to parse HW status, but command ID is 1",
                                 "[parseHwStatus] [ERROR]: invalid reply buffer",
                                 "Got EFI service HW status: EFIRunningMode:2,FPGAReady:1,HPSReady:x",
                                 "[parseHwStatus] [ERROR]: Failed to parse Hw status reply from EFI!",
                             }));
}

}  // namespace
}  // namespace halvern::test
