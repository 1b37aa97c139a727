#pragma once
// The write filter (UWF) as time keeping, the device modes and the instrument's renaming need it: whether
// it protects the system volume, and the registry commits that make a value survive the next boot. It
// keeps no state: every answer is read from the registry.
#include <cstdint>
#include <string>

class WriteFilterC {
public:
    // True when the write filter's state could be read; `active` starts as true, so a failure reports it
    // active.
    bool GetUWFilter(bool& active);
    // Makes a registry value written while the write filter protects the system survive the next boot
    // ("HKLM\..." key, value name). True when committed, or when the filter does not protect.
    bool CommitRegistryValue(const std::wstring& key, const std::wstring& valueName);
    // Commits what a renaming of the computer wrote; 0 on success, else the failure code.
    std::uint32_t ConfigureUnifiedWriteFilter();
};
