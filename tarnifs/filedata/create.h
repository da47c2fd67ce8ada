// Making new files on the device, and the staging family: what is kept in the
// private folder and copied to the device later.
//
// The caller of everything but tarnifs_create holds tarni_mutex.
#pragma once

#include <sys/types.h>

#include "device/libiusb.h"
#include "tarnifs/mount/context.h"
#include "tarnifs/mount/host.h"

// Makes an empty file in "/Storage" or inside an app's folder and leaves it
// open as tarnifs_open does; it is on the device when this returns. 0,
// -ECANCELED after a dialog, -ENOENT when the folder is not known. A path that
// contains "Spotlight" is accepted and nothing is done: `fi->fh` stays 0.
int tarnifs_create(const char *path, mode_t mode, tarni_file_info *fi);

// The device's side of it: opens (and so makes) the path's device file and keeps
// it in the path's record. 0, the device's code, or -ECANCELED.
int CreateFileHandle(const char *path);

// Copies the private folder's file `from` (begins with "/") to the device path
// `to` through a connection, in pieces of 65535 bytes; the device file is cut
// first. With `remove_after` the local file is removed after a success. 0, -1
// without a local file, or a device code; a write that failed shows as the
// result of closing the device file.
int uploadfile(const _CONTEXT *context, const char *from, const char *to,
               libiusb_afc *afc, bool remove_after);

// Brings a staged record's data to the device before the rename that it was
// staged for: the staged file of the volume path `from` to the device path `to`.
// 0 when all of it is there: the local file is gone and the record staged no
// more. Otherwise what went wrong; the local file, the only copy, stays, and the
// rename must not take place, or it would put an unfinished file over a good one.
struct _KTL_OBJECT;
int UploadStaged(const _CONTEXT *context, _KTL_OBJECT *object, const char *from,
                 const char *to, libiusb_afc *afc);

// The same for every staged file at or below a path, the first failure ends it.
int UploadAllStaged(const _CONTEXT *context, _KTL_OBJECT *object,
                    const char *from, const char *to, libiusb_afc *afc);

// As uploadfile at the end of the device file, through the main connection; the
// local file stays.
int uploadfileappend(const _CONTEXT *context, const char *from, const char *to);

// Makes the private folder's counterpart of a volume path: a folder or an empty
// file, as the file-type bits of `mode` say; 0 for any other mode. 0 or -1.
int MakeTmpPath(const _CONTEXT *context, const char *path, unsigned mode);
