#include "client/CtlCommandSupport.h"

#include <CLI/CLI.hpp>

namespace SEP::ctl {

CLI::App* addCommand(CLI::App& parent, const std::string& name, const std::string& description, CtlChoiceT& chosen,
                     CtlActionFn action)
{
    CLI::App* command = parent.add_subcommand(name, description);
    std::string path = name;
    if (parent.get_parent() != nullptr) path = parent.get_name() + " " + name;
    command->callback([&chosen, path, action = std::move(action)] {
        chosen.name = path;
        chosen.action = action;
    });
    return command;
}

CLI::App* addGroup(CLI::App& parent, const std::string& name, const std::string& description)
{
    CLI::App* group = parent.add_subcommand(name, description);
    group->require_subcommand(1);
    return group;
}

CLI::Validator fitsBuffer(std::size_t capacity)
{
    return CLI::Validator(
        [capacity](std::string& text) -> std::string {
            if (text.size() + 1 > capacity)
                return "longer than " + std::to_string(capacity - 1) + " characters (" + std::to_string(text.size()) +
                       ")";
            for (unsigned char c : text)
                if (c < 0x20 && c != '\t' && c != '\n' && c != '\r' && c != '\v' && c != '\f')
                    return "holds a control character, which SEP cannot carry";
            return {};
        },
        "TEXT(max " + std::to_string(capacity - 1) + ")");
}

std::string unescapeControls(const std::string& typed)
{
    static const std::map<char, char> kEscapes = {{'r', '\r'}, {'n', '\n'}, {'t', '\t'}, {'\\', '\\'}};
    std::string text;
    for (std::size_t i = 0; i < typed.size(); ++i) {
        const auto escape = i + 1 < typed.size() && typed[i] == '\\' ? kEscapes.find(typed[i + 1]) : kEscapes.end();
        if (escape == kEscapes.end()) {
            text += typed[i];
        } else {
            text += escape->second;
            ++i;
        }
    }
    return text;
}

CLI::Validator oneOf(WordsT words)
{
    std::string names;
    for (const auto& word : words)
        names += (names.empty() ? "" : "|") + word.first;
    return CLI::Validator(
        [words, names](std::string& text) -> std::string {
            for (const auto& word : words)
                if (CLI::detail::to_lower(text) == CLI::detail::to_lower(word.first)) {
                    text = word.second;
                    return {};
                }
            return text + " is not one of " + names;
        },
        names, "words");
}

CLI::Validator onOff()
{
    return oneOf({{"on", "1"}, {"off", "0"}});
}

ExchangeResultE doCommand(SepExchangeC& sep, ReportC& report, std::uint16_t id, MAL::UTI::SerializableI* request,
                          const std::string& done)
{
    const ExchangeResultE result = sep.call(id, request, nullptr);
    if (result == ExchangeResultE::Done) report.note(done);
    return result;
}

}  // namespace SEP::ctl
