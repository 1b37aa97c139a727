#pragma once
// What the instrument's SEP server and its clients share of the command set besides the records: the reply
// header's values, the error codes and their texts, the API level and the commands' names.
#include <cstdint>
#include <string>

namespace HalvernRpc {

constexpr std::int32_t kReturnCodeSuccess = 1097;
constexpr std::int32_t kReturnCodeError = 889;
constexpr std::int32_t kFacility = 10;
constexpr std::uint16_t kErrorTextMax = 2048;
// The command set's version as GET_API_LVL answers it.
constexpr std::int32_t kApiLevel = 51;

enum SepErrorCode : int {
    SEP_ERR_DECODE = 0,
    SEP_ERR_EFI = 1,
    SEP_ERR_WIFI_SET = 2,
    SEP_ERR_WIFI_GET = 3,
    SEP_ERR_NOT_TERMINATED = 4,
    SEP_ERR_RTC = 5,
    SEP_ERR_GENERAL = 6,
    SEP_ERR_RANGE = 7,
};

// The text of an error reply: the code's text, " ( detail)" when a detail is given, "error code: n" when a
// failure number is given.
std::string composeErrorText(int code, const std::string& detail, const std::int32_t* failureNumber);

// The command's name in the instrument's table, as log lines and halvernctl show it; "UKNOWN SEP CMD" for an
// id that the table does not name.
const char* commandName(std::uint16_t messageId);

}  // namespace HalvernRpc
