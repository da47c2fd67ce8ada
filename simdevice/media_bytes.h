// Contents of sample files. The same arguments give the same bytes.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace sim
{

// Bytes that depend on nothing but the seed and do not compress.
std::string noise(uint64_t seed, uint64_t size);

// A file of the kind that the extension names (in any case): JPG and PNG are
// small real pictures, which have a size of their own; mp3 is silence that
// plays; every other kind is a box that names its type (HEIC, MOV, MP4, m4a
// ...) and noise, of `size` bytes (64 at least; mp3: 600).
std::string mediaBytes(std::string_view extension, uint32_t seed,
                       uint32_t size);

} // namespace sim
