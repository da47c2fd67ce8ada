// The volume's figures, the same for both FUSE libraries.
#pragma once

#include <sys/statvfs.h>

// The table's entry. The handler has figures for the root alone; they are the
// volume's, and programs ask at the folder they copy into.
int StatfsAdapter(const char *path, struct statvfs *st);
