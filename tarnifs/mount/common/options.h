// What of the command line is the bindings' own, before the FUSE library reads
// the rest. Its option parser is the same in all versions.
#pragma once

#include <cstdint>
#include <string>

#include <fuse_opt.h>

struct OwnOptions {
    std::string mount_point; // as it was given; "" without one
    uint32_t location = 0;   // of "location_id="; 0 without one
    std::string problem;     // why an option can't be taken; "" for none
};

// Takes the volume's settings and the location id out of `args`, which the caller
// frees. False when memory runs out or `problem` says why.
bool TakeOwnOptions(fuse_args *args, OwnOptions *own);
