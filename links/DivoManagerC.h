#pragma once
// What the display and touch board says about the last runs of the two calibration applications that
// run on this computer: each question reads one status register of the board, unless the application
// is running right now.
#include <cstdint>
#include <string>

namespace halvern::links {

// The answer to one question.
enum DivoCalibrationStateE : std::uint32_t {
    DIVO_CAL_APP_RUNNING = 0,
    DIVO_CAL_NOT_STORED = 1,  // the board keeps the values it stored before
    DIVO_CAL_STORED = 2,
    DIVO_CAL_UNDECODABLE = 3,
};

class DivoManagerC {
public:
    // True when a state was produced.
    static bool curTouchCalExecInfo(std::uint32_t& state);
    static bool curScrVltgCalExecInfo(std::uint32_t& state);
    // The value of register `replyKey` ("R2B") in what the board answered ("...R2B=0010..."); false when the
    // reply does not hold it.
    static bool parseRegisterReply(const std::string& reply, const char* replyKey, unsigned& value);
};

}  // namespace halvern::links
