// Makes PhotoData/Photos.sqlite and the pictures and films that it tells of.
#pragma once

#include <cstdint>

#include "simdevice/file_maker.h"

namespace sim
{

struct LibraryOptions {
    unsigned version = 0; // of iOS, 1705 for 17.5
    bool cloud = false;
    uint32_t photos = 0; // plain ones, beside the featured
    uint32_t songs = 0;
};

// Failures are told by the maker's problem().
void makePhotoLibrary(FileMaker &maker, const LibraryOptions &options);

} // namespace sim
