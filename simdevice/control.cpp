#include "simdevice/control.h"

#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <ctime>
#include <sstream>

namespace sim
{

const char *const kControlHelp =
    R"(DEVICE is an index (0, 1, ...), a UDID, or "all"; without it the command
is for the first device; faults and stalls are for all of them. OP is the name of a request:
ReadDir, GetFileInfo, FileRefOpen, FileRefRead, ... (AFC), "any" (any AFC
request), GetValue, Pair, StartSession, StartService, ... (lockdown),
VendDocuments, Browse, Lookup, ListDevices, Connect, ReadPairRecord, ...

  stats [reset]                     counters as one line of JSON
  unplug [DEVICE] [after=N] [after-bytes=N]
                                    now, instead of answering the request after
                                    N more AFC requests, or when N more bytes
                                    went over the cable
  plug [DEVICE] [location=N]        comes with a new number
  trust accept|deny|pending N|locked|stale [DEVICE]
                                    how the next Pair is answered; stale: the
                                    device forgets every host
  fail OP COUNT STATUS [after=N]    answer with this AFC status, lockdown error
                                    string or usbmux result number
  drop [OP [COUNT]] [after=N]       close instead of answering
  stall on|off [DEVICE]             keep all answers back; off sends them late
  stall OP COUNT [after=N]          keep back from this answer on, on its
                                    connection, until "stall off"
  delay OP COUNT MS [after=N]       answer late
  truncate OP COUNT BYTES [keep] [after=N]
                                    cut the reply, then close (or keep open)
  corrupt OP COUNT KIND [after=N]   KIND: magic length packetnum huge short
                                    wrongop duplicate reorder splitreply
  short-read COUNT [after=N]        half of what a read should give
  zero-read COUNT [after=N]         nothing of what a read should give
  faults [clear]                    how many are left; forget them
  usbmux-nonsense on|off|text|length|huge|plist|types|silent
  lockdown-nonsense on|off|garbage|length|empty|array|types
  names raw on|off                  add names to every ReadDir answer
  names add HEX | names clear
  space FREEBYTES [DEVICE]          free space from now on
  date [+SECONDS|-SECONDS]          the device's clock; shift it
  devices                           index, UDID, number, location of each
  quit                              end the simulator

DEVICE can also be given as device=DEVICE, for faults only so. An unknown OP is
not noticed: it never comes.)";

namespace
{

using Words = std::vector<std::string>;

// A command line: words, and key=value options taken out of them.
struct Line {
    Words words; // without the command itself
    std::map<std::string, std::string> options;
    bool keep = false;
};

bool parseNumber(const std::string &text, uint64_t &number)
{
    const char *end = text.data() + text.size();
    const auto result = std::from_chars(text.data(), end, number);
    return !text.empty() && result.ec == std::errc() && result.ptr == end;
}

Line parseLine(std::istringstream &stream)
{
    Line line;
    std::string word;
    while (stream >> word) {
        const size_t equals = word.find('=');
        if (equals != std::string::npos && equals > 0) {
            line.options[word.substr(0, equals)] = word.substr(equals + 1);
        } else if (word == "keep") {
            line.keep = true;
        } else {
            line.words.push_back(word);
        }
    }
    return line;
}

// One word of the line as a number; false if it is missing or none.
bool numberAt(const Line &line, size_t index, uint64_t &number)
{
    return index < line.words.size() && parseNumber(line.words[index], number);
}

bool optionNumber(const Line &line, const char *key, uint64_t &number)
{
    const auto found = line.options.find(key);
    return found == line.options.end() || parseNumber(found->second, number);
}

Device *findDevice(Simulator &simulator, const std::string &name)
{
    uint64_t index = 0;
    const bool isIndex = parseNumber(name, index);
    for (const auto &device : simulator.devices) {
        if (device->identity.udid == name ||
            (isIndex && static_cast<uint64_t>(device->index) == index)) {
            return device.get();
        }
    }
    return nullptr;
}

// The devices that the word at `index` or the option "device" names, else
// those that `otherwise` names.
std::vector<Device *> chosenDevices(Simulator &simulator, const Line &line,
                                    size_t index,
                                    const std::string &otherwise = "0")
{
    std::vector<Device *> chosen;
    std::string name = otherwise;
    if (index < line.words.size()) {
        name = line.words[index];
    } else if (line.options.contains("device")) {
        name = line.options.at("device");
    }
    if (name == "all") {
        for (const auto &device : simulator.devices) {
            chosen.push_back(device.get());
        }
    } else if (Device *device = findDevice(simulator, name)) {
        chosen.push_back(device);
    }
    return chosen;
}

std::string usage(const char *form)
{
    return std::string("error usage: ") + form;
}

std::string badDevice()
{
    return "error no such device";
}

// Fills the parts that all fault commands have, and adds the rule.
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
    if (rule.count == 0) {
        return "error COUNT must not be 0";
    }
    simulator.faults.add(std::move(rule));
    return "ok";
}

