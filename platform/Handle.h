#pragma once
// Kernel object handles (mutexes, events, files, processes, threads, pipes) and their one owner.
#include <cstdint>
#include <utility>

#include "platform/WinError.h"

namespace platform {

using HandleValue = void*;

// CloseHandle semantics: false with the last error set when the handle is not valid.
bool closeHandle(HandleValue handle);

class UniqueHandle {
public:
    UniqueHandle() = default;
    explicit UniqueHandle(HandleValue value) : m_value(value) {}
    UniqueHandle(const UniqueHandle&) = delete;
    UniqueHandle& operator=(const UniqueHandle&) = delete;
    UniqueHandle(UniqueHandle&& other) noexcept : m_value(other.release()) {}
    UniqueHandle& operator=(UniqueHandle&& other) noexcept
    {
        if (this != &other) reset(other.release());
        return *this;
    }
    ~UniqueHandle() { reset(); }

    HandleValue get() const { return m_value; }
    explicit operator bool() const { return m_value != nullptr; }
    HandleValue release() { return std::exchange(m_value, nullptr); }
    void reset(HandleValue value = nullptr)
    {
        if (m_value != nullptr) {
            const LastErrorKeeperC keeper;
            closeHandle(m_value);
        }
        m_value = value;
    }
    // The handle as it appears in log lines ("[H:0x%X]").
    unsigned logValue() const { return static_cast<unsigned>(reinterpret_cast<std::uintptr_t>(m_value)); }

private:
    HandleValue m_value = nullptr;
};

}  // namespace platform
