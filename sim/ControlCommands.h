#pragma once
// The simulated instrument's control commands: one line of words in, one line out ("OK ..." or
// "ERROR ..."). Each device model adds its commands under a first word of its own ("efi", ...).
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <vector>

namespace halvern::sim {

class ControlCommandsC {
public:
    // Answers a command's arguments (the words after its key); the reply starts with "OK" or "ERROR".
    using Handler = std::function<std::string(const std::vector<std::string>& arguments)>;

    // `word` is one word ("efi") or several separated by single blanks ("wlan network"); a line goes to
    // the handler of the longest key its first words spell.
    void add(const std::string& word, Handler handler);
    // "help" answers with every key, in order.
    std::string execute(const std::string& line);

private:
    std::mutex m_lock;
    std::map<std::string, Handler> m_handlers;
};

std::vector<std::string> splitWords(const std::string& line);

}  // namespace halvern::sim
