// Starting a volume: the file system is given the mount point and the device's
// location id, goes to the background once it is mounted, and is good when it
// answers.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "helper/devices.h"

namespace helper
{

// What mounting needs of this machine, before anything is done.
Result checkMachine(const char *fuse_device = "/dev/fuse");

// Mounts the device at a prepared folder and waits until the volume answers,
// `seconds` at most or until `stopped` says so. `options` go to the FUSE
// library; unless they say otherwise, the device's name is what df shows. What was mounted and is of no use is unmounted.
Result launchVolume(const Device &device, const std::string &point,
                    const std::string &options, double seconds,
                    const std::function<bool()> &stopped);

// Why the file system could not mount, from its exit status and what it said.
Result explainLaunch(const Device &device, const std::string &point, int status,
                     const std::string &output);

// A text as the value of an option of the FUSE library.
std::string escapeOption(const std::string &text);

} // namespace helper
