// Attributes. All answers come from the catalogue; the device is never asked.
#pragma once

#include "tarnifs/mount/host.h"

// Fills *st: type and permissions 0777, size and times; the rest is 0. -ENOENT
// for an unknown path and for every top-level name that begins with ".".
int tarnifs_getattr(const char *path, struct stat *st);
int tarnifs_fgetattr(const char *path, struct stat *st, tarni_file_info *fi);

// Changes size and times as attr->valid asks; a time becomes the present time
// whatever was asked for, and everything else is accepted and ignored. Nothing
// on the device is changed. A path that is unknown gets a record.
int tarnifs_setattr_x(const char *path, const tarni_setattr *attr);
int tarnifs_fsetattr_x(const char *path, const tarni_setattr *attr,
                       tarni_file_info *fi);
