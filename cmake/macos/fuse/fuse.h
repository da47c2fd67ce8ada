// What the binding uses of the FUSE 2 interface on macOS, for compiling where no
// such library is installed (scripts/test macos). On a Mac the library's own
// header takes its place. Members that are not used have no names here.
#pragma once

#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/types.h>

#include <cstddef>
#include <cstdint>

extern "C" {

struct fuse_file_info {
    int flags;
    unsigned int keep_cache : 1;
    uint64_t fh;
};

struct fuse_conn_info {
    struct {
        unsigned int case_insensitive : 1;
        unsigned int setvolname : 1;
        unsigned int xtimes : 1;
    } enable;
};

struct fuse_context {
    void *private_data;
};

// A change of attributes; `valid` has a bit for each member that asks for one, in
// their order, but the creation time is bit 28.
struct setattr_x {
    int32_t valid;
    mode_t mode;
    uid_t uid;
    gid_t gid;
    off_t size;
    struct timespec acctime;
    struct timespec modtime;
    struct timespec crtime;
    struct timespec chgtime;
    struct timespec bkuptime;
    uint32_t flags;
};
typedef int (*fuse_fill_dir_t)(void *buffer, const char *name,
                               const struct stat *st, off_t offset);

struct fuse_operations {
    int (*getattr)(const char *, struct stat *);
    void *unused_readlink_getdir_mknod[3];
    int (*mkdir)(const char *, mode_t);
    int (*unlink)(const char *);
    int (*rmdir)(const char *);
    void *unused_symlink;
    int (*rename)(const char *, const char *);
    void *unused_link_to_utime[5];
    int (*open)(const char *, struct fuse_file_info *);
    int (*read)(const char *, char *, size_t, off_t, struct fuse_file_info *);
    int (*write)(const char *, const char *, size_t, off_t,
                 struct fuse_file_info *);
    int (*statfs)(const char *, struct statvfs *);
    void *unused_flush;
    int (*release)(const char *, struct fuse_file_info *);
    void *unused_fsync;
    int (*setxattr)(const char *, const char *, const char *, size_t, int,
                    uint32_t);
    int (*getxattr)(const char *, const char *, char *, size_t, uint32_t);
    void *unused_listxattr;
    int (*removexattr)(const char *, const char *);
    void *unused_opendir;
    int (*readdir)(const char *, void *, fuse_fill_dir_t, off_t,
                   struct fuse_file_info *);
    void *unused_releasedir_fsyncdir[2];
    void *(*init)(struct fuse_conn_info *);
    void (*destroy)(void *);
    int (*access)(const char *, int);
    int (*create)(const char *, mode_t, struct fuse_file_info *);
    void *unused_ftruncate;
    int (*fgetattr)(const char *, struct stat *, struct fuse_file_info *);
    void *unused_lock_utimens_bmap[3];
    void *unused_later[18];
    int (*setattr_x)(const char *, struct setattr_x *);
    int (*fsetattr_x)(const char *, struct setattr_x *,
                      struct fuse_file_info *);
};
static_assert(sizeof(fuse_operations) == 464,
              "as large as the library's on a 64-bit Mac");

int fuse_main_real(int argc, char *argv[], const struct fuse_operations *table,
                   size_t table_size, void *user_data);

struct fuse_context *fuse_get_context(void);
}
