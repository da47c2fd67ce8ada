// The apps area: one folder per app that shares its documents.
#pragma once

#include "tarnifs/mount/context.h"
#include "tarnifs/mount/host.h"

// Lists one folder of "/Apps" into the catalogue and, when there is a filler,
// to the host. 0 or the device's code. The caller holds tarni_mutex.
// At present nothing is listed and the device is not asked.
int enumApps(_CONTEXT *context, const char *path, void *buffer,
             tarni_filler filler);
