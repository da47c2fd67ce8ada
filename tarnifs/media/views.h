// The views behind enumMedia, one for each kind of folder. All are called with
// tarni_mutex held. 0; SQLite's code of a query that can't be asked;
// LOST_CONNECTION when the device is gone. What the device or the database does
// not give is logged and left out.
#pragma once

#include "tarnifs/media/listing.h"

struct MEDIA_KIND;

// The kind that "/Media/Music", "/Media/Podcast" or "/Media/Movies" shows; null
// for any other path.
const MEDIA_KIND *MediaKindOf(const char *path);
int ListMediaLibrary(MEDIA_LISTING *listing, const MEDIA_KIND &kind);

int ListVoiceMemos(MEDIA_LISTING *listing);

// Listings of this many rows and more are announced as long operations.
constexpr int64_t BUSY_MEDIA_ROWS = 301;
constexpr int64_t BUSY_PHOTO_ROWS = 501;

// The folders "/Media/Photo" has on this device.
int ListPhotoRoot(MEDIA_LISTING *listing);

// A folder below "/Media/Photo/"; results as photos.h tells.
int ListPhotos(_CONTEXT *context, const char *path, tarni_filler filler,
               void *buffer);
