#include "client/ReportC.h"

#include <chrono>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <mutex>

namespace SEP {

ReportC::ReportC(std::string kind, std::string name, std::uint16_t id)
    : m_kind(std::move(kind)), m_name(std::move(name)), m_id(id)
{}

void ReportC::add(const std::string& key, const std::string& label, JsonT value, const std::string& text)
{
    m_values[key] = std::move(value);
    m_lines.push_back(label + ": " + text);
}

void ReportC::number(const std::string& key, const std::string& label, std::int64_t value, const std::string& unit)
{
    add(key, label, value, std::to_string(value) + (unit.empty() ? "" : " " + unit));
}

void ReportC::flag(const std::string& key, const std::string& label, bool value, const char* whenSet,
                   const char* whenClear)
{
    add(key, label, value, value ? whenSet : whenClear);
}

void ReportC::text(const std::string& key, const std::string& label, const std::string& value)
{
    add(key, label, value, "\"" + value + "\"");
}

void ReportC::secret(const std::string& key, const std::string& label, const std::string& value)
{
    if (m_showSecrets) {
        text(key, label, value);
        return;
    }
    m_values[key + "Set"] = !value.empty();
    add(key, label, nullptr, value.empty() ? "(none)" : "******** (--show-password shows it)");
}

void ReportC::choice(const std::string& key, const std::string& label, const std::string& name, std::int64_t code)
{
    m_values[key + "Code"] = code;
    add(key, label, name, name + " (" + std::to_string(code) + ")");
}

void ReportC::bytes(const std::string& key, const std::string& label, const std::uint8_t* data, std::size_t length)
{
    const std::string hex = hexText(data, length);
    add(key, label, hex, hex);
}

void ReportC::bits(const std::string& key, const std::string& label, const bool* values, std::size_t count)
{
    JsonT array = JsonT::array();
    for (std::size_t bit = 0; bit < count; ++bit) {
        array.push_back(values[bit]);
        m_lines.push_back(label + " bit " + (bit < 10 ? " " : "") + std::to_string(bit) + ": " +
                          (values[bit] ? "set" : "clear"));
    }
    m_values[key] = std::move(array);
}

void ReportC::block(const std::string& key, const std::string& label, const std::string& value)
{
    m_values[key] = value;
    m_lines.push_back(label + ":");
    std::size_t start = 0;
    while (start < value.size()) {
        std::size_t end = value.find('\n', start);
        if (end == std::string::npos) end = value.size();
        std::string line = value.substr(start, end - start);
        if (!line.empty() && line.back() == '\r') line.pop_back();
        m_lines.push_back("  " + line);
        start = end + 1;
    }
}

namespace {

class ValueListVisitorC : public MAL::UTI::FieldVisitorI {
public:
    ValueListVisitorC(ReportC::JsonT& list, std::vector<std::string>& lines) : m_list(list), m_lines(lines) {}
    bool field(bool& value) override { return add(value, value ? "yes" : "no"); }
    bool field(std::uint16_t& value) override { return add(value, std::to_string(value)); }
    bool field(std::uint32_t& value) override { return add(value, std::to_string(value)); }
    bool field(std::int8_t& value) override { return add(value, std::to_string(value)); }
    bool field(std::int32_t& value) override { return add(value, std::to_string(value)); }
    bool bytes(std::uint8_t* data, std::size_t length) override
    {
        const std::string hex = hexText(data, length);
        return add(hex, hex);
    }
    bool string(char* buffer, std::size_t capacity) override
    {
        const std::string text = bufferText(buffer, capacity);
        return add(text, "\"" + text + "\"");
    }

private:
    bool add(ReportC::JsonT value, const std::string& text)
    {
        m_list.push_back(std::move(value));
        m_lines.push_back("value " + std::to_string(m_list.size()) + ": " + text);
        return true;
    }
    ReportC::JsonT& m_list;
    std::vector<std::string>& m_lines;
};

}  // namespace

void ReportC::values(const std::string& key, MAL::UTI::SerializableI& record)
{
    JsonT list = JsonT::array();
    ValueListVisitorC visitor(list, m_lines);
    record.visit(visitor);
    m_values[key] = std::move(list);
}

std::string ReportC::render(bool json, const std::string& error, const std::string& hint) const
{
    if (json) {
        JsonT object = JsonT::object();
        object[m_kind] = m_name;
        object["id"] = m_id;
        if (!m_time.empty()) object["time"] = m_time;
        if (!error.empty()) {
            object["ok"] = false;
            object["error"] = error;
            if (!hint.empty()) object["hint"] = hint;
        } else {
            if (m_kind == "command") object["ok"] = true;
            for (const auto& member : m_values.items())
                object[member.key()] = member.value();
        }
        // Texts from the instrument are not always UTF-8: replace what is not rather than fail.
        return object.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace) + "\n";
    }
    std::string text;
    const bool titled = m_kind != "command";
    if (titled)
        text = m_kind + " " + std::to_string(m_id) + " " + m_name + (m_time.empty() ? "" : " at " + m_time) + "\n";
    for (const auto& line : m_lines)
        text += (titled ? "  " : "") + line + "\n";
    return text;
}

