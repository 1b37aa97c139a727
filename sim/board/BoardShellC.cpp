#include "sim/board/BoardShellC.h"

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>

namespace halvern::sim {

namespace {

namespace fs = std::filesystem;

const char* const kHome = "/home/root";

enum class JoinE { Always, IfSucceeded, IfFailed };

struct SegmentT {
    JoinE join = JoinE::Always;
    std::string text;
};

// Splits at ";", "&&", "||" and "&" outside quotes.
std::vector<SegmentT> splitSegments(const std::string& line)
{
    std::vector<SegmentT> segments(1);
    char quote = 0;
    for (std::size_t i = 0; i < line.size(); ++i) {
        const char c = line[i];
        if (quote != 0) {
            if (c == quote) quote = 0;
            segments.back().text += c;
            continue;
        }
        if (c == '\\' && i + 1 < line.size()) {
            segments.back().text += line.substr(i, 2);
            ++i;
            continue;
        }
        if (c == '\'' || c == '"') quote = c;
        const bool pair = i + 1 < line.size() && line[i + 1] == c;
        // ">&" duplicates a stream, it does not end a command.
        const bool duplication = c == '&' && i > 0 && line[i - 1] == '>';
        if (!duplication && (c == ';' || c == '&' || (c == '|' && pair))) {
            SegmentT next;
            next.join = c == ';'   ? JoinE::Always
                        : !pair    ? JoinE::Always
                        : c == '&' ? JoinE::IfSucceeded
                                   : JoinE::IfFailed;
            if (pair) ++i;
            segments.push_back(next);
            continue;
        }
        segments.back().text += c;
    }
    return segments;
}

// Splits a command at the "|" of a pipeline, outside quotes.
std::vector<std::string> splitPipeline(const std::string& segment)
{
    std::vector<std::string> stages(1);
    char quote = 0;
    for (std::size_t i = 0; i < segment.size(); ++i) {
        const char c = segment[i];
        if (quote == 0 && c == '\\' && i + 1 < segment.size()) {
            stages.back() += segment.substr(i++, 2);
            continue;
        }
        if (quote == 0 && (c == '\'' || c == '"'))
            quote = c;
        else if (quote == c)
            quote = 0;
        if (quote == 0 && c == '|') {
            stages.emplace_back();
            continue;
        }
        stages.back() += c;
    }
    return stages;
}

std::vector<std::string> splitLines(const std::string& text)
{
    std::vector<std::string> lines;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);)
        lines.push_back(line);
    return lines;
}

std::string readFile(const std::string& path, bool& ok)
{
    std::ifstream in(path, std::ios::binary);
    ok = static_cast<bool>(in);
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

std::string joinLines(const std::vector<std::string>& lines)
{
    std::string text;
    for (const auto& line : lines)
        text += line + "\n";
    return text;
}

bool parseStatus(const std::string& text, int& status)
{
    if (text.empty()) return false;
    char* end = nullptr;
    const long value = std::strtol(text.c_str(), &end, 10);
    if (*end != '\0') return false;
    status = static_cast<int>(value & 0xFF);
    return true;
}

}  // namespace

std::string terminalText(const std::string& text)
{
    std::string out;
    for (char c : text) {
        if (c == '\n') out += '\r';
        out += c;
    }
    return out;
}

BoardShellC::BoardShellC(BoardShellHostT host) : m_host(std::move(host)) {}

void BoardShellC::prepareFiles(const std::string& boardFolder)
{
    std::error_code ignored;
    for (const char* folder : {"/fs/home/root", "/fs/tmp", "/fs/etc", "/fs/dev", "/fs/usr/bin", "/fs/var/log", "/bin"})
        fs::create_directories(boardFolder + folder, ignored);
    if (!fs::exists(boardFolder + "/fs/etc/hostname")) std::ofstream(boardFolder + "/fs/etc/hostname") << "mora\n";
}

std::string BoardShellC::prompt() const
{
    const std::string shown = m_cwd == kHome ? "~"
                              : m_cwd.rfind(std::string(kHome) + "/", 0) == 0
                                  ? "~" + m_cwd.substr(std::string(kHome).size())
                                  : m_cwd;
    return "root@mora:" + shown + "# ";
}

