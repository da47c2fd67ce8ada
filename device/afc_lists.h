// What AFC replies carry: lists of NUL-terminated strings. Pure functions over
// bytes from outside.
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>
#include <vector>

#include "device/libiusb.h"

namespace iusb
{

// The names of a ReadDir reply that can be entries: not "." or "..", not empty,
// without "/". They point into `bytes`.
std::vector<std::string_view> afcNames(std::string_view bytes);

// The key and value pairs of a GetFileInfo reply. Nothing when the kind is
// missing, a regular file has no size, or a number is none.
std::optional<libiusb_afc_file_info> afcFileInfo(std::string_view bytes);

// Capacities in bytes. Nothing when one is missing or no number.
struct AfcDeviceInfo {
    uint64_t block_size = 0;
    uint64_t total = 0;
    uint64_t free = 0;
};
std::optional<AfcDeviceInfo> afcDeviceInfo(std::string_view bytes);

} // namespace iusb
