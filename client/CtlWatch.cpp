#include "client/CtlWatch.h"

#include <chrono>
#include <sstream>
#include <thread>

#include "client/HalvernCtl.h"

namespace SEP {
namespace {

struct PanelT {
    const char* title;
    std::vector<std::string> words;
};

// What a technician looks at while working on an instrument. The power LED is not among them: the
// controller takes LED settings but does not report them.
const std::vector<PanelT>& panels()
{
    static const std::vector<PanelT> list = {
        {"Battery", {"battery"}},
        {"Power source", {"power-source"}},
        {"Power selection", {"power-select", "get"}},
        {"WLAN access point", {"wlan", "get"}},
        {"WLAN channel", {"channel", "get"}},
        {"Time", {"time", "get"}},
        {"RTC", {"rtc", "get"}},
    };
    return list;
}

std::string commandName(const std::vector<std::string>& words)
{
    std::string name;
    for (const auto& word : words)
        name += (name.empty() ? "" : " ") + word;
    return name;
}

std::string indented(const std::string& text)
{
    std::string out;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);)
        out += "  " + line + "\n";
    return out;
}

std::string frame(const std::vector<std::string>& globalArguments)
{
    std::string text;
    for (const auto& panel : panels()) {
        std::vector<std::string> arguments{"halvernctl"};
        arguments.insert(arguments.end(), globalArguments.begin(), globalArguments.end());
        arguments.insert(arguments.end(), panel.words.begin(), panel.words.end());
        std::vector<const char*> argv;
        for (const auto& argument : arguments)
            argv.push_back(argument.c_str());
        std::ostringstream out, err;
        runHalvernCtl(static_cast<int>(argv.size()), argv.data(), out, err);
        // A failure shows the server's or the connection's text, without the program's own prefix.
        std::string shown = out.str().empty() ? err.str() : out.str();
        const std::string prefix = "halvernctl: " + commandName(panel.words) + ": ";
        if (shown.rfind(prefix, 0) == 0) shown.erase(0, prefix.size());
        text += panel.title + std::string(":\n") + indented(shown);
    }
    text += "Power LED:\n  not reported by the instrument (set it with: halvernctl led)\n";
    return text;
}

}  // namespace

int runWatch(const WatchOptionsT& watch, const std::vector<std::string>& globalArguments, std::ostream& out)
{
    for (long shown = 0; watch.count < 0 || shown < watch.count; ++shown) {
        if (shown > 0) std::this_thread::sleep_for(std::chrono::milliseconds(watch.intervalMs));
        const std::string text = frame(globalArguments);
        // Home and clear to the end: the new state replaces the old one where it stood.
        if (!watch.plain)
            out << "\033[H\033[J";
        else if (shown > 0)
            out << "\n";
        out << text << std::flush;
    }
    return CTL_EXIT_DONE;
}

void printCompletions(CLI::App& app, const std::vector<std::string>& words, std::ostream& out)
{
    CLI::App* current = &app;
    const auto takesValue = [](CLI::App* level, const std::string& word) {
        for (CLI::App* at = level; at != nullptr; at = at->get_parent())
            for (const CLI::Option* option : at->get_options())
                if (option->check_name(word)) return option->get_type_size_max() > 0;
        return false;
    };
    for (std::size_t i = 0; i < words.size(); ++i) {
        const std::string& word = words[i];
        if (word.rfind("-", 0) == 0) {
            if (word.find('=') == std::string::npos && takesValue(current, word)) ++i;
            continue;
        }
        for (CLI::App* sub : current->get_subcommands([](CLI::App*) { return true; }))
            if (sub->check_name(word)) {
                current = sub;
                break;
            }
    }
    for (CLI::App* sub : current->get_subcommands([](CLI::App*) { return true; })) {
        out << sub->get_name() << "\n";
        for (const auto& alias : sub->get_aliases())
            out << alias << "\n";
    }
    for (CLI::App* at = current; at != nullptr; at = at->get_parent())
        for (const CLI::Option* option : at->get_options())
            for (const auto& name : option->get_lnames())
                if (name != "help") out << "--" << name << "\n";
    out << "--help\n";
}

}  // namespace SEP
