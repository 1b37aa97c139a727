#pragma once
// Halvern's log file. Every message is one line, appended by opening, writing and closing the file, so
// that a power cut loses at most the line being written.
#include <cstdarg>

#include "platform/Export.h"

namespace halvern {

constexpr const char* kLogFilePath = "D:\\logs\\Halvern.log";
constexpr const char* kLogBackupPath = "D:\\logs\\Halvern.log.old";
// The live log rolls over to the backup once it is larger than this.
constexpr long kLogRolloverSize = 0x200000;

}  // namespace halvern

void WriteLog(const char* format, ...) HALVERN_PRINTF_FORMAT(1, 2);
void WriteLogV(const char* format, va_list args);
// For the texts that use the Windows spellings %ws (a wide string) and %I64d (a 64-bit integer), which the
// log reads as the Windows printf family does but the compiler's format check does not know.
void WriteLogWindows(const char* format, ...);

// The logger that the network helper code (telnet client, socket connect, asynchronous commands) calls
// when it is set; Halvern points it at NetworkHelperLog at start.
using NetworkHelperLoggerFn = void (*)(void* context, const char* format, ...);
extern NetworkHelperLoggerFn g_networkHelperLogger;
extern void* g_networkHelperLoggerContext;

void NetworkHelperLog(void* context, const char* format, ...) HALVERN_PRINTF_FORMAT(2, 3);

// Kept for callers of the network helper API; Halvern installs its logger itself.
HALVERN_EXPORT void NetworkHelperRegisterLogger();
