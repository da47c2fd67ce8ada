#include "helper/watch.h"

#include <poll.h>

#include <algorithm>
#include <cerrno>
#include <exception>
#include <list>
#include <vector>

#include "helper/clock.h"
#include "helper/device_watcher.h"
#include "helper/mount_point.h"
#include "helper/mounts.h"
#include "helper/notify.h"
#include "helper/pipe_reader.h"
#include "helper/readiness.h"
#include "helper/screen.h"
#include "helper/signals.h"
#include "helper/text.h"
#include "helper/transfers.h"
#include "helper/tray_pipe.h"
#include "helper/unmount.h"
#include "helper/watched_device.h"

namespace helper
{

namespace
{

constexpr int TICK_MS = 200;
constexpr double SUMMARY_SECONDS = 1; // plain lines come no oftener
constexpr double LOOK_SECONDS = 2;    // between looks for dead file systems
constexpr int MOST_DEATHS = 3;        // then a device is not mounted again
constexpr const char *TRUST_SECONDS = "86400";
constexpr size_t PIECE = 65536;

struct Watch {
    explicit Watch(const WatchOptions &given) : options(given) {}

    const WatchOptions &options;
    Signals signals = Signals({SIGINT, SIGTERM, SIGHUP, SIGCHLD});
    Screen screen;
    Notifier notifier;
    TrayPipe pipe;
    PipeReader reader;
    Transfers transfers;
    double told = 0; // when transfers were last told in a line
    bool told_busy = false;
    double looked = 0; // when dead file systems were last looked for
    bool daemon = true;
    std::list<WatchedDevice> devices;
};

void tell(Watch &watch, const Device &device, const std::string &text)
{
    watch.screen.say(text);
    if (watch.options.notify) {
        watch.notifier.show(device.udid, device.name, text);
    }
}

// ---------------------------------------------------------------------------
// Volumes

void mounted(Watch &watch, WatchedDevice &one, const std::string &point)
{
    one.point = point;
    one.state = "mounted at " + printable(point);
    tell(watch, one.device,
         fill(message::MOUNTED, {one.device.name, one.point}));
}

void beginMount(Watch &watch, WatchedDevice &one)
{
    one.tried = true;
    const std::vector<Mount> mounts = readMounts();
    if (const Mount *mount = findMount(mounts, one.device.location)) {
        mounted(watch, one, mount->point);
        return;
    }
    Words words = {ownProgram(), "mount", "--wait", TRUST_SECONDS, "--quiet"};
    if (!watch.options.home.empty()) {
        words.insert(words.end(), {"--in", watch.options.home});
    }
    if (!watch.options.options.empty()) {
        words.insert(words.end(), {"--options", watch.options.options});
    }
    words.insert(words.end(), {"--", one.device.udid});
    one.state =
        one.worker.start(words) ? "being mounted" : "could not be mounted";
}

void beginUnmount(WatchedDevice &one)
{
    one.state = "being unmounted";
    one.worker.start(
        {ownProgram(), "unmount", "--force", "--quiet", "--", one.point});
}

// What the worker did shows in the table of mounts, not in its words.
void workerEnded(Watch &watch, WatchedDevice &one, int status)
{
    const std::vector<Mount> mounts = readMounts();
    const Mount *mount = findMount(mounts, one.device.location);
    if (one.point.empty() && mount != nullptr && status == 0) {
        one.ours = true;
        mounted(watch, one, mount->point);
    } else if (!one.point.empty() && !isMountPoint(one.point)) {
        one.point.clear();
        one.ours = false;
        one.state = "not mounted";
        watch.screen.say(fill(message::UNMOUNTED, {one.device.name}));
        if (one.died) {
            one.died = false;
            one.tried = one.deaths > MOST_DEATHS;
        }
    } else if (mount != nullptr && one.point.empty()) {
        mounted(watch, one, mount->point); // by somebody else meanwhile
    } else if (!one.point.empty()) {
        one.point.clear(); // cannot be unmounted; it was told why
        one.ours = false;
    }
}

void hearWorker(Watch &watch, WatchedDevice &one)
{
    if (!one.worker.running()) {
        return;
    }
    const std::optional<int> status = one.worker.ended();
    while (const std::optional<std::string> line = one.worker.line()) {
        one.state = *line;
        if (!status || *status != 0) {
            tell(watch, one.device, *line);
        }
    }
    if (status) {
        workerEnded(watch, one, *status);
    }
}

// ---------------------------------------------------------------------------
// Devices

WatchedDevice *findWatched(Watch &watch, const Device &device)
{
    for (WatchedDevice &one : watch.devices) {
        if (one.device.udid == device.udid && one.device.plug == device.plug) {
            return &one;
        }
    }
    return nullptr;
}

void takeAttached(Watch &watch, const Attached &attached)
{
    if (attached.daemon != watch.daemon) {
        watch.daemon = attached.daemon;
        watch.screen.say(watch.daemon ? message::DAEMON_BACK
                                      : message::NO_DAEMON.sentence);
    }
    for (WatchedDevice &one : watch.devices) {
        const bool there =
            std::any_of(attached.devices.begin(), attached.devices.end(),
                        [&](const Device &device) {
                            return device.udid == one.device.udid &&
                                   device.plug == one.device.plug;
                        });
        if (one.attached && !there) {
            one.attached = false;
            tell(watch, one.device, fill(message::DETACHED, {one.device.name}));
            one.worker.stop();
        }
    }
    for (const Device &device : attached.devices) {
        WatchedDevice *known = findWatched(watch, device);
        if (known != nullptr) {
            known->device = device; // it may have told its name by now
            continue;
        }
        WatchedDevice &one = watch.devices.emplace_back();
        one.device = device;
        one.state = "attached";
        watch.screen.say(fill(message::ATTACHED, {device.name}));
    }
}

// Whether the last plug-in of the same device, or of another one in the same
// place, still has a volume or a worker.
bool leftovers(const Watch &watch, const WatchedDevice &one)
{
    return std::any_of(watch.devices.begin(), watch.devices.end(),
                       [&](const WatchedDevice &other) {
                           return &other != &one && !other.attached &&
                                  (other.device.udid == one.device.udid ||
                                   other.device.location ==
                                       one.device.location);
                       });
}

// A file system that has died leaves a folder in which every access fails. Its
// device gets another one.
void findDead(Watch &watch)
{
    if (now() - watch.looked < LOOK_SECONDS) {
        return;
    }
    watch.looked = now();
    const std::vector<Mount> mounts = readMounts();
    for (WatchedDevice &one : watch.devices) {
        const bool dead =
            one.ours && !one.worker.running() &&
            std::any_of(mounts.begin(), mounts.end(), [&](const Mount &mount) {
                return mount.point == one.point && hasDied(mount);
            });
        if (dead) {
            tell(watch, one.device, fill(message::DIED, {one.device.name}));
            one.died = true;
            ++one.deaths;
            beginUnmount(one);
        }
    }
}

// One step for each device; whatever takes time goes on in its worker.
void stepDevices(Watch &watch)
{
    for (auto at = watch.devices.begin(); at != watch.devices.end();) {
        WatchedDevice &one = *at;
        hearWorker(watch, one);
        const bool idle = !one.worker.running();
        if (idle && !one.point.empty() && !isMountPoint(one.point)) {
            one.point.clear(); // somebody else unmounted it
            one.ours = false;
            one.state = "not mounted";
        }
        if (idle && one.attached && !one.tried && watch.options.mount &&
            !leftovers(watch, one)) {
            beginMount(watch, one);
        } else if (idle && !one.attached && !one.point.empty() &&
                   watch.options.mount) {
            beginUnmount(one);
        } else if (idle && !one.attached) {
            at = watch.devices.erase(at);
            continue;
        }
        ++at;
    }
    watch.transfers.volumes(static_cast<int>(watch.devices.size()));
}

// ---------------------------------------------------------------------------
// The pipe, and what is shown

void readPipe(Watch &watch)
{
    char piece[PIECE];
    ssize_t n = 0;
    while (watch.pipe.descriptor() >= 0 &&
           (n = read(watch.pipe.descriptor(), piece, sizeof(piece))) > 0) {
        const std::string_view data(piece, static_cast<size_t>(n));
        for (const News &news : watch.reader.feed(data, now())) {
            watch.transfers.take(news, now());
        }
    }
    for (const News &news : watch.reader.expire(now())) {
        watch.transfers.take(news, now());
    }
}

void showPlain(Watch &watch)
{
    if (watch.transfers.isBusy() != watch.told_busy) {
        watch.told_busy = watch.transfers.isBusy();
        watch.screen.say(watch.told_busy ? "Busy." : "No longer busy.");
    }
    if (now() - watch.told < SUMMARY_SECONDS) {
        return;
    }
    const Sum sum = watch.transfers.takeLatest();
    if (!sum.empty()) {
        watch.told = now();
        std::string text = sum.text();
        text[0] = static_cast<char>(toupper(text[0]));
        watch.screen.say(text + ".");
    }
}

void showLive(Watch &watch)
{
    std::vector<std::string> lines;
    for (const WatchedDevice &one : watch.devices) {
        lines.push_back("  " + printable(one.device.name) + ": " +
                        printable(one.state));
    }
    if (watch.pipe.descriptor() >= 0) {
        lines.push_back("  " + watch.transfers.line(now()));
    }
    watch.screen.show(lines);
}

void show(Watch &watch)
{
    if (watch.screen.live()) {
        showLive(watch);
    } else {
        showPlain(watch);
    }
}

// ---------------------------------------------------------------------------

// Waits for anything to do. True: it is time to end.
bool waitForNews(Watch &watch, const DeviceWatcher &attached)
{
    std::vector<pollfd> sources = {
        {watch.signals.descriptor(), POLLIN, 0},
        {attached.descriptor(), POLLIN, 0},
        {watch.pipe.descriptor(), POLLIN, 0}, // ignored while it is -1
    };
    for (const WatchedDevice &one : watch.devices) {
        sources.push_back({one.worker.descriptor(), POLLIN, 0});
    }
    poll(sources.data(), sources.size(), TICK_MS);
    int number = 0;
    bool end = false;
    while ((number = watch.signals.take()) != 0) {
        end = end || number != SIGCHLD;
    }
    return end;
}

// What this watch mounted goes, unless it is to stay.
void unmountOurs(Watch &watch)
{
    for (WatchedDevice &one : watch.devices) {
        one.worker.stop();
    }
    for (WatchedDevice &one : watch.devices) {
        while (one.worker.running()) {
            hearWorker(watch, one);
            usleep(10'000);
        }
        if (!one.ours || one.point.empty()) {
            continue;
        }
        if (watch.options.keep) {
            watch.screen.say(fill(message::KEPT, {one.device.name}));
            continue;
        }
        for (const Mount &mount : readMounts()) {
            if (mount.point == one.point) {
                const Result result = unmountVolume(mount, Force::Yes);
                watch.screen.say(
                    result.ok() ? fill(message::UNMOUNTED, {one.device.name})
                                : result.sentence);
            }
        }
    }
}

} // namespace

Result watch(const WatchOptions &options)
{
    Watch state(options);
    const Result pipe = state.pipe.open(trayPipePath());
    if (!pipe.ok()) {
        state.screen.say(pipe.sentence);
    }
    state.screen.say(message::WATCHING);
    Result result;
    try {
        DeviceWatcher attached;
        tellReady();
        while (!waitForNews(state, attached)) {
            takeAttached(state, attached.take());
            findDead(state);
            stepDevices(state);
            readPipe(state);
            show(state);
        }
    } catch (const std::exception &error) {
        result = {Status::Failed,
                  error.what()}; // what is mounted goes all the same
    }
    tellStopping();
    state.screen.show({});
    unmountOurs(state);
    readPipe(state);
    show(state);
    return result;
}

} // namespace helper
