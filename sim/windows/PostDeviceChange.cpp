// Tells a running Halvern.exe that a USB device came or went, as Windows tells a window registered for the USB
// device interface: WM_DEVICECHANGE with DBT_DEVICEARRIVAL or DBT_DEVICEREMOVECOMPLETE and the device's record,
// sent to its main window. Wine has no USB bus to announce; the simulated instrument runs this instead.
//
//   post_device_change arrival|removal
//
// Exit code 0 when the window took the message, 1 when there is no window or it did not answer within 10 s,
// 2 for a wrong argument.
#include <cstring>

#include "app/resource.h"
#include "platform/Window.h"

int main(int argc, char** argv)
{
    if (argc != 2 || (std::strcmp(argv[1], "arrival") != 0 && std::strcmp(argv[1], "removal") != 0)) return 2;
    const platform::WParam event =
        std::strcmp(argv[1], "arrival") == 0 ? platform::kDbtDeviceArrival : platform::kDbtDeviceRemoveComplete;
    const platform::WindowHandle window = platform::findWindow(HALVERN_TEXT_WINDOW_CLASS);
    if (!window) return 1;
    return platform::sendUsbDeviceChange(window, event, 10000) ? 0 : 1;
}