std::string BoardShellC::run(const std::string& line)
{
    std::string shown;
    for (const auto& segment : splitSegments(line)) {
        if (m_exitRequested) break;
        if (segment.join == JoinE::IfSucceeded && m_status != 0) continue;
        if (segment.join == JoinE::IfFailed && m_status == 0) continue;
        if (segment.text.find_first_not_of(" \t") == std::string::npos) continue;
        ResultT result = runPipeline(segment.text);
        m_status = result.status;
        shown += result.out + result.err;
    }
    return shown;
}

std::vector<std::string> BoardShellC::expandWords(const std::string& segment) const
{
    // Redirections come back as words of their own, marked by a leading NUL so that a quoted ">" stays a word.
    std::vector<std::string> words;
    std::string word;
    bool inWord = false;
    char quote = 0;
    auto flush = [&] {
        if (inWord) words.push_back(word);
        word.clear();
        inWord = false;
    };
    for (std::size_t i = 0; i < segment.size(); ++i) {
        const char c = segment[i];
        if (quote == '\'') {
            if (c == '\'')
                quote = 0;
            else
                word += c;
            continue;
        }
        if (c == '$' && i + 1 < segment.size()) {
            std::size_t end = i + 1;
            std::string value;
            if (segment[end] == '?') {
                value = std::to_string(m_status);
                ++end;
            } else {
                while (end < segment.size() &&
                       (std::isalnum(static_cast<unsigned char>(segment[end])) || segment[end] == '_'))
                    ++end;
                const std::string name = segment.substr(i + 1, end - i - 1);
                if (name.empty()) {
                    word += c;
                    inWord = true;
                    continue;
                }
                value = name == "HOME" ? kHome : name == "PWD" ? m_cwd : "";
            }
            word += value;
            inWord = true;
            i = end - 1;
            continue;
        }
        if (quote == '"') {
            if (c == '"')
                quote = 0;
            else if (c == '\\' && i + 1 < segment.size() &&
                     std::string("\"\\$").find(segment[i + 1]) != std::string::npos)
                word += segment[++i];
            else
                word += c;
            continue;
        }
        if (c == '\'' || c == '"') {
            quote = c;
            inWord = true;
        } else if (c == '\\' && i + 1 < segment.size()) {
            word += segment[++i];
            inWord = true;
        } else if (c == ' ' || c == '\t') {
            flush();
        } else if (c == '>') {
            std::string op = ">";
            if (inWord && word == "2") {
                op = "2>";
                word.clear();
                inWord = false;
            }
            flush();
            if (i + 1 < segment.size() && segment[i + 1] == '>') {
                op += ">";
                ++i;
            }
            if (op == "2>" && segment.compare(i + 1, 2, "&1") == 0) {
                op = "2>&1";
                i += 2;
            }
            words.push_back(std::string(1, '\0') + op);
        } else {
            word += c;
            inWord = true;
        }
    }
    flush();
    return words;
}

BoardShellC::ResultT BoardShellC::runPipeline(const std::string& segment)
{
    const std::vector<std::string> stages = splitPipeline(segment);
    ResultT result;
    std::string errors;
    for (std::size_t i = 0; i < stages.size(); ++i) {
        if (stages[i].find_first_not_of(" \t") == std::string::npos)
            return {"", "sh: syntax error: unexpected \"|\"\n", 2};
        const std::string input = std::move(result.out);
        result = runSimple(stages[i], i == 0 ? nullptr : &input);
        errors += result.err;
    }
    result.err = errors;
    return result;
}

