// The media views: music, movies, podcasts, memos and photos as folders of
// files.
#pragma once

#include "tarnifs/mount/context.h"
#include "tarnifs/mount/host.h"

// Lists one folder below "/Media" into the catalogue and, when there is a
// filler, to the host. 0 or a device code. The caller holds tarni_mutex.
// At present every folder is empty.
int enumMedia(_CONTEXT *context, const char *path, void *buffer,
              tarni_filler filler);
