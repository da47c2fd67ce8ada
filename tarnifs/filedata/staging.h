// Files in the private folder that hold what is not yet on the device.
#pragma once

#include <sys/types.h>

#include "tarnifs/mount/context.h"

// Reads from the staged copy of a volume path (private folder + whole path),
// opened as the program opened the file. Bytes read; -ENOENT when it is not
// there, 0 when it can't be opened, -1 when it can't be read.
int ReadStaged(const _CONTEXT *context, const char *path, int flags, char *buf,
               size_t size, off_t offset);

// Writes to the staged file of a volume path (private folder + last component),
// made when it is missing. Bytes written, 0 when it can't be opened, or a
// negated errno after logging.
int WriteStaged(const _CONTEXT *context, const char *path, const char *buf,
                size_t size, off_t offset);

// Makes the staged file of a volume path `size` bytes long. 0 or a negated
// errno.
int TruncateStaged(const _CONTEXT *context, const char *path, off_t size);

// Removes the staged file of a volume path whose record goes, so that a later
// temporary of the same name does not begin with its bytes.
void DropStaged(const _CONTEXT *context, const char *path);

// Whether a file's writes are staged: it is staged already, or it is an empty
// one named like a program's temporary (".sb-" in its own name, not in a
// folder's) of a file that the catalogue knows. What is on the device already is
// written there: a staged file holds the whole of its contents, or the upload
// would lose the rest.
struct _KTL_OBJECT;
bool IsSafeSave(const _KTL_OBJECT *object, const char *path);
