#include "helper/copy_ends.h"

#include <sys/stat.h>

#include <algorithm>
#include <filesystem>

#include "helper/unmount.h"

namespace helper
{

namespace
{

bool below(const std::string &path, const std::string &folder)
{
    return path == folder || path.starts_with(folder + "/");
}

// As far as it exists without links, the rest as it is written.
std::string plainPath(const std::string &text)
{
    std::error_code error;
    const auto whole = std::filesystem::absolute(text, error);
    auto path = std::filesystem::weakly_canonical(whole, error);
    std::string plain =
        error ? whole.lexically_normal().string() : path.string();
    while (plain.size() > 1 && plain.ends_with('/')) {
        plain.pop_back();
    }
    return plain;
}

void findVolume(const CopyWorld &world, CopyEnd &end)
{
    for (const Mount &mount : world.mounts) {
        if (!below(end.path, mount.point)) {
            continue;
        }
        end.volume = mount.point;
        for (const Device &device : world.devices) {
            if (device.location == mount.location) {
                end.udid = device.udid;
            }
        }
    }
}

// A path on a volume must not climb out of it.
std::string onVolume(const std::string &point, const std::string &path)
{
    std::string inside =
        std::filesystem::path("/" + path).lexically_normal().string();
    while (inside.ends_with('/')) {
        inside.pop_back();
    }
    while (inside.starts_with('/')) {
        inside.erase(0, 1);
    }
    return inside.empty() ? point : point + "/" + inside;
}

} // namespace

CopyWorld lookAround(const std::vector<std::string> &texts)
{
    CopyWorld world;
    world.mounts = readMounts();
    const bool named =
        std::any_of(texts.begin(), texts.end(), [](const std::string &text) {
            std::string device;
            std::string path;
            return splitDevicePath(text, &device, &path);
        });
    if (!world.mounts.empty()) {
        listDevices(world.devices, named ? Ask::Names : Ask::Nothing);
    }
    return world;
}

bool splitDevicePath(const std::string &text, std::string *device,
                     std::string *path)
{
    const size_t colon = text.find(":/");
    struct stat st {
    };
    if (colon == std::string::npos || colon == 0 || text.find('/') < colon ||
        lstat(text.c_str(), &st) == 0) {
        return false;
    }
    *device = text.substr(0, colon);
    *path = text.substr(colon + 1);
    return true;
}

Result resolveEnd(const CopyWorld &world, const std::string &text, CopyEnd &end)
{
    std::string name;
    std::string path;
    if (!splitDevicePath(text, &name, &path)) {
        end.path = plainPath(text);
        findVolume(world, end);
        return {};
    }
    Mount mount;
    const Result result = chooseMount(world.mounts, world.devices, name, mount);
    if (result.status == Status::NotMounted) {
        return refuse(message::DEVICE_NOT_MOUNTED, {name});
    }
    if (!result.ok()) {
        return result;
    }
    end.path = onVolume(mount.point, path);
    findVolume(world, end);
    return {};
}

} // namespace helper
