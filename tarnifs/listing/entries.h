// What the listings of device folders share.
#pragma once

#include <cstring>

#include "device/libiusb.h"
#include "tarnifs/catalogue/object.h"
#include "tarnifs/mount/host.h"

// Names that are never listed: those beginning with ".", and what can't be one
// entry of a folder, whatever the device says.
inline bool IsHiddenName(const char *name)
{
    return name[0] == '.' || name[0] == '\0' || strchr(name, '/') != nullptr;
}

// Size and times as the device tells them; it keeps no access time.
inline void FillSizeAndTimes(_KTL_OBJECT *object,
                             const libiusb_afc_file_info &info)
{
    constexpr int64_t NANOSECONDS = 1000000000;
    object->size = info.size;
    object->birth_time = info.birth_time / NANOSECONDS;
    object->modify_time = info.modify_time / NANOSECONDS;
    object->access_time = object->modify_time;
}

// What one listing works on; `folder` is the record of `path`.
struct LISTING {
    libiusb_afc *afc;
    _KTL_OBJECT *folder;
    const char *path;
    void *buffer;
    tarni_filler filler; // may be null
};

// Puts an entry's record at the end of the folder and reports it.
inline void ShowEntry(const LISTING &listing, const char *name,
                      _KTL_OBJECT *object)
{
    LinkChild(listing.folder, object);
    if (listing.filler != nullptr) {
        listing.filler(listing.buffer, name, nullptr, 0);
    }
}
