#include "sep/CommandSet.h"

namespace {

struct NamedIdT {
    std::uint16_t id;
    const char* name;
};

const NamedIdT kNames[] = {
    {1000, "ECHO"},
    {1001, "GET_API_LVL"},
    {1002, "WLAN_CFG_SET"},
    {1003, "WLAN_CFG_GET"},
    {1004, "EFI_GET_BAT_STATUS"},
    {1005, "EFI_GET_EXT_VOLT"},
    {1006, "EFI_SET_PWR_SEL"},
    {1007, "EFI_GET_PWR_SEL"},
    {1008, "DO_POWER_OFF"},
    {1009, "EFI_GET_PWR_SRC"},
    {1010, "GET_BOARD_CONTENT"},
    {1011, "START_UPDATE"},
    {1012, "ERASE_CAL"},
    {1013, "CAL_TOUCH"},
    {1014, "PROD_FEATURES_SET"},
    {1015, "PROD_FEATURES_GET"},
    {1016, "WLAN_CC_SET"},
    {1017, "WLAN_CC_GET"},
    {1018, "RTC_GET"},
    {1019, "RTC_SET"},
    {1020, "HOSTNAME_CFG_GET"},
    {1021, "HOSTNAME_CFG_SET"},
    {1022, "EFI_AUTORUN_SET"},
    {1023, "EFI_AUTORUN_GET"},
    {1024, "WLAN_DRV_SET"},
    {1025, "EXE_CMD"},
    {1026, "WLAN_PWR_SET"},
    {1037, "USB_GET_DEV_COUNT"},
    {1038, "USB_GET_DEV_AT_IDX"},
    {1039, "USB_DEV_RESET"},
    {1042, "CAL_VLTG_SCRN"},
    {1057, "WLAN_RUN_CH_SEL"},
    {1064, "WLAN_CFG_EXT_SET"},
    {1065, "WLAN_CFG_EXT_GET"},
};

}  // namespace

namespace HalvernRpc {

std::string composeErrorText(int code, const std::string& detail, const std::int32_t* failureNumber)
{
    static const char* const kTexts[] = {
        "Failed to decode SEP request!",
        "Internal error, failed to communicate with EFI!",
        "Internal error, failed to set WiFi AP configuration!",
        "Internal error, failed to obtain WiFi AP configuration",
        "Received string is not NULL terminated",
        "Failed to access RTC",
        "General failure",
        "Value out of range",
    };
    std::string text =
        code >= 0 && code < static_cast<int>(sizeof kTexts / sizeof kTexts[0]) ? kTexts[code] : "Unknown error";
    if (!detail.empty()) text += " ( " + detail + ")";
    if (failureNumber != nullptr) text += "error code: " + std::to_string(*failureNumber);
    return text;
}

const char* commandName(std::uint16_t messageId)
{
    for (const auto& entry : kNames)
        if (entry.id == messageId) return entry.name;
    return "UKNOWN SEP CMD";
}

}  // namespace HalvernRpc
