#pragma once
// Conversions between the wide strings of the Windows API and the narrow (UTF-8) text of the log.
#include <optional>
#include <string>

namespace platform {

std::wstring widen(const std::string& text);
// nullopt when the text cannot be represented (an unpaired surrogate, say).
std::optional<std::string> narrow(const std::wstring& text);

}  // namespace platform
