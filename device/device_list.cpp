// The list of attached devices, and opening one.
#include "device/afc_connection.h"
#include "device/device.h"
#include "device/house_pool.h"
#include "device/session.h"

using iusb::deadlineIn;
using iusb::guarded;

static void keepList(libiusb_context &context,
                     std::vector<iusb::UsbmuxDevice> &entries)
{
    context.devices.clear();
    context.listed.clear();
    for (iusb::UsbmuxDevice &entry : entries) {
        auto device = std::make_unique<libiusb_device>();
        device->context = &context;
        device->entry = std::move(entry);
        context.listed.push_back(device.get());
        context.devices.push_back(std::move(device));
    }
    context.listed.push_back(nullptr);
}

int libiusb_device_get_list(libiusb_context *context, libiusb_device ***list)
{
    if (!list)
        return LIBIUSB_ERROR_INVALID_ARG;
    *list = nullptr;
    if (!context)
        return LIBIUSB_ERROR_INVALID_ARG;
    return guarded([&] {
        std::vector<iusb::UsbmuxDevice> entries;
        int code =
            iusb::usbmuxList(entries, deadlineIn(context->settings.timeout_ms));
        if (code)
            return code;
        keepList(*context, entries);
        *list = context->listed.data();
        return 0;
    });
}

int libiusb_device_open(libiusb_device *device, libiusb_device **out)
{
    if (!out)
        return LIBIUSB_ERROR_INVALID_ARG;
    *out = nullptr;
    if (!device || device->opened)
        return LIBIUSB_ERROR_INVALID_ARG;
    return guarded([&] {
        auto opened = std::make_unique<libiusb_device>();
        opened->context = device->context;
        opened->entry = device->entry;
        opened->values = device->values;
        opened->opened = true;
        int code = iusb::newSession(*opened, true);
        if (code == 0)
            *out = opened.release();
        return code;
    });
}

int libiusb_device_close(libiusb_device *device)
{
    if (!device || !device->opened)
        return LIBIUSB_SUCCESS;
    return guarded([&] {
        std::unique_ptr<libiusb_device> owned(device);
        iusb::lockdownStopSession(owned->lockdown);
        return 0;
    });
}
