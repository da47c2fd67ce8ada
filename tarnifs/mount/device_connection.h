// Finding and opening the one device of the mount.
#pragma once

#include "tarnifs/mount/context.h"

// Opens the device at `locationId` with its file service and its installation
// proxy and stores handles and device information in the context. 0, or the
// device layer's code after logging, with nothing left open:
// LIBIUSB_ERROR_NO_DEVICE when it is not in the list.
int device_init(_CONTEXT *context, libiusb_context *libctx,
                unsigned int locationId);
