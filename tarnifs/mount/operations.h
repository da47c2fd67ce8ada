// The operation table: every request the host may send, by name. The host
// bindings adapt it to the FUSE library at hand.
#pragma once

#include <sys/statvfs.h>

#include "tarnifs/mount/host.h"

struct tarni_operations {
    void *(*init)(struct fuse_conn_info *conn);
    void (*destroy)(void *private_data);
    int (*statfs)(const char *path, struct statvfs *st);
    int (*access)(const char *path, int mask);
    int (*getattr)(const char *path, struct stat *st);
    int (*fgetattr)(const char *path, struct stat *st, tarni_file_info *fi);
    int (*setattr_x)(const char *path, const tarni_setattr *attr);
    int (*fsetattr_x)(const char *path, const tarni_setattr *attr,
                      tarni_file_info *fi);
    int (*getxattr)(const char *path, const char *name, char *value,
                    size_t size, uint32_t position);
    int (*setxattr)(const char *path, const char *name, const char *value,
                    size_t size, int flags, uint32_t position);
    int (*removexattr)(const char *path, const char *name);
    int (*readdir)(const char *path, void *buffer, tarni_filler filler,
                   off_t offset, tarni_file_info *fi);
    int (*open)(const char *path, tarni_file_info *fi);
    int (*read)(const char *path, char *buf, size_t size, off_t offset,
                tarni_file_info *fi);
    int (*write)(const char *path, const char *buf, size_t size, off_t offset,
                 tarni_file_info *fi);
    int (*release)(const char *path, tarni_file_info *fi);
    int (*create)(const char *path, mode_t mode, tarni_file_info *fi);
    int (*mkdir)(const char *path, mode_t mode);
    int (*rmdir)(const char *path);
    int (*unlink)(const char *path);
    int (*rename)(const char *from, const char *to);
};

// Complete before main runs; never changes. No member is null.
extern const tarni_operations tarni_opers;
