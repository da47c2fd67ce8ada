// Making a new pair record.
#pragma once

#include <string>

namespace iusb
{

// Pairs this host with a device, which raises the trust prompt on it, and hands
// the new record to the usbmux daemon. TRUST_PENDING, DEVICE_LOCKED and
// TRUST_DENIED say what the user has to do; the call may be repeated.
//
// The key generation and the exchange are libimobiledevice's, whose waits are
// its own (30 s each); they run on a thread of their own that is left behind
// when the device stays silent for longer than `limit_ms`: LOST_CONNECTION
// then. Making the keys takes about half a second of processor time.
int pairDevice(const std::string &udid, bool network, int limit_ms);

} // namespace iusb
