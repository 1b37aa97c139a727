#include <cstdlib>
#include <filesystem>

#include "links/TelnetConnection.h"
#include "platform/sim/SimRoot.h"
#include "sim/SimRootLayout.h"
#include "support/TestEnvironment.h"

namespace halvern::test {

namespace {
std::string g_root;

// The registry's zones are the same on every instrument and take hundreds of files: the tests' instruments
// share one tree, written once per test run, instead of each writing its own.
const std::string& sharedTimeZones()
{
    // Never destroyed: the clean-up at exit still needs it.
    static const std::string* folder = [] {
        std::string error;
        const std::string base = sim::makeTemporarySimRoot(error);
        auto* path = new std::string();
        if (base.empty() || !sim::installTimeZones(base + "/Time Zones", error)) return path;
        *path = base + "/Time Zones";
        std::atexit([] {
            std::error_code ignored;
            std::filesystem::remove_all(std::filesystem::path(sharedTimeZones()).parent_path(), ignored);
        });
        return path;
    }();
    return *folder;
}
}  // namespace

void prepareInstrument()
{
    std::string error;
    g_root = sim::makeTemporarySimRoot(error);
    ASSERT_FALSE(g_root.empty()) << error;
    const std::filesystem::path zones = sim::timeZonesKeyFolder(g_root);
    std::error_code linkError;
    std::filesystem::create_directories(zones.parent_path(), linkError);
    if (!sharedTimeZones().empty()) std::filesystem::create_directory_symlink(sharedTimeZones(), zones, linkError);
    ASSERT_TRUE(sim::createSimRootLayout(g_root, error)) << error;
    platform::sim::setRoot(g_root);
    // Code under test that reaches for the sensor board before any start-up named it finds loopback,
    // never the instrument's board address.
    links::setTelnetEndpoint({"127.0.0.1", links::kMoraTelnetPort});
    // In-process start-ups listen on free ports, so that test runs and a running instrument coexist.
    setenv("HALVERN_SEP_PORT_55557", "0", 0);
    setenv("HALVERN_SEP_PORT_55558", "0", 0);
}

bool clockCanBeSet()
{
    return true;
}

bool instrumentPrepared()
{
    return !g_root.empty();
}

void releaseInstrument()
{
    if (g_root.empty()) return;
    std::error_code ignored;
    // Read-only files that a test left behind must not stop the clean-up.
    for (auto& entry : std::filesystem::recursive_directory_iterator(g_root, ignored)) {
        std::filesystem::permissions(entry.path(), std::filesystem::perms::owner_write,
                                     std::filesystem::perm_options::add, ignored);
    }
    std::filesystem::remove_all(g_root, ignored);
    g_root.clear();
}

}  // namespace halvern::test
