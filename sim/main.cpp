// halvern-sim: the simulated instrument. It prepares a sim root, starts the host build of Halvern on it
// and forwards Ctrl-C (and SIGTERM) to Halvern as a close request, so Halvern ends through its own close
// path. Its exit code is Halvern's.
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "sim/SimRootLayout.h"

namespace {

volatile sig_atomic_t g_closeRequested = 0;

void onCloseSignal(int)
{
    g_closeRequested = 1;
}

std::string besideThisProgram(const char* name)
{
    char self[PATH_MAX] = {};
    const ssize_t length = readlink("/proc/self/exe", self, sizeof self - 1);
    if (length <= 0) return name;
    std::string dir(self, static_cast<std::size_t>(length));
    return dir.substr(0, dir.find_last_of('/') + 1) + name;
}

}  // namespace

int main(int argc, char** argv)
{
    CLI::App app{"halvern-sim: the simulated instrument, with Halvern running on it"};
    std::string root;
    std::string halvernPath = besideThisProgram("halvern");
    std::vector<std::string> halvernArguments;
    app.add_option("--root", root, "sim root to use (created if missing); default: a new temporary folder");
    app.add_option("--halvern", halvernPath, "the host build of Halvern to start")->capture_default_str();
    app.add_option("halvern-arguments", halvernArguments, "arguments for Halvern, after --");
    CLI11_PARSE(app, argc, argv);

    std::string error;
    if (root.empty()) root = halvern::sim::makeTemporarySimRoot(error);
    if (root.empty() || !halvern::sim::createSimRootLayout(root, error)) {
        std::fprintf(stderr, "halvern-sim: %s\n", error.c_str());
        return 2;
    }
    std::printf("halvern-sim: sim root %s\n", root.c_str());
    std::printf("halvern-sim: Halvern log %s\n", halvern::sim::logFilePath(root).c_str());
    std::fflush(stdout);

    struct sigaction action {};
    action.sa_handler = onCloseSignal;
    sigemptyset(&action.sa_mask);
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGTERM, &action, nullptr);

    const pid_t child = fork();
    if (child < 0) {
        std::fprintf(stderr, "halvern-sim: cannot start Halvern: %s\n", std::strerror(errno));
        return 2;
    }
    if (child == 0) {
        // Its own process group: the terminal's Ctrl-C reaches only the simulator, which passes it on once.
        setpgid(0, 0);
        setenv("HALVERN_ROOT", root.c_str(), 1);
        std::vector<char*> childArgv{halvernPath.data()};
        for (auto& argument : halvernArguments)
            childArgv.push_back(argument.data());
        childArgv.push_back(nullptr);
        execv(halvernPath.c_str(), childArgv.data());
        std::fprintf(stderr, "halvern-sim: cannot run %s: %s\n", halvernPath.c_str(), std::strerror(errno));
        _exit(127);
    }
    setpgid(child, child);

    bool forwarded = false;
    int status = 0;
    for (;;) {
        const pid_t done = waitpid(child, &status, 0);
        if (done == child) break;
        if (done < 0 && errno != EINTR) {
            std::perror("halvern-sim: waitpid");
            return 2;
        }
        if (g_closeRequested && !forwarded) {
            std::printf("halvern-sim: asking Halvern to close\n");
            std::fflush(stdout);
            kill(child, SIGTERM);
            forwarded = true;
        }
    }
    const int exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    std::printf("halvern-sim: Halvern exited with code %d; log %s\n", exitCode,
                halvern::sim::logFilePath(root).c_str());
    return exitCode;
}
