#include "tarnifs/mount/statistics.h"

#include <cstring>

#include "tarnifs/catalogue/object.h"
#include "tarnifs/mount/context.h"
#include "util/log.h"

namespace
{

constexpr uint64_t USUAL_BLOCK_SIZE = 4096; // of a device that tells none

void fillFigures(const libiusb_device_info &info, struct statvfs *st)
{
    const uint64_t block =
        info.block_size == 0 ? USUAL_BLOCK_SIZE : info.block_size;
    st->f_bsize = block;
    // Some hosts count blocks in 32 bits; the rest is cut off there.
    st->f_blocks = static_cast<fsblkcnt_t>(
        CalibrateVolumeSize(info.total_capacity) / block);
    st->f_bfree = static_cast<fsblkcnt_t>(
        CalibrateVolumeSize(info.free_capacity) / block);
    st->f_bavail = st->f_bfree;
    st->f_ffree = 0;
}

} // namespace

uint64_t CalibrateVolumeSize(unsigned long long bytes)
{
    uint64_t value = bytes * 100;
    int steps = 0;
    while (value > 102400) {
        ++steps;
        value >>= 10;
    }
    for (; steps > 0; --steps) {
        value *= 1000;
    }
    return value / 100;
}

int tarnifs_statfs(const char *path, struct statvfs *st)
{
    const TarniLock lock;
    _CONTEXT *context = nullptr;
    const int ret = getContext(&context);
    if (ret != 0) {
        QNLog(3, "%s pContext is NULL!", "tarnifs_statfs");
        return ret;
    }
    if (strcmp(path, "/") == 0) {
        fillFigures(context->device_info, st);
    }
    return 0;
}

int tarnifs_access(const char *path, int)
{
    const TarniLock lock;
    if (strcmp(path, "/") == 0 || FindObject(path) != nullptr) {
        return 0;
    }
    return -1;
}
