#include "simdevice/control_line.h"

#include <charconv>
#include <sstream>

namespace sim
{

bool parseNumber(const std::string &text, uint64_t &number)
{
    const char *end = text.data() + text.size();
    const auto result = std::from_chars(text.data(), end, number);
    return !text.empty() && result.ec == std::errc() && result.ptr == end;
}

Line parseLine(const std::string &text)
{
    std::istringstream stream(text);
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

std::vector<Device *> chosenDevices(Simulator &simulator, const Line &line,
                                    size_t index, const std::string &otherwise)
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

std::string usage(const std::string &form)
{
    return "error usage: " + form;
}

std::string badDevice()
{
    return "error no such device";
}

} // namespace sim
