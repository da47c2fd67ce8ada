// Does the same random things to a folder of the volume and to a plain folder
// of this machine, and compares every result: what a program sees on the volume
// must be what it sees on any disk.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

// `steps` random steps in two folders, from a seed: in those folders below each
// that `areas` names ("/a"; "" for the folder itself), which are there and empty,
// and from one of them to another. Empty, or what differed first. Runs in the
// calling process.
std::string Exercise(const std::string &volume, const std::string &plain,
                     const std::vector<std::string> &areas, uint32_t seed,
                     unsigned steps);
