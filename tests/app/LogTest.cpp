#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <regex>
#include <set>
#include <thread>

#include "app/Log.h"
#include "app/LogText.h"
#include "platform/FileSystem.h"
#include "platform/WinError.h"
#include "support/TestEnvironment.h"

namespace halvern::test {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;

class LogTest : public InstrumentTest {};

// The log as its lines read: the Windows build writes it in text mode, so each line ends in CR LF there.
std::string logLines()
{
    std::string content = readWholeFile(kLogFilePath);
    std::string lines;
    for (std::size_t i = 0; i < content.size(); ++i)
        if (!(content[i] == '\r' && i + 1 < content.size() && content[i + 1] == '\n')) lines += content[i];
    return lines;
}

TEST_F(LogTest, LineCarriesLocalTimeStampTabAndText)
{
    WriteLog("[%s] [ERROR]: value %d of %ls", "SysManagerC::GetI2cRtcTime", 42, L"wide");
    const std::string content = readWholeFile(kLogFilePath);
    EXPECT_TRUE(std::regex_match(content, std::regex("\\d{4}-\\d{2}-\\d{2} \\d{2}:\\d{2}:\\d{2}\t"
                                                     "\\[SysManagerC::GetI2cRtcTime\\] \\[ERROR\\]: value 42 of "
                                                     "wide\r?\n")))
        << content;
}

TEST_F(LogTest, WideStringsAnd64BitNumbersInTheWindowsSpellingAreWrittenToo)
{
    // Through a variable: the compiler's format check does not know %ws.
    const char* format = "[%s] [ERROR]: Failed to start %ws, ERROR(%d)";
    WriteLog(format, "SysManagerC::StartComApplication", L"DiagnosticsService.exe", 2);
    EXPECT_THAT(
        logMessages(),
        ElementsAre("[SysManagerC::StartComApplication] [ERROR]: Failed to start DiagnosticsService.exe, ERROR(2)"));
}

TEST_F(LogTest, ControlCharactersOfArgumentsAreEscapedSoThatNoArgumentStartsALine)
{
    // What a client could send as a string to forge a line of its own.
    WriteLog("Got request to execute command. cmd: %s, dir: %s", "x\n2026-11-25 12:00:00\tInitiate Shutdown sequence",
             "\x01\r");
    // The format's own line feeds stay: the text is the program's, not a client's.
    WriteLog("Command's return code: %d, output:\n%s\n", 0, "a\nb");
    const std::string content = logLines();
    EXPECT_THAT(content, HasSubstr("cmd: x\\n2026-11-25 12:00:00\tInitiate Shutdown sequence, dir: \\x01\\r\n"));
    EXPECT_THAT(content, HasSubstr("Command's return code: 0, output:\na\\nb\n\n"));
    EXPECT_EQ(std::count(content.begin(), content.end(), '\n'), 4) << content;
    EXPECT_EQ(content.find("\n2026-11-25 12:00:00"), std::string::npos);
}

TEST_F(LogTest, NumbersAndTextsAreFormattedAsPrintfDoes)
{
    WriteLog("%5.2f|%-4d|%04X|%c|%%|%.3s|%-6s|%6s|%*d|%lu|%ld", 3.14159, 7, 0xBEEFu, 'z', "abcdef", "ab", "cd", 4, 9,
             123456789UL, -42L);
    char expected[256];
    std::snprintf(expected, sizeof expected, "%5.2f|%-4d|%04X|%c|%%|%.3s|%-6s|%6s|%*d|%lu|%ld", 3.14159, 7, 0xBEEFu, 'z',
                  "abcdef", "ab", "cd", 4, 9, 123456789UL, -42L);
    EXPECT_THAT(logMessages(), ElementsAre(expected));
}

TEST_F(LogTest, ALineIsCutAtItsMaximumWithAMarkAndTheNextLineIsWhole)
{
    const std::string huge(2 * 1024 * 1024, 'o');
    WriteLog("output: %s", huge.c_str());
    WriteLog("next");
    const std::string content = logLines();
    const std::size_t firstEnd = content.find('\n');
    ASSERT_NE(firstEnd, std::string::npos);
    EXPECT_EQ(firstEnd + 1, kLogLineMax) << "the first line, its line end included, fills the maximum exactly";
    const std::string first = content.substr(0, firstEnd);
    EXPECT_TRUE(std::regex_search(first, std::regex("o \\[cut \\d+ bytes\\]$"))) << first.substr(first.size() - 40);
    const std::size_t cut = std::stoul(first.substr(first.rfind("[cut ") + 5));
    EXPECT_EQ(first.size() - kLogStampLength - (first.size() - first.rfind(" [cut")) + cut,
              std::string("output: ").size() + huge.size());
    EXPECT_THAT(content.substr(firstEnd + 1), HasSubstr("\tnext\n"));
}

TEST_F(LogTest, NetworkHelperLoggerWritesToTheSameLog)
{
    NetworkHelperLog(reinterpret_cast<void*>(0x1234), "WSAStartup failed with error: %d", 10093);
    g_networkHelperLogger = NetworkHelperLog;
    g_networkHelperLogger(nullptr, "socket failed with error: %ld", 10047L);
    NetworkHelperRegisterLogger();  // kept for API callers; must change nothing
    EXPECT_THAT(logMessages(), ElementsAre("WSAStartup failed with error: 10093", "socket failed with error: 10047"));
}

TEST_F(LogTest, RollsOverOnlyWhenLargerThanTwoMebibytes)
{
    const std::string atLimit(0x200000, 'a');
    ASSERT_TRUE(writeWholeFile(kLogFilePath, atLimit));
    WriteLog("appended");
    EXPECT_GT(readWholeFile(kLogFilePath).size(), atLimit.size()) << "a log of exactly 2 MiB is appended to";
    EXPECT_EQ(readWholeFile(kLogBackupPath), "");

    const std::string overLimit(0x200001, 'b');
    ASSERT_TRUE(writeWholeFile(kLogFilePath, overLimit));
    ASSERT_TRUE(writeWholeFile(kLogBackupPath, "previous generation\n"));
    testing::internal::CaptureStdout();
    WriteLog("first of the new file");
    const std::string diagnostics = testing::internal::GetCapturedStdout();
    EXPECT_EQ(readWholeFile(kLogBackupPath), overLimit);
    EXPECT_THAT(logMessages(), ElementsAre("first of the new file"));
    // The previous backup is replaced without a complaint.
    EXPECT_EQ(diagnostics, "");
}

TEST_F(LogTest, FirstRolloverReportsTheMissingBackupAndGoesOn)
{
    ASSERT_TRUE(writeWholeFile(kLogFilePath, std::string(0x200001, 'c')));
    testing::internal::CaptureStdout();
    WriteLog("after rollover");
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "Failed to delete old file log D:\\logs\\Halvern.log.old\n");
    EXPECT_EQ(readWholeFile(kLogBackupPath).size(), 0x200001u);
    EXPECT_THAT(logMessages(), ElementsAre("after rollover"));
}

