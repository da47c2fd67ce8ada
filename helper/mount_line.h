// The command line that mount(8) gives its helpers:
// SOURCE DIR [-sfnv] [-N NAMESPACE] [-o OPTIONS] [-t TYPE].
#pragma once

#include <string>
#include <vector>

namespace helper
{

struct MountLine {
    std::string source; // as in fstab
    std::string device; // what is meant by it; "" for the only device
    std::string point;
    std::string options;    // what goes on to quorvelfs
    std::string usbmux;     // "" for the usual socket
    std::string name_space; // a pid, or the path of a mount namespace
    double trust_wait = 30; // seconds for a person to unlock and to tap Trust
    double device_wait = 0; // seconds for the device to be plugged in
    bool sloppy = false;
    bool fake = false;
    bool verbose = false;
};

// What the words after the program's name mean. "" or why they can't be meant.
std::string parseMountLine(const std::vector<std::string> &words,
                           MountLine &line);

} // namespace helper
