#pragma once
// Libraries loaded at run time (LoadLibraryW, GetProcAddress, FreeLibrary), for the system libraries that
// only some installations carry. On the simulation platform a library is one the platform itself models,
// present when its file is in the sim root's "C:\Windows\System32".
#include <string>
#include <utility>

namespace platform {

// What GetProcAddress answers (FARPROC): cast to the function's own type before the call.
using ProcAddress = void (*)();

class UniqueModule {
public:
    UniqueModule() = default;
    explicit UniqueModule(void* module) : m_module(module) {}
    UniqueModule(const UniqueModule&) = delete;
    UniqueModule& operator=(const UniqueModule&) = delete;
    UniqueModule(UniqueModule&& other) noexcept : m_module(std::exchange(other.m_module, nullptr)) {}
    UniqueModule& operator=(UniqueModule&& other) noexcept
    {
        if (this != &other) reset(std::exchange(other.m_module, nullptr));
        return *this;
    }
    ~UniqueModule() { reset(); }
    explicit operator bool() const { return m_module != nullptr; }
    void* get() const { return m_module; }
    void reset(void* module = nullptr);

private:
    void* m_module = nullptr;
};

// An empty owner with the last error set (126 when the library is not installed).
UniqueModule loadLibrary(const std::wstring& name);
// nullptr with the last error set (127 when the library has no such export).
ProcAddress getProcAddress(const UniqueModule& module, const char* name);

}  // namespace platform
