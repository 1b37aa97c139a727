// The write filter's configuration belongs to the device-mode operations, which this build does not carry
// yet: it says so rather than pretend.
#include "app/Log.h"
#include "sysmanager/SysManagerC.h"

std::uint32_t SysManagerC::ConfigureUnifiedWriteFilter()
{
    // E_NOTIMPL: the caller logs it as the configuration's failure code.
    return 0x80004001u;
}
