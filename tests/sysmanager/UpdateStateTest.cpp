// What a start makes of the updater's state record and of the production drive's image, on both platforms.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>

#include "platform/FileSystem.h"
#include "platform/Text.h"
#include "support/TestEnvironment.h"
#include "sysmanager/SysManagerC.h"

namespace halvern::test {
namespace {

const char* const kStateFile = "C:\\vexarBatches\\Halvern\\FW_UPDATE_STATE";
const char* const kImage = "f:\\system\\software.img";

// A record as the updater writes it: image path at 0, status at 356, mark at 364, little-endian.
std::string stateRecord(std::uint16_t status, std::uint32_t mark, const std::string& image = {},
                        std::size_t size = SysManagerC::kFwUpdateStateBytes)
{
    std::string record(SysManagerC::kFwUpdateStateBytes, '\x5A');
    record.replace(0, image.size() + 1, image + '\0');
    record[356] = static_cast<char>(status & 0xFF);
    record[357] = static_cast<char>(status >> 8);
    for (int i = 0; i < 4; ++i)
        record[364 + i] = static_cast<char>((mark >> (8 * i)) & 0xFF);
    return record.substr(0, size);
}

class UpdateStateTest : public InstrumentTest {
protected:
    void SetUp() override
    {
        InstrumentTest::SetUp();
        platform::createDirectory(L"C:\\vexarBatches");
        platform::createDirectory(L"C:\\vexarBatches\\Halvern");
        manager = SysManagerC::Instance();
    }
    void TearDown() override
    {
        platform::deleteFile(platform::widen(kStateFile));
        platform::deleteFile(platform::widen(kImage));
        SysManagerC::DestroyInstance();
        InstrumentTest::TearDown();
    }

    SysManagerC* manager = nullptr;
};

TEST_F(UpdateStateTest, OnlyAWholeMarkedRecordWithStatusTwoIsAPendingUpdate)
{
    const struct {
        const char* what;
        std::string record;
        bool valid;
        bool pending;
    } cases[] = {
        {"pending", stateRecord(2, 0xACDC0815u), true, true},
        {"status 1", stateRecord(1, 0xACDC0815u), true, false},
        {"status 3", stateRecord(3, 0xACDC0815u), true, false},
        {"another mark", stateRecord(2, 0xACDC0816u), false, false},
        {"one byte short", stateRecord(2, 0xACDC0815u, {}, SysManagerC::kFwUpdateStateBytes - 1), false, false},
    };
    for (const auto& c : cases) {
        ASSERT_TRUE(writeWholeFile(kStateFile, c.record));
        EXPECT_EQ(manager->readFwUpdateState(), c.valid) << c.what;
        EXPECT_EQ(manager->isFwUpdatePending(), c.pending) << c.what;
    }
    EXPECT_THAT(logMessages(), ::testing::ElementsAre("Update status info: 0x2", "Update status info: 0x1",
                                                      "Update status info: 0x3"));

    platform::deleteFile(platform::widen(kStateFile));
    EXPECT_FALSE(manager->readFwUpdateState());
    EXPECT_FALSE(manager->isFwUpdatePending()) << "a record read before does not outlive its file";
}

TEST_F(UpdateStateTest, APendingUpdateInstallsTheRecordsImageOrElseTheInternalCopy)
{
    ASSERT_TRUE(writeWholeFile(kStateFile, stateRecord(2, 0xACDC0815u, "D:\\Updates\\Zentor-4.1.fw")));
    ASSERT_TRUE(manager->readFwUpdateState());
    EXPECT_EQ(manager->GetPendingUpdateImage(), L"D:\\Updates\\Zentor-4.1.fw");

    ASSERT_TRUE(writeWholeFile(kStateFile, stateRecord(2, 0xACDC0815u)));
    ASSERT_TRUE(manager->readFwUpdateState());
    EXPECT_EQ(manager->GetPendingUpdateImage(), L"C:\\vexarBatches\\Unprotected\\Zentor.fw");
}

TEST_F(UpdateStateTest, TheImageSearchGivesAMountingDriveElevenSeconds)
{
    platform::ManualClockC clock;
    platform::setClock(&clock);
    const std::uint64_t start = clock.tickCount64();
    EXPECT_FALSE(manager->isAutoUpdateFileAvailable());
    EXPECT_EQ(clock.tickCount64() - start, 11000u);
    auto messages = logMessages();
    ASSERT_EQ(messages.size(), 12u);
    EXPECT_EQ(messages[0], "[SysManagerC::isAutoUpdateFileAvailable]: Entering Find update file loop...");
    EXPECT_THAT(
        messages[10],
        ::testing::StartsWith("[SysManagerC::isAutoUpdateFileAvailable] [ERROR]: Iteration 9: FindFirstFile failed ("));
    EXPECT_THAT(messages[11],
                ::testing::StartsWith(
                    "[SysManagerC::isAutoUpdateFileAvailable] [ERROR]: Iteration 10: FindFirstFile failed ("));

    // The stick's root exists on Windows once it is plugged; the fresh sim root has none.
    platform::createDirectory(L"F:\\");
    platform::createDirectory(L"f:\\system");
    ASSERT_TRUE(writeWholeFile(kImage, "image"));
    EXPECT_TRUE(manager->isAutoUpdateFileAvailable());
    EXPECT_EQ(logMessages().back(),
              "[SysManagerC::isAutoUpdateFileAvailable]: Iteration 0: Found update file [f:\\system\\software.img]");
}

TEST_F(UpdateStateTest, CopyingReplacesAWritableTargetOnlyWhenAsked)
{
    const std::wstring from = L"C:\\vexarBatches\\Halvern\\new.fw";
    const std::wstring to = L"C:\\vexarBatches\\Halvern\\copy.fw";
    ASSERT_TRUE(writeWholeFile("C:\\vexarBatches\\Halvern\\new.fw", "new image"));
    ASSERT_TRUE(writeWholeFile("C:\\vexarBatches\\Halvern\\copy.fw", "old image"));

    EXPECT_FALSE(platform::copyFile(from, to, true));
    EXPECT_EQ(platform::lastError(), platform::kErrorFileExists);
    EXPECT_EQ(readWholeFile("C:\\vexarBatches\\Halvern\\copy.fw"), "old image");

    EXPECT_TRUE(platform::copyFile(from, to, false));
    EXPECT_EQ(readWholeFile("C:\\vexarBatches\\Halvern\\copy.fw"), "new image");

    EXPECT_FALSE(platform::copyFile(L"C:\\vexarBatches\\Halvern\\missing.fw", to, false));
    EXPECT_EQ(platform::lastError(), platform::kErrorFileNotFound);
    platform::deleteFile(from);
    platform::deleteFile(to);
}

}  // namespace
}  // namespace halvern::test
