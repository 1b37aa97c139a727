#include "framework/Panic.h"

#include <cstdlib>
#include <mutex>

#include "app/Log.h"

namespace MAL {
namespace {

std::mutex& handlerLock()
{
    static std::mutex lock;
    return lock;
}

PanicHandlerFn& installedHandler()
{
    static PanicHandlerFn handler;
    return handler;
}

}  // namespace

void setPanicHandler(PanicHandlerFn handler)
{
    std::lock_guard<std::mutex> guard(handlerLock());
    installedHandler() = std::move(handler);
}

void panic(const char* condition, const char* file, int line)
{
    WriteLog("MAL_PANIC: %s (%s:%d)", condition, file, line);
    PanicHandlerFn handler;
    {
        std::lock_guard<std::mutex> guard(handlerLock());
        handler = installedHandler();
    }
    if (handler) {
        handler(condition, file, line);
        return;
    }
    std::abort();
}

}  // namespace MAL
