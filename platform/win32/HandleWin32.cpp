#include <windows.h>

#include "platform/Handle.h"

namespace platform {

bool closeHandle(HandleValue handle)
{
    return CloseHandle(handle) != FALSE;
}

}  // namespace platform
