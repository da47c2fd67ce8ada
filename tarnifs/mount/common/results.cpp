#include "tarnifs/mount/common/results.h"

#include <cerrno>

#include "tarnifs/mount/host.h"

int HostResult(int result)
{
    if (result >= 0) {
        return result;
    }
    switch (-result) {
    case ENOENT:
    case ENOTEMPTY:
    case ENOSYS:
    case ECANCELED:
    case TARNI_ENOATTR:
    case ENOMEM:
        return result;
    default:
        return -EIO;
    }
}

int WithoutEnosys(int result)
{
    return result == -ENOSYS ? -EIO : result;
}
