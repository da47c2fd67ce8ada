// The folder that belongs to one mount: copies of the device's databases and
// staged files. Made at start-up, removed at unmount.
#pragma once

#include <string>

#include "tarnifs/mount/context.h"

// Its path, without a trailing "/".
inline std::string PrivateFolder(const _CONTEXT *context)
{
    return std::string("/tmp/") + context->pLocationId;
}
