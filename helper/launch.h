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
// library. What was mounted and is of no use is unmounted.
Result launchVolume(const Device &device, const std::string &point,
                    const std::string &options, double seconds,
                    const std::function<bool()> &stopped);

// Why the file system could not mount, from what it said.
Result explainLaunch(const Device &device, const std::string &point,
                     const std::string &output);

} // namespace helper
