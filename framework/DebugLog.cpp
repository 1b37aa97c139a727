#include "framework/DebugLog.h"

#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "app/Log.h"

namespace BSS {
namespace {
std::atomic<int> g_level{kDebugLevelDetail};
}

void setDebugLevel(int level)
{
    g_level = level;
}

int debugLevel()
{
    return g_level;
}

bool debugEnabled(int level)
{
    return level <= g_level;
}

void debugLog(int level, const char* format, ...)
{
    if (!debugEnabled(level)) return;
    char text[1024];
    va_list args;
    va_start(args, format);
    std::vsnprintf(text, sizeof text, format, args);
    va_end(args);
    std::size_t length = std::strlen(text);
    while (length > 0 && text[length - 1] == '\n')
        text[--length] = '\0';
    WriteLog("%s", text);
}

LogLimiterC::~LogLimiterC()
{
    summarize();
}

void LogLimiterC::summarize()
{
    const unsigned suppressed = m_suppressed.exchange(0);
    if (suppressed > 0) WriteLog("... %u further lines like this suppressed", suppressed);
}

bool LogLimiterC::allow()
{
    if (m_written.fetch_add(1) < m_limit) return true;
    ++m_suppressed;
    return false;
}

}  // namespace BSS
