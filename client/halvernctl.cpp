// halvernctl: sends one SEP command to a Halvern and prints the reply, or prints the events that Halvern
// pushes until it is interrupted.
#include <CLI/CLI.hpp>

#include <cstdio>
#include <iostream>

#include "client/CommandTable.h"
#include "client/MessagePrinter.h"
#include "client/SepClientC.h"
#include "client/TypedValue.h"

namespace {

bool parseSpecs(const std::vector<std::string>& arguments, std::vector<SEP::TypedValueT>& specs)
{
    for (const auto& argument : arguments) {
        SEP::TypedValueT spec;
        std::string error;
        if (!SEP::parseReadSpec(argument, spec, error)) {
            std::cerr << "halvernctl: " << error << "\n";
            return false;
        }
        specs.push_back(spec);
    }
    return true;
}

}  // namespace

int main(int argc, char** argv)
{
    CLI::App app{"halvernctl: SEP client of Halvern"};
    std::string host = "127.0.0.1";
    std::uint16_t port = 55557;
    bool ascii = false;
    bool json = false;
    std::uint32_t timeoutMs = 10000;
    app.add_option("--host", host, "address of the instrument (dotted quad)");
    app.add_option("--port", port, "SEP port (55557 or 55558)");
    app.add_flag("--ascii", ascii, "send in the ASCII coding instead of the binary one");
    app.add_flag("--json", json, "print one JSON object per message");
    app.add_option("--timeout", timeoutMs, "how long to wait for the reply, in milliseconds");
    app.require_subcommand(1);

    auto* send = app.add_subcommand("send", "send a command and print its reply");
    std::string command;
    std::vector<std::string> parameters;
    std::vector<std::string> replyFields;
    send->add_option("command", command, "command id (or name)")->required();
    send->add_option("parameters", parameters,
                     "parameters as TYPE:VALUE (u8 u16 u32 i8 i16 i32 bool f32 f64 bytes str)");
    send->add_option("--reply", replyFields, "reply fields after the header, e.g. --reply u32 str bytes:6");

    auto* events = app.add_subcommand("events", "print pushed events until interrupted");
    std::vector<std::string> eventFields;
    long count = -1;
    events->add_option("--fields", eventFields, "event fields after the header");
    events->add_option("--count", count, "stop after this many events");

    CLI11_PARSE(app, argc, argv);

    SEP::SepClientC client;
    if (!client.connect(host, port)) {
        std::cerr << "halvernctl: cannot connect to " << host << ":" << port << "\n";
        return 2;
    }
    const SEP::CodingE coding = ascii ? SEP::CodingE::Ascii : SEP::CodingE::Binary;

    if (*send) {
        std::uint16_t id = 0;
        if (!SEP::resolveCommandId(command, id)) {
            std::cerr << "halvernctl: unknown command " << command << "\n";
            return 1;
        }
        std::vector<SEP::TypedValueT> values;
        for (const auto& parameter : parameters) {
            SEP::TypedValueT value;
            std::string error;
            if (!SEP::parseTypedValue(parameter, value, error)) {
                std::cerr << "halvernctl: " << error << "\n";
                return 1;
            }
            values.push_back(value);
        }
        if (replyFields.empty())
            if (const SEP::CommandInfoT* known = SEP::findCommand(command)) replyFields = known->replyFields;
        std::vector<SEP::TypedValueT> specs;
        if (!parseSpecs(replyFields, specs)) return 1;

        const auto frame = SEP::encodeFrame(coding, id, SEP::MESSAGE_KIND_COMMAND, {}, {}, [&](SEP::DataWriterI& w) {
            for (const auto& value : values)
                if (!SEP::writeTypedValue(w, value)) return false;
            return true;
        });
        if (frame.empty()) {
            std::cerr << "halvernctl: the parameters cannot be coded (a string with a control character?)\n";
            return 1;
        }
        if (!client.sendBytes(frame)) {
            std::cerr << "halvernctl: sending failed\n";
            return 2;
        }
        for (;;) {
            std::vector<std::uint8_t> received;
            if (!client.receiveFrame(received, timeoutMs)) {
                const auto& raw = client.rawBytes();
                if (!raw.empty() && raw.back() == 0)
                    std::cerr << "halvernctl: " << reinterpret_cast<const char*>(raw.data()) << "\n";
                else
                    std::cerr << "halvernctl: no reply\n";
                return 3;
            }
            SEP::DecodedFrameT decoded;
            if (!SEP::decodeFrame(received, decoded)) continue;
            if (decoded.kind != SEP::MESSAGE_KIND_REPLY || decoded.messageId != id) continue;
            const auto printed = SEP::printMessage(decoded, specs, json);
            std::fputs(printed.text.c_str(), stdout);
            return printed.ok ? 0 : 4;
        }
    }

    std::vector<SEP::TypedValueT> specs;
    if (!parseSpecs(eventFields, specs)) return 1;
    for (long printed = 0; count < 0 || printed < count;) {
        std::vector<std::uint8_t> received;
        if (!client.receiveFrame(received, 1000)) {
            if (client.closed()) {
                std::cerr << "halvernctl: connection closed\n";
                return 3;
            }
            continue;
        }
        SEP::DecodedFrameT decoded;
        if (!SEP::decodeFrame(received, decoded) || decoded.kind != SEP::MESSAGE_KIND_EVENT) continue;
        std::fputs(SEP::printMessage(decoded, specs, json).text.c_str(), stdout);
        std::fflush(stdout);
        ++printed;
    }
    return 0;
}
