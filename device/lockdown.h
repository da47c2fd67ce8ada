// The device's front door: values, sessions, and the start of services.
//
// The exchanges are our own (libimobiledevice waits 30 s for each answer and
// cannot be told otherwise); making a new pair record is libimobiledevice's.
#pragma once

#include <cstdint>
#include <string>

#include "device/pair_record.h"
#include "device/plist_tools.h"
#include "device/stream.h"

namespace iusb
{

// A connection to lockdown; with a session once `session` is not empty.
struct Lockdown {
    Stream stream;
    std::string session;
    std::string error; // the text of the last refusal, "" after a success
};

// Where a started service listens.
struct ServicePort {
    uint16_t port = 0;
    bool tls = false;
};

// Connects to lockdown of the device with this number in the usbmux daemon.
// NO_DEVICE when there is none.
int lockdownConnect(uint32_t usbmux_id, Lockdown &out, Deadline deadline);

// One value, or with a null key everything in the domain that may be read now.
// Success gives a node that the caller owns in *value.
int lockdownValue(Lockdown &lockdown, const char *domain, const char *key,
                  Plist &value, Deadline deadline);

// Starts a session with the pair record's identity, under TLS if the device
// asks for it (real ones do). A refusal leaves its text in `error`.
int lockdownStartSession(Lockdown &lockdown, const PairRecord &record,
                         bool legacy_tls, Deadline deadline);

// Ends the session politely, without waiting for the answer.
void lockdownStopSession(Lockdown &lockdown);

// Asks for a service by name; needs a session.
int lockdownStartService(Lockdown &lockdown, const char *name,
                         ServicePort &service, Deadline deadline);

// True when the device wants only TLS 1.0: versions before 10.
bool lockdownNeedsLegacyTls(const std::string &product_version);

} // namespace iusb
