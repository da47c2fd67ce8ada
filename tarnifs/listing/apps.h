// The apps area: one folder per app that shares its documents, and in it the
// app's "/Documents".
#pragma once

#include "tarnifs/mount/context.h"
#include "tarnifs/mount/host.h"

// Lists one folder of "/Apps" into the catalogue and, when there is a filler,
// to the host. 0 or the device's code; a folder whose sandbox can't be read is
// empty, with 0. The caller holds tarni_mutex.
int enumApps(_CONTEXT *context, const char *path, void *buffer,
             tarni_filler filler);
