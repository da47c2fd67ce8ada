#include "tarnifs/mount/linux/refusals.h"

#include <mntent.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>

namespace
{

constexpr const char *FUSE_DEVICE = "/dev/fuse";

// A volume of ours at exactly this place.
bool CarriesVolume(const std::string &path)
{
    char real[PATH_MAX];
    const std::unique_ptr<FILE, int (*)(FILE *)> table(
        setmntent("/proc/self/mounts", "re"), endmntent);
    if (table == nullptr || realpath(path.c_str(), real) == nullptr) {
        return false;
    }
    mntent entry{};
    char strings[3 * PATH_MAX];
    while (getmntent_r(table.get(), &entry, strings, sizeof(strings))) {
        if (strcmp(entry.mnt_dir, real) == 0 &&
            strcmp(entry.mnt_type, "fuse.quorvelfs") == 0) {
            return true;
        }
    }
    return false;
}

Refusal WhyNoStat(const std::string &path, int error)
{
    if (error == ENOTCONN) {
        return {ExitStatus::Busy,
                path + " holds what is left of a volume; take it away with "
                       "fusermount3 -u"};
    }
    if (error == ENOSYS) {
        return {ExitStatus::Busy,
                "a volume that could not start is still mounted at " + path};
    }
    return {error == EACCES ? ExitStatus::NotAllowed : ExitStatus::MountPoint,
            path + ": " + strerrordesc_np(error)};
}

bool OnPath(const std::string &program)
{
    // NOLINTNEXTLINE(concurrency-mt-unsafe): nobody changes the environment
    const char *path = getenv("PATH");
    std::string rest = path == nullptr ? "" : std::string(path) + ":";
    rest += "/usr/bin:/bin";
    while (!rest.empty()) {
        const size_t colon = rest.find(':');
        if (access((rest.substr(0, colon) + "/" + program).c_str(), X_OK) ==
            0) {
            return true;
        }
        rest = colon == std::string::npos ? "" : rest.substr(colon + 1);
    }
    return false;
}

// The last line that says anything, for the end of a sentence.
std::string InBrackets(std::string said)
{
    while (!said.empty() && (said.back() == '\n' || said.back() == ' ')) {
        said.pop_back();
    }
    said.erase(0, said.find_last_of('\n') + 1);
    return said.empty() ? "" : " (" + said + ")";
}

} // namespace

Refusal CheckMountPoint(const std::string &path)
{
    struct stat st {
    };
    if (path.empty()) {
        return {ExitStatus::Usage, "a mount point is needed"};
    }
    if (stat(path.c_str(), &st) != 0) {
        return WhyNoStat(path, errno);
    }
    if (!S_ISDIR(st.st_mode)) {
        return {ExitStatus::MountPoint, path + ": not a folder"};
    }
    if (CarriesVolume(path)) {
        return {ExitStatus::Busy, "a volume is already mounted at " + path};
    }
    return {};
}

Refusal CheckFuse()
{
    if (access(FUSE_DEVICE, F_OK) != 0) {
        return {ExitStatus::NoFuse,
                "/dev/fuse is missing; load the fuse module (modprobe fuse), "
                "or give the container that device"};
    }
    if (geteuid() != 0 && !OnPath("fusermount3")) {
        return {ExitStatus::NoFuse,
                "fusermount3 is missing; install the package fuse3"};
    }
    return {};
}

bool FusermountConfined()
{
    return access("/sys/kernel/security/apparmor", F_OK) == 0 &&
           access("/etc/apparmor.d/fusermount3", F_OK) == 0;
}

Refusal ExplainMount(const std::string &path, const std::string &said,
                     bool confined)
{
    const auto says = [&](const char *part) {
        return said.find(part) != std::string::npos;
    };
    const std::string end = InBrackets(said);
    if (says("user_allow_other")) {
        return {ExitStatus::NotAllowed,
                "allow_other and allow_root need the line user_allow_other in "
                "/etc/fuse.conf" +
                    end};
    }
    if (says("open /dev/fuse")) {
        return {ExitStatus::NotAllowed,
                "this user, or this container, may not use /dev/fuse" + end};
    }
    if (says("no write access to mountpoint") || says("not owned by user")) {
        return {ExitStatus::NotAllowed,
                "you may mount on folders of your own only, and " + path +
                    " is none" + end};
    }
    if (says("Permission denied") || says("Operation not permitted") ||
        says("not allowed")) {
        return {ExitStatus::NotAllowed,
                confined
                    ? "mounting at " + path +
                          " is not allowed; the AppArmor profile of "
                          "fusermount3 may allow it only below the home, "
                          "/mnt, /media, /run/user and /tmp" +
                          end
                    : "mounting at " + path +
                          " is not allowed to this user, or in this container" +
                          end};
    }
    if (says("device not found")) {
        return {ExitStatus::NoFuse, "the fuse module is not loaded" + end};
    }
    if (says("resource busy")) {
        return {ExitStatus::Busy, path + " is in use" + end};
    }
    return {ExitStatus::Failed, "mounting at " + path + " failed" + end};
}
