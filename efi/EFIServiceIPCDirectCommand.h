#pragma once
// A request text made by the caller, sent as it is (the battery type registers: "REG:GET:74" ...).
#include "efi/EFIServiceIPCMessageI.h"

class EFIServiceIPCDirectCommand : public EFIServiceIPCMessageI {
public:
    explicit EFIServiceIPCDirectCommand(const std::wstring& request);

    // The batteries' type registers: 74 to 77 belong to the first battery, 78 to 81 to the second (76/77
    // and 80/81 the low and high byte of its type, 74/75 and 78/79 its two type offsets). The request
    // reading one, or nullptr for another number.
    static const wchar_t* RegisterGetRequest(int reg);
    // The request writing a type offset (74, 75, 78 or 79); empty for a register that is not written.
    static std::wstring RegisterSetRequest(int reg, int value);
};
