// The binding's entries of libfuse's operation table, by the file they are in.
// Each resolves its path, calls the handler of the same name and makes the
// result fit for the kernel.
#pragma once

#include "tarnifs/mount/common/statfs.h"
#include "tarnifs/mount/linux/fuse_api.h"

// table.cpp: the table that holds them all.
const fuse_operations &HostTable();

// attributes.cpp
int GetattrAdapter(const char *path, struct stat *st, fuse_file_info *fi);
int ChmodAdapter(const char *path, mode_t mode, fuse_file_info *fi);
int ChownAdapter(const char *path, uid_t uid, gid_t gid, fuse_file_info *fi);
int UtimensAdapter(const char *path, const timespec times[2],
                   fuse_file_info *fi);

// truncate.cpp
int TruncateAdapter(const char *path, off_t size, fuse_file_info *fi);

// xattrs.cpp
int GetxattrAdapter(const char *path, const char *name, char *value,
                    size_t size);
int SetxattrAdapter(const char *path, const char *name, const char *value,
                    size_t size, int flags);
int RemovexattrAdapter(const char *path, const char *name);

// directories.cpp
int OpendirAdapter(const char *path, fuse_file_info *fi);
int ReaddirAdapter(const char *path, void *buffer, fuse_fill_dir_t filler,
                   off_t offset, fuse_file_info *fi, fuse_readdir_flags flags);
int ReleasedirAdapter(const char *path, fuse_file_info *fi);

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
int MkdirAdapter(const char *path, mode_t mode);
int RmdirAdapter(const char *path);
int UnlinkAdapter(const char *path);

// rename.cpp
int RenameAdapter(const char *from, const char *to, unsigned flags);
