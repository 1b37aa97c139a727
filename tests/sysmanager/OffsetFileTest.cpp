// Reading the user time offset file: what a start makes of the lines it finds, on both platforms (text mode
// turns the Windows build's line ends into the same lines).
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "platform/FileSystem.h"
#include "platform/Text.h"
#include "support/TestEnvironment.h"
#include "sysmanager/SysManagerC.h"

namespace halvern::test {
namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::Not;

const char* const kOffsetFile = "C:\\vexarBatches\\Halvern\\user_time_offs.bin";

struct OffsetReadT {
    bool read = false;
    std::int64_t offset = 0;
    std::string name;
    bool daylight = false;
};

class OffsetFileTest : public InstrumentTest {
protected:
    void SetUp() override
    {
        InstrumentTest::SetUp();
        platform::createDirectory(L"C:\\vexarBatches");
        platform::createDirectory(L"C:\\vexarBatches\\Halvern");
    }
    void TearDown() override
    {
        platform::deleteFile(platform::widen(kOffsetFile));
        SysManagerC::DestroyInstance();
        InstrumentTest::TearDown();
    }
    // Writes `content` in text mode, as the instrument writes the file, and reads it back.
    static OffsetReadT readBack(const std::string& content)
    {
        int error = 0;
        {
            auto file = platform::openFile(kOffsetFile, "w", error);
            EXPECT_TRUE(file) << error;
            if (file) std::fputs(content.c_str(), file.get());
        }
        OffsetReadT result;
        result.read = SysManagerC::Instance()->GetCalcOffsetTzStdNameDlght(result.offset, result.name, result.daylight);
        return result;
    }
};

TEST_F(OffsetFileTest, ThreeWrittenLinesGiveOffsetZoneAndDaylightFlag)
{
    const OffsetReadT result = readBack("123456789\nW. Europe Standard Time\ntrue\n");
    ASSERT_TRUE(result.read);
    EXPECT_EQ(result.offset, 123456789);
    EXPECT_EQ(result.name, "W. Europe Standard Time");
    EXPECT_TRUE(result.daylight);
    // The final line end leaves an empty fourth line, which ends the reading harmlessly.
    EXPECT_THAT(logMessages(), ElementsAre("Empty additional line:4 found in offset file!", "",
                                           "Get time offset from file: 123456789", ""));
}

TEST_F(OffsetFileTest, TheFirstLineIsReadAsANumberAndTruncated)
{
    EXPECT_EQ(readBack("1.9e3\nUTC\ntrue\n").offset, 1900);
    EXPECT_EQ(readBack("-5\nUTC\ntrue\n").offset, -5);
    EXPECT_EQ(readBack("  -72000000000 seconds\nUTC\ntrue\n").offset, -72000000000);
    EXPECT_EQ(readBack("-2.9\nUTC\ntrue").offset, -2) << "toward zero, and no final line end needed";
    // Lines after the third are never written and never read.
    const OffsetReadT extra = readBack("7\nTokyo Standard Time\nfalse\nanything\n\n");
    EXPECT_TRUE(extra.read);
    EXPECT_EQ(extra.name, "Tokyo Standard Time");
    EXPECT_FALSE(extra.daylight);
}

TEST_F(OffsetFileTest, OnlyExactlyTrueKeepsDaylightSavingOn)
{
    for (const char* third : {"True", "true ", "TRUE", "1", "false"}) {
        const OffsetReadT result = readBack(std::string("0\nUTC\n") + third + "\n");
        EXPECT_TRUE(result.read) << third;
        EXPECT_FALSE(result.daylight) << third;
    }
}

TEST_F(OffsetFileTest, AMissingOrDamagedFileIsNotUsed)
{
    std::int64_t offset = 0;
    std::string name;
    bool daylight = false;
    EXPECT_FALSE(SysManagerC::Instance()->GetCalcOffsetTzStdNameDlght(offset, name, daylight));
    EXPECT_THAT(logMessages(),
                Contains("[SysManagerC::GetCalcOffsetTzStdNameDlght] Halvern:The file with the stored offset is "
                         "not present!"));

    EXPECT_FALSE(readBack("").read) << "an empty file counts as absent";
    EXPECT_FALSE(readBack("123\n\ntrue\n").read);
    EXPECT_THAT(logMessages(), Contains("Empty mandatory line:2 found in offset file!"));
    EXPECT_FALSE(readBack("123\nUTC\n").read) << "the third line is missing";
    EXPECT_THAT(logMessages(), Contains("Empty mandatory line:3 found in offset file!"));
    EXPECT_FALSE(readBack("123\nUTC").read) << "cut short before its third line";
    EXPECT_FALSE(readBack("an hour\nUTC\ntrue\n").read);
    EXPECT_THAT(logMessages(), Contains("[SysManagerC::GetCalcOffsetTzStdNameDlght] [ERROR]: invalid stod argument"));
    EXPECT_FALSE(readBack("1e30\nUTC\ntrue\n").read);
    EXPECT_FALSE(readBack("1e999\nUTC\ntrue\n").read);
    EXPECT_THAT(logMessages(),
                Contains("[SysManagerC::GetCalcOffsetTzStdNameDlght] [ERROR]: stod argument out of range"));
    EXPECT_THAT(logMessages(), Not(Contains("Get time offset from file: 123")));
}

TEST_F(OffsetFileTest, DeletingWithoutAFileSucceedsWithoutAskingTheWriteFilter)
{
    EXPECT_TRUE(SysManagerC::Instance()->deleteTimeOffsetFile());
    EXPECT_THAT(logMessages(), ElementsAre("deleteTimeOffsetFile", "no time offset file found."));
}

}  // namespace
}  // namespace halvern::test
