#include "device/usbmux_packet.h"

namespace iusb
{

constexpr uint32_t kPlistVersion = 1;
constexpr uint32_t kPlistMessage = 8;
constexpr size_t kUdidMax = 63; // what libiusb_device_info holds

static void putLe32(std::string &out, uint32_t value)
{
    for (int shift = 0; shift < 32; shift += 8)
        out.push_back(static_cast<char>(value >> shift & 0xFF));
}

static uint32_t getLe32(std::string_view bytes, size_t at)
{
    uint32_t value = 0;
    for (size_t i = 4; i-- > 0;)
        value = value << 8 | static_cast<uint8_t>(bytes[at + i]);
    return value;
}

std::string usbmuxEncode(const Plist &message, uint32_t tag)
{
    std::string body = toXml(message);
    std::string out;
    putLe32(out, static_cast<uint32_t>(kUsbmuxHeaderSize + body.size()));
    putLe32(out, kPlistVersion);
    putLe32(out, kPlistMessage);
    putLe32(out, tag);
    return out + body;
}

Plist usbmuxRequest(const char *message_type)
{
    Plist request = makeDict();
    setString(request, "MessageType", message_type);
    setString(request, "ClientVersionString", "quorvelfs " QUORVEL_VERSION);
    setString(request, "ProgName", "quorvelfs");
    setUint(request, "kLibUSBMuxVersion", 3);
    return request;
}

std::optional<size_t> usbmuxPayloadSize(std::string_view header)
{
    if (header.size() < kUsbmuxHeaderSize ||
        getLe32(header, 4) != kPlistVersion ||
        getLe32(header, 8) != kPlistMessage)
        return std::nullopt;
    size_t length = getLe32(header, 0);
    if (length <= kUsbmuxHeaderSize ||
        length - kUsbmuxHeaderSize > kUsbmuxMaxPayload)
        return std::nullopt;
    return length - kUsbmuxHeaderSize;
}

std::optional<uint64_t> usbmuxResultNumber(const Plist &message)
{
    if (getString(message.get(), "MessageType") != "Result")
        return std::nullopt;
    return getUint(message.get(), "Number");
}

// UDIDs of newer devices are shown with a dash after the eighth character,
// which some daemons leave out.
static std::string normalUdid(std::string serial)
{
    if (serial.size() == 24)
        serial.insert(8, 1, '-');
    return serial;
}

static std::optional<UsbmuxDevice> deviceOf(plist_t entry)
{
    plist_t properties = getMember(entry, "Properties", PLIST_DICT);
    auto serial = getString(properties, "SerialNumber");
    auto type = getString(properties, "ConnectionType");
    auto id = getUint(properties, "DeviceID");
    if (!id)
        id = getUint(entry, "DeviceID");
    if (!serial || serial->empty() || serial->size() > kUdidMax || !id ||
        *id == 0 || *id > UINT32_MAX)
        return std::nullopt;
    if (type != "USB" && type != "Network")
        return std::nullopt;
    UsbmuxDevice device;
    device.id = static_cast<uint32_t>(*id);
    device.network = type == "Network";
    device.udid = normalUdid(*serial);
    if (!device.network) {
        device.location_id = static_cast<uint32_t>(
            getUint(properties, "LocationID").value_or(0));
    }
    device.product_id =
        static_cast<uint32_t>(getUint(properties, "ProductID").value_or(0));
    return device;
}

std::optional<std::vector<UsbmuxDevice>> usbmuxDevices(const Plist &message)
{
    plist_t list = getMember(message.get(), "DeviceList", PLIST_ARRAY);
    if (!list)
        return std::nullopt;
    uint32_t count = plist_array_get_size(list);
    if (count > kUsbmuxMaxDevices)
        return std::nullopt;
    std::vector<UsbmuxDevice> devices;
    for (uint32_t i = 0; i < count; i++) {
        if (auto device = deviceOf(plist_array_get_item(list, i)))
            devices.push_back(std::move(*device));
    }
    return devices;
}

} // namespace iusb
