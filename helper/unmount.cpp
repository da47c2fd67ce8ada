#include "helper/unmount.h"

#include <poll.h>
#include <sys/mount.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstring>

#include "helper/descriptor.h"
#include "helper/mount_point.h"
#include "helper/process.h"
#include "helper/text.h"

namespace helper
{

namespace
{

constexpr double PROGRAM_SECONDS = 10;
// A device that went silent holds the end of its volume up for this long.
constexpr int END_MS = 15'000;

// How taking a volume out of the tree ended.
struct Detached {
    bool done = false;
    bool busy = false;
    std::string why;
};

Detached detachAsRoot(const std::string &point, bool lazily)
{
    const int flags = UMOUNT_NOFOLLOW | (lazily ? MNT_DETACH : 0);
    if (umount2(point.c_str(), flags) == 0) {
        return {true, false, ""};
    }
    return {false, errno == EBUSY, strerrordesc_np(errno)};
}

Detached detachWithProgram(const std::string &point, bool lazily)
{
    Words words = {findProgram("fusermount3"), "-u"};
    if (words[0].empty()) {
        return {false, false, message::NO_FUSERMOUNT.sentence};
    }
    if (lazily) {
        words.emplace_back("-z");
    }
    words.insert(words.end(), {"--", point});
    const Ran ran = runProgram(words, PROGRAM_SECONDS);
    const bool busy = ran.output.find("busy") != std::string::npos;
    return {ran.status == 0, busy, ran.output};
}

Detached detach(const std::string &point, bool lazily)
{
    return geteuid() == 0 ? detachAsRoot(point, lazily)
                          : detachWithProgram(point, lazily);
}

// The process behind a volume, by a handle that stays its own when the number
// goes to another process.
class Server
{
  public:
    explicit Server(pid_t pid) : handle(openHandle(pid)) {}

    void end() const
    {
        if (handle.open()) {
            syscall(SYS_pidfd_send_signal, handle.get(), SIGTERM, nullptr, 0);
        }
    }
    // Waits for its end, as long as a device may hold it up.
    void wait() const
    {
        pollfd ended{handle.get(), POLLIN, 0};
        if (handle.open()) {
            poll(&ended, 1, END_MS);
        }
    }

  private:
    // The C library's own declarations are not meant for C++ everywhere yet.
    static int openHandle(pid_t pid)
    {
        return pid > 0 ? static_cast<int>(syscall(SYS_pidfd_open, pid, 0)) : -1;
    }

    Descriptor handle;
};

bool ours(const Mount &mount)
{
    return geteuid() == 0 || mount.owner == getuid();
}

std::string pointList(const std::vector<Mount> &mounts)
{
    std::string text;
    for (const Mount &mount : mounts) {
        text += (text.empty() ? "" : ", ") + mount.point;
    }
    return text;
}

Result takeOnlyMount(const std::vector<Mount> &mounts, Mount &chosen)
{
    std::vector<Mount> mine;
    std::copy_if(mounts.begin(), mounts.end(), std::back_inserter(mine), ours);
    if (mine.empty()) {
        return refuse(message::NOTHING_MOUNTED);
    }
    chosen = mine.front();
    return mine.size() == 1
               ? Result()
               : refuse(message::SEVERAL_MOUNTED, {pointList(mine)});
}

} // namespace

Result unmountVolume(const Mount &mount, Force force)
{
    if (!ours(mount)) {
        return refuse(message::UNMOUNT_NOT_ALLOWED, {mount.point});
    }
    const Server server(mount.server);
    Detached detached = detach(mount.point, false);
    if (detached.busy && force == Force::Yes) {
        detached = detach(mount.point, true);
        server.end();
    }
    if (detached.busy) {
        return refuse(message::BUSY, {mount.point});
    }
    if (!detached.done) {
        return refuse(message::UNMOUNT_FAILED, {mount.point, detached.why});
    }
    server.wait();
    removeMadePoint(mount.point);
    return {};
}

void removeDeadVolumes()
{
    for (const Mount &mount : readMounts()) {
        if (mount.owner == getuid() && hasDied(mount)) {
            unmountVolume(mount, Force::Yes);
        }
    }
}

Result chooseMount(const std::vector<Mount> &mounts,
                   const std::vector<Device> &devices, const std::string &text,
                   Mount &chosen)
{
    if (text.empty()) {
        return takeOnlyMount(mounts, chosen);
    }
    const std::string point = canonicalPoint(text);
    for (const Mount &mount : mounts) {
        // The location id also finds the volume of a device that is gone.
        if (mount.point == point ||
            (mount.location != 0 && std::to_string(mount.location) == text)) {
            chosen = mount;
            return {};
        }
    }
    Device device;
    Result result = chooseDevice(devices, text, device);
    if (result.status == Status::Ambiguous) {
        return result;
    }
    const Mount *found =
        result.ok() ? findMount(mounts, device.location) : nullptr;
    if (found == nullptr) {
        return refuse(message::NOT_MOUNTED, {text});
    }
    chosen = *found;
    return {};
}

} // namespace helper
