#include <algorithm>
#include <cerrno>
#include <climits>
#include <ctime>

#include "tarnifs/catalogue/object.h"
#include "tarnifs/filedata/connection.h"
#include "tarnifs/filedata/device_file.h"
#include "tarnifs/filedata/filedata.h"
#include "tarnifs/filedata/staging.h"
#include "tarnifs/mount/context.h"
#include "tarnifs/notify/dialogs.h"
#include "util/log.h"

namespace
{

constexpr const char *SELF = "tarnifs_write";

struct REQUEST {
    const char *buf;
    size_t size;
    off_t offset;
};

// The file now reaches to `end`: what it grew by is gone from the free space.
void noteWritten(_CONTEXT *context, _KTL_OBJECT *object, uint64_t end)
{
    const time_t now = time(nullptr);
    object->modify_time = now;
    object->access_time = now;
    if (end <= object->size) {
        return;
    }
    uint64_t &capacity = context->device_info.free_capacity;
    const uint64_t size = object->size;
    capacity -= std::min(end - size, capacity);
    object->size = end;
    object->writing = 1;
}

// On failure *confirmed is what reached the device all the same.
int writeDevice(_CONTEXT *context, _KTL_OBJECT *object, const char *path,
                const REQUEST &request, uint32_t *confirmed)
{
    if (ReviveDeviceFile(context, object, path) != 0) {
        return -ECANCELED;
    }
    const auto length = static_cast<uint32_t>(
        std::min(request.size, static_cast<size_t>(INT_MAX)));
    const int ret = libiusb_afc_file_write(
        ConnectionOf(context, object, path), object->file_handle, request.buf,
        length, static_cast<uint64_t>(request.offset), confirmed);
    if (ret == 0) {
        return static_cast<int>(*confirmed);
    }
    QNLog(3, "%s libiusb_afc_file_write failed. path(%s) ret %d", SELF, path,
          ret);
    return ReportDeviceFailure(
        FAILURE_WRITE_FILE, ret == LIBIUSB_ERROR_LOST_CONNECTION, nullptr, ret);
}

int writeLocked(const char *path, const REQUEST &request, tarni_file_info *fi)
{
    _CONTEXT *context = nullptr;
    int ret = getContext(&context);
    if (ret != 0) {
        QNLog(3, "%s pContext is NULL!", SELF);
        return ret;
    }
    if (fi->fh == 0) {
        return 0;
    }
    _KTL_OBJECT *object = FindObject(path);
    if (object == nullptr || object->file_handle == 0) {
        return -ECANCELED;
    }
    uint32_t written = 0;
    if (IsSafeSave(object, path)) {
        ret = WriteStaged(context, path, request.buf, request.size,
                          request.offset);
        object->type = KTL_STAGED;
        written = static_cast<uint32_t>(std::max(ret, 0));
    } else {
        ret = writeDevice(context, object, path, request, &written);
    }
    // A failed write that the device confirmed in part made the file longer;
    // one that wrote nothing did not, however far out it was meant to go.
    if (ret >= 0 || written > 0) {
        const auto offset = static_cast<uint64_t>(request.offset);
        noteWritten(context, object, written > 0 ? offset + written : 0);
    }
    return ret;
}

} // namespace

int tarnifs_write(const char *path, const char *buf, size_t size, off_t offset,
                  tarni_file_info *fi)
{
    const TarniLock lock;
    return writeLocked(path, {buf, size, offset}, fi);
}
