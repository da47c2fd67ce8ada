// The commands of `quorvel`, apart from watch and copy, which have rooms of
// their own. Each prints what it finds out and returns how it ended.
#pragma once

#include <string>

#include "helper/messages.h"

namespace helper
{

struct MountOptions {
    std::string device;  // "": the only one
    std::string point;   // "": a folder named after the device
    std::string home;    // where such a folder is made; "": as mountHome says
    std::string options; // for the FUSE library
    double wait = 120;   // seconds, for trust
    bool quiet = false;  // say only what somebody has to do
};

Result listCommand(bool json);
Result listNamesCommand(); // one a line; none is no error
Result statusCommand(bool json);
Result appsCommand(const std::string &device, double wait, bool json);
Result mountCommand(const MountOptions &options);
Result unmountCommand(const std::string &what, bool force, bool quiet);

} // namespace helper
