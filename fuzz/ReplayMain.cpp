// Runs a fuzz target's entry over every file of the folders (or files) named on the command line, as the
// normal build's tests do with the seed corpora. Exit code 0 when every input was handled.
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

#include "fuzz/FuzzTarget.h"

namespace {

bool replay(const std::filesystem::path& file)
{
    std::ifstream input(file, std::ios::binary);
    if (!input) {
        std::fprintf(stderr, "cannot read %s\n", file.string().c_str());
        return false;
    }
    const std::vector<char> bytes((std::istreambuf_iterator<char>(input)), std::istreambuf_iterator<char>());
    LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
    return true;
}

}  // namespace

int main(int argc, char** argv)
{
    int inputs = 0;
    for (int i = 1; i < argc; ++i) {
        const std::filesystem::path path(argv[i]);
        if (std::filesystem::is_directory(path)) {
            for (const auto& entry : std::filesystem::directory_iterator(path)) {
                if (!entry.is_regular_file()) continue;
                if (!replay(entry.path())) return 1;
                ++inputs;
            }
        } else {
            if (!replay(path)) return 1;
            ++inputs;
        }
    }
    std::printf("replayed %d inputs\n", inputs);
    return inputs > 0 ? 0 : 1;
}
