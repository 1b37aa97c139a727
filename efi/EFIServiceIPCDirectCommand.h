#pragma once
// A request text made by the caller, sent as it is (the battery type registers: "REG:GET:74" ...).
#include "efi/EFIServiceIPCMessageI.h"

class EFIServiceIPCDirectCommand : public EFIServiceIPCMessageI {
public:
    explicit EFIServiceIPCDirectCommand(const std::wstring& request);
};
