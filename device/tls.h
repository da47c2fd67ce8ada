// TLS towards a device, with the keys of the pair record.
//
// The handshake is made here and not by libimobiledevice: its own retries for
// ever against a device that went silent, sleeps 100 ms whenever it has to wait
// (which every service connection would pay), and its sends can raise SIGPIPE.
#pragma once

#include "device/pair_record.h"
#include "device/stream.h"

namespace iusb
{

// Makes a clear stream one under TLS, as client. The device's certificate is
// not verified: it was made by this host during pairing and signed with keys
// that any pairing software holds; what proves the host to the device is the
// client certificate. `legacy`: iOS before 10, which knows only TLS 1.0.
// TLS when the keys are unusable or refused, LOST_CONNECTION when the device
// closes or stays silent.
int tlsStart(Stream &stream, const PairRecord &record, bool legacy,
             Deadline deadline);

} // namespace iusb
