#include <windows.h>

#include "platform/DynamicLibrary.h"
#include "platform/WinError.h"

namespace platform {

void ModuleTraits::close(Value module) noexcept
{
    FreeLibrary(static_cast<HMODULE>(module));
}

UniqueModule loadLibrary(const std::wstring& name)
{
    return UniqueModule(LoadLibraryW(name.c_str()));
}

ProcAddress getProcAddress(const UniqueModule& module, const char* name)
{
    return reinterpret_cast<ProcAddress>(GetProcAddress(static_cast<HMODULE>(module.get()), name));
}

}  // namespace platform
