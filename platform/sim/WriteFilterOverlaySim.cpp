#include <fstream>

#include "platform/WinError.h"
#include "platform/WriteFilterOverlay.h"
#include "platform/sim/SimRoot.h"

namespace platform {

bool readWriteFilterOverlay(std::uint32_t& consumptionMb, std::uint32_t& availableMb)
{
    consumptionMb = 0;
    availableMb = 0;
    const std::string root = sim::root();
    std::ifstream in(root + "/sim/uwf/overlay");
    // No figures: the simulated filter has no overlay, as WMI answers without an UWF_Overlay instance.
    if (root.empty() || !in) {
        setLastError(kErrorNotFound);
        return false;
    }
    unsigned long used = 0, available = 0;
    if (!(in >> used >> available) || used > 0xFFFFFFFFul || available > 0xFFFFFFFFul) {
        setLastError(kErrorInvalidData);
        return false;
    }
    consumptionMb = static_cast<std::uint32_t>(used);
    availableMb = static_cast<std::uint32_t>(available);
    return true;
}

}  // namespace platform
