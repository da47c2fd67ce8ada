// Ending a volume.
#pragma once

#include <string>
#include <vector>

#include "helper/devices.h"
#include "helper/mounts.h"

namespace helper
{

enum class Force {
    No,
    Yes, // also while programs use it: it disappears from the folders at once,
         // and its open files fail from then on
};

// Unmounts, waits for the end of the process behind the volume, and removes the
// folder if it was made for it.
Result unmountVolume(const Mount &mount, Force force);

// Unmounts this user's volumes whose file system has died without being
// unmounted: every access to such a folder fails, and it is in the way of the
// next volume.
void removeDeadVolumes();

// The mounted volume that `text` means: a mount point, or a device by anything
// that it can be called. An empty text means the only volume of this user.
Result chooseMount(const std::vector<Mount> &mounts,
                   const std::vector<Device> &devices, const std::string &text,
                   Mount &chosen);

} // namespace helper
