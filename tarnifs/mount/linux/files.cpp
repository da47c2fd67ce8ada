// Opening, making, reading, writing and closing files.
#include <fcntl.h>

#include <cerrno>
#include <memory>
#include <string>

#include "tarnifs/mount/common/gate.h"
#include "tarnifs/mount/common/places.h"
#include "tarnifs/mount/common/results.h"
#include "tarnifs/mount/common/sizes.h"
#include "tarnifs/mount/linux/adapters.h"
#include "tarnifs/mount/linux/lookup.h"
#include "tarnifs/mount/linux/open_files.h"
#include "tarnifs/mount/linux/unlisted.h"
#include "tarnifs/mount/operations.h"

namespace
{

bool ChangesFile(int flags)
{
    return (flags & O_ACCMODE) != O_RDONLY || (flags & O_TRUNC) != 0;
}

std::unique_ptr<OpenFile> NewOpenFile(const std::string &path, int flags)
{
    auto file = std::make_unique<OpenFile>();
    file->path = path;
    file->info.flags = flags;
    return file;
}

// What open(2) does with a path that is there.
int OpenExisting(const std::string &path, fuse_file_info *fi)
{
    if (ChangesFile(fi->flags) && !IsWritablePlace(path)) {
        return -EROFS;
    }
    auto file = NewOpenFile(path, fi->flags);
    int ret = HostResult(tarni_opers.open(path.c_str(), &file->info));
    if (ret == 0 && (fi->flags & O_TRUNC) != 0) {
        ret = SetSizeOfOpen(path, 0);
        if (ret != 0) {
            tarni_opers.release(path.c_str(), &file->info);
        }
    }
    if (ret == 0) {
        fi->fh = AddOpenFile(std::move(file));
    }
    return ret;
}

// What open(2) does with a path that was not there when its folder was listed.
// The handler opens a file that has appeared since without a look at what is in
// it, so the device is asked first; it costs one request per new file.
int CreateNew(const std::string &path, mode_t mode, fuse_file_info *fi)
{
    const int there = IsWritablePlace(path)
                          ? AskAboutAppeared(MountContext(), path)
                          : -ENOENT;
    if (there != 0 && there != -ENOENT) {
        return there;
    }
    if (there == 0) {
        if ((fi->flags & O_EXCL) != 0) {
            return -EEXIST;
        }
        return PathIsFolder(path) ? -EISDIR : OpenExisting(path, fi);
    }
    ForgetUnlisted(path);
    auto file = NewOpenFile(path, fi->flags);
    const int ret =
        HostResult(tarni_opers.create(path.c_str(), mode, &file->info));
    if (ret == 0) {
        fi->fh = AddOpenFile(std::move(file));
    }
    return ret;
}

} // namespace

int OpenAdapter(const char *path, fuse_file_info *fi)
{
    const Gate gate;
    std::string spelled;
    const int ret = ResolvePath(path, &spelled);
    return WithoutEnosys(ret != 0 ? ret : OpenExisting(spelled, fi));
}

int CreateAdapter(const char *path, mode_t mode, fuse_file_info *fi)
{
    const Gate gate;
    // Trash folders and the like: nobody asked for them, nobody is told.
    if (IsRefusedAtTop(path) || tarni_opers.create == nullptr) {
        return -EROFS;
    }
    std::string spelled;
    const int ret = ResolveTarget(path, &spelled);
    return WithoutEnosys(ret != 0 ? ret : CreateNew(spelled, mode, fi));
}

int ReadAdapter(const char * /*path*/, char *buf, size_t size, off_t offset,
                fuse_file_info *fi)
{
    const Gate gate;
    OpenFile *file = OpenFileOf(fi);
    if (file == nullptr) {
        return -EBADF;
    }
    return HostResult(
        tarni_opers.read(file->path.c_str(), buf, size, offset, &file->info));
}

int WriteAdapter(const char * /*path*/, const char *buf, size_t size,
                 off_t offset, fuse_file_info *fi)
{
    const Gate gate;
    OpenFile *file = OpenFileOf(fi);
    if (file == nullptr) {
        return -EBADF;
    }
    const int ret = HostResult(
        tarni_opers.write(file->path.c_str(), buf, size, offset, &file->info));
    // Programs try again after a write of nothing, for ever.
    return ret == 0 && size > 0 ? -EIO : ret;
}

int ReleaseAdapter(const char * /*path*/, fuse_file_info *fi)
{
    const Gate gate;
    const std::unique_ptr<OpenFile> file = TakeOpenFile(fi);
    if (file == nullptr) {
        return 0;
    }
    return HostResult(tarni_opers.release(file->path.c_str(), &file->info));
}
