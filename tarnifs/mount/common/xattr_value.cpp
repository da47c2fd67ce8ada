#include "tarnifs/mount/common/xattr_value.h"

#include <cerrno>

#include "tarnifs/mount/common/results.h"
#include "tarnifs/mount/operations.h"

int XattrValue(const std::string &path, const char *name, char *value,
               size_t size, uint32_t position)
{
    const int length = HostResult(
        tarni_opers.getxattr(path.c_str(), name, nullptr, 0, position));
    if (length <= 0 || size == 0) {
        return length;
    }
    if (static_cast<size_t>(length) > size) {
        return -ERANGE;
    }
    return HostResult(tarni_opers.getxattr(
        path.c_str(), name, value, static_cast<size_t>(length), position));
}
