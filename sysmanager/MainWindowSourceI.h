#pragma once
// Where the components of the system manager find the main window: the facade keeps it, the USB devices
// post their port recycling to it and the power control its close request.
#include "platform/Window.h"

class MainWindowSourceI {
public:
    virtual ~MainWindowSourceI() = default;
    // Empty until the main window exists.
    virtual platform::WindowHandle GetMainWindow() const = 0;
};
