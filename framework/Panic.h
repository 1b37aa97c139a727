#pragma once
// The framework's panic: a broken invariant of the SEP stack is reported with the failed condition's
// text and stops the program. Tests install a handler that records the condition instead; the call site
// then refuses the operation.
#include <functional>
#include <string>

namespace MAL {

using PanicHandlerFn = std::function<void(const std::string& condition, const char* file, int line)>;

// nullptr restores the default (log and abort).
void setPanicHandler(PanicHandlerFn handler);

// Logs "MAL_PANIC: <condition>" and calls the handler, which by default does not return.
void panic(const char* condition, const char* file, int line);

inline bool check(bool holds, const char* condition, const char* file, int line)
{
    if (!holds) panic(condition, file, line);
    return holds;
}

}  // namespace MAL

// True when the condition holds; otherwise panics (and answers false where a handler returned).
#define MAL_ASSERT(condition) ::MAL::check(static_cast<bool>(condition), #condition, __FILE__, __LINE__)
