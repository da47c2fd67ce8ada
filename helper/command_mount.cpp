// quorvel mount and quorvel unmount.
#include <cstdio>

#include "helper/commands.h"
#include "helper/launch.h"
#include "helper/mount_point.h"
#include "helper/signals.h"
#include "helper/text.h"
#include "helper/unmount.h"
#include "helper/waiting_line.h"

namespace helper
{

namespace
{

// A start that has to look for its device takes a few seconds; one whose device
// falls silent ends by itself after ten.
constexpr double ANSWER_SECONDS = 45;
constexpr double TURN_SECONDS = 60; // for a mount that is going on

Result checkUnmounted(const Device &device)
{
    const std::vector<Mount> mounts = readMounts();
    const Mount *mount = findMount(mounts, device.location);
    return mount == nullptr
               ? Result()
               : refuse(message::ALREADY_MOUNTED, {device.name, mount->point});
}

// Everything that can be said before the user of the device is troubled.
Result checkBefore(const MountOptions &options, Device &device)
{
    std::vector<Device> devices;
    Result result = checkMachine();
    if (result.ok()) {
        removeDeadVolumes();
        result = listDevices(devices);
    }
    if (result.ok()) {
        result = chooseDevice(devices, options.device, device);
    }
    return result.ok() ? checkUnmounted(device) : result;
}

Result mountAt(const MountOptions &options, const Device &device,
               const Signals &signals, std::string &point)
{
    Descriptor turn;
    Result result = takeMountTurn(turn, TURN_SECONDS)
                        ? checkUnmounted(device)
                        : refuse(message::OTHER_MOUNT);
    if (!result.ok()) {
        return result;
    }
    point = options.point.empty()
                ? defaultPoint(device, mountHome(options.home))
                : canonicalPoint(options.point);
    bool made = false;
    result = preparePoint(point, &made);
    if (result.ok()) {
        bool stopped = false;
        result =
            launchVolume(device, point, options.options, ANSWER_SECONDS, [&] {
                return stopped = stopped || signals.take() != 0;
            });
    }
    if (!result.ok() && made) {
        removeMadePoint(point);
    }
    return result;
}

// A mount point that cannot be used is told before anybody is asked for trust.
Result checkPoint(const MountOptions &options)
{
    bool made = false;
    const std::string point = canonicalPoint(options.point);
    Result result =
        options.point.empty() ? Result() : preparePoint(point, &made);
    if (made) {
        removeMadePoint(point);
    }
    return result;
}

} // namespace

Result mountCommand(const MountOptions &options)
{
    Device device;
    Result result = checkBefore(options, device);
    if (result.ok()) {
        result = checkPoint(options);
    }
    if (result.ok()) {
        WaitingLine line;
        result = waitForTrust(
            device, options.wait,
            [&](const std::string &what, double s) { line.show(what, s); });
    }
    if (!result.ok()) {
        return result;
    }
    // From here on an interruption must not leave a folder or a volume; and
    // whoever starts this command must hear of the volume that there is.
    const Signals signals;
    std::string point;
    result = mountAt(options, device, signals, point);
    if (result.ok() && !options.quiet) {
        printf("%s\n", fill(message::MOUNTED, {device.name, point}).c_str());
    }
    return result;
}

Result unmountCommand(const std::string &what, bool force, bool quiet)
{
    std::vector<Device> devices;
    listDevices(devices); // a volume can be unmounted without usbmuxd
    Mount mount;
    Result result = chooseMount(readMounts(), devices, what, mount);
    if (result.ok()) {
        // Once begun it is finished, Ctrl-C or not: half-way, the folder that
        // was made for the volume would stay.
        const Signals signals;
        result = unmountVolume(mount, force ? Force::Yes : Force::No);
    }
    if (result.ok() && !quiet) {
        printf("%s\n", fill(message::UNMOUNTED, {mount.point}).c_str());
    }
    return result;
}

} // namespace helper
