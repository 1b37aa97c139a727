#pragma once
// What the time-keeping operations of TimeKeepingC share between their files.
#include <cstdint>
#include <string>

#include "platform/DynamicLibrary.h"
#include "platform/Time.h"
#include "sysmanager/TimeKeepingC.h"

namespace halvern::time {

constexpr const char* kOffsetFilePath = "C:\\vexarBatches\\Halvern\\user_time_offs.bin";
// The same file as the write filter names it: on the volume "C:".
constexpr const wchar_t* kOffsetFileOnVolume = L"\\vexarBatches\\Halvern\\user_time_offs.bin";

// The offset file's lines: the offset in 100-ns units, the zone's standard name, "true" for daylight saving.
// False (logged) when one of the three is missing or the offset is no number.
bool parseOffsetFile(const std::string& content, std::int64_t& offset, std::string& standardName, bool& daylightSaving);

// The C runtime's error for a name that does not fit (ERANGE of strcpy_s).
constexpr int kCopyError = 34;
// strcpy_s into the 256 characters of the record: false (and an empty field) when the name does not fit.
bool copyTimeZoneId(const std::string& name, char (&field)[256]);

// SetSystemTime (or SetLocalTime) with SeSystemtimePrivilege enabled for the call only; false with the last
// error set.
bool setSystemClock(const platform::SystemTime& time, bool local = false);

// The record's date and time fields from a SYSTEMTIME (month from 0, years since 1900).
WindowsTimeInfo timeInfoFrom(const platform::SystemTime& time);

// One commit function of the write filter's library, which only instruments with the filter carry.
using UwfCommitFn = std::int32_t (*)(const wchar_t* volume, const wchar_t* file);
struct UwfCommitT {
    platform::UniqueModule library;
    UwfCommitFn function = nullptr;
    std::uint32_t error = 0;  // of the load or the look-up that failed
};
UwfCommitT loadUwfCommit(const char* functionName);

}  // namespace halvern::time
