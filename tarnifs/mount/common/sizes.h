// Changing a file's size. The attribute handler changes what the volume shows
// and leaves the device alone; here the device's file comes first.
#pragma once

#include <cstdint>
#include <string>

// Brings an open file, on the device and in the catalogue, to `size` bytes. What
// is cut goes back to the free capacity, what is added is taken from it. 0, or
// -ECANCELED after a dialog (the device failed), -EIO, -ENOENT. The gate is held.
int SetSizeOfOpen(const std::string &path, uint64_t size);

// As SetSizeOfOpen, of a file that nobody need have open: it is opened for the
// change, with all that the open handler does for its area.
int SetSizeOfClosed(const std::string &path, uint64_t size);
