// The media views: music, movies, podcasts, memos and photos as folders of
// files.
#pragma once

#include "tarnifs/mount/context.h"
#include "tarnifs/mount/host.h"

// Lists one folder below "/Media" into the catalogue and, when there is a
// filler, to the host. 0, or SQLite's code of a query that could not be asked,
// or LIBIUSB_ERROR_LOST_CONNECTION; -1 and -2 as photos.h tells; -2 without
// memory. A path that is no folder of these views has nothing in it. Entries of
// a second listing would get numbers: the caller lists a folder once. The
// caller holds tarni_mutex.
int enumMedia(_CONTEXT *context, const char *path, void *buffer,
              tarni_filler filler);

// 0 when a version text ("9.3.5") is at least major.minor, else -1. The number
// before the first "." counts as major; a text without one has the major 0.
int checkiOSVersion(const char *version, int major, int minor);
