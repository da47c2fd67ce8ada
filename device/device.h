// A device: an entry of the list, or an opened one with its lockdown session.
#pragma once

#include <list>
#include <memory>
#include <string>

#include "device/context.h"
#include "device/lockdown.h"
#include "device/usbmux.h"

namespace iusb
{

struct AfcConnection;
struct AfcEndpoint;

// What lockdown tells about a device.
struct DeviceValues {
    bool known = false;
    std::string name;
    std::string ios_version;
    std::string build_version;
    std::string product_type;
    std::string device_class;
};

// Starts a service on an opened device and connects to it, under TLS if the
// device asks for it. The lockdown session of the last start is used again
// while it is good; a dead one is replaced, which also finds a device that was
// plugged in again elsewhere. LOST_CONNECTION when the device is gone.
int startService(libiusb_device &device, const char *name, Stream &out,
                 Deadline deadline);

// 0 when the device is there: its session is alive, or the usbmux daemon lists
// it.
int devicePresent(libiusb_device &device, Deadline deadline);

} // namespace iusb

struct libiusb_device {
    libiusb_context *context = nullptr;
    iusb::UsbmuxDevice entry;
    iusb::DeviceValues values;

    // From here on only of use in an opened device.
    bool opened = false;
    iusb::PairRecord record;
    iusb::Lockdown lockdown;
    // The media connection opened last, which device information is asked over.
    std::weak_ptr<iusb::AfcConnection> media;
    // App sandboxes, one endpoint per bundle id.
    std::list<std::shared_ptr<iusb::AfcEndpoint>> houses;
};
