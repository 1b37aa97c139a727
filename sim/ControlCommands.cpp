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
    std::size_t keyWords = 0;
    {
        // The longest registered key wins: "wlan ap" is one model's, "wlan" another's.
        std::lock_guard<std::mutex> guard(m_lock);
        std::string key;
        for (std::size_t count = 1; count <= words.size(); ++count) {
            key += (count == 1 ? "" : " ") + words[count - 1];
            auto it = m_handlers.find(key);
            if (it == m_handlers.end()) continue;
            handler = it->second;
            keyWords = count;
        }
        if (!handler) return "ERROR unknown command " + words[0];
    }
    words.erase(words.begin(), words.begin() + static_cast<std::ptrdiff_t>(keyWords));
    return handler(words);
}

}  // namespace halvern::sim
