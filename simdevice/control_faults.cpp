// Commands that make things go wrong.

#include <algorithm>

#include "simdevice/afc_server.h"
#include "simdevice/control_line.h"

namespace sim
{

namespace
{

// The names of requests besides those of AFC.
constexpr const char *kOtherOperations[] = {
    // usbmux
    "ListDevices", "Listen", "Connect", "ReadBUID", "ReadPairRecord",
    "SavePairRecord", "DeletePairRecord", "ListListeners",
    // lockdown
    "QueryType", "GetValue", "SetValue", "RemoveValue", "Pair", "ValidatePair",
    "Unpair", "StartSession", "StopSession", "StartService",
    // services
    "VendDocuments", "VendContainer", "Browse", "Lookup", "ObserveNotification",
    "PostNotification", "Shutdown"};

// A misspelt name would be a fault that never comes.
bool isOperation(const std::string &name)
{
    return name == "any" || isAfcOperation(name) ||
           std::find(std::begin(kOtherOperations), std::end(kOtherOperations),
                     name) != std::end(kOtherOperations);
}

std::string addReadRule(Simulator &simulator, const Line &line, FaultKind kind)
{
    FaultRule rule;
    rule.kind = kind;
    rule.operation = "FileRefRead";
    if (line.words.size() != 1 || !numberAt(line, 0, rule.count)) {
        return usage("short-read|zero-read COUNT [after=N]");
    }
    return addRule(simulator, line, rule);
}

// Sets one of the nonsense modes to a word out of `kinds`; "on" is the first.
std::string setNonsense(Simulator &simulator, const Line &line,
                        const std::vector<std::string> &kinds,
                        std::string &mode)
{
    std::string word = line.words.size() == 1 ? line.words[0] : "";
    if (word == "on") {
        word = kinds[0];
    }
    if (word != "off" &&
        std::find(kinds.begin(), kinds.end(), word) == kinds.end()) {
        std::string form = "on|off";
        for (const std::string &kind : kinds) {
            form += "|" + kind;
        }
        return usage(form);
    }
    const std::lock_guard lock(simulator.mutex);
    mode = word;
    return "ok";
}

} // namespace

std::string addRule(Simulator &simulator, const Line &line, FaultRule rule)
{
    const auto device = line.options.find("device");
    if (!optionNumber(line, "after", rule.after)) {
        return "error after= wants a number";
    }
    if (device != line.options.end() && device->second != "all") {
        const Device *found = findDevice(simulator, device->second);
        if (found == nullptr) {
            return badDevice();
        }
        rule.device = found->index;
    }
    if (!isOperation(rule.operation)) {
        return "error no request is called \"" + rule.operation + "\"";
    }
    if (rule.count == 0) {
        return "error COUNT must not be 0";
    }
    simulator.faults.add(std::move(rule));
    return "ok";
}

std::string commandFail(Simulator &simulator, const Line &line)
{
    FaultRule rule;
    rule.kind = FaultKind::fail;
    if (line.words.size() != 3 || !numberAt(line, 1, rule.count)) {
        return usage("fail OP COUNT STATUS [after=N]");
    }
    rule.operation = line.words[0];
    rule.text = line.words[2];
    return addRule(simulator, line, rule);
}

std::string commandDrop(Simulator &simulator, const Line &line)
{
    FaultRule rule;
    rule.kind = FaultKind::drop;
    rule.operation = line.words.empty() ? "any" : line.words[0];
    if (line.words.size() > 2 ||
        (line.words.size() == 2 && !numberAt(line, 1, rule.count))) {
        return usage("drop [OP [COUNT]] [after=N]");
    }
    return addRule(simulator, line, rule);
}

std::string commandStall(Simulator &simulator, const Line &line)
{
    const bool on = !line.words.empty() && line.words[0] == "on";
    if (on || (!line.words.empty() && line.words[0] == "off")) {
        const auto devices = chosenDevices(simulator, line, 1, "all");
        for (Device *device : devices) {
            stallDevice(simulator, *device, on);
        }
        return devices.empty() ? badDevice() : "ok";
    }
    FaultRule rule;
    rule.kind = FaultKind::stall;
    if (line.words.size() != 2 || !numberAt(line, 1, rule.count)) {
        return usage("stall on|off [DEVICE] | stall OP COUNT [after=N]");
    }
    rule.operation = line.words[0];
    return addRule(simulator, line, rule);
}

std::string commandDelay(Simulator &simulator, const Line &line)
{
    FaultRule rule;
    rule.kind = FaultKind::delay;
    if (line.words.size() != 3 || !numberAt(line, 1, rule.count) ||
        !numberAt(line, 2, rule.number) || rule.number > 3'600'000) {
        return usage("delay OP COUNT MS [after=N]");
    }
    rule.operation = line.words[0];
    return addRule(simulator, line, rule);
}

std::string commandTruncate(Simulator &simulator, const Line &line)
{
    FaultRule rule;
    rule.kind = FaultKind::truncate;
    if (line.words.size() != 3 || !numberAt(line, 1, rule.count) ||
        !numberAt(line, 2, rule.number)) {
        return usage("truncate OP COUNT BYTES [keep] [after=N]");
    }
    rule.operation = line.words[0];
    rule.keepOpen = line.keep;
    return addRule(simulator, line, rule);
}

std::string commandCorrupt(Simulator &simulator, const Line &line)
{
    FaultRule rule;
    rule.kind = FaultKind::corrupt;
    if (line.words.size() == 3) {
        rule.corruption = parseCorruption(line.words[2]);
    }
    if (rule.corruption == Corruption::none || !numberAt(line, 1, rule.count)) {
        return usage("corrupt OP COUNT KIND [after=N]");
    }
    rule.operation = line.words[0];
    return addRule(simulator, line, rule);
}

std::string commandShortRead(Simulator &simulator, const Line &line)
{
    return addReadRule(simulator, line, FaultKind::shortRead);
}

std::string commandZeroRead(Simulator &simulator, const Line &line)
{
    return addReadRule(simulator, line, FaultKind::zeroRead);
}

std::string commandFaults(Simulator &simulator, const Line &line)
{
    if (!line.words.empty() && line.words[0] == "clear") {
        simulator.faults.clear();
        return "ok";
    }
    return "ok " + std::to_string(simulator.faults.size());
}

std::string commandUsbmuxNonsense(Simulator &simulator, const Line &line)
{
    return setNonsense(simulator, line,
                       {"text", "length", "huge", "plist", "types", "silent"},
                       simulator.usbmuxNonsense);
}

std::string commandLockdownNonsense(Simulator &simulator, const Line &line)
{
    return setNonsense(simulator, line,
                       {"garbage", "length", "empty", "array", "types"},
                       simulator.lockdownNonsense);
}

} // namespace sim