TEST_F(LogTest, ReadOnlyBackupLeavesItInPlaceAndTruncatesTheLog)
{
    ASSERT_TRUE(writeWholeFile(kLogBackupPath, "old generation\n"));
    ASSERT_TRUE(platform::setFileAttributes(L"D:\\logs\\Halvern.log.old", platform::kFileAttributeReadOnly));
    ASSERT_TRUE(writeWholeFile(kLogFilePath, std::string(0x200001, 'd')));

    testing::internal::CaptureStdout();
    WriteLog("new file starts here");
    const std::string diagnostics = testing::internal::GetCapturedStdout();
    EXPECT_THAT(diagnostics, HasSubstr("Failed to delete old file log D:\\logs\\Halvern.log.old\n"));
    EXPECT_THAT(diagnostics, HasSubstr("Failed to make backup of old D:\\logs\\Halvern.log\n"));
    EXPECT_EQ(readWholeFile(kLogBackupPath), "old generation\n");
    EXPECT_THAT(logMessages(), ElementsAre("new file starts here"));

    platform::setFileAttributes(L"D:\\logs\\Halvern.log.old", platform::kFileAttributeNormal);
}

TEST_F(LogTest, ALineLeavesTheCallersLastErrorAsItFoundIt)
{
    // Whatever the log meets on the way (a new file, an existing one, a rollover, no folder at all), the
    // caller reads the error of its own failed call after logging it.
    const auto logKeeps = [](std::uint32_t error, const char* line) {
        platform::setLastError(error);
        WriteLog("%s", line);
        return platform::lastError();
    };
    EXPECT_EQ(logKeeps(platform::kErrorIoPending, "creates the file"), platform::kErrorIoPending);
    EXPECT_EQ(logKeeps(platform::kErrorBrokenPipe, "appends to the existing file"), platform::kErrorBrokenPipe);
    EXPECT_EQ(logKeeps(platform::kErrorSuccess, "appends once more"), platform::kErrorSuccess);
    ASSERT_TRUE(writeWholeFile(kLogFilePath, std::string(0x200001, 'e')));
    testing::internal::CaptureStdout();
    EXPECT_EQ(logKeeps(platform::kErrorPipeBusy, "after the rollover"), platform::kErrorPipeBusy);
    std::error_code ignored;
    std::filesystem::remove_all(platform::nativePath("D:\\logs"), ignored);
    EXPECT_EQ(logKeeps(platform::kErrorNoData, "lost"), platform::kErrorNoData);
    testing::internal::GetCapturedStdout();
}

