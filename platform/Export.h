#pragma once
// Marks the flat functions that Halvern.exe exports from its own image.
#ifdef _WIN32
#define HALVERN_EXPORT extern "C" __declspec(dllexport)
#else
#define HALVERN_EXPORT extern "C" __attribute__((visibility("default")))
#endif

// printf-style format checking where the compiler offers it.
#include <cstdio>
#if defined(__GNUC__) && defined(__MINGW32__) && !__USE_MINGW_ANSI_STDIO
#define HALVERN_PRINTF_FORMAT(fmt, args) __attribute__((format(ms_printf, fmt, args)))
#elif defined(__GNUC__)
#define HALVERN_PRINTF_FORMAT(fmt, args) __attribute__((format(printf, fmt, args)))
#else
#define HALVERN_PRINTF_FORMAT(fmt, args)
#endif
