#pragma once
// A fresh instrument for every test: on the host a new sim root, under Wine an emptied D:\logs.
#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <string>
#include <vector>

#include "platform/Clock.h"
#include "spb/SpbEnable.h"

namespace halvern::test {

// Prepares a fresh instrument (platform-specific).
void prepareInstrument();
// Removes what prepareInstrument() made.
void releaseInstrument();
// Whether a test's instrument is prepared now (its log can be read).
bool instrumentPrepared();
// Whether setting the clock reaches a clock: the simulated instrument's does; under Wine the call is refused,
// since the clock there is the machine's running the tests.
bool clockCanBeSet();

// The log's messages without their time stamps, in file order.
std::vector<std::string> logMessages(const char* windowsPath = "D:\\logs\\Halvern.log");
// Whole file content; empty if it does not exist.
std::string readWholeFile(const std::string& windowsPath);
bool writeWholeFile(const std::string& windowsPath, const std::string& content);
// Index of the first message equal to `text` at or after `from`, or -1.
int findMessage(const std::vector<std::string>& messages, const std::string& text, int from = 0);
// True if the messages contain each of `texts` in this order.
bool containsInOrder(const std::vector<std::string>& messages, const std::vector<std::string>& texts);

// Virtual time that calls `onSleep` after each sleep, so a test can act at a chosen moment of a wait.
class ScriptedClockC final : public platform::ClockI {
public:
    std::uint64_t tickCount64() override { return m_now.load(); }
    void sleep(std::uint32_t milliseconds) override
    {
        m_now += milliseconds;
        ++m_sleeps;
        if (onSleep) onSleep(m_sleeps);
    }
    std::chrono::milliseconds idleWait(std::uint64_t milliseconds) override
    {
        m_now += milliseconds;
        return std::chrono::milliseconds(0);
    }
    int sleeps() const { return m_sleeps; }
    std::function<void(int sleepNumber)> onSleep;

private:
    std::atomic<std::uint64_t> m_now{5'000'000};
    int m_sleeps = 0;
};

// Sleeps pass at once and are counted (`onSleep` is called after each); waits for other processes and
// threads take real time, so that they still answer within their time limits.
class SkippedSleepClockC final : public platform::ClockI {
public:
    std::uint64_t tickCount64() override { return m_real.tickCount64() + m_slept.load(); }
    void sleep(std::uint32_t milliseconds) override
    {
        m_slept += milliseconds;
        ++m_sleeps;
        if (onSleep) onSleep(m_sleeps);
    }
    std::chrono::milliseconds idleWait(std::uint64_t milliseconds) override { return m_real.idleWait(milliseconds); }
    std::uint64_t slept() const { return m_slept.load(); }
    std::function<void(int sleepNumber)> onSleep;

private:
    platform::RealClockC m_real;
    std::atomic<std::uint64_t> m_slept{0};
    int m_sleeps = 0;
};

class InstrumentTest : public ::testing::Test {
protected:
    void SetUp() override { prepareInstrument(); }
    void TearDown() override
    {
        platform::setClock(nullptr);
        // The next test's instrument has devices of its own.
        forgetSpbDevices();
        releaseInstrument();
    }
};

}  // namespace halvern::test
