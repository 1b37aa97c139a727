#include <filesystem>

#include "links/TelnetConnection.h"
#include "platform/FileSystem.h"
#include "support/TestEnvironment.h"

namespace halvern::test {

// Under Wine the drives are mapped into the build tree by the harness; a fresh instrument is an empty
// log folder.
void prepareInstrument()
{
    // Code under test that reaches for the sensor board before any start-up named it finds loopback,
    // never the instrument's board address.
    links::setTelnetEndpoint({"127.0.0.1", links::kMoraTelnetPort});
    std::error_code ignored;
    std::filesystem::path logs(platform::nativePath("D:\\logs"));
    for (auto& entry : std::filesystem::directory_iterator(logs, ignored)) {
        std::filesystem::permissions(entry.path(), std::filesystem::perms::owner_write,
                                     std::filesystem::perm_options::add, ignored);
    }
    std::filesystem::remove_all(logs, ignored);
    std::filesystem::create_directories(logs, ignored);
}

void releaseInstrument()
{
    prepareInstrument();
}

bool clockCanBeSet()
{
    return false;
}

bool instrumentPrepared()
{
    // D:\logs is the prefix's own folder: always there.
    return true;
}

}  // namespace halvern::test
