// sep-echo: the loopback floor of the SEP benchmarks. Answers every command frame with a prepared reply
// the size of Halvern's GET_API_LVL reply until it is ended (by its PID).
#include <CLI/CLI.hpp>

#include <cstdio>
#include <fstream>
#include <iostream>

#include "bench/EchoServerC.h"
#include "platform/Clock.h"

int main(int argc, char** argv)
{
    CLI::App app{"Loopback SEP echo server: the floor of the benchmarks"};
    unsigned port = 0;
    std::string portFile;
    app.add_option("--port", port, "TCP port on 127.0.0.1 (0: any free port)")->check(CLI::Range(0, 65535));
    app.add_option("--port-file", portFile, "file the port taken is written to once the server listens");
    CLI11_PARSE(app, argc, argv);

    HalvernBench::EchoServerC server;
    if (!server.start(static_cast<std::uint16_t>(port))) {
        std::cerr << "sep-echo: cannot listen on 127.0.0.1:" << port << '\n';
        return 1;
    }
    if (!portFile.empty()) {
        // Written under another name and renamed, so a reader never sees half a number.
        const std::string partial = portFile + ".partial";
        std::ofstream(partial) << server.port() << '\n';
        if (std::rename(partial.c_str(), portFile.c_str()) != 0) {
            std::cerr << "sep-echo: cannot write " << portFile << '\n';
            return 1;
        }
    }
    std::cout << "sep-echo listening on 127.0.0.1:" << server.port() << std::endl;
    for (;;)
        platform::sleepMs(3600 * 1000);
}
