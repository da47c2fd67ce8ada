#include <cstring>
#include <string_view>

#include "tarnifs/names/device_path.h"
#include "tarnifs/namespace/rename.h"

// The rules are tried from top to bottom, per area of the source. Prefixes are
// compared as plain text, so "/Storagex" is a storage source; a target needs
// the slash.

static RenameAction FromStorage(std::string_view to)
{
    if (BeginsWith(to, "/Apps/")) {
        return PathDepth(to) > 2 ? RenameAction::MoveToApps
                                 : RenameAction::ReadOnlyApps;
    }
    if (BeginsWith(to, "/Media/")) {
        return RenameAction::ReadOnly;
    }
    return BeginsWith(to, "/Storage/") ? RenameAction::DeviceRename
                                       : RenameAction::Refused;
}

static RenameAction FromMedia(std::string_view from, std::string_view to)
{
    if (BeginsWith(to, "/Apps/")) {
        return PathDepth(to) >= 3 ? RenameAction::MoveToApps
                                  : RenameAction::ReadOnlyApps;
    }
    if (BeginsWith(to, "/Storage/")) {
        return RenameAction::MoveToStorage;
    }
    const bool sameFolder =
        from.substr(0, from.rfind('/')) == to.substr(0, to.rfind('/'));
    return sameFolder ? RenameAction::Refused : RenameAction::ReadOnly;
}

static RenameAction FromApps(std::string_view from, std::string_view to)
{
    if (BeginsWith(to, "/Storage/")) {
        return from == APPS_AREA ? RenameAction::CopyApps
                                 : RenameAction::MoveToStorage;
    }
    if (BeginsWith(to, "/Media")) {
        return RenameAction::ReadOnly;
    }
    if (!BeginsWith(to, "/Apps/")) {
        return RenameAction::Refused;
    }
    if (PathDepth(from) < 3) {
        return RenameAction::RefusedApps;
    }
    return PathDepth(to) > 2 ? RenameAction::MoveToApps
                             : RenameAction::ReadOnlyApps;
}

RenameAction DecideRename(const char *from, const char *to)
{
    if (BeginsWith(from, STORAGE_AREA)) {
        return FromStorage(to);
    }
    if (BeginsWith(from, MEDIA_AREA)) {
        return FromMedia(from, to);
    }
    if (BeginsWith(from, APPS_AREA)) {
        return FromApps(from, to);
    }
    return RenameAction::Refused;
}
