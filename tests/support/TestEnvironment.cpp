#include "support/TestEnvironment.h"

#include "platform/FileSystem.h"

namespace halvern::test {

std::string readWholeFile(const std::string& windowsPath)
{
    int error = 0;
    auto file = platform::openFile(windowsPath, "rb", error);
    if (!file) return {};
    std::string content;
    char buffer[65536];
    std::size_t n = 0;
    while ((n = std::fread(buffer, 1, sizeof buffer, file.get())) > 0)
        content.append(buffer, n);
    return content;
}

bool writeWholeFile(const std::string& windowsPath, const std::string& content)
{
    int error = 0;
    auto file = platform::openFile(windowsPath, "wb", error);
    return file && std::fwrite(content.data(), 1, content.size(), file.get()) == content.size();
}

std::vector<std::string> logMessages(const char* windowsPath)
{
    std::vector<std::string> messages;
    const std::string content = readWholeFile(windowsPath);
    std::size_t start = 0;
    while (start < content.size()) {
        std::size_t end = content.find('\n', start);
        if (end == std::string::npos) end = content.size();
        std::string line = content.substr(start, end - start);
        // The Windows C runtime writes the log in text mode: its lines end in CR LF.
        if (!line.empty() && line.back() == '\r') line.pop_back();
        const auto tab = line.find('\t');
        messages.push_back(tab == std::string::npos ? line : line.substr(tab + 1));
        start = end + 1;
    }
    return messages;
}

int findMessage(const std::vector<std::string>& messages, const std::string& text, int from)
{
    for (int i = from; i < static_cast<int>(messages.size()); ++i) {
        if (messages[static_cast<std::size_t>(i)] == text) return i;
    }
    return -1;
}

bool containsInOrder(const std::vector<std::string>& messages, const std::vector<std::string>& texts)
{
    int at = 0;
    for (const auto& text : texts) {
        at = findMessage(messages, text, at);
        if (at < 0) return false;
        ++at;
    }
    return true;
}

}  // namespace halvern::test
