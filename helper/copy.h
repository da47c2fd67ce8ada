// Copying out of and into mounted devices.
#pragma once

#include <string>
#include <vector>

#include "helper/messages.h"

namespace helper
{

struct CopyOptions {
    bool quiet = false; // no bar and no summary, only what went wrong
};

// Copies the sources to the target, all of them as written on a command line.
Result copy(const std::vector<std::string> &sources, const std::string &target,
            const CopyOptions &options);

} // namespace helper
