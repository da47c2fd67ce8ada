// Where a copy begins and ends: paths of this machine, and "DEVICE:/path" for a
// path on the volume of a mounted device.
#pragma once

#include <string>
#include <vector>

#include "helper/devices.h"
#include "helper/mounts.h"

namespace helper
{

struct CopyEnd {
    std::string path;
    std::string volume; // the mount point it is below; "": not on a device
    std::string udid;   // of the device, when it is attached
};

// What may be meant, looked up once for all ends of a copy. Devices are asked
// for their names, which takes a moment, only when one of the texts has one.
struct CopyWorld {
    std::vector<Device> devices;
    std::vector<Mount> mounts;
};
CopyWorld lookAround(const std::vector<std::string> &texts);

// The device part of "DEVICE:/path" in *device and the path in *path; false for
// a plain path. A file of this machine that has such a name goes before it.
bool splitDevicePath(const std::string &text, std::string *device,
                     std::string *path);

Result resolveEnd(const CopyWorld &world, const std::string &text,
                  CopyEnd &end);

} // namespace helper
