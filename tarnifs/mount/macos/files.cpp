// Opening, making, reading, writing and closing files.
#include <fcntl.h>

#include <cerrno>
#include <string>

#include "tarnifs/mount/common/gate.h"
#include "tarnifs/mount/common/places.h"
#include "tarnifs/mount/common/results.h"
#include "tarnifs/mount/macos/adapters.h"
#include "tarnifs/mount/macos/spelling.h"
#include "tarnifs/mount/operations.h"

namespace
{

tarni_file_info InfoOf(const fuse_file_info *fi)
{
    tarni_file_info info;
    info.flags = fi->flags;
    info.keep_cache = fi->keep_cache != 0;
    info.fh = fi->fh;
    return info;
}

bool ChangesFile(int flags)
{
    return (flags & O_ACCMODE) != O_RDONLY || (flags & O_TRUNC) != 0;
}

} // namespace

int OpenAdapter(const char *path, fuse_file_info *fi)
{
    const Gate gate;
    const std::string spelled = Spelled(path);
    if (ChangesFile(fi->flags) && !IsWritablePlace(spelled)) {
        return -EROFS;
    }
    tarni_file_info info = InfoOf(fi);
    const int ret = HostResult(tarni_opers.open(spelled.c_str(), &info));
    fi->fh = info.fh;
    return WithoutEnosys(ret);
}

int CreateAdapter(const char *path, mode_t mode, fuse_file_info *fi)
{
    const Gate gate;
    tarni_file_info info = InfoOf(fi);
    const int ret =
        HostResult(tarni_opers.create(Spelled(path).c_str(), mode, &info));
    fi->fh = info.fh;
    return WithoutEnosys(ret);
}

int ReadAdapter(const char *path, char *buf, size_t size, off_t offset,
                fuse_file_info *fi)
{
    const Gate gate;
    tarni_file_info info = InfoOf(fi);
    return HostResult(
        tarni_opers.read(Spelled(path).c_str(), buf, size, offset, &info));
}

int WriteAdapter(const char *path, const char *buf, size_t size, off_t offset,
                 fuse_file_info *fi)
{
    const Gate gate;
    tarni_file_info info = InfoOf(fi);
    const int ret = HostResult(
        tarni_opers.write(Spelled(path).c_str(), buf, size, offset, &info));
    // Programs try again after a write of nothing, for ever.
    return ret == 0 && size > 0 ? -EIO : ret;
}

int ReleaseAdapter(const char *path, fuse_file_info *fi)
{
    const Gate gate;
    tarni_file_info info = InfoOf(fi);
    return HostResult(tarni_opers.release(Spelled(path).c_str(), &info));
}
