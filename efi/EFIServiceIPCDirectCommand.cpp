#include "efi/EFIServiceIPCDirectCommand.h"

EFIServiceIPCDirectCommand::EFIServiceIPCDirectCommand(const std::wstring& request)
{
    SetRequest(request);
}
