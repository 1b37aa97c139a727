#include <unistd.h>

#include <climits>
#include <mutex>

#include "platform/CommandLine.h"
#include "platform/Text.h"
#include "platform/sim/SimRoot.h"

namespace platform {

namespace {
std::mutex g_argsLock;
std::vector<std::wstring> g_arguments;
}  // namespace

void sim::setCommandLine(int argc, char** argv)
{
    std::lock_guard<std::mutex> guard(g_argsLock);
    g_arguments.clear();
    for (int i = 0; i < argc; ++i)
        g_arguments.push_back(widen(argv[i]));
}

std::vector<std::wstring> commandLineArguments()
{
    std::lock_guard<std::mutex> guard(g_argsLock);
    return g_arguments;
}

std::wstring currentProgramPath()
{
    char self[PATH_MAX] = {};
    const ssize_t length = ::readlink("/proc/self/exe", self, sizeof self - 1);
    return length > 0 ? widen(std::string(self, static_cast<std::size_t>(length))) : std::wstring();
}

}  // namespace platform
