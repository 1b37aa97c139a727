#include "efi/EFIServiceIPCDirectCommand.h"

EFIServiceIPCDirectCommand::EFIServiceIPCDirectCommand(const std::wstring& request)
{
    SetRequest(request);
}

const wchar_t* EFIServiceIPCDirectCommand::RegisterGetRequest(int reg)
{
    static const wchar_t* const kRequests[] = {L"REG:GET:74", L"REG:GET:75", L"REG:GET:76", L"REG:GET:77",
                                               L"REG:GET:78", L"REG:GET:79", L"REG:GET:80", L"REG:GET:81"};
    return reg >= 74 && reg <= 81 ? kRequests[reg - 74] : nullptr;
}

std::wstring EFIServiceIPCDirectCommand::RegisterSetRequest(int reg, int value)
{
    switch (reg) {
        case 74:
            return halvern::efi::formatRequest(L"REG:SET:74:%d", value);
        case 75:
            return halvern::efi::formatRequest(L"REG:SET:75:%d", value);
        case 78:
            return halvern::efi::formatRequest(L"REG:SET:78:%d", value);
        case 79:
            return halvern::efi::formatRequest(L"REG:SET:79:%d", value);
        default:
            return {};
    }
}
