// Start-up and shut-down of a mount.
#pragma once

#include "tarnifs/mount/context.h"

struct fuse_conn_info;

// Connects to the device whose location id FUSE's private data points at and
// returns the mount context, or null after logging why. A device that is not
// there yet is looked for eleven times with a tenth of a second in between; one
// that shows its trust prompt is waited for, half a minute at most for each
// prompt.
void *tarnifs_init(struct fuse_conn_info *conn);

// Takes down everything that tarnifs_init and the operations made; null:
// nothing. A context whose connection is incomplete stops the process.
void tarnifs_destroy(void *private_data);

// Lets time pass; a variable so that tests need not wait.
extern void (*tarniPause)(unsigned microseconds);

// Whether start-up is to end as soon as it can: nobody waits for the volume any
// more. Asked while it waits for a device or its user; the host binding sets it.
extern bool (*tarniGivenUp)();

// Frees the context with everything that is still in it, whatever that is; for
// a start-up that failed.
void AbandonContext(_CONTEXT *context);
