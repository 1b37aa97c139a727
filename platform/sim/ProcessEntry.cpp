// The host program's process entry: prepares what Windows would have prepared (command line, text
// conversion, the console close request) and runs the program's own entry on the main thread.
#include <pthread.h>
#include <signal.h>

#include <clocale>
#include <cstdio>
#include <thread>

#include "platform/Entry.h"
#include "platform/sim/SimRoot.h"

namespace platform::sim {
void requestClose();
}

int main(int argc, char** argv)
{
    // Wide strings reach the log through "%S"/"%ls", which converts with the C library's locale.
    std::setlocale(LC_CTYPE, "C.UTF-8");
    platform::sim::setCommandLine(argc, argv);
    if (platform::sim::root().empty()) {
        std::fprintf(stderr, "halvern: HALVERN_ROOT is not set; start the simulated instrument with halvern-sim\n");
        return 2;
    }

    // A reader of the standard output that has gone (a "| head" that is done) must not end Halvern: its
    // writes then fail quietly, and the log file goes on. Started programs get the default back.
    signal(SIGPIPE, SIG_IGN);

    // SIGINT and SIGTERM become WM_CLOSE for the main window, so Ctrl-C ends Halvern through its own
    // close path. Blocked here, before any thread starts, so only the waiting thread receives them.
    sigset_t closeSignals;
    sigemptyset(&closeSignals);
    sigaddset(&closeSignals, SIGINT);
    sigaddset(&closeSignals, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &closeSignals, nullptr);
    std::thread([closeSignals] {
        for (;;) {
            int signal = 0;
            if (sigwait(&closeSignals, &signal) == 0) platform::sim::requestClose();
        }
    }).detach();

    return programEntry();
}
