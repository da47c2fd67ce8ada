// The device's own databases, of which the media views are made.
#pragma once

#include "tarnifs/mount/context.h"

// Fetches and opens the databases into the context. 0, or the result of the last
// one's opening; one that could not be opened stays unset. The caller holds
// tarni_mutex. At present none is fetched.
int DownloadDBandOpen(_CONTEXT *context);

// Closes those that are open.
void CloseDatabases(_CONTEXT *context);
