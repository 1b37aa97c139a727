#include "client/CtlShell.h"

#include <atomic>
#include <cstdlib>
#include <mutex>
#include <sstream>
#include <thread>

#include "client/EventPrinter.h"
#include "client/HalvernCtl.h"
#include "client/Terminal.h"

namespace SEP {
namespace {

// `first` goes before halvernctl's own options: "__complete" must be the first word.
int runWords(const ShellSetupT& setup, const std::vector<std::string>& words, std::ostream& out, std::ostream& err,
             const char* first = nullptr)
{
    std::vector<std::string> arguments{"halvernctl"};
    if (first != nullptr) arguments.push_back(first);
    arguments.insert(arguments.end(), setup.globalArguments.begin(), setup.globalArguments.end());
    arguments.insert(arguments.end(), words.begin(), words.end());
    std::vector<const char*> argv;
    for (const auto& argument : arguments)
        argv.push_back(argument.c_str());
    return runHalvernCtl(static_cast<int>(argv.size()), argv.data(), out, err);
}

}  // namespace

std::vector<std::string> shellCompletions(const ShellSetupT& setup, const std::string& lineBeforeCursor)
{
    std::vector<std::string> words = splitWords(lineBeforeCursor);
    // The word under the cursor is the one being completed, not one to complete after.
    if (!words.empty() && !lineBeforeCursor.empty() && lineBeforeCursor.back() != ' ') words.pop_back();
    std::ostringstream out, err;
    runWords(setup, words, out, err, "__complete");
    std::vector<std::string> candidates;
    std::istringstream lines(out.str());
    for (std::string line; std::getline(lines, line);)
        candidates.push_back(line);
    for (const char* word : {"exit", "quit"})
        if (words.empty()) candidates.push_back(word);
    return candidates;
}

namespace {

std::string historyFile()
{
    const char* home = std::getenv("HOME");
    return home != nullptr && *home != '\0' ? std::string(home) + "/.halvernctl_history" : std::string();
}

// Lines as they come from a stream: a pipe, a file, or a terminal without a line editor.
class PlainReaderC : public LineReaderI {
public:
    PlainReaderC(std::istream& in, std::ostream& out) : m_in(in), m_out(out) {}
    bool readLine(const std::string& prompt, std::string& line) override
    {
        print(prompt);
        return static_cast<bool>(std::getline(m_in, line));
    }
    void print(const std::string& text) override
    {
        std::lock_guard<std::mutex> guard(m_lock);
        m_out << text << std::flush;
    }
    void printAbove(const std::string& text) override { print(text); }

private:
    std::istream& m_in;
    std::ostream& m_out;
    std::mutex m_lock;
};

// Listens on a connection of its own and prints each event above the line being typed.
class EventListenerC {
public:
    EventListenerC(const ShellSetupT& setup, LineReaderI& reader) : m_reader(reader)
    {
        if (!m_client.connect(setup.host, setup.port)) return;
        m_thread = std::thread([this, json = setup.json] { listen(json); });
    }
    ~EventListenerC()
    {
        m_stop = true;
        if (m_thread.joinable()) m_thread.join();
    }
    EventListenerC(const EventListenerC&) = delete;
    EventListenerC& operator=(const EventListenerC&) = delete;
    bool listening() const { return m_thread.joinable(); }

private:
    void listen(bool json)
    {
        while (!m_stop) {
            std::vector<std::uint8_t> received;
            if (!m_client.receiveFrame(received, 200)) {
                if (m_client.closed()) {
                    m_reader.printAbove("halvernctl: the instrument closed the event connection\n");
                    return;
                }
                continue;
            }
            DecodedFrameT decoded;
            std::string text;
            if (decodeFrame(received, decoded) && decoded.kind == MESSAGE_KIND_EVENT &&
                printKnownEvent(decoded, json, text))
                m_reader.printAbove(text);
        }
    }

    LineReaderI& m_reader;
    SepClientC m_client;
    std::atomic<bool> m_stop{false};
    std::thread m_thread;
};

}  // namespace

std::vector<std::string> splitWords(const std::string& line)
{
    std::vector<std::string> words;
    std::string word;
    bool inWord = false;
    char quote = 0;
    for (std::size_t i = 0; i < line.size(); ++i) {
        const char c = line[i];
        if (quote != 0) {
            if (c == quote)
                quote = 0;
            else
                word += c;
        } else if (c == '\'' || c == '"') {
            quote = c;
            inWord = true;
        } else if (c == '\\' && i + 1 < line.size()) {
            word += line[++i];
            inWord = true;
        } else if (c == ' ' || c == '\t') {
            if (inWord) words.push_back(word);
            word.clear();
            inWord = false;
        } else {
            word += c;
            inWord = true;
        }
    }
    if (inWord) words.push_back(word);
    return words;
}

int runShell(const ShellSetupT& setup, bool editor, std::istream& in, std::ostream& out, std::ostream& err)
{
    std::unique_ptr<LineReaderI> reader;
    if (editor)
        reader =
            makeLineEditor(historyFile(), [&setup](const std::string& line) { return shellCompletions(setup, line); });
    const bool editing = reader != nullptr;
    if (!reader) reader = std::make_unique<PlainReaderC>(in, out);
    EventListenerC events(setup, *reader);
    reader->print("halvernctl on " + setup.host + ":" + std::to_string(setup.port) + ": one command a line (" +
                  (editing ? "Tab completes, " : "") + "help lists them, exit ends)" +
                  (events.listening() ? "; events are shown as they come" : "; events cannot be received") + "\n");
    int last = CTL_EXIT_DONE;
    for (std::string line; reader->readLine("halvernctl> ", line);) {
        const std::vector<std::string> words = splitWords(line);
        if (words.empty()) continue;
        if (words[0] == "exit" || words[0] == "quit") break;
        if (words[0] == "shell") {
            err << "halvernctl: already in the interactive mode\n";
            continue;
        }
        std::ostringstream commandOut, commandErr;
        last = runWords(setup, words, commandOut, commandErr);
        reader->print(commandOut.str());
        err << commandErr.str() << std::flush;
    }
    return last;
}

}  // namespace SEP
