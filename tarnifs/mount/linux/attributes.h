// What the handlers leave at 0 in a stat record.
#pragma once

#include <sys/stat.h>

// Fills link count, owner, group, blocks, change time and block size.
void CompleteStat(struct stat *st);