BoardShellC::ResultT BoardShellC::runSimple(const std::string& segment, const std::string* input)
{
    // Where standard output and error go: the terminal's own stream (empty target) or a file, set up in
    // the order written, before the command runs, as the shell opens them.
    struct SinkT {
        std::string target;
        bool toError = false;
    };
    SinkT sinks[2] = {{"", false}, {"", true}};
    std::vector<std::string> words;
    const std::vector<std::string> expanded = expandWords(segment);
    for (std::size_t i = 0; i < expanded.size(); ++i) {
        if (expanded[i].empty() || expanded[i][0] != '\0') {
            words.push_back(expanded[i]);
            continue;
        }
        const std::string op = expanded[i].substr(1);
        if (op == "2>&1") {
            sinks[1] = sinks[0];
            continue;
        }
        if (i + 1 >= expanded.size() || (!expanded[i + 1].empty() && expanded[i + 1][0] == '\0'))
            return {"", "sh: syntax error: unexpected newline\n", 2};
        const std::string& target = expanded[++i];
        std::string failure;
        const bool append = op.size() >= 2 && op.compare(op.size() - 2, 2, ">>") == 0;
        if (!redirect(target, "", append, failure)) return {"", failure, 1};
        sinks[op[0] == '2' ? 1 : 0] = {target, false};
    }
    ResultT ran = words.empty() ? ResultT{} : runCommand(words, input);
    ResultT result{"", "", ran.status};
    const std::string* texts[2] = {&ran.out, &ran.err};
    for (int stream = 0; stream < 2; ++stream) {
        const SinkT& sink = sinks[stream];
        std::string failure;
        if (sink.target.empty())
            (sink.toError ? result.err : result.out) += *texts[stream];
        else if (!redirect(sink.target, *texts[stream], true, failure))
            result.err += failure;
    }
    return result;
}

bool BoardShellC::redirect(const std::string& target, const std::string& text, bool append, std::string& err)
{
    const std::string path = boardPath(target);
    if (path == "/dev/null") return true;
    if (path == "/dev/kmsg") {
        // Each write is one kernel log record; the line end is not part of it.
        std::istringstream lines(text);
        for (std::string line; std::getline(lines, line);)
            if (m_host.writeKernelLog) m_host.writeKernelLog(line);
        return true;
    }
    std::ofstream out(hostPath(path), append ? std::ios::app : std::ios::trunc);
    out << text;
    if (out) return true;
    err = "sh: can't create " + target + ": No such file or directory\n";
    return false;
}

std::string BoardShellC::boardPath(const std::string& path) const
{
    std::vector<std::string> parts;
    std::istringstream in(path.empty() || path[0] != '/' ? m_cwd + "/" + path : path);
    for (std::string part; std::getline(in, part, '/');) {
        if (part.empty() || part == ".") continue;
        if (part == "..") {
            if (!parts.empty()) parts.pop_back();
            continue;
        }
        parts.push_back(part);
    }
    std::string normal;
    for (const auto& part : parts)
        normal += "/" + part;
    return normal.empty() ? "/" : normal;
}

std::string BoardShellC::hostPath(const std::string& path) const
{
    return m_host.boardFolder + "/fs" + (path == "/" ? "" : path);
}

BoardShellC::ResultT BoardShellC::runTest(const std::string& name, std::vector<std::string> args)
{
    if (name == "[") {
        if (args.empty() || args.back() != "]") return {"", "sh: [: missing ]\n", 2};
        args.pop_back();
    }
    bool negate = false;
    if (!args.empty() && args[0] == "!") {
        negate = true;
        args.erase(args.begin());
    }
    bool holds = false;
    std::error_code error;
    if (args.empty()) {
        holds = false;
    } else if (args.size() == 1) {
        holds = !args[0].empty();
    } else if (args.size() == 2 && args[0].size() == 2 && args[0][0] == '-') {
        const std::string path = hostPath(boardPath(args[1]));
        switch (args[0][1]) {
            case 'd':
                holds = fs::is_directory(path, error);
                break;
            case 'f':
                holds = fs::is_regular_file(path, error);
                break;
            case 'e':
                holds = fs::exists(path, error);
                break;
            case 'z':
                holds = args[1].empty();
                break;
            case 'n':
                holds = !args[1].empty();
                break;
            default:
                return {"", "sh: " + name + ": " + args[0] + ": unknown operand\n", 2};
        }
    } else if (args.size() == 3) {
        const std::string& op = args[1];
        if (op == "=" || op == "==") {
            holds = args[0] == args[2];
        } else if (op == "!=") {
            holds = args[0] != args[2];
        } else if (op == "-eq" || op == "-ne" || op == "-lt" || op == "-gt" || op == "-le" || op == "-ge") {
            int left = 0;
            int right = 0;
            if (!parseStatus(args[0], left) || !parseStatus(args[2], right))
                return {"", "sh: " + name + ": bad number\n", 2};
            left = std::atoi(args[0].c_str());
            right = std::atoi(args[2].c_str());
            holds = op == "-eq"   ? left == right
                    : op == "-ne" ? left != right
                    : op == "-lt" ? left < right
                    : op == "-gt" ? left > right
                    : op == "-le" ? left <= right
                                  : left >= right;
        } else {
            return {"", "sh: " + name + ": " + op + ": unknown operand\n", 2};
        }
    } else {
        return {"", "sh: " + name + ": too many arguments\n", 2};
    }
    return {"", "", holds != negate ? 0 : 1};
}

