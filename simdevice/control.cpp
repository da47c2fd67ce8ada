#include "simdevice/control.h"

#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <ctime>

#include "simdevice/control_line.h"

namespace sim
{

const char *const kControlHelp =
    R"(DEVICE is an index (0, 1, ...), a UDID, or "all"; without it the command is for
the first device; faults and stalls are for all of them. OP is the name of a
request: ReadDir, GetFileInfo, FileRefOpen, FileRefRead, ... (AFC), "any" (any AFC
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

DEVICE can also be given as device=DEVICE, for faults only so.)";

namespace
{

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
    const size_t begin = std::min(text.find_first_not_of(" \t"), text.size());
    const size_t end =
        std::min(text.find_first_of(" \t\r", begin), text.size());
    const std::string name = text.substr(begin, end - begin);
    const Line line = parseLine(text.substr(end));
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