std::string commandStats(Simulator &simulator, const Line &line)
{
    if (!line.words.empty() && line.words[0] == "reset") {
        simulator.statistics.reset();
        return "ok";
    }
    return "ok " + simulator.statistics.json();
}

std::string commandUnplug(Simulator &simulator, const Line &line)
{
    const auto devices = chosenDevices(simulator, line, 0);
    uint64_t bytes = 0;
    if (devices.empty()) {
        return badDevice();
    }
    if (line.options.contains("after")) {
        FaultRule rule;
        rule.kind = FaultKind::unplug;
        rule.operation = "any";
        rule.device = line.words.empty() ? -1 : devices[0]->index;
        return addRule(simulator, line, rule);
    }
    if (line.options.contains("after-bytes")) {
        if (!optionNumber(line, "after-bytes", bytes) || bytes > INT64_MAX) {
            return "error after-bytes= wants a number";
        }
        for (Device *device : devices) {
            device->cable.bytesLeft = static_cast<int64_t>(bytes);
        }
        return "ok";
    }
    for (Device *device : devices) {
        if (!unplugDevice(simulator, *device)) {
            return "error not plugged";
        }
    }
    return "ok";
}

std::string commandPlug(Simulator &simulator, const Line &line)
{
    uint64_t location = 0;
    if (!optionNumber(line, "location", location) || location > UINT32_MAX) {
        return "error location= wants a number of 32 bits";
    }
    const auto devices = chosenDevices(simulator, line, 0);
    if (devices.empty()) {
        return badDevice();
    }
    for (Device *device : devices) {
        if (!plugDevice(simulator, *device, static_cast<uint32_t>(location))) {
            return "error plugged already";
        }
    }
    return "ok";
}

std::string commandTrust(Simulator &simulator, const Line &line)
{
    const char *form = "trust accept|deny|pending N|locked|stale [DEVICE]";
    if (line.words.empty()) {
        return usage(form);
    }
    std::string text = line.words[0];
    size_t next = 1;
    if (text == "accept") {
        text = "trusted";
    } else if (text == "deny") {
        text = "denied";
    } else if (text == "pending" && line.words.size() > 1) {
        text += ":" + line.words[next++];
    }
    Trust trust;
    if (!parseTrust(text, trust)) {
        return usage(form);
    }
    const auto devices = chosenDevices(simulator, line, next);
    for (Device *device : devices) {
        if (trust.mode == TrustMode::stale) {
            device->pairing.makeStale(kSystemBuid);
            trust.mode = TrustMode::trusted;
        }
        const std::lock_guard lock(simulator.mutex);
        device->trust = trust;
    }
    return devices.empty() ? badDevice() : "ok";
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

// Sets one of the nonsense modes to a word out of `kinds`; "on" is the first.
std::string setNonsense(Simulator &simulator, const Line &line,
                        const Words &kinds, std::string &mode)
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
        return usage(form.c_str());
    }
    const std::lock_guard lock(simulator.mutex);
    mode = word;
    return "ok";
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

// Pairs of hexadecimal digits; false for anything else.
bool parseHex(const std::string &text, std::string &bytes)
{
    for (size_t i = 0; i < text.size(); i += 2) {
        uint8_t byte = 0;
        const char *end = text.data() + std::min(i + 2, text.size());
        const auto result = std::from_chars(text.data() + i, end, byte, 16);
        if (result.ec != std::errc() || result.ptr != text.data() + i + 2) {
            return false;
        }
        bytes.push_back(static_cast<char>(byte));
    }
    return true;
}

