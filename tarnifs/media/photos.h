// The folders below "/Media/Photo/". The device's photo database changed its
// schema between generations; three families of queries read it. All is called
// with tarni_mutex held.
#pragma once

#include <cstdint>

#include "tarnifs/mount/context.h"
#include "tarnifs/mount/host.h"

struct sqlite3;

// Numbers that the database gives to its entities, and names tables after. 0:
// not known.
struct _PHOTOALBUMENT {
    uint32_t additional_attributes_ent;
    uint32_t album_ent;
    uint32_t generic_asset_ent;
    uint32_t asset_ent; // of pictures and videos: generic_asset_ent + 1
    uint32_t moment_ent;
};

// Reads the numbers. 0 (also without a database: *out is as it was), SQLite's
// code when the query can't be asked, -1 when the database has an entity of an
// unexpected spelling.
int GetPhotoAlbumENT(sqlite3 *database, _PHOTOALBUMENT *out);

// The folder of an asset subtype, or null.
const char *getFolderNamefromSubtype(int subtype);

// List one folder for devices of version 10.0 and later, for older ones whose
// pictures are all their own, and for older ones with a cloud library. 0 when
// listed; -1 when the photo database is not open or does not understand the
// query; -2 when the folder has no record; LIBIUSB_ERROR_LOST_CONNECTION when
// the device is gone.
int EnumContentsForiOS_TEN(_CONTEXT *context, const char *path, int album_ent,
                           int generic_asset_ent, int asset_ent,
                           tarni_filler filler, void *buffer);
int EnumNonCloudContents(_CONTEXT *context, const char *path, int album_ent,
                         int generic_asset_ent, tarni_filler filler,
                         void *buffer);
int EnumCloudContents(_CONTEXT *context, const char *path, int album_ent,
                      int generic_asset_ent, tarni_filler filler, void *buffer);
