#include "sim/efi/EfiControlCommands.h"

#include <chrono>
#include <cstdlib>
#include <thread>

#include "platform/Text.h"

namespace halvern::sim {

namespace {

// Notification codes of the service.
// The service marks a notification by its first character: "!" for an error, another one ("#" here) for
// everything else; the number follows it.
const wchar_t* const kButtonPressed = L"#1";
const wchar_t* const kButtonReleased = L"#2";
const wchar_t* const kSupervisorIntervention = L"#4";
const wchar_t* const kPowerSourceChanged = L"#5";

bool parseInt(const std::string& text, std::int32_t& value)
{
    if (text.empty()) return false;
    char* end = nullptr;
    const long number = std::strtol(text.c_str(), &end, 10);
    if (*end != '\0') return false;
    value = static_cast<std::int32_t>(number);
    return true;
}

std::string notified(EfiServiceSimC& service, const std::wstring& text, const std::string& what)
{
    if (!service.running()) return "ERROR the EFI service is stopped";
    const int readers = service.notify(text);
    return "OK " + what + " (" + std::to_string(readers) + " reader" + (readers == 1 ? "" : "s") + ")";
}

const char* const kUsage =
    "ERROR usage: efi button press|release|hold MS | power mains|battery | battery L|H status|rsoc|voltage|temp N"
    " | ext voltage|peak|bat_volt N | register KEYWORD|74..81 N | supervisor | error CODE | notify TEXT"
    " | service stop|start | hwstatus MODE FPGA HPS TELO | hwstatus raw TEXT | state | history";

}  // namespace

void addEfiControlCommands(ControlCommandsC& commands, EfiControllerModelC& model, EfiServiceSimC& service)
{
    commands.add("efi", [&model, &service](const std::vector<std::string>& args) -> std::string {
        const std::size_t n = args.size();
        if (n == 0) return kUsage;
        const std::string& what = args[0];
        std::int32_t value = 0;
        if (what == "button" && n == 2 && args[1] == "press") return notified(service, kButtonPressed, "pressed");
        if (what == "button" && n == 2 && args[1] == "release") return notified(service, kButtonReleased, "released");
        if (what == "button" && n == 3 && args[1] == "hold" && parseInt(args[2], value) && value >= 0) {
            const std::string pressed = notified(service, kButtonPressed, "pressed");
            if (pressed.rfind("OK", 0) != 0) return pressed;
            std::this_thread::sleep_for(std::chrono::milliseconds(value));
            return notified(service, kButtonReleased, "held " + args[2] + " ms");
        }
        if (what == "power" && n == 2 && (args[1] == "mains" || args[1] == "battery")) {
            model.setMains(args[1] == "mains");
            if (!service.running()) return "OK on " + args[1];
            return notified(service, kPowerSourceChanged, "on " + args[1]);
        }
        if (what == "battery" && n == 4 && parseInt(args[3], value) && model.setBattery(args[1], args[2], value))
            return "OK battery " + args[1] + " " + args[2] + " " + args[3];
        if (what == "ext" && n == 3 && parseInt(args[2], value) && model.setExtSupply(args[1], value))
            return "OK ext " + args[1] + " " + args[2];
        if (what == "register" && n == 3 && parseInt(args[2], value) &&
            model.setRegister(platform::widen(args[1]), value))
            return "OK register " + args[1] + " " + args[2];
        if (what == "supervisor" && n == 1)
            return notified(service, kSupervisorIntervention, "supervisor intervention");
        if (what == "error" && n == 2) return notified(service, L"!" + platform::widen(args[1]), "error " + args[1]);
        if (what == "notify" && n == 2) return notified(service, platform::widen(args[1]), "notified " + args[1]);
        if (what == "service" && n == 2 && args[1] == "stop") {
            service.stop();
            return "OK service stopped";
        }
        if (what == "service" && n == 2 && args[1] == "start")
            return service.start() ? "OK service started" : "ERROR the EFI service pipes cannot be served";
        if (what == "hwstatus" && n == 3 && args[1] == "raw") {
            EfiHwStatusState status;
            status.rawText = platform::widen(args[2]);
            model.setHwStatus(status);
            return "OK hwstatus " + args[2];
        }
        if (what == "hwstatus" && n == 5) {
            EfiHwStatusState status;
            std::int32_t fields[4] = {};
            for (int i = 0; i < 4; ++i) {
                if (!parseInt(args[static_cast<std::size_t>(i) + 1], fields[i])) return kUsage;
            }
            status.runningMode = fields[0];
            status.fpgaReady = fields[1];
            status.hpsReady = fields[2];
            status.teloReady = fields[3];
            model.setHwStatus(status);
            return "OK hwstatus " + args[1] + " " + args[2] + " " + args[3] + " " + args[4];
        }
        if (what == "history" && n == 1) {
            std::string listed;
            for (const auto& request : model.commandHistory())
                listed += (listed.empty() ? "" : "; ") + platform::narrow(request).value_or("?");
            return "OK " + listed;
        }
        if (what == "state" && n == 1)
            return "OK service=" + std::string(service.running() ? "running " : "stopped ") + model.describe();
        return kUsage;
    });
}

}  // namespace halvern::sim
