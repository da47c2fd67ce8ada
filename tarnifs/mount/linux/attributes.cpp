#include "tarnifs/mount/linux/attributes.h"

#include <unistd.h>

#include <cerrno>
#include <string>

#include "tarnifs/mount/common/gate.h"
#include "tarnifs/mount/common/results.h"
#include "tarnifs/mount/linux/adapters.h"
#include "tarnifs/mount/linux/hidden.h"
#include "tarnifs/mount/linux/lookup.h"
#include "tarnifs/mount/linux/open_files.h"
#include "tarnifs/mount/operations.h"

namespace
{

constexpr blkcnt_t BLOCK = 512; // the unit of st_blocks

// Programs copy in pieces of this size.
constexpr blksize_t PREFERRED_PIECE = 1048576;

// Hands a change to the handler that fits: by open file or by path.
int ChangeAttributes(const char *path, const tarni_setattr &attr,
                     const fuse_file_info *fi)
{
    const Gate gate;
    OpenFile *file = OpenFileOf(fi);
    if (file != nullptr) {
        return WithoutEnosys(HostResult(
            tarni_opers.fsetattr_x(file->path.c_str(), &attr, &file->info)));
    }
    // The handler makes a record for a path that it does not know.
    std::string spelled;
    const int ret = ResolvePath(path, &spelled);
    if (ret != 0) {
        return WithoutEnosys(ret);
    }
    return WithoutEnosys(
        HostResult(tarni_opers.setattr_x(spelled.c_str(), &attr)));
}

} // namespace

void CompleteStat(struct stat *st)
{
    st->st_nlink = 1; // also of a folder: programs then count on nothing
    st->st_uid = getuid();
    st->st_gid = getgid();
    st->st_blocks = (st->st_size + BLOCK - 1) / BLOCK;
    st->st_blksize = PREFERRED_PIECE;
    st->st_ctim = st->st_mtim;
}

int GetattrAdapter(const char *path, struct stat *st, fuse_file_info *fi)
{
    const Gate gate;
    int ret = 0;
    OpenFile *file = OpenFileOf(fi);
    if (file != nullptr) {
        ret = tarni_opers.fgetattr(file->path.c_str(), st, &file->info);
    } else {
        NoteLookup(path);
        std::string spelled;
        ret = ResolvePath(path, &spelled);
        if (ret != 0) {
            return ret;
        }
        ret = tarni_opers.getattr(spelled.c_str(), st);
    }
    if (ret == 0) {
        CompleteStat(st);
    }
    return HostResult(ret);
}

int ChmodAdapter(const char *path, mode_t /*mode*/, fuse_file_info *fi)
{
    return ChangeAttributes(path, {.valid = TARNI_SETATTR_MODE}, fi);
}

int ChownAdapter(const char *path, uid_t uid, gid_t gid, fuse_file_info *fi)
{
    uint32_t valid = 0;
    if (uid != static_cast<uid_t>(-1)) {
        valid |= TARNI_SETATTR_UID;
    }
    if (gid != static_cast<gid_t>(-1)) {
        valid |= TARNI_SETATTR_GID;
    }
    return ChangeAttributes(path, {.valid = valid}, fi);
}

int UtimensAdapter(const char *path, const timespec times[2],
                   fuse_file_info *fi)
{
    uint32_t valid = 0;
    if (times[0].tv_nsec != UTIME_OMIT) {
        valid |= TARNI_SETATTR_ACCTIME;
    }
    if (times[1].tv_nsec != UTIME_OMIT) {
        valid |= TARNI_SETATTR_MODTIME;
    }
    return ChangeAttributes(path, {.valid = valid}, fi);
}
