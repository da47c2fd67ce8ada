#include "tarnifs/names/device_path.h"

#include <algorithm>

namespace
{

constexpr std::string_view APPS_PREFIX = "/Apps/";
constexpr size_t LONGEST_APP_NAME = 511;

// What follows "/Apps/", or nothing.
std::string_view belowApps(std::string_view path)
{
    return BeginsWith(path, APPS_PREFIX) ? path.substr(APPS_PREFIX.size())
                                         : std::string_view();
}

} // namespace

bool BeginsWith(std::string_view path, std::string_view prefix)
{
    return path.substr(0, prefix.size()) == prefix;
}

std::string StorageDevicePath(std::string_view path)
{
    std::string mapped = STORAGE_ROOT;
    if (path.size() > STORAGE_AREA.size()) {
        mapped += path.substr(STORAGE_AREA.size());
    }
    return mapped;
}

std::string AppDevicePath(std::string_view path)
{
    std::string mapped = "/Documents";
    const std::string_view below = belowApps(path);
    const size_t slash = below.find('/');
    if (slash != std::string_view::npos) {
        mapped += below.substr(slash);
    }
    return mapped;
}

std::string AppFolderName(std::string_view path)
{
    const std::string_view below = belowApps(path);
    return std::string(
        below.substr(0, below.find('/')).substr(0, LONGEST_APP_NAME));
}

size_t PathDepth(std::string_view path)
{
    return static_cast<size_t>(std::count(path.begin(), path.end(), '/'));
}

std::string ParentFolderText(std::string_view path)
{
    const size_t slash = path.rfind('/');
    if (slash == std::string_view::npos || slash == 0) {
        return "/";
    }
    return std::string(path.substr(0, slash));
}

std::string ChildPath(std::string_view folder, std::string_view name)
{
    std::string path(folder == "/" ? std::string_view() : folder);
    path += '/';
    path += name;
    return path;
}
