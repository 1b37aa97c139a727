#pragma once
// A Debian tool the link tests run against (a telnet server, a pseudo-terminal pair), started by the test
// and ended by its process id when the test is done.
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <string>
#include <vector>

extern char** environ;

namespace halvern::test {

class ExternalToolC {
public:
    explicit ExternalToolC(std::vector<std::string> arguments)
    {
        std::vector<char*> argv;
        for (auto& argument : arguments)
            argv.push_back(argument.data());
        argv.push_back(nullptr);
        if (::posix_spawnp(&m_pid, argv.front(), nullptr, nullptr, argv.data(), environ) != 0) m_pid = -1;
    }
    ExternalToolC(const ExternalToolC&) = delete;
    ExternalToolC& operator=(const ExternalToolC&) = delete;
    ~ExternalToolC()
    {
        if (m_pid <= 0) return;
        ::kill(m_pid, SIGTERM);
        int status = 0;
        ::waitpid(m_pid, &status, 0);
    }
    bool started() const { return m_pid > 0; }

    // Whether `command` (a shell line) prints `word` as one of its lines: how a test finds out that a tool
    // it needs is installed.
    static bool printsLine(const std::string& command, const std::string& word)
    {
        FILE* output = ::popen((command + " 2>/dev/null").c_str(), "r");
        if (output == nullptr) return false;
        char line[256];
        bool found = false;
        while (std::fgets(line, sizeof line, output) != nullptr) {
            std::string text(line);
            while (!text.empty() && (text.back() == '\n' || text.back() == '\r'))
                text.pop_back();
            found = found || text == word;
        }
        ::pclose(output);
        return found;
    }

    // Where the shell finds `program`; empty when it is not installed.
    static std::string locate(const std::string& program)
    {
        FILE* output = ::popen(("command -v " + program + " 2>/dev/null").c_str(), "r");
        if (output == nullptr) return {};
        char line[512] = {};
        std::string path = std::fgets(line, sizeof line, output) != nullptr ? line : "";
        ::pclose(output);
        while (!path.empty() && (path.back() == '\n' || path.back() == '\r'))
            path.pop_back();
        return path;
    }

private:
    pid_t m_pid = -1;
};

}  // namespace halvern::test
