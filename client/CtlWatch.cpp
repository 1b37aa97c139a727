#include "client/CtlWatch.h"

#include <algorithm>

#include "client/CtlCommandLine.h"
#include "client/TimeZones.h"

namespace SEP {

namespace {

// The values an option takes when they are words: the ones of its word list, or the instrument's zones.
bool printValues(CLI::Option* option, std::ostream& out)
{
    for (const char* kind : {"words", "zones"}) {
        CLI::Validator* validator = nullptr;
        try {
            validator = option->get_validator(kind);
        } catch (const CLI::OptionNotFound&) {
            continue;
        }
        if (std::string(kind) == "zones") {
            for (const auto& zone : timeZones())
                out << zone.name << "\n";
            return true;
        }
        std::string words = validator->get_description();
        for (std::size_t start = 0; start <= words.size();) {
            const std::size_t end = std::min(words.find('|', start), words.size());
            out << words.substr(start, end - start) << "\n";
            start = end + 1;
        }
        return true;
    }
    return false;
}

CLI::Option* optionNamed(CLI::App* level, const std::string& word)
{
    for (CLI::App* at = level; at != nullptr; at = at->get_parent())
        for (CLI::Option* option : at->get_options([](CLI::Option*) { return true; }))
            if (option->check_name(word)) return option;
    return nullptr;
}

}  // namespace

void printCompletions(CLI::App& app, const std::vector<std::string>& typed, std::ostream& out)
{
    // The word under the cursor, when given, is not one to complete after.
    std::vector<std::string> words = typed;
    if (!words.empty() && words.back().empty()) words.pop_back();
    CLI::App* current = &app;
    std::size_t positionals = 0;
    for (std::size_t i = 0; i < words.size(); ++i) {
        const std::string& word = words[i];
        if (word.rfind("-", 0) == 0) {
            if (word.find('=') == std::string::npos && optionTakesValue(current, word)) {
                // The cursor is on this option's value.
                if (i + 1 == words.size()) {
                    if (CLI::Option* option = optionNamed(current, word)) printValues(option, out);
                    return;
                }
                ++i;
            }
            continue;
        }
        if (CLI::App* sub = subcommandNamed(current, word)) {
            current = sub;
            positionals = 0;
        } else {
            ++positionals;
        }
    }
    // A positional value in the cursor's place: its words.
    std::size_t index = 0;
    for (CLI::Option* option : current->get_options([](CLI::Option* o) { return o->get_positional(); }))
        if (index++ == positionals) printValues(option, out);
    std::vector<std::string> offered;
    const auto offer = [&](const std::string& word) {
        if (std::find(offered.begin(), offered.end(), word) == offered.end()) offered.push_back(word);
    };
    for (CLI::App* sub : current->get_subcommands([](CLI::App*) { return true; })) {
        offer(sub->get_name());
        for (const auto& alias : sub->get_aliases())
            offer(alias);
    }
    for (CLI::App* at = current; at != nullptr; at = at->get_parent())
        for (const CLI::Option* option : at->get_options())
            for (const auto& name : option->get_lnames())
                if (name != "help") offer("--" + name);
    offer("--help");
    for (const auto& word : offered)
        out << word << "\n";
}

}  // namespace SEP
