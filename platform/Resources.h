#pragma once
// The string table that the program links in: the Windows build takes it from its resource script, the
// host build from this table, defined by the program.
namespace platform {

struct StringResource {
    unsigned id;
    const wchar_t* text;
};

}  // namespace platform

// Defined by the program on the host build; ends with an entry whose text is nullptr.
extern const platform::StringResource g_hostStringResources[];
