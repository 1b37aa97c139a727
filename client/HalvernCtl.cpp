// halvernctl: sends one SEP command to a Halvern and prints the reply, or prints the events that Halvern
// pushes until it is interrupted.
#include "client/HalvernCtl.h"

#include <CLI/CLI.hpp>

#include "client/CommandTable.h"
#include "client/MessagePrinter.h"
#include "client/SepClientC.h"
#include "client/TypedValue.h"

namespace SEP {
namespace {

bool parseSpecs(const std::vector<std::string>& arguments, std::vector<TypedValueT>& specs, std::ostream& err)
{
    for (const auto& argument : arguments) {
        TypedValueT shape;
        std::string error;
        if (!parseReadSpec(argument, shape, error)) {
            err << "halvernctl: " << error << "\n";
            return false;
        }
        specs.push_back(shape);
    }
    return true;
}

}  // namespace

int runHalvernCtl(int argc, const char* const* argv, std::ostream& out, std::ostream& err)
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

    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error, out, err);
    }

    SepClientC client;
    const auto connect = [&] {
        if (client.connect(host, port)) return true;
        err << "halvernctl: cannot connect to " << host << ":" << port << "\n";
        return false;
    };
    const CodingE coding = ascii ? CodingE::Ascii : CodingE::Binary;

    if (*send) {
        std::uint16_t id = 0;
        if (!resolveCommandId(command, id)) {
            err << "halvernctl: unknown command " << command << "\n";
            return 1;
        }
        std::vector<TypedValueT> values;
        for (const auto& parameter : parameters) {
            TypedValueT value;
            std::string error;
            if (!parseTypedValue(parameter, value, error)) {
                err << "halvernctl: " << error << "\n";
                return 1;
            }
            values.push_back(value);
        }
        if (replyFields.empty())
            if (const CommandInfoT* known = findCommand(command)) replyFields = known->replyFields;
        std::vector<TypedValueT> specs;
        if (!parseSpecs(replyFields, specs, err)) return 1;

        const auto frame = encodeFrame(coding, id, MESSAGE_KIND_COMMAND, {}, {}, [&](DataWriterI& w) {
            for (const auto& value : values)
                if (!writeTypedValue(w, value)) return false;
            return true;
        });
        if (frame.empty()) {
            err << "halvernctl: the parameters cannot be coded (a string with a control character?)\n";
            return 1;
        }
        if (!connect()) return 2;
        if (!client.sendBytes(frame)) {
            err << "halvernctl: sending failed\n";
            return 2;
        }
        for (;;) {
            std::vector<std::uint8_t> received;
            if (!client.receiveFrame(received, timeoutMs)) {
                const auto& raw = client.rawBytes();
                if (!raw.empty() && raw.back() == 0)
                    err << "halvernctl: " << reinterpret_cast<const char*>(raw.data()) << "\n";
                else
                    err << "halvernctl: no reply\n";
                return 3;
            }
            DecodedFrameT decoded;
            if (!decodeFrame(received, decoded)) continue;
            if (decoded.kind != MESSAGE_KIND_REPLY || decoded.messageId != id) continue;
            const auto printed = printMessage(decoded, specs, json);
            out << printed.text;
            return printed.ok ? 0 : 4;
        }
    }

    std::vector<TypedValueT> specs;
    if (!parseSpecs(eventFields, specs, err)) return 1;
    if (!connect()) return 2;
    for (long printed = 0; count < 0 || printed < count;) {
        std::vector<std::uint8_t> received;
        if (!client.receiveFrame(received, 1000)) {
            if (client.closed()) {
                err << "halvernctl: connection closed\n";
                return 3;
            }
            continue;
        }
        DecodedFrameT decoded;
        if (!decodeFrame(received, decoded) || decoded.kind != MESSAGE_KIND_EVENT) continue;
        out << printMessage(decoded, specs, json).text << std::flush;
        ++printed;
    }
    return 0;
}

}  // namespace SEP