bool ReportC::valueOf(const std::string& key, bool raw, std::string& text) const
{
    const std::string member = raw && m_values.contains(key + "Code") ? key + "Code" : key;
    if (!m_values.contains(member)) {
        text.clear();
        for (const auto& item : m_values.items())
            if (item.key().size() < 4 || item.key().compare(item.key().size() - 4, 4, "Code") != 0)
                text += (text.empty() ? "" : ", ") + item.key();
        return false;
    }
    const JsonT& value = m_values[member];
    text = value.is_string() ? value.get<std::string>()
                             : value.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace);
    return true;
}

std::string utcTimestamp()
{
    const auto now = std::chrono::system_clock::now();
    const std::time_t seconds = std::chrono::system_clock::to_time_t(now);
    const auto millis = std::chrono::duration_cast<std::chrono::milliseconds>(now.time_since_epoch()).count() % 1000;
    std::tm utc{};
    {
        // gmtime's result is shared; the interactive mode stamps events on a thread of their own.
        static std::mutex lock;
        std::lock_guard<std::mutex> guard(lock);
        utc = *std::gmtime(&seconds);
    }
    char text[96];
    std::snprintf(text, sizeof text, "%04d-%02d-%02dT%02d:%02d:%02d.%03dZ", utc.tm_year + 1900, utc.tm_mon + 1,
                  utc.tm_mday, utc.tm_hour, utc.tm_min, utc.tm_sec, static_cast<int>(millis));
    return text;
}

void printError(std::ostream& out, std::ostream& err, bool json, int exitCode, const std::string& text,
                const std::string& hint)
{
    if (json) {
        ReportC::JsonT object = ReportC::JsonT::object();
        object["ok"] = false;
        object["error"] = text;
        if (!hint.empty()) object["hint"] = hint;
        object["exitCode"] = exitCode;
        out << object.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace) << "\n";
    }
    err << "halvernctl: " << text << "\n";
    if (!hint.empty()) err << "  hint: " << hint << "\n";
}

std::string hexText(const std::uint8_t* data, std::size_t length)
{
    static const char kDigits[] = "0123456789ABCDEF";
    std::string hex;
    for (std::size_t i = 0; i < length; ++i) {
        hex += kDigits[data[i] >> 4];
        hex += kDigits[data[i] & 0x0F];
    }
    return hex;
}

std::string bufferText(const char* buffer, std::size_t capacity)
{
    const void* end = std::memchr(buffer, '\0', capacity);
    return std::string(buffer, end != nullptr ? static_cast<const char*>(end) : buffer + capacity);
}

}  // namespace SEP
