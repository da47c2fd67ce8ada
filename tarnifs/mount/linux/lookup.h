// From the path that the kernel asks with to the path that the handlers know:
// folders that were never listed are listed on the way, and every component gets
// the spelling of its record. All functions are called with the gate held.
#pragma once

#include <string>

#include "tarnifs/mount/common/mount_context.h"
#include "tarnifs/mount/host.h"

// Finds `path`. 0 and the path in the catalogue's spelling in *spelled, or
//  -ENOENT     no such name,
//  -ENOTDIR    a component on the way is a file,
//  -ENOSYS     no mount context,
//  -EIO, -ECANCELED  a folder on the way could not be listed (the listing told
//              the user, if anybody); asking for a name in the same folder again
//              within the next second gets the same answer without a new try.
int ResolvePath(const char *path, std::string *spelled);

// As ResolvePath for a name that is to be made: 0 also when only the last
// component does not exist, which then stays as it was given; its folder is
// listed afterwards.
int ResolveTarget(const char *path, std::string *spelled);

// Runs the listing handler on a folder, after what an earlier try that failed
// had made is dropped. The handler's result as the kernel may see it.
int RunListing(const std::string &folder, void *buffer, tarni_filler filler);

// Lists a folder unless it was listed before.
int EnsureListed(const std::string &folder);

// 0 when a folder is empty, -ENOTEMPTY when it is not, by what the device has: it
// is listed first, and what listings leave out shows from then on.
int CheckEmpty(const std::string &folder);

// Whether a path, in the catalogue's spelling, has a record that is a folder.
bool PathIsFolder(const std::string &path);
