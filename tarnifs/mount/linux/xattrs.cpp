// Extended attributes.
#include <cerrno>
#include <string>
#include <string_view>

#include "tarnifs/mount/common/gate.h"
#include "tarnifs/mount/common/results.h"
#include "tarnifs/mount/common/xattr_value.h"
#include "tarnifs/mount/linux/adapters.h"
#include "tarnifs/mount/linux/lookup.h"
#include "tarnifs/mount/operations.h"

namespace
{

// Labels and access lists. The kernel asks for them all the time, and must not
// wait for a transfer to hear that there are none.
bool IsKernelsOwn(std::string_view name)
{
    return name.starts_with("security.") || name.starts_with("system.");
}

} // namespace

int GetxattrAdapter(const char *path, const char *name, char *value,
                    size_t size)
{
    if (IsKernelsOwn(name)) {
        return -ENODATA;
    }
    const Gate gate;
    std::string spelled;
    const int ret = ResolvePath(path, &spelled);
    return WithoutEnosys(ret != 0 ? ret
                                  : XattrValue(spelled, name, value, size, 0));
}

int SetxattrAdapter(const char *path, const char *name, const char *value,
                    size_t size, int flags)
{
    if (IsKernelsOwn(name)) {
        return -EOPNOTSUPP;
    }
    const Gate gate;
    std::string spelled;
    const int ret = ResolvePath(path, &spelled);
    if (ret != 0) {
        return WithoutEnosys(ret);
    }
    return WithoutEnosys(HostResult(
        tarni_opers.setxattr(spelled.c_str(), name, value, size, flags, 0)));
}

int RemovexattrAdapter(const char *path, const char *name)
{
    if (IsKernelsOwn(name)) {
        return -ENODATA;
    }
    const Gate gate;
    std::string spelled;
    const int ret = ResolvePath(path, &spelled);
    if (ret != 0) {
        return WithoutEnosys(ret);
    }
    return WithoutEnosys(
        HostResult(tarni_opers.removexattr(spelled.c_str(), name)));
}
