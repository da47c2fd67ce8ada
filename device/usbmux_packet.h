// Messages of the usbmux daemon as bytes: a 16-byte little-endian header
// (length, version, message, tag) and an XML property list. Pure functions.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "device/plist_tools.h"

namespace iusb
{

constexpr size_t kUsbmuxHeaderSize = 16;
// Far above any real message: a list of devices takes about 700 bytes each.
constexpr size_t kUsbmuxMaxPayload = 4U << 20;
constexpr size_t kUsbmuxMaxDevices = 4096;

// One entry of the daemon's list.
struct UsbmuxDevice {
    uint32_t id = 0; // the daemon's number for this plug-in
    bool network = false;
    uint32_t location_id = 0; // 0 for Wi-Fi entries
    uint32_t product_id = 0;
    std::string udid;
};

// The message with its header, ready to be sent.
std::string usbmuxEncode(const Plist &message, uint32_t tag);

// A request dictionary with the keys that every request carries.
Plist usbmuxRequest(const char *message_type);

// The payload size that a reply's header announces; nothing when the header is
// not one of the plist protocol or the size is out of bounds.
std::optional<size_t> usbmuxPayloadSize(std::string_view header);

// The "Number" of a Result message; nothing when it is another message.
std::optional<uint64_t> usbmuxResultNumber(const Plist &message);

// The devices of a ListDevices reply, in its order. Entries that make no sense
// (no id, no serial number, unknown connection type) are left out; nothing when
// the message holds no list at all.
std::optional<std::vector<UsbmuxDevice>> usbmuxDevices(const Plist &message);

} // namespace iusb
