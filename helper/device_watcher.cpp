#include "helper/device_watcher.h"

#include <poll.h>
#include <sys/eventfd.h>

#include <algorithm>

namespace helper
{

namespace
{

constexpr int EVERY_MS = 400;

void raise(const Descriptor &event)
{
    eventfd_write(event.get(), 1);
}

bool same(const Device &a, const Device &b)
{
    return a.udid == b.udid && a.plug == b.plug && a.name == b.name &&
           a.location == b.location;
}

// Asking a device about itself takes its time: once is enough, unless it did
// not answer.
const Device *alreadyKnown(const std::vector<Device> &known, uint32_t plug)
{
    for (const Device &device : known) {
        if (device.plug == plug && device.state == 0) {
            return &device;
        }
    }
    return nullptr;
}

} // namespace

DeviceWatcher::DeviceWatcher()
    : changed(eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC)),
      ending(eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC)), thread([this] { run(); })
{
}

DeviceWatcher::~DeviceWatcher()
{
    raise(ending);
    thread.join();
}

Attached DeviceWatcher::take()
{
    eventfd_t count = 0;
    eventfd_read(changed.get(), &count);
    const std::lock_guard<std::mutex> guard(lock);
    return latest;
}

Attached DeviceWatcher::look(const std::vector<Device> &known)
{
    Attached found;
    std::vector<libiusb_device *> listed;
    found.daemon = library.list(listed).ok();
    for (libiusb_device *one : listed) {
        const libiusb_device_info place = placeOf(one);
        const Device *before = alreadyKnown(known, place.usbmux_id);
        if (place.location_id != 0) {
            found.devices.push_back(before != nullptr ? *before
                                                      : describe(one));
        }
    }
    return found;
}

void DeviceWatcher::run()
{
    bool first = true;
    for (;;) {
        std::vector<Device> known;
        {
            const std::lock_guard<std::mutex> guard(lock);
            known = latest.devices;
        }
        Attached found = look(known);
        {
            const std::lock_guard<std::mutex> guard(lock);
            const bool news =
                first || found.daemon != latest.daemon ||
                !std::equal(known.begin(), known.end(), found.devices.begin(),
                            found.devices.end(), same);
            latest = std::move(found);
            if (news) {
                raise(changed);
            }
            first = false;
        }
        pollfd end{ending.get(), POLLIN, 0};
        if (poll(&end, 1, EVERY_MS) > 0) {
            return;
        }
    }
}

} // namespace helper
