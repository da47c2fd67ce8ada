// The volume's figures, and whether a path exists.
#pragma once

#include <sys/statvfs.h>

#include <cstdint>

// Fills block size and block counts for "/", from the device information of
// start-up and what was written since; for any other path nothing. 0, -ENOSYS
// without a mount context.
int tarnifs_statfs(const char *path, struct statvfs *st);

// 0 for "/" and for every path in the catalogue, in every mode; else -1.
int tarnifs_access(const char *path, int mask);

// Bytes re-expressed so that decimal units show the figure that binary units
// have: 64 GiB become 64,000,000,000. Two decimal digits are kept.
uint64_t CalibrateVolumeSize(unsigned long long bytes);
