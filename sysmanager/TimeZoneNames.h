#pragma once
// The reference list of time-zone key names: the zones the instrument offers, in the order it offers them.
// Each is a fixed record of 35 UTF-16 code units, NUL-padded. Zone lookups go to the registry, never here.
#include <cstddef>

namespace halvern {

constexpr std::size_t kTimeZoneReferenceCount = 104;
constexpr std::size_t kTimeZoneReferenceChars = 35;

extern const char16_t kTimeZoneReferenceNames[kTimeZoneReferenceCount][kTimeZoneReferenceChars];

}  // namespace halvern
