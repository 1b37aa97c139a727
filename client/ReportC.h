#pragma once
// What halvernctl prints for a named command or a known event: labelled values a technician reads, and the
// same values as one JSON object for scripts.
#include <cstddef>
#include <cstdint>
#include <ostream>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "framework/SerializableI.h"

namespace SEP {

class ReportC {
public:
    using JsonT = nlohmann::ordered_json;

    // `kind` is the JSON key that names the message ("command" or "event").
    ReportC(std::string kind, std::string name, std::uint16_t id);

    // One value: the line "label: text" and the JSON member `key`.
    void add(const std::string& key, const std::string& label, JsonT value, const std::string& text);
    void number(const std::string& key, const std::string& label, std::int64_t value, const std::string& unit = {});
    void flag(const std::string& key, const std::string& label, bool value, const char* whenSet = "yes",
              const char* whenClear = "no");
    void text(const std::string& key, const std::string& label, const std::string& value);
    // A value with a name for its number: the name in text and JSON, the number beside it as `key` + "Code"
    // in JSON and in parentheses in text.
    void choice(const std::string& key, const std::string& label, const std::string& name, std::int64_t code);
    // A text that is shown as asterisks unless secrets are to be shown (JSON: the member `key` is null then
    // and `key` + "Set" says whether there is one).
    void secret(const std::string& key, const std::string& label, const std::string& value);
    void showSecrets(bool show) { m_showSecrets = show; }
    // A byte array as hex digits.
    void bytes(const std::string& key, const std::string& label, const std::uint8_t* data, std::size_t length);
    // Flags whose meaning is not fixed: one line per bit, "label bit N: set", and a JSON array by bit.
    void bits(const std::string& key, const std::string& label, const bool* values, std::size_t count);
    // A JSON member without a line of text (a value the text tells otherwise).
    void value(const std::string& key, JsonT value) { m_values[key] = std::move(value); }
    // A text of several lines, printed below its label.
    void block(const std::string& key, const std::string& label, const std::string& value);
    // Every field of a record whose fields have no settled meaning yet, in wire order: the lines
    // "value N: ..." and the JSON array `key`.
    void values(const std::string& key, MAL::UTI::SerializableI& record);
    // The id actually sent, for commands that pick one of several.
    void setId(std::uint16_t id) { m_id = id; }

    // A line for the reader only, e.g. what a command without a reply record has done.
    void note(const std::string& line) { m_lines.push_back(line); }

    // When the event arrived (ISO 8601, UTC): on the title line and as the JSON member "time".
    void setTime(std::string time) { m_time = std::move(time); }

    // Text: a title line for events, then the lines; JSON: one object on one line. `error` non-empty makes
    // the JSON carry it (and `hint`) instead of success.
    std::string render(bool json, const std::string& error = {}, const std::string& hint = {}) const;
    // One value alone, for scripts: a text without quotes, a number, true/false; with `raw` the number of a
    // named value. False when the report has no such key (`text` then lists the keys it has).
    bool valueOf(const std::string& key, bool raw, std::string& text) const;

private:
    std::string m_kind;
    std::string m_name;
    std::uint16_t m_id;
    std::string m_time;
    bool m_showSecrets = false;
    JsonT m_values = JsonT::object();
    std::vector<std::string> m_lines;
};

std::string hexText(const std::uint8_t* data, std::size_t length);
// Now, as events are stamped: "2026-11-25T19:43:19.123Z".
std::string utcTimestamp();
// What halvernctl prints for an error: "halvernctl: TEXT" and the hint below it, or with `json` one object
// {"ok": false, "error": ..., "hint": ..., "exitCode": ...} on `out`.
void printError(std::ostream& out, std::ostream& err, bool json, int exitCode, const std::string& text,
                const std::string& hint = {});
// Text of a fixed buffer up to its first NUL.
std::string bufferText(const char* buffer, std::size_t capacity);
template <std::size_t N>
std::string bufferText(const char (&buffer)[N])
{
    return bufferText(buffer, N);
}

}  // namespace SEP
