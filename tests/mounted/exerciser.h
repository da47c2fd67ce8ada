// Does the same random things to a folder of the volume and to a plain folder
// of this machine, and compares every result: what a program sees on the volume
// must be what it sees on any disk.
#pragma once

#include <cstdint>
#include <string>

// `steps` random steps in two empty folders, from a seed. Empty, or what
// differed first. Runs in the calling process.
std::string Exercise(const std::string &volume, const std::string &plain,
                     uint32_t seed, unsigned steps);
