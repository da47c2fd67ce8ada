// What of the command line is the binding's own, before libfuse reads the rest.
#pragma once

#include <cstdint>
#include <string>

#include "tarnifs/mount/linux/fuse_api.h"

struct OwnOptions {
    std::string mount_point; // as it was given; "" without one
    uint32_t location = 0;   // of "location_id="; 0 without one
    std::string problem;     // why an option can't be taken; "" for none
};

// Takes the volume's settings and the location id out of `args`, and makes
// libfuse call the file system "quorvelfs" whatever the program is called. False
// when memory runs out or `problem` says why.
bool TakeOwnOptions(fuse_args *args, OwnOptions *own);
