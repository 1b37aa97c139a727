#pragma once
// The registry hive of the user logged on to a session, reached through that session's user token: the
// user's own HKEY_CURRENT_USER, also for a program that runs as another account (SYSTEM on an
// instrument). On the simulation platform the hive of the logged-on user is the folder "registry/HKU/NAME"
// of the sim root, NAME the first line of "sim/session/logged-on-user" ("Operator" when absent).
#include <string>

#include "platform/Handle.h"
#include "platform/Registry.h"

namespace platform {

// RegOpenCurrentUser with KEY_ALL_ACCESS while impersonating `userToken`; the impersonation ends before
// it returns.
RegStatus regOpenUserHive(HandleValue userToken, UniqueRegKey& hive);
// RegCreateKeyExW with KEY_ALL_ACCESS below an open key: opens the key, creating it and its missing parents.
RegStatus regCreateKey(const UniqueRegKey& parent, const std::wstring& subKey, UniqueRegKey& key);

}  // namespace platform
