// Whether a device trusts this computer, without asking its user.
#include "device/session.h"

namespace iusb
{

static int trustOf(const libiusb_device &listed)
{
    libiusb_device probe;
    probe.context = listed.context;
    probe.entry = listed.entry;
    int code = newSession(probe, false);
    lockdownStopSession(probe.lockdown);
    return code == LIBIUSB_ERROR_LOCKDOWN ? LIBIUSB_ERROR_TRUST_PENDING : code;
}

} // namespace iusb

int libiusb_device_get_trust(libiusb_device *device)
{
    if (!device)
        return LIBIUSB_ERROR_INVALID_ARG;
    return iusb::guarded([&] { return iusb::trustOf(*device); });
}
