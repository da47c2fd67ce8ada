// Extended attributes. They live on the catalogue record only and vanish with
// it: they are there so that file managers can keep their metadata without
// errors. A value's size is its length up to its first NUL; flags and positions
// are ignored.
#pragma once

#include <cstddef>
#include <cstdint>

struct _KTL_XATTR;

// The length of the value when `value` is null; else copies as many bytes as
// asked for (zeros beyond the value) and returns that number. 0 for "/".
// -ENOATTR for an unknown path or name.
int tarnifs_getxattr(const char *path, const char *name, char *value,
                     size_t size, uint32_t position);

// Adds or replaces. -ENOATTR for an unknown path or a null argument, -ENOMEM.
int tarnifs_setxattr(const char *path, const char *name, const char *value,
                     size_t size, int flags, uint32_t position);

// -ENOATTR for an unknown path or name.
int tarnifs_removexattr(const char *path, const char *name);

// The first node of that name, or null.
_KTL_XATTR *FindXattr(_KTL_XATTR *list_head, const char *name);
