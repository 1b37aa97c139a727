#pragma once
// The private messages of Halvern's hidden main window. Low in the stack, so that the parts that post them
// (the EFI notification reader, the USB list, the overlay watch) need not know the window's code.
#include <cstdint>

constexpr std::uint32_t WM_EFI_NOTIFICATION = 0x464;
constexpr std::uint32_t WM_USB_PORT_RECYCLE = 0x4C8;
constexpr std::uint32_t WM_UWF_OVERLAY_STATE_1 = 0x537;
constexpr std::uint32_t WM_UWF_OVERLAY_STATE_2 = 0x538;
constexpr std::uint32_t WM_UWF_OVERLAY_STATE_3 = 0x539;
