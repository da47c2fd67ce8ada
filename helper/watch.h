// Watching: what is plugged in is mounted, what goes away is unmounted, and
// what the volumes tell is shown.
#pragma once

#include <string>

#include "helper/messages.h"

namespace helper
{

struct WatchOptions {
    bool mount = true;
    bool keep = false; // leave everything mounted in the end
    bool notify = true;
    std::string home; // where folders for volumes are made; "" as for mount
    std::string options;
};

// Until SIGINT, SIGTERM or SIGHUP.
Result watch(const WatchOptions &options);

} // namespace helper
