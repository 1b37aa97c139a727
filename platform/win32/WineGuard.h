#pragma once
// Under Wine, calls that would change the machine are refused. Wine passes a clock, zone, shutdown, service,
// firewall, device or network change on to the machine it runs on, and the machine running the Windows
// build's tests is never the instrument. Each such call asks here first; on an instrument nothing is refused.
#include <string>

namespace platform::win32 {

// Whether this process runs under Wine (its ntdll exports wine_get_version).
bool runningUnderWine();

// Under Wine: true with ERROR_ACCESS_DENIED set, as Windows answers a caller that may not make the change.
bool refusedUnderWine();

// Under Wine: true with ERROR_ACCESS_DENIED set when a program start could reach the machine running the tests:
// a command line that names a program by its Unix path ("\\?\unix\..."), a program that is no Windows program
// (Wine would run a Unix executable on the machine itself), or one of the system tools that change the machine
// (netsh, route, ipconfig, devcon, pnputil, uwfmgr, format, shutdown, sc, bcdedit) when it is Wine's own
// rather than a stand-in put at its path. `application` may be empty: the program is then the command line's
// first word, found as CreateProcessW finds it.
bool launchRefusedUnderWine(const std::wstring& application, const std::wstring& commandLine);

}  // namespace platform::win32
