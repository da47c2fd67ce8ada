// Lockdown sessions of an opened device.
#pragma once

#include "device/device.h"

namespace iusb
{

// Starts a session on the device, pairing first when there is no record, or
// anew (once) when the device no longer knows the record there is. Without
// `may_pair` an unpaired device is a LOCKDOWN refusal: the user is not asked for
// trust in the middle of a file operation.
int newSession(libiusb_device &device, bool may_pair);

// Makes sure that the device has a session that is good as far as can be seen.
int liveSession(libiusb_device &device);

} // namespace iusb
