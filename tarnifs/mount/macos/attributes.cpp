// Attributes and extended attributes. Changes of mode, owner, size and times all
// arrive as setattr_x.
#include <cerrno>
#include <string>

#include "tarnifs/mount/common/gate.h"
#include "tarnifs/mount/common/places.h"
#include "tarnifs/mount/common/results.h"
#include "tarnifs/mount/common/sizes.h"
#include "tarnifs/mount/common/xattr_value.h"
#include "tarnifs/mount/macos/adapters.h"
#include "tarnifs/mount/macos/spelling.h"
#include "tarnifs/mount/operations.h"

namespace
{

// The handler changes what the volume shows; the device's file comes first, or
// it would keep the end of what a shorter text replaced.
int ChangeSize(const std::string &path, off_t size, bool open)
{
    if (size < 0) {
        return -EINVAL;
    }
    if (IsFolder(path)) {
        return -EISDIR;
    }
    if (!IsWritablePlace(path)) {
        return -EROFS;
    }
    const auto bytes = static_cast<uint64_t>(size);
    return open ? SetSizeOfOpen(path, bytes) : SetSizeOfClosed(path, bytes);
}

// `fi` may be null.
int Change(const char *asked, const struct setattr_x *attr, fuse_file_info *fi)
{
    const Gate gate;
    const std::string path = Spelled(asked);
    // tarni_setattr_bits are numbered as these.
    tarni_setattr change{.valid = static_cast<uint32_t>(attr->valid)};
    if ((change.valid & TARNI_SETATTR_SIZE) != 0) {
        const int ret =
            ChangeSize(path, attr->size, fi != nullptr && fi->fh != 0);
        change.valid &= ~static_cast<uint32_t>(TARNI_SETATTR_SIZE);
        if (ret != 0 || change.valid == 0) {
            return WithoutEnosys(ret);
        }
    }
    return WithoutEnosys(
        HostResult(tarni_opers.setattr_x(path.c_str(), &change)));
}

} // namespace

int GetattrAdapter(const char *path, struct stat *st)
{
    const Gate gate;
    const std::string spelled = Spelled(path);
    return MayBeShown(spelled)
               ? HostResult(tarni_opers.getattr(spelled.c_str(), st))
               : -ENOENT;
}

int FgetattrAdapter(const char *path, struct stat *st, fuse_file_info * /*fi*/)
{
    const Gate gate;
    tarni_file_info info;
    return HostResult(tarni_opers.fgetattr(Spelled(path).c_str(), st, &info));
}

int SetattrAdapter(const char *path, struct setattr_x *attr)
{
    return Change(path, attr, nullptr);
}

int FsetattrAdapter(const char *path, struct setattr_x *attr,
                    fuse_file_info *fi)
{
    return Change(path, attr, fi);
}

int GetxattrAdapter(const char *path, const char *name, char *value,
                    size_t size, uint32_t position)
{
    const Gate gate;
    return WithoutEnosys(
        XattrValue(Spelled(path), name, value, size, position));
}

int SetxattrAdapter(const char *path, const char *name, const char *value,
                    size_t size, int flags, uint32_t position)
{
    const Gate gate;
    return WithoutEnosys(HostResult(tarni_opers.setxattr(
        Spelled(path).c_str(), name, value, size, flags, position)));
}

int RemovexattrAdapter(const char *path, const char *name)
{
    const Gate gate;
    return WithoutEnosys(
        HostResult(tarni_opers.removexattr(Spelled(path).c_str(), name)));
}
