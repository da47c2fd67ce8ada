// mount.quorvelfs: what mount(8) runs for the type quorvelfs, and so fstab and
// systemd's mount units.
#include <fcntl.h>
#include <sched.h>
#include <unistd.h>

#include <cerrno>
#include <clocale>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <filesystem>

#include "helper/clock.h"
#include "helper/descriptor.h"
#include "helper/launch.h"
#include "helper/mount_line.h"
#include "helper/mount_point.h"
#include "helper/mounts.h"
#include "helper/signals.h"
#include "helper/text.h"
#include "helper/wait_for_trust.h"
#include "helper/waiting_line.h"

namespace helper
{

namespace
{

// A start that has to look for its device takes a few seconds; one whose device
// falls silent ends by itself after ten.
constexpr double ANSWER_SECONDS = 45;
constexpr double TURN_SECONDS = 60; // for a mount that is going on

constexpr const char *HELP =
    "usage: mount.quorvelfs DEVICE DIR [-sfnrvw] [-N NAMESPACE] [-o OPTIONS] "
    "[-t TYPE]\n"
    "\n"
    "Mounts an iPhone, iPad or iPod; run by mount -t quorvelfs.\n"
    "\n"
    "  DEVICE        its name, location id, or UDID or a beginning of it; none\n"
    "                for the only one, or for what -o device= says\n"
    "  DIR           the mount point\n"
    "  -o OPTIONS    options of quorvelfs and of the FUSE library, with commas\n"
    "  -r            read only\n"
    "  -f            check the command line, and mount nothing\n"
    "  -s            leave options out that nobody knows\n"
    "  -v            say what is done\n"
    "  -N NAMESPACE  mount in another mount namespace: a pid, or a path\n"
    "  -t TYPE       quorvelfs\n"
    "  -n, -w        nothing: for mount(8)\n"
    "  -h, --help    this text\n"
    "  -V, --version the program's version\n"
    "\n"
    "  -o device=X   the device\n"
    "  -o wait=N     seconds to wait for the device to be plugged in, unlocked\n"
    "                and trusting; without it, 30 for the last two\n"
    "\n"
    "Exit status, as mount(8) has them: 0 mounted, 1 wrong usage or not "
    "allowed,\n"
    "2 this machine lacks something, 8 interrupted, 32 not mounted.\n";

// What mount(8) expects of its helpers.
enum class Ended : int {
    Ok = 0,
    Usage = 1,
    System = 2,
    Interrupted = 8,
    Failed = 32
};

Ended endFor(Status status)
{
    switch (status) {
    case Status::Ok:
        return Ended::Ok;
    case Status::Usage:
    case Status::NotAllowed:
        return Ended::Usage;
    case Status::NoFuse:
    case Status::NoProgram:
        return Ended::System;
    case Status::Interrupted:
        return Ended::Interrupted;
    default:
        return Ended::Failed;
    }
}

int end(const Result &result)
{
    if (!result.ok()) {
        fprintf(stderr, "mount.quorvelfs: %s\n", result.sentence.c_str());
    }
    return static_cast<int>(endFor(result.status));
}

Result enterNamespace(const std::string &which)
{
    if (which.empty()) {
        return {};
    }
    const bool pid = which.find_first_not_of("0123456789") == std::string::npos;
    const std::string path = pid ? "/proc/" + which + "/ns/mnt" : which;
    const Descriptor fd(open(path.c_str(), O_RDONLY | O_CLOEXEC));
    if (!fd.open() || setns(fd.get(), CLONE_NEWNS) != 0) {
        return refuse(message::NO_NAMESPACE, {path, strerrordesc_np(errno)});
    }
    return {};
}

// The device, waited for if that was asked for: at boot it may be found only
// after the file systems.
Result findDevice(const MountLine &line, Device &device)
{
    const double until = now() + line.device_wait;
    for (;;) {
        std::vector<Device> devices;
        Result result = listDevices(devices);
        if (result.ok()) {
            result = chooseDevice(devices, line.device, device);
        }
        const bool may_come = result.status == Status::NoDevice ||
                              result.status == Status::NoDaemon;
        if (!may_come || now() >= until) {
            return result;
        }
        usleep(250'000);
    }
}

Result checkPlace(const Device &device, const std::string &point)
{
    const std::vector<Mount> mounts = readMounts();
    std::error_code error;
    if (const Mount *mount = findMount(mounts, device.location)) {
        return refuse(message::ALREADY_MOUNTED, {device.name, mount->point});
    }
    if (!std::filesystem::is_directory(point, error)) {
        return refuse(message::POINT_NO_FOLDER, {point});
    }
    return {};
}

Result waitUntilUsable(const Device &device, double seconds)
{
    WaitingLine waiting;
    return waitForTrust(
        device, seconds,
        [&](const std::string &what, double s) { waiting.show(what, s); });
}

// From here on an interruption must not leave a volume.
Result launch(const MountLine &line, const Device &device,
              const std::string &point)
{
    const Signals signals;
    Descriptor turn;
    const Result place = takeMountTurn(turn, TURN_SECONDS)
                             ? checkPlace(device, point)
                             : refuse(message::OTHER_MOUNT);
    if (!place.ok()) {
        return place;
    }
    bool interrupted = false;
    return launchVolume(device, point,
                        "fsname=" + escapeOption(line.source) +
                            (line.options.empty() ? "" : "," + line.options),
                        ANSWER_SECONDS, [&] {
                            return interrupted =
                                       interrupted || signals.take() != 0;
                        });
}

Result mountDevice(const MountLine &line)
{
    const std::string point = canonicalPoint(line.point);
    Device device;
    Result result = checkMachine();
    if (result.ok()) {
        result = findDevice(line, device);
    }
    if (result.ok()) {
        result = checkPlace(device, point);
    }
    if (result.ok()) {
        result = waitUntilUsable(device, line.trust_wait);
    }
    if (result.ok()) {
        result = launch(line, device, point);
    }
    if (result.ok() && line.verbose) {
        printf("mount.quorvelfs: %s\n",
               fill(message::MOUNTED, {device.name, point}).c_str());
    }
    return result;
}

int run(const std::vector<std::string> &words)
{
    MountLine line;
    const std::string problem = parseMountLine(words, line);
    if (!problem.empty()) {
        return end({Status::Usage, problem});
    }
    const Result entered = enterNamespace(line.name_space);
    if (!entered.ok() || line.fake) {
        return end(entered);
    }
    if (!line.usbmux.empty()) {
        // NOLINTNEXTLINE(concurrency-mt-unsafe): there is one thread only
        setenv("USBMUXD_SOCKET_ADDRESS", line.usbmux.c_str(), 1);
    }
    return end(mountDevice(line));
}

} // namespace

} // namespace helper

int main(int argc, char **argv)
{
    signal(SIGPIPE, SIG_IGN);
    setlocale(LC_CTYPE, "");
    const std::vector<std::string> words(argv + 1, argv + argc);
    for (const std::string &word : words) {
        if (word == "-h" || word == "--help") {
            fputs(helper::HELP, stdout);
            return 0;
        }
        if (word == "-V" || word == "--version") {
            puts("mount.quorvelfs " QUORVEL_VERSION);
            return 0;
        }
    }
    try {
        return helper::run(words);
    } catch (const std::exception &error) {
        return helper::end({helper::Status::Failed, error.what()});
    }
}
