// Asks a running Halvern.exe to close the way the session does: WM_CLOSE posted to its main window.
// Exit code 0 when the window was found and the message posted, 1 otherwise.
#include "app/resource.h"
#include "platform/Window.h"

int main()
{
    const platform::WindowHandle window = platform::findWindow(HALVERN_TEXT_WINDOW_CLASS);
    if (!window) return 1;
    return platform::postMessage(window, platform::wm::Close, 0, 0) ? 0 : 1;
}
