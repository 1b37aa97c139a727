#pragma once
// The USB device interface class, which both the USB device list and the window's device notifications name.
#include <windows.h>

namespace platform::win32 {

// GUID_DEVINTERFACE_USB_DEVICE {A5DCBF10-6530-11D2-901F-00C04FB951ED}, spelled out so that no translation unit
// has to define the GUIDs of usbiodef.h.
inline const GUID kUsbDeviceInterface = {0xA5DCBF10, 0x6530, 0x11D2, {0x90, 0x1F, 0x00, 0xC0, 0x4F, 0xB9, 0x51, 0xED}};

}  // namespace platform::win32
