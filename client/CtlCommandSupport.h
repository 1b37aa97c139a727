#pragma once
// The pieces every named sub-command is made of: registering it, checking its arguments before anything
// is sent, and putting texts into the records' fixed buffers.
#include <cstring>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "client/CtlCommands.h"
#include "sep/HalvernSepRecords.h"

namespace SEP::ctl {

namespace REC = Varda::SEP::HALVERN;

// A sub-command of `parent` that, when typed, becomes the action to run.
CLI::App* addCommand(CLI::App& parent, const std::string& name, const std::string& description, CtlChoiceT& chosen,
                     CtlActionFn action);
// A sub-command that only groups others ("wlan" of "wlan get" and "wlan set").
CLI::App* addGroup(CLI::App& parent, const std::string& name, const std::string& description);

// Arguments that must fit a record's text buffer with its NUL and that the coding can carry (printable
// characters and blanks only).
CLI::Validator fitsBuffer(std::size_t capacity);
// Words a technician types, each standing for the number or flag that goes on the wire; anything else is
// refused with the list of words. Matching ignores case.
using WordsT = std::vector<std::pair<std::string, std::string>>;
CLI::Validator oneOf(WordsT words);
// "on"/"off" onto a bool.
CLI::Validator onOff();

// Copies an argument already checked by fitsBuffer().
template <std::size_t N>
void copyText(char (&buffer)[N], const std::string& text)
{
    std::memset(buffer, 0, N);
    std::memcpy(buffer, text.data(), std::min(text.size(), N - 1));
}

// What a technician types for control characters: "\r", "\n", "\t" and "\\" become those characters; any
// other backslash stays as it is.
std::string unescapeControls(const std::string& typed);

// A command without a reply record: the call, then `done` as the line that tells what was asked.
ExchangeResultE doCommand(SepExchangeC& sep, ReportC& report, std::uint16_t id, MAL::UTI::SerializableI* request,
                          const std::string& done);

// A command with a reply record: `print` fills the report when the reply came (it may visit the record).
template <typename Reply, typename Print>
ExchangeResultE askCommand(SepExchangeC& sep, std::uint16_t id, MAL::UTI::SerializableI* request, Print print)
{
    Reply reply;
    const ExchangeResultE result = sep.call(id, request, &reply);
    if (result == ExchangeResultE::Done) print(reply);
    return result;
}

// The options of a sub-command live as long as the command line that names them.
template <typename T>
std::shared_ptr<T> options()
{
    return std::make_shared<T>();
}

}  // namespace SEP::ctl