std::string commandNames(Simulator &simulator, const Line &line)
{
    const std::string verb = line.words.empty() ? "" : line.words[0];
    const std::string argument = line.words.size() == 2 ? line.words[1] : "";
    const std::lock_guard lock(simulator.mutex);
    if (verb == "raw" && (argument == "on" || argument == "off")) {
        simulator.extraNames.on = argument == "on";
        return "ok";
    }
    if (verb == "clear") {
        simulator.extraNames.names.clear();
        return "ok";
    }
    std::string name;
    if (verb == "add" && parseHex(argument, name)) {
        simulator.extraNames.names.push_back(name);
        return "ok";
    }
    return usage("names raw on|off | names add HEX | names clear");
}

std::string commandSpace(Simulator &simulator, const Line &line)
{
    uint64_t bytes = 0;
    if (!numberAt(line, 0, bytes)) {
        return usage("space FREEBYTES [DEVICE]");
    }
    const auto devices = chosenDevices(simulator, line, 1);
    for (Device *device : devices) {
        device->space.set(bytes);
    }
    return devices.empty() ? badDevice() : "ok";
}

std::string commandDate(Simulator &simulator, const Line &line)
{
    if (!line.words.empty()) {
        const std::string &word = line.words[0];
        uint64_t seconds = 0;
        if ((word[0] != '+' && word[0] != '-') ||
            !parseNumber(word.substr(1), seconds) || seconds > INT32_MAX) {
            return usage("date [+SECONDS|-SECONDS]");
        }
        const auto shift = static_cast<int64_t>(seconds);
        simulator.clockOffset += word[0] == '+' ? shift : -shift;
    }
    return "ok " + std::to_string(time(nullptr) + simulator.clockOffset);
}

std::string commandDevices(Simulator &simulator, const Line &)
{
    std::string answer = "ok";
    const std::lock_guard lock(simulator.mutex);
    for (const auto &device : simulator.devices) {
        answer += " " + std::to_string(device->index) + ":" +
                  device->identity.udid + ":" + std::to_string(device->usbId) +
                  ":" + std::to_string(device->locationId);
    }
    return answer;
}

std::string commandQuit(Simulator &simulator, const Line &)
{
    const uint64_t one = 1;
    const ssize_t n = write(simulator.quitFd, &one, sizeof one);
    return n == sizeof one ? "ok" : "error cannot quit";
}

struct Command {
    const char *name;
    std::string (*run)(Simulator &, const Line &);
};

constexpr Command kCommands[] = {
    {"stats", commandStats},
    {"unplug", commandUnplug},
    {"plug", commandPlug},
    {"trust", commandTrust},
    {"fail", commandFail},
    {"drop", commandDrop},
    {"stall", commandStall},
    {"delay", commandDelay},
    {"truncate", commandTruncate},
    {"corrupt", commandCorrupt},
    {"short-read", commandShortRead},
    {"zero-read", commandZeroRead},
    {"faults", commandFaults},
    {"usbmux-nonsense", commandUsbmuxNonsense},
    {"lockdown-nonsense", commandLockdownNonsense},
    {"names", commandNames},
    {"space", commandSpace},
    {"date", commandDate},
    {"devices", commandDevices},
    {"quit", commandQuit},
};

constexpr size_t kMaxLine = 65536;

} // namespace

std::string runControlCommand(Simulator &simulator, const std::string &text)
{
    std::istringstream stream(text);
    std::string name;
    stream >> name;
    const Line line = parseLine(stream);
    for (const Command &command : kCommands) {
        if (name == command.name) {
            return command.run(simulator, line);
        }
    }
    return "error unknown command";
}

void serveControlClient(Simulator &simulator, int fd)
{
    std::string pending;
    char piece[4096];
    bool alive = true;
    while (alive && pending.size() < kMaxLine) {
        const ssize_t n = recv(fd, piece, sizeof piece, 0);
        if (n < 0 && errno == EINTR) {
            continue;
        }
        if (n <= 0) {
            break;
        }
        pending.append(piece, static_cast<size_t>(n));
        size_t end = 0;
        while (alive && (end = pending.find('\n')) != std::string::npos) {
            const std::string answer =
                runControlCommand(simulator, pending.substr(0, end)) + "\n";
            pending.erase(0, end + 1);
            alive = send(fd, answer.data(), answer.size(), MSG_NOSIGNAL) ==
                    static_cast<ssize_t>(answer.size());
        }
    }
    {
        const std::lock_guard lock(simulator.mutex);
        std::erase(simulator.clients, fd);
    }
    close(fd);
}

} // namespace sim
