// halvernctl: sends one SEP command to a Halvern and prints the reply, or prints the events that Halvern
// pushes until it is interrupted.
#include "client/HalvernCtl.h"

#include <CLI/CLI.hpp>

#include "client/CommandTable.h"
#include "client/CtlCommands.h"
#include "client/CtlWatch.h"
#include "client/EventPrinter.h"
#include "client/MessagePrinter.h"
#include "client/SepExchangeC.h"
#include "client/TypedValue.h"

namespace SEP {
namespace {

const char* const kFooter =
    "Exit codes: 0 done; 1 bad arguments (nothing was sent); 2 no connection; 3 no reply, or the server "
    "turned the client away; 4 the reply ends before its fields; 5 the server answered with an error (its "
    "text is printed on stderr, and with --json also as \"error\").\n"
    "Options of halvernctl itself may also follow the command, unless the command has an option of the same "
    "name (power-off --timeout is in seconds; the reply wait --timeout goes before the command then).";

struct GlobalOptionsT {
    std::string host = "127.0.0.1";
    std::uint16_t port = 55557;
    bool ascii = false;
    bool json = false;
    std::uint32_t timeoutMs = 10000;
    CodingE coding() const { return ascii ? CodingE::Ascii : CodingE::Binary; }
};

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

int runNamed(const CtlChoiceT& chosen, const GlobalOptionsT& options, std::ostream& out, std::ostream& err)
{
    SepExchangeC sep(options.host, options.port, options.coding(), options.timeoutMs);
    ReportC report("command", chosen.name, 0);
    const ExchangeResultE result = chosen.action(sep, report);
    report.setId(sep.lastId());
    switch (result) {
        case ExchangeResultE::Done:
            out << report.render(options.json);
            return CTL_EXIT_DONE;
        case ExchangeResultE::ErrorReply:
            if (options.json) out << report.render(true, sep.failure());
            err << "halvernctl: " << chosen.name << ": " << sep.failure() << "\n";
            return CTL_EXIT_ERROR_REPLY;
        case ExchangeResultE::NotEncodable:
            err << "halvernctl: " << sep.failure() << "\n";
            return CTL_EXIT_BAD_ARGUMENTS;
        case ExchangeResultE::NoConnection:
            err << "halvernctl: " << sep.failure() << "\n";
            return CTL_EXIT_NO_CONNECTION;
        case ExchangeResultE::NoReply:
            err << "halvernctl: " << sep.failure() << "\n";
            return CTL_EXIT_NO_REPLY;
        case ExchangeResultE::ShortReply:
        default:
            err << "halvernctl: " << chosen.name << ": " << sep.failure() << "\n";
            return CTL_EXIT_SHORT_REPLY;
    }
}

struct SendOptionsT {
    std::string command;
    std::vector<std::string> parameters;
    std::vector<std::string> replyFields;
};

int runSend(SendOptionsT& send, const GlobalOptionsT& options, std::ostream& out, std::ostream& err)
{
    std::uint16_t id = 0;
    if (!resolveCommandId(send.command, id)) {
        err << "halvernctl: unknown command " << send.command << "\n";
        return CTL_EXIT_BAD_ARGUMENTS;
    }
    std::vector<TypedValueT> values;
    for (const auto& parameter : send.parameters) {
        TypedValueT value;
        std::string error;
        if (!parseTypedValue(parameter, value, error)) {
            err << "halvernctl: " << error << "\n";
            return CTL_EXIT_BAD_ARGUMENTS;
        }
        values.push_back(value);
    }
    if (send.replyFields.empty())
        if (const CommandInfoT* known = findCommand(send.command)) send.replyFields = known->replyFields;
    std::vector<TypedValueT> specs;
    if (!parseSpecs(send.replyFields, specs, err)) return CTL_EXIT_BAD_ARGUMENTS;

    const auto frame = encodeFrame(options.coding(), id, MESSAGE_KIND_COMMAND, {}, {}, [&](DataWriterI& w) {
        for (const auto& value : values)
            if (!writeTypedValue(w, value)) return false;
        return true;
    });
    if (frame.empty()) {
        err << "halvernctl: the parameters cannot be coded (a string with a control character?)\n";
        return CTL_EXIT_BAD_ARGUMENTS;
    }
    SepClientC client;
    if (!client.connect(options.host, options.port) || !client.sendBytes(frame)) {
        err << "halvernctl: cannot connect to " << options.host << ":" << options.port << "\n";
        return CTL_EXIT_NO_CONNECTION;
    }
    DecodedFrameT decoded;
    std::string failure;
    if (!receiveReply(client, id, options.timeoutMs, decoded, failure)) {
        err << "halvernctl: " << failure << "\n";
        return CTL_EXIT_NO_REPLY;
    }
    const auto printed = printMessage(decoded, specs, options.json);
    out << printed.text;
    if (printed.errorReply) {
        err << "halvernctl: " << printed.errorText << "\n";
        return CTL_EXIT_ERROR_REPLY;
    }
    return printed.ok ? CTL_EXIT_DONE : CTL_EXIT_SHORT_REPLY;
}

int runEvents(const std::vector<std::string>& fields, long count, const GlobalOptionsT& options, std::ostream& out,
              std::ostream& err)
{
    std::vector<TypedValueT> specs;
    if (!parseSpecs(fields, specs, err)) return CTL_EXIT_BAD_ARGUMENTS;
    SepClientC client;
    if (!client.connect(options.host, options.port)) {
        err << "halvernctl: cannot connect to " << options.host << ":" << options.port << "\n";
        return CTL_EXIT_NO_CONNECTION;
    }
    for (long printed = 0; count < 0 || printed < count;) {
        std::vector<std::uint8_t> received;
        if (!client.receiveFrame(received, 1000)) {
            if (client.closed()) {
                err << "halvernctl: connection closed\n";
                return CTL_EXIT_NO_REPLY;
            }
            continue;
        }
        DecodedFrameT decoded;
        if (!decodeFrame(received, decoded) || decoded.kind != MESSAGE_KIND_EVENT) continue;
        std::string text;
        if (!fields.empty() || !printKnownEvent(decoded, options.json, text))
            text = printMessage(decoded, specs, options.json).text;
        out << text << std::flush;
        ++printed;
    }
    return CTL_EXIT_DONE;
}

}  // namespace

int runHalvernCtl(int argc, const char* const* argv, std::ostream& out, std::ostream& err)
{
    CLI::App app{
        "halvernctl: SEP client of Halvern. Each command below sends one command of the instrument "
        "(its id in parentheses) and prints the reply; `COMMAND --help` tells its arguments."};
    GlobalOptionsT options;
    app.add_option("--host", options.host, "address of the instrument (dotted quad)");
    app.add_option("--port", options.port, "SEP port (55557 or 55558)");
    app.add_flag("--ascii", options.ascii, "send in the ASCII coding instead of the binary one");
    app.add_flag("--json", options.json, "print one JSON object per reply or event");
    app.add_option("--timeout", options.timeoutMs, "how long to wait for the reply, in milliseconds");
    app.footer(kFooter);
    app.fallthrough();
    app.require_subcommand(1);

    auto* send = app.add_subcommand("send", "Sends any command by id or name and prints its reply field by field.");
    SendOptionsT sendOptions;
    send->add_option("command", sendOptions.command,
                     "command id, the server's name (EFI_GET_BAT_STATUS) or a sub-command as listed above")
        ->required();
    send->add_option("parameters", sendOptions.parameters,
                     "parameters as TYPE:VALUE (u8 u16 u32 i8 i16 i32 bool f32 f64 bytes str)");
    send->add_option("--reply", sendOptions.replyFields,
                     "reply fields after the header, e.g. --reply u32 str bytes:6 (default: the command's record)");

    auto* events = app.add_subcommand(
        "events",
        "Prints pushed events until interrupted: button, power-source, supervisor-intervention, shutdown, "
        "usb, wlan-channel-selected, uwf-overlay, wlan-radar (1000-1007).");
    std::vector<std::string> eventFields;
    long count = -1;
    events->add_option("--fields", eventFields, "read every event as these fields instead of by its name");
    events->add_option("--count", count, "stop after this many events");

    auto* watch = app.add_subcommand(
        "watch",
        "Shows battery, power source and selection, WLAN, time and RTC, asked again every --interval and "
        "redrawn in place (Ctrl-C ends it).");
    WatchOptionsT watchOptions;
    watch->add_option("--interval", watchOptions.intervalMs, "milliseconds between two refreshes")
        ->capture_default_str();
    watch->add_option("--count", watchOptions.count, "stop after this many refreshes");
    watch->add_flag("--plain", watchOptions.plain, "print each refresh below the last instead of redrawing");

    CtlChoiceT chosen;
    addPowerCommands(app, chosen);
    addSystemCommands(app, chosen);
    addNetworkCommands(app, chosen);

    // What the shell's completion asks: the words typed so far, after the program's name.
    if (argc >= 2 && std::string(argv[1]) == "__complete") {
        printCompletions(app, std::vector<std::string>(argv + 2, argv + argc), out);
        return CTL_EXIT_DONE;
    }
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error, out, err) == 0 ? CTL_EXIT_DONE : CTL_EXIT_BAD_ARGUMENTS;
    }
    if (chosen.action) return runNamed(chosen, options, out, err);
    if (*send) return runSend(sendOptions, options, out, err);
    if (*watch) {
        std::vector<std::string> global{"--host",    options.host,
                                        "--port",    std::to_string(options.port),
                                        "--timeout", std::to_string(options.timeoutMs)};
        if (options.ascii) global.push_back("--ascii");
        return runWatch(watchOptions, global, out);
    }
    return runEvents(eventFields, count, options, out, err);
}

}  // namespace SEP
