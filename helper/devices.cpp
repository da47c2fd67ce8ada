#include "helper/devices.h"

#include <algorithm>

namespace helper
{

Library::Library()
{
    libiusb_init_ex("", 0);
    libiusb_context_init(&context);
}

Library::~Library()
{
    libiusb_context_exit(context);
}

Result Library::list(std::vector<libiusb_device *> &found)
{
    found.clear();
    libiusb_device **devices = nullptr;
    const int code = libiusb_device_get_list(context, &devices);
    if (code != 0) {
        return explain(code, "usbmuxd");
    }
    for (; *devices != nullptr; ++devices) {
        found.push_back(*devices);
    }
    return {};
}

libiusb_device_info placeOf(libiusb_device *listed)
{
    libiusb_device_info info{};
    libiusb_device_get_place(listed, &info);
    return info;
}

Device describe(libiusb_device *listed)
{
    libiusb_device_info info{};
    Device device;
    const int code = libiusb_device_get_info(listed, &info);
    device.state = code != 0 ? code : info.state;
    device.udid = info.udid;
    device.name = *info.device_name != '\0' ? info.device_name : info.udid;
    device.kind = info.device_class;
    device.product = info.product_type;
    device.version = info.ios_version;
    device.location = info.location_id;
    device.plug = info.usbmux_id;
    return device;
}

namespace
{

Device takePlace(const libiusb_device_info &place)
{
    Device device;
    device.udid = place.udid;
    device.name = place.udid;
    device.location = place.location_id;
    device.plug = place.usbmux_id;
    return device;
}

Trust trustOf(libiusb_device *listed, const Device &device)
{
    if (device.state != 0) {
        return Trust::Unknown;
    }
    switch (libiusb_device_get_trust(listed)) {
    case LIBIUSB_SUCCESS:
        return Trust::Yes;
    case LIBIUSB_ERROR_TRUST_PENDING:
        return Trust::No;
    default:
        return Trust::Unknown;
    }
}

std::string names(const std::vector<Device> &devices)
{
    std::string text;
    for (const Device &device : devices) {
        text += (text.empty() ? "" : ", ") + device.name + " (" +
                std::to_string(device.location) + ")";
    }
    return text;
}

Result takeOnly(const std::vector<Device> &devices, const Message &several,
                const std::vector<std::string> &parts, Device &chosen)
{
    if (devices.size() == 1) {
        chosen = devices.front();
        return {};
    }
    std::vector<std::string> all = parts;
    all.push_back(names(devices));
    return refuse(several, all);
}

} // namespace

Result listDevices(std::vector<Device> &devices, Ask ask)
{
    devices.clear();
    Library library;
    std::vector<libiusb_device *> found;
    Result result = library.list(found);
    for (libiusb_device *listed : found) {
        const libiusb_device_info place = placeOf(listed);
        if (place.location_id == 0) {
            continue; // over the network: cannot be mounted
        }
        Device device =
            ask == Ask::Nothing ? takePlace(place) : describe(listed);
        if (ask == Ask::Trust) {
            device.trust = trustOf(listed, device);
        }
        devices.push_back(device);
    }
    return result;
}

bool meansExactly(const Device &device, const std::string &text)
{
    return device.udid == text || device.name == text ||
           std::to_string(device.location) == text;
}

Result chooseDevice(const std::vector<Device> &devices, const std::string &text,
                    Device &chosen)
{
    if (devices.empty() && text.empty()) {
        return refuse(message::NO_DEVICE);
    }
    if (text.empty()) {
        return takeOnly(devices, message::SEVERAL_DEVICES, {}, chosen);
    }
    std::vector<Device> found;
    std::copy_if(devices.begin(), devices.end(), std::back_inserter(found),
                 [&](const Device &d) { return meansExactly(d, text); });
    if (found.empty()) {
        std::copy_if(devices.begin(), devices.end(), std::back_inserter(found),
                     [&](const Device &d) { return d.udid.starts_with(text); });
    }
    if (found.empty()) {
        return refuse(message::UNKNOWN_DEVICE, {text});
    }
    return takeOnly(found, message::AMBIGUOUS_DEVICE, {text}, chosen);
}

int withOpenDevice(const std::string &udid,
                   const std::function<int(libiusb_device *)> &use)
{
    Library library;
    std::vector<libiusb_device *> found;
    if (!library.list(found).ok()) {
        return LIBIUSB_ERROR_NO_DAEMON;
    }
    for (libiusb_device *listed : found) {
        const libiusb_device_info info = placeOf(listed);
        if (info.location_id == 0 || udid != info.udid) {
            continue;
        }
        libiusb_device *opened = nullptr;
        int code = libiusb_device_open(listed, &opened);
        if (code == 0) {
            code = use(opened);
            libiusb_device_close(opened);
        }
        return code;
    }
    return LIBIUSB_ERROR_NO_DEVICE;
}

Result explain(int code, const std::string &name)
{
    switch (code) {
    case LIBIUSB_SUCCESS:
        return {};
    case LIBIUSB_ERROR_NO_DAEMON:
        return refuse(message::NO_DAEMON);
    case LIBIUSB_ERROR_NO_DEVICE:
        return refuse(message::DEVICE_GONE, {name});
    case LIBIUSB_ERROR_DEVICE_LOCKED:
    case LIBIUSB_ERROR_PASSWORD_PROTECTED:
        return refuse(message::LOCKED, {name});
    case LIBIUSB_ERROR_TRUST_PENDING:
        return refuse(message::NOT_TRUSTED, {name});
    case LIBIUSB_ERROR_TRUST_DENIED:
        return refuse(message::TRUST_DENIED, {name});
    default:
        return refuse(message::DEVICE_FAILED, {name, libiusb_strerror(code)});
    }
}

} // namespace helper