BoardShellC::ResultT BoardShellC::runScript(const std::string& path)
{
    bool ok = false;
    std::istringstream lines(readFile(path, ok));
    ResultT result;
    for (std::string line; std::getline(lines, line);) {
        if (line.rfind("#status ", 0) == 0 && parseStatus(line.substr(8), result.status)) continue;
        if (line.rfind("#stderr ", 0) == 0) {
            result.err += line.substr(8) + "\n";
            continue;
        }
        result.out += line + "\n";
    }
    return result;
}

BoardShellC::ResultT BoardShellC::runFilter(const std::string& name, const std::vector<std::string>& args,
                                            const std::string& input)
{
    const std::vector<std::string> lines = splitLines(input);
    if (name == "cat") return {input, "", 0};
    if (name == "wc") {
        if (args.size() != 1 || args[0] != "-l") return {"", "wc: only -l is known here\n", 1};
        return {std::to_string(lines.size()) + "\n", "", 0};
    }
    if (name == "grep") {
        const bool invert = !args.empty() && args[0] == "-v";
        if (args.size() != (invert ? 2u : 1u)) return {"", "Usage: grep [-v] PATTERN\n", 2};
        std::vector<std::string> kept;
        for (const auto& line : lines)
            if ((line.find(args.back()) != std::string::npos) != invert) kept.push_back(line);
        return {joinLines(kept), "", kept.empty() ? 1 : 0};
    }
    // head and tail, with "-n N" or "-N"
    int count = 10;
    if (args.size() == 2 && args[0] == "-n" && parseStatus(args[1], count))
        count = std::atoi(args[1].c_str());
    else if (args.size() == 1 && args[0].size() > 1 && args[0][0] == '-' && parseStatus(args[0].substr(1), count))
        count = std::atoi(args[0].c_str() + 1);
    else if (!args.empty())
        return {"", name + ": invalid number of lines\n", 1};
    const std::size_t keep = std::min(lines.size(), static_cast<std::size_t>(count < 0 ? 0 : count));
    const auto first = name == "head" ? lines.begin() : lines.end() - static_cast<std::ptrdiff_t>(keep);
    return {joinLines(std::vector<std::string>(first, first + static_cast<std::ptrdiff_t>(keep))), "", 0};
}

