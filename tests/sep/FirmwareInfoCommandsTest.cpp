// The firmware information commands read what the updater describes, on both platforms.
#include <gtest/gtest.h>

#include <string>

#include "platform/FileSystem.h"
#include "platform/Text.h"
#include "sep/RecordCoding.h"
#include "sep/SepCommandTestSupport.h"
#include "sep/HalvernSepRecords.h"
#include "support/TestEnvironment.h"

namespace halvern::test {
namespace {

namespace REC = Varda::SEP::HALVERN;

const char* const kImageConfig = "C:\\vexarBatches\\FirmwareUpdater\\IMG_CONFIG";
const char* const kImage = "C:\\vexarBatches\\FirmwareUpdater\\next.fw";

class FirmwareInfoCommandsTest : public SepPortTest {
protected:
    void SetUp() override
    {
        SepPortTest::SetUp();
        platform::createDirectory(L"C:\\vexarBatches");
        platform::createDirectory(L"C:\\vexarBatches\\FirmwareUpdater");
    }
    void TearDown() override
    {
        platform::deleteFile(platform::widen(kImageConfig));
        platform::deleteFile(platform::widen(kImage));
        SepPortTest::TearDown();
    }
    static std::function<bool(SEP::DataWriterI&)> text(const std::string& value)
    {
        return [value](SEP::DataWriterI& w) { return w.writeString(value.c_str()); };
    }
};

TEST_F(FirmwareInfoCommandsTest, TheInstalledFirmwareAndItsObjectsAreReadFromTheUpdatersDescription)
{
    auto reply = port->ask(1040);
    ASSERT_TRUE(reply.received);
    EXPECT_EQ(reply.errorText, "Internal error, failed to obtain WiFi AP configuration") << "no description yet";

    ASSERT_TRUE(writeWholeFile(kImageConfig,
                               "0;Zentor 4.0;4;0;1187;73400320;1\r\n"
                               "2;MORA kernel;5;15;42;8388608;7\r\n"
                               "3;broken;x;0;0;0;0\r\n"));
    reply = port->ask(1040);
    ASSERT_TRUE(reply.received);
    REC::CurFWinfo firmware;
    ASSERT_EQ(SEP::decodeRecord(*reply.frame.coder, firmware), SEP::DecodeResultE::Ok);
    EXPECT_STREQ(firmware.name, "Zentor 4.0");
    EXPECT_EQ(firmware.a, 0u);
    EXPECT_EQ(firmware.b, 4);
    EXPECT_EQ(firmware.d, 1187u);
    EXPECT_EQ(firmware.e, 73400320u);

    reply = port->ask(1041, [](SEP::DataWriterI& w) { return w.writeU32(2); });
    ASSERT_TRUE(reply.received);
    REC::CurFWinfo object;
    ASSERT_EQ(SEP::decodeRecord(*reply.frame.coder, object), SEP::DecodeResultE::Ok);
    EXPECT_STREQ(object.name, "MORA kernel");
    EXPECT_EQ(object.c, 15);
    EXPECT_EQ(object.f, 7);

    for (std::uint32_t missing : {3u, 9u}) {
        reply = port->ask(1041, [missing](SEP::DataWriterI& w) { return w.writeU32(missing); });
        ASSERT_TRUE(reply.received);
        EXPECT_EQ(reply.errorText, "General failure ( Failed to get firmware POB information.)") << missing;
    }
    EXPECT_NE(findMessage(logMessages(), "Got request to get firmware POB information by using the object id: 9"), -1);
}

TEST_F(FirmwareInfoCommandsTest, AnImageIsDescribedByItsHeaderNextToTheInstalledFirmware)
{
    ASSERT_TRUE(writeWholeFile(kImageConfig, "0;Zentor 4.0;4;0;1187;73400320;1\n"));
    ASSERT_TRUE(writeWholeFile(kImage, std::string("0;Zentor 4.1;4;1;1203;74448896;1\n") + std::string(64, '\0')));
    auto reply = port->ask(1034, text(kImage));
    ASSERT_TRUE(reply.received);
    REC::FwUpdateInfo info;
    ASSERT_EQ(SEP::decodeRecord(*reply.frame.coder, info), SEP::DecodeResultE::Ok);
    EXPECT_STREQ(info.first, "Zentor 4.0");
    EXPECT_STREQ(info.second, kImage);
    EXPECT_EQ(info.c, 1);
    EXPECT_EQ(info.d, 1203u);

    ASSERT_TRUE(writeWholeFile(kImage, "not an image"));
    reply = port->ask(1034, text(kImage));
    ASSERT_TRUE(reply.received);
    EXPECT_EQ(reply.errorText, "General failure ( Failed to get Firmware Update Information.)");

    // Without a pending update the internal copy is the image an update would install; there is none.
    reply = port->ask(1033);
    ASSERT_TRUE(reply.received);
    EXPECT_EQ(reply.errorText, "Internal error, failed to obtain WiFi AP configuration");
}

}  // namespace
}  // namespace halvern::test
