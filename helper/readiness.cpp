#include "helper/readiness.h"

#include <systemd/sd-daemon.h>

namespace helper
{

// Without a service manager these do nothing, and one that does not listen is
// no reason to stop.

void tellReady()
{
    sd_notify(0, "READY=1\nSTATUS=Watching for devices.");
}

void tellStopping()
{
    sd_notify(0, "STOPPING=1\nSTATUS=Unmounting.");
}

} // namespace helper
