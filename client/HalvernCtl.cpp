// halvernctl: sends one SEP command to a Halvern and prints the reply, or prints the events that Halvern
// pushes until it is interrupted.
#include "client/HalvernCtl.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <iostream>

#include "client/CommandTable.h"
#include "client/CtlCommandLine.h"
#include "client/CtlCommands.h"
#include "client/CtlHints.h"
#include "client/CtlShell.h"
#include "client/CtlWatch.h"
#include "client/EventPrinter.h"
#include "client/MessagePrinter.h"
#include "client/SepExchangeC.h"
#include "client/Terminal.h"
#include "client/TypedValue.h"

namespace SEP {
namespace {

const char* const kFooter =
    "Exit codes: 0 done; 1 bad arguments (nothing was sent); 2 no connection; 3 no reply, or the server "
    "turned the client away; 4 the reply ends before its fields; 5 the server answered with an error (its "
    "text is printed on stderr, and with --json also as \"error\").\n"
    "Options of halvernctl itself may also follow the command, unless the command has an option of the same "
    "name (power-off --timeout is in seconds; the reply wait --timeout goes before the command then).";

const char* const kNoConnectionHint =
    "is the instrument running and listening there? For a simulated instrument give its sim root: --root DIR "
    "or HALVERN_ROOT";

struct GlobalOptionsT {
    std::string host = "127.0.0.1";
    std::uint16_t port = 55557;
    std::string root;
    bool ascii = false;
    bool json = false;
    std::uint32_t timeoutMs = 10000;
    std::string value;
    bool raw = false;
    bool showPassword = false;
    CodingE coding() const { return ascii ? CodingE::Ascii : CodingE::Binary; }
};

// A simulated instrument tells the ports it took in its sim root: <root>/sim/sep/55557 holds the port that
// serves as 55557. With --port 55557 or 55558 (or none) and a root, that port is the one to use.
bool portFromRoot(GlobalOptionsT& options, bool portGiven, bool rootGiven, std::string& failure)
{
    if (options.root.empty()) return true;
    if (portGiven && options.port != 55557 && options.port != 55558) return true;
    const std::string path = options.root + "/sim/sep/" + std::to_string(options.port);
    std::ifstream file(path);
    unsigned long port = 0;
    if (file >> port && port > 0 && port <= 65535) {
        options.port = static_cast<std::uint16_t>(port);
        return true;
    }
    if (!rootGiven) return true;  // HALVERN_ROOT of another kind of run: the usual port
    failure = "no simulated instrument at " + options.root + " (" + path +
              " is missing): start it with `halvern-sim --root " + options.root + "`";
    return false;
}

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

int exitCodeOf(ExchangeResultE result)
{
    switch (result) {
        case ExchangeResultE::Done:
            return CTL_EXIT_DONE;
        case ExchangeResultE::ErrorReply:
            return CTL_EXIT_ERROR_REPLY;
        case ExchangeResultE::NotEncodable:
        case ExchangeResultE::Refused:
            return CTL_EXIT_BAD_ARGUMENTS;
        case ExchangeResultE::NoConnection:
            return CTL_EXIT_NO_CONNECTION;
        case ExchangeResultE::NoReply:
            return CTL_EXIT_NO_REPLY;
        case ExchangeResultE::ShortReply:
        default:
            return CTL_EXIT_SHORT_REPLY;
    }
}

}  // namespace

int runChosen(const CtlChoiceT& chosen, SepExchangeC& sep, const CtlOutputT& output, std::ostream& out,
              std::ostream& err)
{
    ReportC report("command", chosen.name, 0);
    report.showSecrets(output.showSecrets);
    // A person at the terminal sees what a long command waits for; a pipe gets the outcome only.
    if (&err == &std::cerr && standardErrorIsTerminal())
        sep.setProgress([&err](const std::string& what, std::uint32_t elapsedMs) {
            if (what.empty())
                err << "\r\033[K" << std::flush;
            else
                err << "\rwaiting for " << what << ": " << elapsedMs / 1000 << " s" << std::flush;
        });
    const ExchangeResultE result = chosen.action(sep, report);
    sep.setProgress(nullptr);
    report.setId(sep.lastId());
    const int exitCode = exitCodeOf(result);
    if (result == ExchangeResultE::Done) {
        if (output.value.empty()) {
            out << report.render(output.json);
            return CTL_EXIT_DONE;
        }
        std::string text;
        if (report.valueOf(output.value, output.raw, text)) {
            out << text << "\n";
            return CTL_EXIT_DONE;
        }
        printError(out, err, output.json, CTL_EXIT_BAD_ARGUMENTS,
                   chosen.name + " has no value " + output.value + "; it has: " + text);
        return CTL_EXIT_BAD_ARGUMENTS;
    }
    std::string text = sep.failure();
    std::string hint = sep.hint();
    if (result == ExchangeResultE::ErrorReply) {
        text = chosen.name + ": " + text;
        if (hint.empty()) hint = hintFor(sep.lastId(), sep.failure());
    } else if (result == ExchangeResultE::ShortReply) {
        text = chosen.name + ": " + text;
    } else if (result == ExchangeResultE::NoConnection && hint.empty()) {
        hint = kNoConnectionHint;
    }
    if (output.json) out << report.render(true, text, hint);
    err << "halvernctl: " << text << "\n";
    if (!hint.empty()) err << "  hint: " << hint << "\n";
    return exitCode;
}

namespace {

struct SendOptionsT {
    std::string command;
    std::vector<std::string> parameters;
    std::vector<std::string> replyFields;
};

int runSend(SendOptionsT& send, const GlobalOptionsT& options, std::ostream& out, std::ostream& err)
{
    std::uint16_t id = 0;
    if (!resolveCommandId(send.command, id)) {
        printError(out, err, options.json, CTL_EXIT_BAD_ARGUMENTS, "unknown command " + send.command,
                   "give a command id (1001-1065), the server's name (EFI_GET_BAT_STATUS) or a sub-command");
        return CTL_EXIT_BAD_ARGUMENTS;
    }
    std::vector<TypedValueT> values;
    for (const auto& parameter : send.parameters) {
        TypedValueT value;
        std::string error;
        if (!parseTypedValue(parameter, value, error)) {
            printError(out, err, options.json, CTL_EXIT_BAD_ARGUMENTS, error);
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
        printError(out, err, options.json, CTL_EXIT_BAD_ARGUMENTS,
                   "the parameters cannot be coded (a string with a control character?)");
        return CTL_EXIT_BAD_ARGUMENTS;
    }
    SepClientC client;
    if (!client.connect(options.host, options.port) || !client.sendBytes(frame)) {
        printError(out, err, options.json, CTL_EXIT_NO_CONNECTION,
                   "cannot connect to " + options.host + ":" + std::to_string(options.port), kNoConnectionHint);
        return CTL_EXIT_NO_CONNECTION;
    }
    DecodedFrameT decoded;
    std::string failure;
    if (!receiveReply(client, id, options.timeoutMs, decoded, failure)) {
        printError(out, err, options.json, CTL_EXIT_NO_REPLY, failure);
        return CTL_EXIT_NO_REPLY;
    }
    const auto printed = printMessage(decoded, specs, options.json);
    out << printed.text;
    if (printed.errorReply) {
        err << "halvernctl: " << printed.errorText << "\n";
        const std::string hint = hintFor(id, printed.errorText);
        if (!hint.empty()) err << "  hint: " << hint << "\n";
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
        printError(out, err, options.json, CTL_EXIT_NO_CONNECTION,
                   "cannot connect to " + options.host + ":" + std::to_string(options.port), kNoConnectionHint);
        return CTL_EXIT_NO_CONNECTION;
    }
    for (long printed = 0; count < 0 || printed < count;) {
        std::vector<std::uint8_t> received;
        if (!client.receiveFrame(received, 1000)) {
            if (client.closed()) {
                printError(out, err, options.json, CTL_EXIT_NO_REPLY, "connection closed");
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
    auto* portOption = app.add_option("--port", options.port, "SEP port (55557 or 55558)");
    app.add_flag("--ascii", options.ascii, "send in the ASCII coding instead of the binary one");
    app.add_flag("--json", options.json, "print one JSON object per reply or event");
    app.add_option("--timeout", options.timeoutMs, "how long to wait for the reply, in milliseconds");
    app.add_option("--root", options.root,
                   "sim root of a simulated instrument (default: $HALVERN_ROOT): its SEP ports are read there");
    app.add_option("--value", options.value, "print only this value of the reply (its JSON name), for scripts");
    app.add_flag("--raw", options.raw, "with --value: the number of a named value (band 3 instead of both)");
    app.add_flag("--show-password", options.showPassword, "show the WLAN password instead of asterisks");
    app.set_version_flag("--version", std::string("halvernctl ") + HALVERN_VERSION);
    app.footer(kFooter);
    app.fallthrough();
    app.require_subcommand(0, 1);

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
        "Shows `status` again every --interval: redrawn in place on a terminal, one block (with --json one "
        "line) per refresh otherwise (Ctrl-C ends it).");
    auto* shell = app.add_subcommand(
        "shell",
        "The interactive mode (also halvernctl alone on a terminal): one command a line, with editing, "
        "history and completion, and the instrument's events shown as they arrive.");
    WatchOptionsT watchOptions;
    watch->add_option("--interval", watchOptions.intervalMs, "milliseconds between two refreshes")
        ->capture_default_str();
    watch->add_option("--count", watchOptions.count, "stop after this many refreshes");
    watch->add_flag("--plain", watchOptions.plain, "print each refresh below the last instead of redrawing");
    const bool outIsTerminal = &out == &std::cout && standardOutputIsTerminal();

    CtlChoiceT chosen;
    addPowerCommands(app, chosen);
    addSystemCommands(app, chosen);
    addNetworkCommands(app, chosen);
    addStatusCommands(app, chosen);

    // What the shell's completion asks: the words typed so far, after the program's name.
    if (argc >= 2 && std::string(argv[1]) == "__complete") {
        printCompletions(app, std::vector<std::string>(argv + 2, argv + argc), out);
        return CTL_EXIT_DONE;
    }
    const CommandLineT line = readCommandLine(app, std::vector<std::string>(argv + 1, argv + argc));
    if (!line.unknown.empty()) {
        std::string hint = "`halvernctl help` lists the commands";
        if (!line.nearest.empty()) {
            hint = "did you mean ";
            for (std::size_t i = 0; i < line.nearest.size(); ++i)
                hint += (i == 0 ? "" : i + 1 == line.nearest.size() ? " or " : ", ") + line.nearest[i];
            hint += "?";
        }
        printError(out, err, line.json, CTL_EXIT_BAD_ARGUMENTS, "unknown command \"" + line.unknown + "\"", hint);
        return CTL_EXIT_BAD_ARGUMENTS;
    }
    const bool asksForHelp = std::any_of(line.words.begin(), line.words.end(), [](const std::string& word) {
        return word == "--help" || word == "-h" || word == "--version";
    });
    const bool interactive = line.noVerb && !asksForHelp && standardInputIsTerminal() && &out == &std::cout;
    if (line.noVerb && !asksForHelp && !interactive) {
        printError(out, err, line.json, CTL_EXIT_BAD_ARGUMENTS, "a command is required",
                   "`halvernctl help` lists them, `halvernctl status` shows the instrument at a glance");
        return CTL_EXIT_BAD_ARGUMENTS;
    }
    try {
        // CLI11 takes a vector of arguments last first.
        std::vector<std::string> reversed(line.words.rbegin(), line.words.rend());
        app.parse(reversed);
    } catch (const CLI::CallForHelp& help) {
        return app.exit(help, out, err) == 0 ? CTL_EXIT_DONE : CTL_EXIT_BAD_ARGUMENTS;
    } catch (const CLI::CallForAllHelp& help) {
        return app.exit(help, out, err) == 0 ? CTL_EXIT_DONE : CTL_EXIT_BAD_ARGUMENTS;
    } catch (const CLI::CallForVersion& version) {
        return app.exit(version, out, err) == 0 ? CTL_EXIT_DONE : CTL_EXIT_BAD_ARGUMENTS;
    } catch (const CLI::ParseError& error) {
        printError(
            out, err, line.json, CTL_EXIT_BAD_ARGUMENTS, error.what(),
            "`halvernctl help " + (line.verbs.empty() ? std::string("COMMAND") : line.verbs) + "` tells its arguments");
        return CTL_EXIT_BAD_ARGUMENTS;
    }
    if (options.root.empty())
        if (const char* root = std::getenv("HALVERN_ROOT")) options.root = root;
    std::string failure;
    if (!portFromRoot(options, portOption->count() > 0, app.count("--root") > 0, failure)) {
        printError(out, err, options.json, CTL_EXIT_NO_CONNECTION, failure);
        return CTL_EXIT_NO_CONNECTION;
    }
    const CtlOutputT output{options.json, options.value, options.raw, options.showPassword};
    if (chosen.action) {
        SepExchangeC sep(options.host, options.port, options.coding(), options.timeoutMs);
        return runChosen(chosen, sep, output, out, err);
    }
    if (*send) return runSend(sendOptions, options, out, err);
    if (*watch) {
        SepExchangeC sep(options.host, options.port, options.coding(), options.timeoutMs);
        return runWatch(watchOptions, sep, output, outIsTerminal, out, err);
    }
    if (*shell || interactive) {
        ShellSetupT setup{options.host,
                          options.port,
                          {"--host", options.host, "--port", std::to_string(options.port), "--timeout",
                           std::to_string(options.timeoutMs)},
                          options.json};
        for (const auto& [flag, set] : {std::pair<const char*, bool>{"--ascii", options.ascii},
                                        {"--json", options.json},
                                        {"--show-password", options.showPassword}})
            if (set) setup.globalArguments.push_back(flag);
        // The line editor only where a person types and reads; piped lines are run as they come.
        const bool editor = &out == &std::cout && standardInputIsTerminal() && standardOutputIsTerminal();
        return runShell(setup, editor, std::cin, out, err);
    }
    if (*events) return runEvents(eventFields, count, options, out, err);
    return CTL_EXIT_DONE;
}

}  // namespace SEP
