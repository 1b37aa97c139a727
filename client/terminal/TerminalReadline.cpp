// The terminal with GNU readline: line editing, history kept in a file, completion, and lines printed
// above the one being edited. readline runs on the reading thread only; other threads hand their lines
// over through a queue that the reading loop empties between keystrokes.
#include <readline/history.h>
#include <readline/readline.h>
#include <sys/select.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <mutex>

#include "client/Terminal.h"

namespace SEP {
namespace {

std::mutex g_pendingLock;
std::deque<std::string> g_pending;
CompleterFn g_completer;
std::vector<std::string> g_matches;

bool g_lineDone = false;
bool g_endOfInput = false;
std::string g_line;

void onLine(char* line)
{
    // Removed here, readline does not draw the prompt again before the command's output.
    rl_callback_handler_remove();
    g_lineDone = true;
    if (line == nullptr) {
        g_endOfInput = true;
    } else {
        g_line = line;
        std::free(line);
    }
}

char* nextMatch(const char*, int state)
{
    static std::size_t index = 0;
    if (state == 0) index = 0;
    return index < g_matches.size() ? strdup(g_matches[index++].c_str()) : nullptr;
}

char** complete(const char* text, int start, int)
{
    rl_attempted_completion_over = 1;
    if (!g_completer) return nullptr;
    g_matches.clear();
    const std::string before(rl_line_buffer, static_cast<std::size_t>(start));
    for (const auto& candidate : g_completer(before + text))
        if (candidate.rfind(text, 0) == 0) g_matches.push_back(candidate);
    return rl_completion_matches(text, nextMatch);
}

// Prints what other threads left, with the edited line moved below it.
void printPending()
{
    std::deque<std::string> lines;
    {
        std::lock_guard<std::mutex> guard(g_pendingLock);
        lines.swap(g_pending);
    }
    if (lines.empty()) return;
    const int point = rl_point;
    char* saved = rl_copy_text(0, rl_end);
    rl_save_prompt();
    rl_replace_line("", 0);
    rl_redisplay();
    std::fputs("\r\033[K", stdout);
    for (const auto& text : lines)
        std::fputs(text.c_str(), stdout);
    std::fflush(stdout);
    rl_restore_prompt();
    rl_replace_line(saved, 0);
    rl_point = point;
    std::free(saved);
    rl_forced_update_display();
}

}  // namespace

bool standardInputIsTerminal()
{
    return isatty(STDIN_FILENO) != 0;
}

bool standardErrorIsTerminal()
{
    return isatty(STDERR_FILENO) != 0;
}

bool standardOutputIsTerminal()
{
    return isatty(STDOUT_FILENO) != 0;
}

namespace {

class ReadlineReaderC : public LineReaderI {
public:
    ReadlineReaderC(std::string historyFile, CompleterFn completer) : m_historyFile(std::move(historyFile))
    {
        g_completer = std::move(completer);
        rl_readline_name = "halvernctl";
        rl_attempted_completion_function = complete;
        using_history();
        if (!m_historyFile.empty()) read_history(m_historyFile.c_str());
    }
    ~ReadlineReaderC() override
    {
        if (!m_historyFile.empty()) {
            write_history(m_historyFile.c_str());
            history_truncate_file(m_historyFile.c_str(), 1000);
        }
        g_completer = nullptr;
    }
    ReadlineReaderC(const ReadlineReaderC&) = delete;
    ReadlineReaderC& operator=(const ReadlineReaderC&) = delete;

    bool readLine(const std::string& prompt, std::string& line) override
    {
        g_lineDone = false;
        g_endOfInput = false;
        g_line.clear();
        rl_callback_handler_install(prompt.c_str(), onLine);
        while (!g_lineDone) {
            printPending();
            fd_set readable;
            FD_ZERO(&readable);
            FD_SET(STDIN_FILENO, &readable);
            timeval wait{0, 100000};
            if (select(STDIN_FILENO + 1, &readable, nullptr, nullptr, &wait) > 0) rl_callback_read_char();
        }
        if (g_endOfInput) {
            std::fputs("\n", stdout);
            return false;
        }
        line = g_line;
        if (line.find_first_not_of(" \t") != std::string::npos) add_history(line.c_str());
        return true;
    }

    void print(const std::string& text) override
    {
        std::fputs(text.c_str(), stdout);
        std::fflush(stdout);
    }

    void printAbove(const std::string& text) override
    {
        std::lock_guard<std::mutex> guard(g_pendingLock);
        g_pending.push_back(text);
    }

private:
    std::string m_historyFile;
};

}  // namespace

std::unique_ptr<LineReaderI> makeLineEditor(const std::string& historyFile, CompleterFn completer)
{
    return std::make_unique<ReadlineReaderC>(historyFile, std::move(completer));
}

}  // namespace SEP
