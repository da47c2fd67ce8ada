#include "helper/launch.h"

#include <unistd.h>

#include <cstring>

#include "helper/clock.h"
#include "helper/mounts.h"
#include "helper/process.h"
#include "helper/text.h"
#include "helper/unmount.h"

namespace helper
{

namespace
{

// How quorvelfs ends; see its manual page.
constexpr int FS_USAGE = 2;
constexpr int FS_NO_FUSE = 4;
constexpr int FS_NOT_ALLOWED = 5;
constexpr int FS_BUSY = 6;
constexpr int FS_NO_DEVICE = 7;

constexpr double ASK_SECONDS = 1;

// The last line that says anything.
std::string lastLine(std::string text)
{
    while (!text.empty() && (text.back() == '\n' || text.back() == ' ')) {
        text.pop_back();
    }
    return text.substr(text.find_last_of('\n') + 1);
}

void takeDown(const std::string &point)
{
    for (const Mount &mount : readMounts()) {
        if (mount.point == point) {
            unmountVolume(mount, Force::Yes);
        }
    }
}

Result waitForAnswer(const Device &device, const std::string &point,
                     double seconds, const std::function<bool()> &stopped)
{
    const double until = now() + seconds;
    while (now() < until) {
        if (stopped()) {
            return refuse(message::INTERRUPTED);
        }
        const VolumeState state = askVolume(point, ASK_SECONDS);
        switch (state.answer) {
        case Answer::Well:
            return {};
        case Answer::NotStarted:
            return refuse(message::START_FAILED, {device.name});
        case Answer::Broken:
            return refuse(message::MOUNT_FAILED,
                          {device.name, strerrordesc_np(state.error)});
        case Answer::Silent:
            break;
        }
    }
    return refuse(message::NO_ANSWER, {device.name, secondsText(seconds)});
}

} // namespace

std::string escapeOption(const std::string &text)
{
    std::string escaped;
    for (const char c : printable(text)) {
        escaped +=
            c == ',' || c == '\\' ? std::string("\\") + c : std::string(1, c);
    }
    return escaped;
}

Result checkMachine(const char *fuse_device)
{
    if (access(fuse_device, F_OK) != 0) {
        return refuse(message::NO_FUSE, {fuse_device});
    }
    if (geteuid() != 0 && findProgram("fusermount3").empty()) {
        return refuse(message::NO_FUSERMOUNT);
    }
    return findProgram("quorvelfs").empty() ? refuse(message::NO_PROGRAM)
                                            : Result();
}

Result explainLaunch(const Device &device, const std::string &point, int status,
                     const std::string &output)
{
    const std::string line = lastLine(output);
    switch (status) {
    case FS_USAGE: // all but the options is ours
        return refuse(message::BAD_OPTIONS, {device.name, line});
    case FS_NO_FUSE:
        return refuse(message::NO_FUSE, {"/dev/fuse"});
    case FS_NOT_ALLOWED:
        return refuse(message::NOT_ALLOWED, {point, line});
    case FS_BUSY:
        return refuse(message::POINT_IN_USE, {point});
    case FS_NO_DEVICE:
        return refuse(message::START_FAILED, {device.name});
    default:
        return refuse(message::MOUNT_FAILED, {device.name, line});
    }
}

Result launchVolume(const Device &device, const std::string &point,
                    const std::string &options, double seconds,
                    const std::function<bool()> &stopped)
{
    Words words = {findProgram("quorvelfs"), point};
    words.insert(words.end(), {"-o", "fsname=" + escapeOption(device.name)});
    if (!options.empty()) {
        words.insert(words.end(), {"-o", options});
    }
    words.insert(words.end(), {"-devopt", std::to_string(device.location)});
    const double until = now() + seconds;
    const Ran ran = runProgram(words, seconds, stopped);
    Result result;
    if (stopped()) {
        result = refuse(message::INTERRUPTED);
    } else if (ran.status == 0) {
        result = waitForAnswer(device, point, until - now(), stopped);
    } else if (now() >= until) {
        result =
            refuse(message::NO_ANSWER, {device.name, secondsText(seconds)});
    } else {
        result = explainLaunch(device, point, ran.status, ran.output);
    }
    if (!result.ok()) {
        takeDown(point);
    }
    return result;
}

} // namespace helper
