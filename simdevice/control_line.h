// A line of the control socket, taken apart, and the commands by file.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "simdevice/simulator.h"

namespace sim
{

// The words after the command's name, without the key=value options among them
// and without the word "keep".
struct Line {
    std::vector<std::string> words;
    std::map<std::string, std::string> options;
    bool keep = false;
};

Line parseLine(const std::string &text);

// A decimal number, and nothing else.
bool parseNumber(const std::string &text, uint64_t &number);

// The word at `index` as a number; false if it is missing or none.
bool numberAt(const Line &line, size_t index, uint64_t &number);

// The option `key` as a number, if it is there; false if it is none.
bool optionNumber(const Line &line, const char *key, uint64_t &number);

// By index or UDID; null if there is none.
Device *findDevice(Simulator &simulator, const std::string &name);

// The devices that the word at `index` or the option "device" names, else
// those that `otherwise` names: an index, a UDID or "all". Empty: no such.
std::vector<Device *> chosenDevices(Simulator &simulator, const Line &line,
                                    size_t index,
                                    const std::string &otherwise = "0");

std::string usage(const std::string &form);
std::string badDevice();

// Adds a rule with what all fault commands have in common: after=, device=.
std::string addRule(Simulator &simulator, const Line &line, FaultRule rule);

// Commands of control_faults.cpp; each returns its answer.
std::string commandFail(Simulator &simulator, const Line &line);
std::string commandDrop(Simulator &simulator, const Line &line);
std::string commandStall(Simulator &simulator, const Line &line);
std::string commandDelay(Simulator &simulator, const Line &line);
std::string commandTruncate(Simulator &simulator, const Line &line);
std::string commandCorrupt(Simulator &simulator, const Line &line);
std::string commandShortRead(Simulator &simulator, const Line &line);
std::string commandZeroRead(Simulator &simulator, const Line &line);
std::string commandFaults(Simulator &simulator, const Line &line);
std::string commandUsbmuxNonsense(Simulator &simulator, const Line &line);
std::string commandLockdownNonsense(Simulator &simulator, const Line &line);

} // namespace sim
