#include <gtest/gtest.h>

#include "platform/FileSystem.h"
#include "platform/WinError.h"
#include "support/TestEnvironment.h"

namespace halvern::test {
namespace {

class FileSystemTest : public InstrumentTest {};

TEST_F(FileSystemTest, PathsAreCaseInsensitive)
{
    ASSERT_TRUE(writeWholeFile("D:\\logs\\MixedCase.TXT", "content"));
    EXPECT_EQ(readWholeFile("d:\\LOGS\\mixedcase.txt"), "content");
    EXPECT_EQ(readWholeFile("D:/logs/MIXEDCASE.txt"), "content");
    EXPECT_EQ(platform::getFileAttributes(L"D:\\LOGS\\mixedcase.txt"), platform::kFileAttributeArchive);
}

TEST_F(FileSystemTest, ReadOnlyFilesResistRemovalAndWriting)
{
    ASSERT_TRUE(writeWholeFile("D:\\logs\\ro.txt", "keep"));
    ASSERT_TRUE(platform::setFileAttributes(L"D:\\logs\\ro.txt", platform::kFileAttributeReadOnly));
    EXPECT_EQ(platform::getFileAttributes(L"D:\\logs\\ro.txt") & platform::kFileAttributeReadOnly,
              platform::kFileAttributeReadOnly);
    EXPECT_NE(platform::removeFile("D:\\logs\\ro.txt"), 0);
    EXPECT_FALSE(platform::deleteFile(L"D:\\logs\\ro.txt"));
    EXPECT_EQ(platform::lastError(), platform::kErrorAccessDenied);
    int error = 0;
    EXPECT_FALSE(platform::openFile("D:\\logs\\ro.txt", "a+", error));
    EXPECT_EQ(readWholeFile("D:\\logs\\ro.txt"), "keep");

    ASSERT_TRUE(platform::setFileAttributes(L"D:\\logs\\ro.txt", platform::kFileAttributeNormal));
    EXPECT_TRUE(platform::deleteFile(L"D:\\logs\\ro.txt"));
    EXPECT_EQ(platform::getFileAttributes(L"D:\\logs\\ro.txt"), platform::kInvalidFileAttributes);
    EXPECT_EQ(platform::lastError(), platform::kErrorFileNotFound);
}

TEST_F(FileSystemTest, RenameNeverReplacesAnExistingFile)
{
    ASSERT_TRUE(writeWholeFile("D:\\logs\\a.txt", "a"));
    ASSERT_TRUE(writeWholeFile("D:\\logs\\b.txt", "b"));
    EXPECT_NE(platform::renameFile("D:\\logs\\a.txt", "D:\\logs\\b.txt"), 0);
    EXPECT_EQ(readWholeFile("D:\\logs\\b.txt"), "b");
    EXPECT_EQ(platform::renameFile("D:\\logs\\a.txt", "D:\\logs\\c.txt"), 0);
    EXPECT_EQ(readWholeFile("D:\\logs\\c.txt"), "a");
    EXPECT_NE(platform::removeFile("D:\\logs\\a.txt"), 0) << "already moved";
}

TEST_F(FileSystemTest, DirectoriesCanBeCreatedOnce)
{
    EXPECT_TRUE(platform::createDirectory(L"D:\\logs\\sub"));
    EXPECT_FALSE(platform::createDirectory(L"D:\\logs\\sub"));
    EXPECT_EQ(platform::lastError(), platform::kErrorAlreadyExists);
    EXPECT_EQ(platform::getFileAttributes(L"D:\\logs\\sub") & platform::kFileAttributeDirectory,
              platform::kFileAttributeDirectory);
}

}  // namespace
}  // namespace halvern::test
