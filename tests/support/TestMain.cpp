#include <gtest/gtest.h>

#include <clocale>
#include <cstdio>

#include "support/TestEnvironment.h"

namespace {

// A failure on a busy machine is often seen once: the instrument's log at that moment says what Halvern did,
// so the first failing check of a test prints the log's last lines beside it.
class LogTailOnFailureC final : public ::testing::EmptyTestEventListener {
public:
    void OnTestStart(const ::testing::TestInfo&) override { m_printed = false; }
    void OnTestPartResult(const ::testing::TestPartResult& result) override
    {
        if (!result.failed() || m_printed || !halvern::test::instrumentPrepared()) return;
        m_printed = true;
        const std::vector<std::string> messages = halvern::test::logMessages();
        const std::size_t first = messages.size() > kLines ? messages.size() - kLines : 0;
        std::printf("--- the instrument's log, last %zu of %zu lines ---\n", messages.size() - first,
                    messages.size());
        for (std::size_t i = first; i < messages.size(); ++i)
            std::printf("  | %.300s\n", messages[i].c_str());
        std::printf("--- end of the log ---\n");
    }

private:
    static constexpr std::size_t kLines = 40;
    bool m_printed = false;
};

}  // namespace

int main(int argc, char** argv)
{
    // Wide strings reach the log through "%S", which converts with the C library's locale.
    std::setlocale(LC_CTYPE, "C.UTF-8");
    ::testing::InitGoogleTest(&argc, argv);
    ::testing::UnitTest::GetInstance()->listeners().Append(new LogTailOnFailureC);
    return RUN_ALL_TESTS();
}
