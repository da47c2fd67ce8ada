// The storage area: one folder of the device's media file system.
#pragma once

#include <sys/types.h>

#include "tarnifs/mount/context.h"
#include "tarnifs/mount/host.h"

// Lists one folder of "/Storage" from the device into the catalogue and, when
// there is a filler, to the host. A missing storage folder is made. 0 or the
// device's code; what was made before a failure stays in the catalogue.
// `offset` is ignored. The caller holds tarni_mutex.
int enumStorage(_CONTEXT *context, const char *path, void *buffer,
                tarni_filler filler, off_t offset);
