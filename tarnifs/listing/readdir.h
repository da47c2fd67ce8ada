// The listing operation: the volume's layout, and which area lists what.
#pragma once

#include <sys/types.h>

#include "tarnifs/mount/host.h"

// Lists a folder: from the catalogue when it was listed before, else from its
// area. The filler gets every name with a null stat and offset 0, in one call;
// with a null filler only the catalogue is filled. 0, -ENOSYS without a mount
// context, -ECANCELED after a dialog told the user why.
int tarnifs_readdir(const char *path, void *buffer, tarni_filler filler,
                    off_t offset, tarni_file_info *fi);
