#include "sim/ControlCommands.h"

#include <cstddef>
#include <sstream>

namespace halvern::sim {

std::vector<std::string> splitWords(const std::string& line)
{
    std::istringstream stream(line);
    std::vector<std::string> words;
    for (std::string word; stream >> word;)
        words.push_back(word);
    return words;
}

void ControlCommandsC::add(const std::string& word, Handler handler)
{
    std::lock_guard<std::mutex> guard(m_lock);
    m_handlers[word] = std::move(handler);
}

std::string ControlCommandsC::execute(const std::string& line)
{
    std::vector<std::string> words = splitWords(line);
    if (words.empty()) return "ERROR empty command";
    Handler handler;
    std::size_t consumed = 1;
    {
        std::lock_guard<std::mutex> guard(m_lock);
        // A handler added for two words ("wlan radar") lets several device models share a first word.
        auto it = words.size() > 1 ? m_handlers.find(words[0] + " " + words[1]) : m_handlers.end();
        if (it != m_handlers.end()) {
            consumed = 2;
        } else {
            it = m_handlers.find(words[0]);
        }
        if (it == m_handlers.end()) return "ERROR unknown command " + words[0];
        handler = it->second;
    }
    words.erase(words.begin(), words.begin() + static_cast<std::ptrdiff_t>(consumed));
    return handler(words);
}

}  // namespace halvern::sim
