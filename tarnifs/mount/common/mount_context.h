// The mount context for the bindings, which ask often and say nothing without one.
#pragma once

#include "tarnifs/mount/context.h"
#include "tarnifs/mount/host.h"

// Null when start-up failed; never logs.
inline _CONTEXT *MountContext()
{
    void *data = nullptr;
    return hostFuseContext(&data) ? static_cast<_CONTEXT *>(data) : nullptr;
}
