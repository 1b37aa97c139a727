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
    if (words.size() == 1 && words[0] == "help") {
        std::lock_guard<std::mutex> guard(m_lock);
        std::string keys;
        for (const auto& entry : m_handlers)
            keys += (keys.empty() ? "" : ", ") + entry.first;
        return "OK commands: " + keys;
    }
    Handler handler;
    std::size_t keyWords = 0;
    {
        std::lock_guard<std::mutex> guard(m_lock);
        // The longest registered key wins, so that models can share a first word ("wlan network ...",
        // "wlan radar ...").
        std::vector<std::string> keys{words[0]};
        for (std::size_t i = 1; i < words.size(); ++i)
            keys.push_back(keys.back() + " " + words[i]);
        for (std::size_t n = keys.size(); n > 0 && !handler; --n) {
            auto it = m_handlers.find(keys[n - 1]);
            if (it == m_handlers.end()) continue;
            handler = it->second;
            keyWords = n;
        }
        if (!handler) return "ERROR unknown command " + words[0];
    }
    words.erase(words.begin(), words.begin() + static_cast<std::ptrdiff_t>(keyWords));
    return handler(words);
}

}  // namespace halvern::sim
