#include "app/Log.h"

#include "app/LogText.h"

#include <cstdio>
#include <cstring>
#include <mutex>
#include <string>

#include "platform/FileSystem.h"
#include "platform/Time.h"
#include "platform/WinError.h"

NetworkHelperLoggerFn g_networkHelperLogger = nullptr;
void* g_networkHelperLoggerContext = nullptr;

namespace {

// Constructed during static initialisation, before the program's entry runs, and never destroyed, so
// that messages from threads still running at exit find it intact.
std::mutex& logLock()
{
    static auto* lock = new std::mutex();
    return *lock;
}
[[maybe_unused]] const bool g_logLockReady = (logLock(), true);

// The log's own failures go to standard output, one line each: there is nowhere else to report them.
void printDiagnostic(const char* format, ...) HALVERN_PRINTF_FORMAT(1, 2);
void printDiagnostic(const char* format, ...)
{
    va_list args;
    va_start(args, format);
    std::vprintf(format, args);
    va_end(args);
    std::putchar('\n');
    std::fflush(stdout);
}

}  // namespace

void WriteLogV(const char* format, va_list args)
{
    using halvern::kLogBackupPath;
    using halvern::kLogFilePath;
    // Callers log a failure and then read the last error for their own message; opening the log ("a+" on an
    // existing file leaves 183 on Windows) must not have changed it by then.
    const platform::LastErrorKeeperC keeper;
    std::lock_guard<std::mutex> guard(logLock());

    int error = 0;
    platform::UniqueFile file = platform::openFile(kLogFilePath, "a+", error);
    if (!file) {
        printDiagnostic("Could not open log file %s for appending: %d.", kLogFilePath, error);
        return;
    }
    if (std::fseek(file.get(), 0, SEEK_END) != 0) {
        printDiagnostic("Failed to seek log file %s.", kLogFilePath);
        return;
    }
    // The size is compared as the signed 32-bit value the C runtime reports.
    const auto size = static_cast<std::int32_t>(std::ftell(file.get()));
    if (size > halvern::kLogRolloverSize) {
        file.reset();
        if (platform::removeFile(kLogBackupPath) != 0)
            printDiagnostic("Failed to delete old file log %s", kLogBackupPath);
        if (platform::renameFile(kLogFilePath, kLogBackupPath) != 0) {
            printDiagnostic("Failed to make backup of old %s", kLogFilePath);
        }
        file = platform::openFile(kLogFilePath, "w", error);
        if (!file) {
            printDiagnostic("Could not open log file %s for writing: %d.", kLogFilePath, error);
            return;
        }
    }

    const platform::SystemTime now = platform::localTime();
    std::fprintf(file.get(), "%04d-%02d-%02d %02d:%02d:%02d\t", now.year, now.month, now.day, now.hour, now.minute,
                 now.second);
    const std::string text = halvern::formatLogText(format, args);
    if (std::fputs(text.c_str(), file.get()) < 0)
        printDiagnostic("Error occured during writing to log file %s", kLogFilePath);
    std::fputs("\n", file.get());
}

void WriteLog(const char* format, ...)
{
    va_list args;
    va_start(args, format);
    WriteLogV(format, args);
    va_end(args);
}

void WriteLogWindows(const char* format, ...)
{
    va_list args;
    va_start(args, format);
    WriteLogV(format, args);
    va_end(args);
}

void NetworkHelperLog(void*, const char* format, ...)
{
    va_list args;
    va_start(args, format);
    WriteLogV(format, args);
    va_end(args);
}

void NetworkHelperRegisterLogger() {}
