#pragma once
// What every fuzz target shares: the libFuzzer entry and the quiet framework it runs in.
#include <cstddef>
#include <cstdint>

#include "framework/DebugLog.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace halvern::fuzz {

// Log lines would only measure the file system: the framework stays silent while fuzzing.
inline void quietFramework()
{
    static const bool quiet = (BSS::setDebugLevel(-1), true);
    (void)quiet;
}

}  // namespace halvern::fuzz