TEST_F(LogTest, MissingLogFolderLosesTheMessageAndSaysSoOnStdout)
{
    std::error_code ignored;
    std::filesystem::remove_all(platform::nativePath("D:\\logs"), ignored);
    testing::internal::CaptureStdout();
    WriteLog("lost");
    WriteLog("lost too");
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "Could not open log file D:\\logs\\Halvern.log for appending: 2.\n"
              "Could not open log file D:\\logs\\Halvern.log for appending: 2.\n");
}

TEST_F(LogTest, ConcurrentWritersNeverInterleaveOrLoseLines)
{
    constexpr int kThreads = 6;
    constexpr int kLinesEach = 150;
    std::vector<std::thread> writers;
    for (int t = 0; t < kThreads; ++t) {
        writers.emplace_back([t] {
            for (int i = 0; i < kLinesEach; ++i)
                WriteLog("writer %d line %d %s", t, i, std::string(200, 'x').c_str());
        });
    }
    for (auto& writer : writers)
        writer.join();

    const auto messages = logMessages();
    ASSERT_EQ(messages.size(), static_cast<std::size_t>(kThreads * kLinesEach));
    std::set<std::string> seen(messages.begin(), messages.end());
    for (int t = 0; t < kThreads; ++t) {
        for (int i = 0; i < kLinesEach; ++i) {
            const std::string expected =
                "writer " + std::to_string(t) + " line " + std::to_string(i) + " " + std::string(200, 'x');
            EXPECT_EQ(seen.count(expected), 1u) << expected;
        }
    }
}

TEST_F(LogTest, ConcurrentWritersAcrossTheRolloverRollOnce)
{
    ASSERT_TRUE(writeWholeFile(kLogFilePath, std::string(0x200000, 'e')));
    testing::internal::CaptureStdout();
    std::vector<std::thread> writers;
    for (int t = 0; t < 4; ++t) {
        writers.emplace_back([t] {
            for (int i = 0; i < 50; ++i)
                WriteLog("writer %d line %d", t, i);
        });
    }
    for (auto& writer : writers)
        writer.join();
    testing::internal::GetCapturedStdout();
    // The first line crossed the limit; the others went to the fresh file.
    const std::string backup = readWholeFile(kLogBackupPath);
    EXPECT_EQ(backup.size() > 0x200000u, true);
    EXPECT_EQ(std::count(backup.begin(), backup.end(), '\n'), 1);
    EXPECT_EQ(logMessages().size(), 199u);
}

}  // namespace
}  // namespace halvern::test
