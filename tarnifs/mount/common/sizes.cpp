#include "tarnifs/mount/common/sizes.h"

#include <fcntl.h>

#include <algorithm>
#include <cerrno>

#include "tarnifs/catalogue/object.h"
#include "tarnifs/filedata/connection.h"
#include "tarnifs/filedata/staging.h"
#include "tarnifs/mount/common/mount_context.h"
#include "tarnifs/mount/common/results.h"
#include "tarnifs/mount/context.h"
#include "tarnifs/mount/operations.h"
#include "tarnifs/notify/dialogs.h"
#include "util/log.h"

namespace
{

void Account(uint64_t *free, uint64_t before, uint64_t after)
{
    if (after <= before) {
        *free += before - after;
    } else {
        *free -= std::min(*free, after - before);
    }
}

// The bytes themselves: in the private folder while they are staged, else on the
// device.
int SetContentsSize(_CONTEXT *context, const _KTL_OBJECT *object,
                    const std::string &path, uint64_t size)
{
    if (object->type == KTL_STAGED) {
        return TruncateStaged(context, path.c_str(), static_cast<off_t>(size));
    }
    if (object->file_handle == 0) {
        QNLog(3, "%s file_handle is NULL. path(%s)", "SetContentsSize",
              path.c_str());
        return -EIO;
    }
    const int ret = libiusb_afc_file_set_size(
        ConnectionOf(context, object, path.c_str()), object->file_handle, size);
    if (ret != LIBIUSB_SUCCESS) {
        QNLog(3, "%s libiusb_afc_file_set_size failed. path(%s) ret : %d",
              "SetContentsSize", path.c_str(), ret);
        return ReportDeviceFailure(FAILURE_WRITE_FILE,
                                   ret == LIBIUSB_ERROR_LOST_CONNECTION,
                                   nullptr, ret);
    }
    return 0;
}

int SetSizeAndCapacity(const std::string &path, uint64_t size)
{
    const TarniLock lock;
    _CONTEXT *context = MountContext();
    const _KTL_OBJECT *object = FindObject(path.c_str());
    if (context == nullptr || object == nullptr) {
        return -ENOENT;
    }
    const int ret = SetContentsSize(context, object, path, size);
    if (ret == 0) {
        Account(&context->device_info.free_capacity, object->size, size);
    }
    return ret;
}

} // namespace

int SetSizeOfOpen(const std::string &path, uint64_t size)
{
    const int ret = HostResult(SetSizeAndCapacity(path, size));
    if (ret != 0) {
        return ret;
    }
    const tarni_setattr attr{
        .valid = TARNI_SETATTR_SIZE | TARNI_SETATTR_MODTIME, .size = size};
    return HostResult(tarni_opers.setattr_x(path.c_str(), &attr));
}

int SetSizeOfClosed(const std::string &path, uint64_t size)
{
    tarni_file_info info;
    info.flags = O_WRONLY;
    int ret = HostResult(tarni_opers.open(path.c_str(), &info));
    if (ret != 0) {
        return ret;
    }
    ret = SetSizeOfOpen(path, size);
    tarni_opers.release(path.c_str(), &info);
    return ret;
}
