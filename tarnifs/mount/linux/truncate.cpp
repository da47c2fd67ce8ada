#include <cerrno>
#include <string>

#include "tarnifs/mount/common/gate.h"
#include "tarnifs/mount/common/places.h"
#include "tarnifs/mount/common/results.h"
#include "tarnifs/mount/common/sizes.h"
#include "tarnifs/mount/linux/adapters.h"
#include "tarnifs/mount/linux/lookup.h"
#include "tarnifs/mount/linux/open_files.h"

int TruncateAdapter(const char *path, off_t size, fuse_file_info *fi)
{
    const Gate gate;
    if (size < 0) {
        return -EINVAL;
    }
    const auto bytes = static_cast<uint64_t>(size);
    const OpenFile *file = OpenFileOf(fi);
    if (file != nullptr) {
        return WithoutEnosys(SetSizeOfOpen(file->path, bytes));
    }
    std::string spelled;
    const int ret = ResolvePath(path, &spelled);
    if (ret != 0) {
        return WithoutEnosys(ret);
    }
    if (PathIsFolder(spelled)) {
        return -EISDIR;
    }
    if (!IsWritablePlace(spelled)) {
        return -EROFS;
    }
    return WithoutEnosys(SetSizeOfClosed(spelled, bytes));
}
