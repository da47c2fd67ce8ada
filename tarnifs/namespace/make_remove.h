// Making folders, removing folders and files. Two places can be changed: the
// storage area and the inside of an app's folder. Everywhere else the user is
// told that it can't be done. The catalogue follows only after the device did.
#pragma once

#include <sys/types.h>

#include "tarnifs/catalogue/object.h"
#include "tarnifs/mount/context.h"

// The three operations hold tarni_mutex for their whole run. 0; -ECANCELED
// after a dialog; -ENOENT for the Finder's housekeeping folders; -ENOTEMPTY for
// a folder whose children the catalogue knows. Removing what the catalogue does
// not know is a success.
int tarnifs_mkdir(const char *path, mode_t mode);
int tarnifs_rmdir(const char *path);
int tarnifs_unlink(const char *path);

// Removing a file, by area; the caller holds the lock. 0 or the device's code;
// 1 for a path that is not inside an app. A file that the device no longer has
// counts as removed.
int UnlinkStorageContents(_CONTEXT *context, const char *path);
int UnlinkAppsContents(_CONTEXT *context, const char *path);

// Removes on the device, depth first, everything below a catalogued folder, and
// the records of what was removed; stops at the first failure. 0 or the
// device's code. The caller holds the lock.
int CleanupSubFiles(_CONTEXT *context, const char *path, _KTL_OBJECT *folder);

// Whether a path lies inside an app's folder, where things can be changed.
bool IsInsideApp(const char *path);
