#pragma once
// The little shell of the simulated sensor board, behind both its serial console and its telnet server.
// One line at a time: commands joined by ";", "&&" and "||", pipelines, quotes, "$?", "$HOME" and "$PWD",
// output redirected with ">", ">>", "2>" and "2>&1" ("/dev/kmsg" is the kernel log, "/dev/null" drops it).
//
// Builtins: true, false, :, echo [-n], uname [-asnrmo], cd, pwd, ls, cat, mkdir [-p], dmesg, exit [N],
// test and [ (-d -f -e -z -n, = != and the numeric comparisons, with !), and in pipelines cat, grep [-v],
// head, tail and wc -l,
// and `fail N [TEXT...]`, which prints TEXT on standard error and ends with status N. A file
// <board>/bin/NAME is a command of its own: its lines are printed, except "#status N" (its exit status)
// and "#stderr TEXT" (a line on standard error). Anything else is "sh: NAME: not found", status 127.
// Paths are those of the board's files, kept in <board>/fs.
#include <functional>
#include <string>
#include <vector>

namespace halvern::sim {

// What a terminal shows of a text: each line feed after a carriage return.
std::string terminalText(const std::string& text);

struct BoardShellHostT {
    std::string boardFolder;  // <root>/sim/sensorboard
    std::function<void(const std::string& line)> writeKernelLog;
    std::function<std::vector<std::string>()> kernelLog;
};

class BoardShellC {
public:
    explicit BoardShellC(BoardShellHostT host);

    // What a terminal shows for one input line (standard output and error, lines ended by "\n").
    std::string run(const std::string& line);
    std::string prompt() const;
    bool exitRequested() const { return m_exitRequested; }
    int lastStatus() const { return m_status; }

    // The folders a fresh board has.
    static void prepareFiles(const std::string& boardFolder);

private:
    struct ResultT {
        std::string out;
        std::string err;
        int status = 0;
    };

    ResultT runPipeline(const std::string& segment);
    // `input` is what the previous command of a pipeline printed; null for the first one.
    ResultT runSimple(const std::string& segment, const std::string* input);
    ResultT runCommand(const std::vector<std::string>& words, const std::string* input);
    ResultT runFilter(const std::string& name, const std::vector<std::string>& args, const std::string& input);
    ResultT runScript(const std::string& path);
    ResultT runTest(const std::string& name, std::vector<std::string> args);
    std::vector<std::string> expandWords(const std::string& segment) const;
    std::string boardPath(const std::string& path) const;  // absolute, normalised path on the board
    std::string hostPath(const std::string& path) const;   // the same in the sim root
    bool redirect(const std::string& target, const std::string& text, bool append, std::string& err);

    BoardShellHostT m_host;
    std::string m_cwd = "/home/root";
    int m_status = 0;
    bool m_exitRequested = false;
};

}  // namespace halvern::sim
