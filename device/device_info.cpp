// What is known of a device: from the list, from lockdown, and its capacities
// over AFC.
#include <cstring>

#include "device/afc_connection.h"
#include "device/afc_lists.h"
#include "device/session.h"

namespace iusb
{

// A neighbour that is locked, untrusted or silent must not hold up the caller,
// who walks all devices.
constexpr int kNeighbourLimitMs = 1800;
constexpr uint64_t kUsualBlockSize = 4096;

// Copies text into a field, cut at a whole UTF-8 character.
template <size_t size>
static void copyText(char (&field)[size], const std::string &text)
{
    size_t length = std::min(text.size(), size - 1);
    if (length < text.size()) {
        while (length > 0 &&
               (static_cast<unsigned char>(text[length]) & 0xC0) == 0x80)
            length--;
    }
    memcpy(field, text.data(), length);
    field[length] = '\0';
}

static void takeValues(DeviceValues &values, plist_t dict)
{
    values.name = getString(dict, "DeviceName").value_or("");
    values.ios_version = getString(dict, "ProductVersion").value_or("");
    values.build_version = getString(dict, "BuildVersion").value_or("");
    values.product_type = getString(dict, "ProductType").value_or("");
    values.device_class = getString(dict, "DeviceClass").value_or("");
    values.known = !values.ios_version.empty();
}

// Everything in one exchange; devices that do not give the whole domain to
// strangers are asked for the values one by one.
static int askValues(Lockdown &lockdown, DeviceValues &values,
                     Deadline deadline)
{
    Plist all;
    int code = lockdownValue(lockdown, nullptr, nullptr, all, deadline);
    if (code == 0 && getString(all.get(), "ProductVersion")) {
        takeValues(values, all.get());
        return 0;
    }
    Plist dict = makeDict();
    for (const char *key : {"DeviceName", "ProductVersion", "BuildVersion",
                            "ProductType", "DeviceClass"}) {
        if (lockdown.stream.fd.get() < 0)
            return code ? code : LIBIUSB_ERROR_PROTOCOL;
        Plist value;
        code = lockdownValue(lockdown, nullptr, key, value, deadline);
        if (code == 0)
            plist_dict_set_item(dict.get(), key, value.release());
    }
    takeValues(values, dict.get());
    return values.known ? 0 : (code ? code : LIBIUSB_ERROR_LOCKDOWN);
}

static int readListedValues(libiusb_device &device)
{
    Deadline deadline = deadlineIn(
        std::min(device.context->settings.timeout_ms, kNeighbourLimitMs));
    Lockdown lockdown;
    int code = lockdownConnect(device.entry.id, lockdown, deadline);
    return code ? code : askValues(lockdown, device.values, deadline);
}

static int readOpenedValues(libiusb_device &device)
{
    int code = liveSession(device);
    return code ? code
                : askValues(device.lockdown, device.values,
                            deadlineIn(device.context->settings.timeout_ms));
}

// Over the media connection that is open, or over one just for this.
static int readCapacities(libiusb_device &device, AfcDeviceInfo &info)
{
    std::shared_ptr<AfcConnection> connection = device.media.lock();
    if (!connection || !afcUsable(*connection)) {
        int code = afcConnect(device, nullptr, connection);
        if (code)
            return code;
    }
    AfcReply reply;
    int code = afcCall(*connection, AfcOp::GetDeviceInfo, {}, reply);
    if (code)
        return code;
    auto found = afcDeviceInfo(reply.text());
    if (!found)
        return LIBIUSB_ERROR_PROTOCOL;
    info = *found;
    return 0;
}

static void fillFromList(const libiusb_device &device,
                         libiusb_device_info &info)
{
    info.usbmux_id = device.entry.id;
    info.location_id = device.entry.location_id;
    info.product_id = device.entry.product_id;
    copyText(info.udid, device.entry.udid);
}

static void fillFromValues(const libiusb_device &device,
                           libiusb_device_info &info)
{
    copyText(info.product_type, device.values.product_type);
    copyText(info.device_class, device.values.device_class);
    copyText(info.build_version, device.values.build_version);
    copyText(info.ios_version, device.values.ios_version);
    copyText(info.device_name, device.values.name);
}

static int openedInfo(libiusb_device &device, libiusb_device_info &info)
{
    AfcDeviceInfo capacities;
    int code = readOpenedValues(device);
    if (code == 0)
        code = readCapacities(device, capacities);
    if (code)
        return code;
    fillFromList(device, info);
    fillFromValues(device, info);
    info.block_size =
        capacities.block_size ? capacities.block_size : kUsualBlockSize;
    info.total_capacity = capacities.total;
    info.free_capacity = capacities.free;
    return 0;
}

static int listedInfo(libiusb_device &device, libiusb_device_info &info)
{
    info.state = device.values.known ? 0 : readListedValues(device);
    fillFromList(device, info);
    fillFromValues(device, info);
    return 0;
}

} // namespace iusb

int libiusb_device_get_info(libiusb_device *device, libiusb_device_info *info)
{
    if (!info)
        return LIBIUSB_ERROR_INVALID_ARG;
    memset(info, 0, sizeof *info);
    if (!device)
        return LIBIUSB_ERROR_INVALID_ARG;
    return iusb::guarded([&] {
        return device->opened ? iusb::openedInfo(*device, *info)
                              : iusb::listedInfo(*device, *info);
    });
}

int libiusb_device_get_place(libiusb_device *device, libiusb_device_info *info)
{
    if (!info)
        return LIBIUSB_ERROR_INVALID_ARG;
    memset(info, 0, sizeof *info);
    if (!device)
        return LIBIUSB_ERROR_INVALID_ARG;
    iusb::fillFromList(*device, *info);
    return LIBIUSB_SUCCESS;
}
