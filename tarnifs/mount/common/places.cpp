#include "tarnifs/mount/common/places.h"

#include "tarnifs/names/device_path.h"

std::string LeafOf(const std::string &path)
{
    return path.substr(path.rfind('/') + 1);
}

bool IsWithin(std::string_view path, std::string_view folder)
{
    return path.starts_with(folder) &&
           (path.size() == folder.size() || folder == "/" ||
            path[folder.size()] == '/');
}

std::string Moved(const std::string &path, const std::string &from,
                  const std::string &to)
{
    return to + path.substr(from.size());
}

bool IsRefusedAtTop(std::string_view path)
{
    return PathDepth(path) == 1 && path != STORAGE_AREA &&
           (path.starts_with("/.") || BeginsWith(path, STORAGE_AREA));
}

bool IsWritablePlace(std::string_view path)
{
    if (IsWithin(path, APPS_AREA)) {
        return PathDepth(path) > 2;
    }
    return IsWithin(path, STORAGE_AREA) && PathDepth(path) > 1;
}

bool IsFuseHidden(const std::string &path)
{
    return LeafOf(path).starts_with(".fuse_hidden");
}
