// Extended attributes. The handler copies as many bytes as it is asked for, so
// the length is asked first, and nothing can change in between.
#include <cerrno>
#include <string>
#include <string_view>

#include "tarnifs/mount/linux/adapters.h"
#include "tarnifs/mount/linux/gate.h"
#include "tarnifs/mount/linux/lookup.h"
#include "tarnifs/mount/linux/results.h"
#include "tarnifs/mount/operations.h"

namespace
{

// Labels and access lists. The kernel asks for them all the time, and must not
// wait for a transfer to hear that there are none.
bool IsKernelsOwn(std::string_view name)
{
    return name.starts_with("security.") || name.starts_with("system.");
}

int GetValue(const std::string &path, const char *name, char *value,
             size_t size)
{
    const int length =
        HostResult(tarni_opers.getxattr(path.c_str(), name, nullptr, 0, 0));
    if (length <= 0 || size == 0) {
        return length;
    }
    if (static_cast<size_t>(length) > size) {
        return -ERANGE;
    }
    return HostResult(tarni_opers.getxattr(path.c_str(), name, value,
                                           static_cast<size_t>(length), 0));
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
    return WithoutEnosys(ret != 0 ? ret : GetValue(spelled, name, value, size));
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
