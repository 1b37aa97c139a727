// The power controller service's replies as every command message reads them: the first byte picks the
// message, the rest is the reply as the pipe delivers it (UTF-16, possibly without its NUL, up to the whole
// buffer). The hardware status is read from the basic command's reply as start-up reads it.
#include <algorithm>
#include <cstring>
#include <memory>

#include "efi/EFIServiceIPCBasicCommand.h"
#include "efi/EFIServiceIPCBatteryCommand.h"
#include "efi/EFIServiceIPCDirectCommand.h"
#include "efi/EFIServiceIPCExtSupplyCommand.h"
#include "efi/EFIServiceIPCLEDCommand.h"
#include "efi/EFIServiceIPCStatusControlCommand.h"
#include "fuzz/FuzzTarget.h"

namespace {

std::unique_ptr<EFIServiceIPCMessageI> message(std::uint8_t choice)
{
    switch (choice % 6) {
        case 0:
            return std::make_unique<EFIServiceIPCBasicCommand>(choice / 6 % 8);
        case 1:
            return std::make_unique<EFIServiceIPCBatteryCommand>(choice / 6 % 2, choice / 12 % 8);
        case 2:
            return std::make_unique<EFIServiceIPCStatusControlCommand>(choice / 6 % 8, choice / 48 % 2, 1);
        case 3:
            return std::make_unique<EFIServiceIPCExtSupplyCommand>(choice / 6 % 4);
        case 4:
            return std::make_unique<EFIServiceIPCLEDCommand>(1, 0, 0);
        default:
            return std::make_unique<EFIServiceIPCDirectCommand>(L"BASIC:PING");
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    halvern::fuzz::quietFramework();
    if (size == 0) return 0;
    auto command = message(data[0]);
    if (command->GetReplyBuffer() == nullptr) return 0;
    const std::size_t length = std::min<std::size_t>(size - 1, command->GetReplySize());
    std::memcpy(command->GetReplyBuffer(), data + 1, length);
    command->ParseReply();
    command->GetReplyText();
    EFIHwStatus status;
    parseHwStatus(*command, status);
    return 0;
}
