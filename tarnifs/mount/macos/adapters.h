// The binding's entries of the FUSE library's operation table, by the file they
// are in. Each brings its path into the catalogue's spelling, calls the handler
// of the same name and makes the result fit for the kernel.
#pragma once

#include "tarnifs/mount/common/statfs.h"
#include "tarnifs/mount/macos/fuse_api.h"

// table.cpp: the table that holds them all.
const fuse_operations &HostTable();

// attributes.cpp
int GetattrAdapter(const char *path, struct stat *st);
int FgetattrAdapter(const char *path, struct stat *st, fuse_file_info *fi);
int SetattrAdapter(const char *path, struct setattr_x *attr);
int FsetattrAdapter(const char *path, struct setattr_x *attr,
                    fuse_file_info *fi);
int GetxattrAdapter(const char *path, const char *name, char *value,
                    size_t size, uint32_t position);
int SetxattrAdapter(const char *path, const char *name, const char *value,
                    size_t size, int flags, uint32_t position);
int RemovexattrAdapter(const char *path, const char *name);

// files.cpp
int OpenAdapter(const char *path, fuse_file_info *fi);
int CreateAdapter(const char *path, mode_t mode, fuse_file_info *fi);
int ReadAdapter(const char *path, char *buf, size_t size, off_t offset,
                fuse_file_info *fi);
int WriteAdapter(const char *path, const char *buf, size_t size, off_t offset,
                 fuse_file_info *fi);
int ReleaseAdapter(const char *path, fuse_file_info *fi);

// names.cpp
int AccessAdapter(const char *path, int mask);
int ReaddirAdapter(const char *path, void *buffer, fuse_fill_dir_t filler,
                   off_t offset, fuse_file_info *fi);
int MkdirAdapter(const char *path, mode_t mode);
int RmdirAdapter(const char *path);
int UnlinkAdapter(const char *path);
int RenameAdapter(const char *from, const char *to);
