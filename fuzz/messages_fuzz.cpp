// Property lists from the usbmux daemon and the device's services: packets,
// device lists, results, pair records, app lists.
//
// Input: one byte that chooses the framing, then the message.
#include <cstddef>
#include <cstdint>
#include <string_view>
#include <vector>

#include "device/app_list.h"
#include "device/pair_record.h"
#include "device/plist_stream.h"
#include "device/plist_tools.h"
#include "device/usbmux_packet.h"
#include "fuzz/target.h"

namespace
{

void LookAtUsbmux(std::string_view bytes)
{
    if (bytes.size() < iusb::kUsbmuxHeaderSize) {
        return;
    }
    const auto size =
        iusb::usbmuxPayloadSize(bytes.substr(0, iusb::kUsbmuxHeaderSize));
    if (!size) {
        return;
    }
    Require(*size > 0 && *size <= iusb::kUsbmuxMaxPayload);
    const iusb::Plist message =
        iusb::parsePlist(bytes.substr(iusb::kUsbmuxHeaderSize, *size));
    (void)iusb::usbmuxResultNumber(message);
    const auto devices = iusb::usbmuxDevices(message);
    if (!devices) {
        return;
    }
    Require(devices->size() <= iusb::kUsbmuxMaxDevices);
    for (const iusb::UsbmuxDevice &device : *devices) {
        Require(device.id != 0 && !device.udid.empty());
        Require(!device.network || device.location_id == 0);
    }
}

void LookAtService(std::string_view bytes)
{
    if (bytes.size() < 4) {
        return;
    }
    const auto size = iusb::plistMessageSize(bytes.substr(0, 4));
    if (!size) {
        return;
    }
    Require(*size <= iusb::kPlistMaxMessage);
    const iusb::Plist message = iusb::parsePlist(bytes.substr(4, *size));
    std::vector<iusb::App> apps;
    bool complete = false;
    iusb::takeApps(message, apps, complete);
    for (const iusb::App &app : apps) {
        Require(!app.bundle_id.empty() && !app.name.empty());
    }
    for (const char *key : {"Error", "Status", "Port", "SessionID", "Value"}) {
        (void)iusb::getString(message.get(), key);
        (void)iusb::getUint(message.get(), key);
        (void)iusb::getTruth(message.get(), key);
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size == 0) {
        return 0;
    }
    const std::string_view bytes(reinterpret_cast<const char *>(data) + 1,
                                 size - 1);
    switch (data[0] % 3) {
    case 0:
        LookAtUsbmux(bytes);
        break;
    case 1:
        LookAtService(bytes);
        break;
    default:
        (void)iusb::parsePairRecord(bytes);
        break;
    }
    return 0;
}
