#include <windows.h>

#include "platform/Entry.h"

int WINAPI wWinMain(HINSTANCE, HINSTANCE, PWSTR, int)
{
    return programEntry();
}
