// Requests to the usbmux daemon, one connection each. The daemon is asked
// directly because only its own list carries the location id, and because every
// wait here ends with a deadline.
//
// NO_DAEMON when there is no socket, the connection is refused or nobody
// answers in time; PROTOCOL when the answer makes no sense.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "device/stream.h"
#include "device/usbmux_packet.h"

namespace iusb
{

// Longest wait for the daemon, which is a program on this machine.
constexpr int kUsbmuxLimitMs = 5000;

// Where the daemon listens: a socket path, or a host and a port.
struct UsbmuxAddress {
    std::string path;
    std::string host;
    std::string port;
};

// Reads USBMUXD_SOCKET_ADDRESS: "UNIX:/path", "host:port" or "[ipv6]:port". Null
// or anything else is the standard socket, as for the other programs that know
// the variable.
UsbmuxAddress usbmuxAddress(const char *text);

// The attached devices in the daemon's order.
int usbmuxList(std::vector<UsbmuxDevice> &devices, Deadline deadline);

// A stream to a TCP port of a device. NO_DEVICE when the number is not (or no
// longer) that of a device, SERVICE_REFUSED when nothing listens on the port.
int usbmuxConnect(uint32_t device_id, uint16_t port, Stream &out,
                  Deadline deadline);

// The host's pair record for a device, as a property list. Success with nothing
// when there is none.
int usbmuxReadPairRecord(const std::string &udid,
                         std::optional<std::string> &record, Deadline deadline);

// Forgets the record; one that is not there is a success.
int usbmuxDeletePairRecord(const std::string &udid, Deadline deadline);

// The host's own id, for pair records that do not hold it.
int usbmuxReadBuid(std::string &buid, Deadline deadline);

} // namespace iusb
