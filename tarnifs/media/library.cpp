#include "tarnifs/media/library.h"

#include <cstdlib>
#include <cstring>
#include <new>

#include "tarnifs/media/databases.h"
#include "tarnifs/media/views.h"

namespace
{

constexpr int NO_MEMORY = -2;

// What an unfinished listing left is open (the rest is gone): it leaves the list
// and comes back when its row is found again.
void unlinkChildren(_KTL_OBJECT *folder)
{
    while (HasChildren(folder)) {
        UnlinkObject(ObjectOfSibling(ChildList(folder)->next));
    }
}

int listFolder(_CONTEXT *context, const char *path, void *buffer,
               tarni_filler filler)
{
    MEDIA_LISTING listing{
        context, path, GetObject(path), buffer, filler, FreeNames(path), {}};
    if (!FetchLostDatabases(context)) {
        NoteListing(listing.folder, false);
    }
    unlinkChildren(listing.folder);
    const MEDIA_KIND *kind = MediaKindOf(path);
    if (kind != nullptr) {
        return ListMediaLibrary(&listing, *kind);
    }
    if (strcmp(path, "/Media/Photo") == 0) {
        return ListPhotoRoot(&listing);
    }
    if (strstr(path, "/Media/Photo/") != nullptr) {
        return ListPhotos(context, path, filler, buffer);
    }
    if (strcmp(path, "/Media/Voice Memos") == 0) {
        return ListVoiceMemos(&listing);
    }
    return 0;
}

// Digits at the beginning of a text; what is no number is 0.
int numberIn(const char *text)
{
    return static_cast<int>(strtol(text, nullptr, 10));
}

} // namespace

int enumMedia(_CONTEXT *context, const char *path, void *buffer,
              tarni_filler filler)
{
    try {
        return listFolder(context, path, buffer, filler);
    } catch (const std::bad_alloc &) {
        return NO_MEMORY;
    }
}

int checkiOSVersion(const char *version, int major, int minor)
{
    const char *dot = strchr(version, '.');
    const int majorFound = dot == nullptr ? 0 : numberIn(version);
    if (majorFound != major) {
        return majorFound < major ? -1 : 0;
    }
    return numberIn(dot == nullptr ? version : dot + 1) >= minor ? 0 : -1;
}
