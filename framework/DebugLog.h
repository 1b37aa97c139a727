#pragma once
// The framework's leveled debug output. Lines at or below the active level go to Halvern's log; the
// framework's texts end in "\n", which the log adds itself and is therefore dropped here.
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

}  // namespace BSS
