// Opening, reading, writing and closing files. Data moves between the host and
// the device without a cache here; one device handle serves all opens of a path.
// The exception is a safe-save temporary of a file that exists: its data is
// staged in the private folder until the program renames it over the file.
//
// All four hold tarni_mutex for their whole run. `fi->fh` is the address of the
// path's catalogue record, 0 when this file system did not open it.
#pragma once

#include <sys/types.h>

#include "tarnifs/mount/host.h"

// 0, -ENOENT for an unknown path, -ECANCELED after a dialog.
int tarnifs_open(const char *path, tarni_file_info *fi);

// Bytes read, -ECANCELED (after a dialog when the device failed), -ENOENT for a
// staged file whose local copy is not there.
int tarnifs_read(const char *path, char *buf, size_t size, off_t offset,
                 tarni_file_info *fi);

// Bytes written; 0 for a file that was not opened here and for staging that
// could not be opened; -ECANCELED (after a dialog when the device failed).
int tarnifs_write(const char *path, const char *buf, size_t size, off_t offset,
                  tarni_file_info *fi);

// 0 or the code of the device's last call.
int tarnifs_release(const char *path, tarni_file_info *fi);
