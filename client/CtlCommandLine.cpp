#include "client/CtlCommandLine.h"

#include <algorithm>

namespace SEP {
namespace {

std::size_t editDistance(const std::string& a, const std::string& b)
{
    std::vector<std::vector<std::size_t>> d(a.size() + 1, std::vector<std::size_t>(b.size() + 1));
    for (std::size_t i = 0; i <= a.size(); ++i)
        d[i][0] = i;
    for (std::size_t j = 0; j <= b.size(); ++j)
        d[0][j] = j;
    for (std::size_t i = 1; i <= a.size(); ++i)
        for (std::size_t j = 1; j <= b.size(); ++j) {
            const std::size_t substitution = d[i - 1][j - 1] + (a[i - 1] == b[j - 1] ? 0 : 1);
            d[i][j] = std::min({d[i - 1][j] + 1, d[i][j - 1] + 1, substitution});
            if (i > 1 && j > 1 && a[i - 1] == b[j - 2] && a[i - 2] == b[j - 1])
                d[i][j] = std::min(d[i][j], d[i - 2][j - 2] + 1);
        }
    return d[a.size()][b.size()];
}

std::vector<std::string> namesOf(CLI::App* level)
{
    std::vector<std::string> names;
    for (CLI::App* sub : level->get_subcommands([](CLI::App*) { return true; })) {
        names.push_back(sub->get_name());
        for (const auto& alias : sub->get_aliases())
            names.push_back(alias);
    }
    if (level->get_parent() == nullptr) names.push_back("help");
    return names;
}

// The verb a group runs when it is typed alone: the one that only reads.
const char* readVerbOf(CLI::App* group)
{
    for (const char* verb : {"get", "count"})
        if (subcommandNamed(group, verb) != nullptr) return verb;
    return nullptr;
}

}  // namespace

std::vector<std::string> nearestWords(const std::string& typed, const std::vector<std::string>& candidates)
{
    std::vector<std::pair<std::size_t, std::string>> scored;
    const std::size_t limit = std::max<std::size_t>(2, typed.size() / 3);
    for (const auto& candidate : candidates) {
        std::size_t distance = editDistance(typed, candidate);
        // The start of a longer verb is as good as a typing slip ("prod" for "production-mode").
        if (typed.size() >= 3 && candidate.rfind(typed, 0) == 0) distance = std::min<std::size_t>(distance, 1);
        if (distance <= limit) scored.emplace_back(distance, candidate);
    }
    std::stable_sort(scored.begin(), scored.end(), [](const auto& a, const auto& b) { return a.first < b.first; });
    std::vector<std::string> nearest;
    for (const auto& entry : scored)
        if (nearest.size() < 3 && entry.first == scored.front().first) nearest.push_back(entry.second);
    return nearest;
}

bool optionTakesValue(CLI::App* level, const std::string& word)
{
    const std::string name = word.substr(0, word.find('='));
    for (CLI::App* at = level; at != nullptr; at = at->get_parent())
        for (const CLI::Option* option : at->get_options())
            if (option->check_name(name))
                return word.find('=') == std::string::npos && option->get_items_expected_max() > 0;
    return false;
}

CLI::App* subcommandNamed(CLI::App* level, const std::string& word)
{
    for (CLI::App* sub : level->get_subcommands([](CLI::App*) { return true; }))
        if (sub->check_name(word)) return sub;
    return nullptr;
}

CommandLineT readCommandLine(CLI::App& app, const std::vector<std::string>& words)
{
    CommandLineT line;
    line.words = words;
    CLI::App* current = &app;
    std::size_t groupAt = 0;
    bool verbSeen = false;
    bool help = false;
    std::size_t helpAt = 0;
    for (std::size_t i = 0; i < line.words.size(); ++i) {
        const std::string word = line.words[i];
        if (word == "--") break;
        if (word.rfind("-", 0) == 0 && word.size() > 1) {
            if (word == "--json") line.json = true;
            if (optionTakesValue(current, word)) ++i;
            continue;
        }
        if (current->get_subcommands([](CLI::App*) { return true; }).empty()) break;  // the verb's own arguments
        if (current == &app && word == "help" && !help) {
            help = true;
            helpAt = i;
            verbSeen = true;
            continue;
        }
        CLI::App* sub = subcommandNamed(current, word);
        if (sub == nullptr) {
            line.unknown = current == &app ? word : current->get_name() + " " + word;
            line.nearest = nearestWords(word, namesOf(current));
            if (current != &app)
                for (auto& verb : line.nearest)
                    verb = current->get_name() + " " + verb;
            return line;
        }
        verbSeen = true;
        current = sub;
        groupAt = i;
        line.verbs += (line.verbs.empty() ? "" : " ") + sub->get_name();
    }
    if (help) {
        line.words.erase(line.words.begin() + static_cast<std::ptrdiff_t>(helpAt));
        line.words.push_back("--help");
        return line;
    }
    line.noVerb = !verbSeen;
    const bool group = current != &app && !current->get_subcommands([](CLI::App*) { return true; }).empty();
    if (group && std::find(line.words.begin(), line.words.end(), "--help") == line.words.end())
        if (const char* verb = readVerbOf(current))
            line.words.insert(line.words.begin() + static_cast<std::ptrdiff_t>(groupAt) + 1, verb);
    return line;
}

}  // namespace SEP
