// A folder inside an app's documents.
#pragma once

#include "tarnifs/catalogue/object.h"
#include "tarnifs/mount/context.h"
#include "tarnifs/mount/host.h"

// Lists it through a house-arrest connection of its own, which ends with the
// listing. A sandbox that can't be read makes an empty folder, with 0, that is
// asked again at its next listing; an entry whose information can't be had is
// left out, and one lost with the connection is asked for again too. 0 or the device's code. The caller holds tarni_mutex.
int ListAppFolder(_CONTEXT *context, _KTL_OBJECT *folder, const char *path,
                  void *buffer, tarni_filler filler);
