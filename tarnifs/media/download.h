// Copying one file of the device into the private folder.
#pragma once

#include "tarnifs/mount/context.h"

// Copies the device's file to the private folder under `localName` (which begins
// with "/"), replacing what is there. 0 or a device code; a copy that could not
// be read or written in full is removed and logged, and the result is then that
// of closing the device's file. The caller holds tarni_mutex.
int downloadfile(_CONTEXT *context, const char *devicePath,
                 const char *localName);
