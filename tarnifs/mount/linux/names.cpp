// Looking for names, making and removing them: access, mkdir, rmdir, unlink.
#include <cerrno>
#include <string>

#include "tarnifs/mount/common/gate.h"
#include "tarnifs/mount/common/places.h"
#include "tarnifs/mount/common/results.h"
#include "tarnifs/mount/linux/adapters.h"
#include "tarnifs/mount/linux/hidden.h"
#include "tarnifs/mount/linux/lookup.h"
#include "tarnifs/mount/linux/unlisted.h"
#include "tarnifs/mount/operations.h"

int AccessAdapter(const char *path, int mask)
{
    const Gate gate;
    std::string spelled;
    const int ret = ResolvePath(path, &spelled);
    if (ret != 0) {
        return WithoutEnosys(ret);
    }
    // The handler's one failure is a path it does not know; it has no number.
    return tarni_opers.access(spelled.c_str(), mask) == 0 ? 0 : -ENOENT;
}

int MkdirAdapter(const char *path, mode_t mode)
{
    const Gate gate;
    if (IsRefusedAtTop(path) || tarni_opers.mkdir == nullptr) {
        return -EROFS;
    }
    std::string spelled;
    const int ret = ResolveTarget(path, &spelled);
    if (ret != 0) {
        return WithoutEnosys(ret);
    }
    ForgetUnlisted(spelled);
    return HostResult(tarni_opers.mkdir(spelled.c_str(), mode));
}

int RmdirAdapter(const char *path)
{
    const Gate gate;
    if (tarni_opers.rmdir == nullptr) {
        return -EROFS;
    }
    std::string spelled;
    int ret = ResolvePath(path, &spelled);
    // The handler asks the catalogue alone whether the folder is empty.
    if (ret == 0 && IsWritablePlace(spelled)) {
        ret = CheckEmpty(spelled);
    }
    if (ret != 0) {
        return WithoutEnosys(ret);
    }
    ret = HostResult(tarni_opers.rmdir(spelled.c_str()));
    if (ret == 0) {
        ForgetUnlisted(spelled);
    }
    return ret;
}

int UnlinkAdapter(const char *path)
{
    const Gate gate;
    const int settled = SettleBeforeUnlink(path);
    if (settled != 0) {
        return settled;
    }
    if (ForgetRestored(path)) {
        return 0;
    }
    if (tarni_opers.unlink == nullptr) {
        return -EROFS;
    }
    std::string spelled;
    int ret = ResolvePath(path, &spelled);
    if (ret != 0) {
        return WithoutEnosys(ret);
    }
    ret = HostResult(tarni_opers.unlink(spelled.c_str()));
    if (ret == 0) {
        ForgetUnlisted(spelled);
    }
    return ret;
}
