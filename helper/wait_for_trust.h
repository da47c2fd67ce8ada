// Waiting until a device lets this computer in. A volume whose start-up waits
// blocks every access to its folder, so the wait comes before the mount.
#pragma once

#include <functional>
#include <string>

#include "helper/devices.h"

namespace helper
{

// Tells a person what to do; called again and again while it is waited, with
// the seconds that have gone by.
using ShowWaiting =
    std::function<void(const std::string &what, double seconds)>;

// Opens the device, pairing when needed, until it lets us in and its services
// can be used, `seconds` have gone by, it says no, or it is gone.
Result waitForTrust(const Device &device, double seconds,
                    const ShowWaiting &show);

} // namespace helper
