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

constexpr double START_SECONDS = 20; // to mount and go to the background
constexpr double ASK_SECONDS = 1;

// The last line that says anything.
std::string lastLine(std::string text)
{
    while (!text.empty() && (text.back() == '\n' || text.back() == ' ')) {
        text.pop_back();
    }
    return text.substr(text.find_last_of('\n') + 1);
}

bool holds(const std::string &text, const char *part)
{
    return text.find(part) != std::string::npos;
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

Result explainLaunch(const Device &device, const std::string &point,
                     const std::string &output)
{
    const std::string line = lastLine(output);
    if (holds(output, "Operation not permitted") ||
        holds(output, "Permission denied") || holds(output, "not allowed") ||
        holds(output, "no write access")) {
        return refuse(message::NOT_ALLOWED, {point, line});
    }
    if (holds(output, "device not found")) {
        return refuse(message::NO_FUSE, {"/dev/fuse"});
    }
    return refuse(message::MOUNT_FAILED, {device.name, line});
}

Result launchVolume(const Device &device, const std::string &point,
                    const std::string &options, double seconds,
                    const std::function<bool()> &stopped)
{
    Words words = {findProgram("quorvelfs"), point};
    if (!options.empty()) {
        words.insert(words.end(), {"-o", options});
    }
    words.insert(words.end(), {"-devopt", std::to_string(device.location)});
    const Ran ran = runProgram(words, START_SECONDS);
    Result result = ran.status == 0
                        ? waitForAnswer(device, point, seconds, stopped)
                        : explainLaunch(device, point, ran.output);
    if (!result.ok()) {
        takeDown(point);
    }
    return result;
}

} // namespace helper
