#include "helper/wait_for_trust.h"

#include <unistd.h>

#include "helper/clock.h"

namespace helper
{

namespace
{

constexpr useconds_t PAUSE_US = 500'000;

// A session may be had on a device that was not unlocked since its start; its
// services are what a volume needs.
int letsUsIn(const Device &device)
{
    return withOpenDevice(device.udid, [](libiusb_device *opened) {
        libiusb_afc *files = nullptr;
        const int code = libiusb_afc_init(opened, &files);
        libiusb_afc_exit(files);
        return code;
    });
}

// What the user of the device has to do; nullptr when it is not up to them.
const char *whatToDo(int code)
{
    switch (code) {
    case LIBIUSB_ERROR_DEVICE_LOCKED:
    case LIBIUSB_ERROR_PASSWORD_PROTECTED:
        return message::ASK_UNLOCK;
    case LIBIUSB_ERROR_TRUST_PENDING:
        return message::ASK_TRUST;
    default:
        return nullptr;
    }
}

} // namespace

Result waitForTrust(const Device &device, double seconds,
                    const ShowWaiting &show)
{
    const double begin = now();
    for (;;) {
        const int code = letsUsIn(device);
        const char *task = whatToDo(code);
        const double waited = now() - begin;
        if (task == nullptr || waited >= seconds) {
            return explain(code, device.name);
        }
        show(fill(task, {device.name}), waited);
        usleep(PAUSE_US);
    }
}

} // namespace helper
