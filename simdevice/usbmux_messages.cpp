#include "simdevice/usbmux_messages.h"

#include <endian.h>

#include <cstring>

namespace sim
{

std::string usbmuxFrame(uint32_t version, uint32_t message, uint32_t tag,
                        const std::string &payload)
{
    const uint32_t fields[] = {
        htole32(static_cast<uint32_t>(kUsbmuxHeaderSize + payload.size())),
        htole32(version), htole32(message), htole32(tag)};
    std::string bytes(kUsbmuxHeaderSize, '\0');
    std::memcpy(bytes.data(), fields, kUsbmuxHeaderSize);
    return bytes + payload;
}

std::string plistFrame(uint32_t tag, const Plist &list)
{
    return usbmuxFrame(kUsbmuxPlistVersion, kUsbmuxPlist, tag,
                       toXml(list.get()));
}

std::string nonsenseFrame(const std::string &kind, uint32_t tag)
{
    if (kind == "length") {
        std::string bytes =
            usbmuxFrame(kUsbmuxPlistVersion, kUsbmuxPlist, tag, "");
        const uint32_t length = htole32(8);
        std::memcpy(bytes.data(), &length, sizeof length);
        return bytes;
    }
    if (kind == "huge") {
        std::string bytes =
            usbmuxFrame(kUsbmuxPlistVersion, kUsbmuxPlist, tag, "");
        const uint32_t length = htole32(0xFFFFFFF0U);
        std::memcpy(bytes.data(), &length, sizeof length);
        return bytes;
    }
    if (kind == "plist") {
        return usbmuxFrame(kUsbmuxPlistVersion, kUsbmuxPlist, tag,
                           "this is no list <<>>");
    }
    if (kind == "types") {
        Plist list = newDict();
        setString(list.get(), "DeviceList", "none");
        setString(list.get(), "Number", "zero");
        return plistFrame(tag, list);
    }
    return "HTTP/1.1 400 Bad Request\r\nContent-Length: 0\r\n\r\n";
}

namespace
{

Plist properties(const Device &device, bool wifi)
{
    Plist list = newDict();
    setString(list.get(), "SerialNumber", device.identity.udid);
    setUint(list.get(), "DeviceID", wifi ? device.wifiId : device.usbId);
    setUint(list.get(), "ProductID", device.identity.productId);
    if (wifi) {
        // A BSD socket address of 16 bytes, family AF_INET, in 192.0.2.0/24.
        std::string address(16, '\0');
        address[0] = 16;
        address[1] = 2;
        const char host[4] = {static_cast<char>(192), 0, 2,
                              static_cast<char>(10 + device.index)};
        std::memcpy(address.data() + 4, host, sizeof host);
        setString(list.get(), "ConnectionType", "Network");
        setString(list.get(), "EscapedFullServiceName",
                  device.identity.wifiAddress +
                      "@fe80::1._apple-mobdev2._tcp.local.");
        setUint(list.get(), "InterfaceIndex", 2);
        setData(list.get(), "NetworkAddress", address);
    } else {
        setString(list.get(), "ConnectionType", "USB");
        setUint(list.get(), "ConnectionSpeed", device.identity.connectionSpeed);
        setUint(list.get(), "LocationID", device.locationId);
    }
    return list;
}

} // namespace

Plist attachedMessage(const Device &device, bool wifi)
{
    Plist list = newDict();
    setString(list.get(), "MessageType", "Attached");
    setUint(list.get(), "DeviceID", wifi ? device.wifiId : device.usbId);
    setNode(list.get(), "Properties", properties(device, wifi));
    return list;
}

} // namespace sim
