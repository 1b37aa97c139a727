#pragma once
// How the records that several commands show are put into a report, so that `status`, `watch`, the
// interactive mode and the single commands name and decode every value alike.
#include <cstdint>
#include <string>

#include "client/CtlCommandSupport.h"
#include "client/DateTimeText.h"
#include "client/ReportC.h"

namespace SEP::ctl {

extern const WordsT kBands;          // 2.4, 5, both
extern const WordsT kDriverWidths;   // the WLAN driver's width codes: HT40-, HT40+, HT20
extern const WordsT kChannelWidths;  // the channel selection's: HT20 1, HT40+ 2, HT40- 4
// The name of `value` among `words`, or "unknown".
std::string wordOf(const WordsT& words, std::int64_t value);

void reportWlanConfig(ReportC& report, bool enabled, const std::string& ssid, const std::string& password,
                      std::int32_t band);
void reportBatteries(ReportC& report, const REC::EfiBatStatus& r);
void reportExternalSupply(ReportC& report, const REC::EfiExtSup& r);
void reportHardwareStatus(ReportC& report, const REC::CriticalHwStatusInfo& r);
void reportChannel(ReportC& report, const REC::WlanChannel& r);
// The local time a time record holds.
DateTimeT localTimeOf(const REC::WindowsOsTimeInfo& r);
void reportLocalTime(ReportC& report, const REC::WindowsOsTimeInfo& r);
void reportRtc(ReportC& report, const REC::TimeSpec& r);
void reportFeatures(ReportC& report, const REC::EnaProdFeat& r);

}  // namespace SEP::ctl
