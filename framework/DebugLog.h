#pragma once
// The framework's leveled debug output. Lines at or below the active level go to Halvern's log; the
// framework's texts end in "\n", which the log adds itself and is therefore dropped here.
#include <atomic>

#include "platform/Export.h"

namespace BSS {

// 3: routing decisions, 5: dropped frames and server state, 6: per-read traffic, 7: frame dumps.
constexpr int kDebugLevelRouting = 3;
constexpr int kDebugLevelDetail = 5;
constexpr int kDebugLevelTraffic = 6;
constexpr int kDebugLevelDump = 7;

void setDebugLevel(int level);  // below 0 silences the framework
int debugLevel();
bool debugEnabled(int level);

void debugLog(int level, const char* format, ...) HALVERN_PRINTF_FORMAT(2, 3);

// For a line that a peer can cause once per byte or frame it sends: the first `limit` such lines are
// written, the others only counted, and the count goes to the log once, as "... N further lines like this
// suppressed", when the limiter ends with its connection. Garbage from one client cannot push the
// history out of the log.
class LogLimiterC {
public:
    static constexpr unsigned kDefaultLimit = 10;
    explicit LogLimiterC(unsigned limit = kDefaultLimit) : m_limit(limit) {}
    ~LogLimiterC();
    LogLimiterC(const LogLimiterC&) = delete;
    LogLimiterC& operator=(const LogLimiterC&) = delete;

    // True: write the line; false: it was counted.
    bool allow();
    // Writes the count of the lines held back so far, if any, and starts counting anew.
    void summarize();

private:
    unsigned m_limit;
    std::atomic<unsigned> m_written{0};
    std::atomic<unsigned> m_suppressed{0};
};

}  // namespace BSS