BoardShellC::ResultT BoardShellC::runCommand(const std::vector<std::string>& words, const std::string* input)
{
    const std::string& name = words[0];
    const std::vector<std::string> args(words.begin() + 1, words.end());
    const bool filter =
        name == "grep" || name == "head" || name == "tail" || name == "wc" || (name == "cat" && args.empty());
    if (filter) return runFilter(name, args, input != nullptr ? *input : std::string());
    if (name == "true" || name == ":") return {};
    if (name == "false") return {"", "", 1};
    if (name == "echo") {
        const bool newline = args.empty() || args[0] != "-n";
        const std::size_t first = newline ? 0 : 1;
        std::string text;
        for (std::size_t i = first; i < args.size(); ++i)
            text += (i > first ? " " : "") + args[i];
        return {text + (newline ? "\n" : ""), "", 0};
    }
    if (name == "uname") {
        std::string flags;
        for (const auto& arg : args) {
            if (arg.size() < 2 || arg[0] != '-' || arg.find_first_not_of("asnrmo", 1) != std::string::npos)
                return {"", "uname: invalid option -- '" + arg + "'\n", 1};
            flags += arg.substr(1);
        }
        if (flags.empty()) flags = "s";
        if (flags.find('a') != std::string::npos) flags = "snrmo";
        const std::pair<char, const char*> fields[] = {
            {'s', "Linux"}, {'n', "mora"}, {'r', "3.10.31-ltsi"}, {'m', "armv7l"}, {'o', "GNU/Linux"}};
        std::string text;
        for (const auto& field : fields)
            if (flags.find(field.first) != std::string::npos)
                text += (text.empty() ? "" : " ") + std::string(field.second);
        return {text + "\n", "", 0};
    }
    if (name == "cd") {
        const std::string target = boardPath(args.empty() ? kHome : args[0]);
        std::error_code error;
        if (!fs::is_directory(hostPath(target), error))
            return {"", "sh: cd: can't cd to " + (args.empty() ? kHome : args[0]) + ": No such file or directory\n", 2};
        m_cwd = target;
        return {};
    }
    if (name == "pwd") return {m_cwd + "\n", "", 0};
    if (name == "test" || name == "[") return runTest(name, args);
    if (name == "ls") {
        const std::string target = args.empty() ? m_cwd : boardPath(args[0]);
        std::error_code error;
        if (!fs::exists(hostPath(target), error))
            return {"", "ls: " + (args.empty() ? target : args[0]) + ": No such file or directory\n", 1};
        std::vector<std::string> names;
        if (fs::is_directory(hostPath(target), error)) {
            for (const auto& entry : fs::directory_iterator(hostPath(target), error))
                names.push_back(entry.path().filename().string());
        } else {
            names.push_back(args[0]);
        }
        std::sort(names.begin(), names.end());
        return {joinLines(names), "", 0};
    }
    if (name == "cat") {
        ResultT result;
        for (const auto& arg : args) {
            if (boardPath(arg) == "/dev/kmsg" && m_host.kernelLog) {
                result.out += joinLines(m_host.kernelLog());
                continue;
            }
            bool ok = false;
            const std::string text =
                fs::is_regular_file(hostPath(boardPath(arg))) ? readFile(hostPath(boardPath(arg)), ok) : "";
            if (ok) {
                result.out += text;
            } else {
                result.err += "cat: can't open '" + arg + "': No such file or directory\n";
                result.status = 1;
            }
        }
        return result;
    }
    if (name == "mkdir") {
        const bool parents = !args.empty() && args[0] == "-p";
        ResultT result;
        for (std::size_t i = parents ? 1 : 0; i < args.size(); ++i) {
            std::error_code error;
            const std::string path = hostPath(boardPath(args[i]));
            const bool made = parents ? (fs::create_directories(path, error), fs::is_directory(path, error))
                                      : fs::create_directory(path, error);
            if (!made) {
                result.err += "mkdir: can't create directory '" + args[i] +
                              "': " + (fs::exists(path, error) ? "File exists" : "No such file or directory") + "\n";
                result.status = 1;
            }
        }
        return result;
    }
    if (name == "dmesg") return {m_host.kernelLog ? joinLines(m_host.kernelLog()) : "", "", 0};
    if (name == "exit") {
        int status = m_status;
        if (!args.empty() && !parseStatus(args[0], status))
            return {"", "sh: exit: Illegal number: " + args[0] + "\n", 2};
        m_exitRequested = true;
        return {"", "", status};
    }
    if (name == "fail") {
        int status = 1;
        if (!args.empty() && !parseStatus(args[0], status))
            return {"", "sh: fail: Illegal number: " + args[0] + "\n", 2};
        std::string text;
        for (std::size_t i = 1; i < args.size(); ++i)
            text += (i > 1 ? " " : "") + args[i];
        return {"", text.empty() ? "" : text + "\n", status};
    }
    const std::string script = m_host.boardFolder + "/bin/" + name;
    std::error_code error;
    if (name.find('/') == std::string::npos && fs::is_regular_file(script, error)) return runScript(script);
    return {"", "sh: " + name + ": not found\n", 127};
}

}  // namespace halvern::sim
