#pragma once
// The one owner of an operating-system resource. A traits type says what the resource's value is, which value
// means "nothing owned" and how it is given back:
//
//   struct FooTraits {
//       using Value = ...;
//       static Value invalid() noexcept;
//       static void close(Value value) noexcept;
//   };
//   using UniqueFoo = UniqueOwner<FooTraits>;
//
// Every close keeps the thread's last error: a clean-up between a failing call and the caller's lastError()
// must not change what the caller reads, also when the close itself fails.
#include <utility>

#include "platform/WinError.h"

namespace platform {

template <class Traits>
class UniqueOwner {
public:
    using Value = typename Traits::Value;

    UniqueOwner() noexcept = default;
    explicit UniqueOwner(Value value) noexcept : m_value(value) {}
    UniqueOwner(const UniqueOwner&) = delete;
    UniqueOwner& operator=(const UniqueOwner&) = delete;
    UniqueOwner(UniqueOwner&& other) noexcept : m_value(other.release()) {}
    UniqueOwner& operator=(UniqueOwner&& other) noexcept
    {
        if (this != &other) reset(other.release());
        return *this;
    }
    ~UniqueOwner() { reset(); }

    Value get() const noexcept { return m_value; }
    explicit operator bool() const noexcept { return m_value != Traits::invalid(); }
    Value release() noexcept { return std::exchange(m_value, Traits::invalid()); }
    // The old value stays in place while it closes: a closer that waits for callbacks still running
    // (WlanCloseHandle) lets them see the resource they were called for.
    void reset(Value value = Traits::invalid()) noexcept
    {
        if (m_value != Traits::invalid()) {
            const LastErrorKeeperC keeper;
            Traits::close(m_value);
        }
        m_value = value;
    }

private:
    Value m_value = Traits::invalid();
};

}  // namespace platform
