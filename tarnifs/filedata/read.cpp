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

constexpr const char *SELF = "tarnifs_read";

struct REQUEST {
    char *buf;
    size_t size;
    off_t offset;
};

// *failed: the device refused and the user was told; nothing is tracked then.
int readDevice(_CONTEXT *context, _KTL_OBJECT *object, const char *path,
               const REQUEST &request, bool *failed)
{
    if (object->file_handle == 0) {
        QNLog(3, "%s file_handle is NULL", SELF);
        return -ECANCELED;
    }
    if (ReviveDeviceFile(context, object, path) != 0) {
        *failed = true;
        return -ECANCELED;
    }
    uint32_t count = 0;
    const auto length = static_cast<uint32_t>(
        std::min(request.size, static_cast<size_t>(INT_MAX)));
    const int ret = libiusb_afc_file_read(
        ConnectionOf(context, object, path), object->file_handle, request.buf,
        length, static_cast<uint64_t>(request.offset), &count);
    if (ret != 0) {
        QNLog(3, "%s libiusb_afc_file_read fail. Err=%d, path(%s)", SELF, ret,
              path);
        *failed = true;
        return ReportDeviceFailure(FAILURE_READ_FILE, IsTransferLost(ret),
                                   nullptr, ret);
    }
    object->access_time = time(nullptr);
    return static_cast<int>(count);
}

// Follows the contiguous run from the beginning; a file that was read to its
// end in one run is a transfer that the tray helper hears of. The result counts
// as it stands, negative ones included.
void trackReadThrough(_KTL_OBJECT *object, const tarni_file_info *fi,
                      off_t offset, int result)
{
    if ((object->mode & KTL_MODE_FILE) == 0 || fi->keep_cache) {
        return;
    }
    const auto start = static_cast<uint64_t>(offset);
    const auto count = static_cast<uint64_t>(static_cast<int64_t>(result));
    if (start <= object->read_offset) {
        object->read_offset = start + count;
    }
    if (object->read_offset == object->size) {
        object->reading = 1;
    }
}

int readLocked(const char *path, const REQUEST &request, tarni_file_info *fi)
{
    _CONTEXT *context = nullptr;
    int ret = getContext(&context);
    if (ret != 0) {
        return ret;
    }
    if (fi->fh == 0) {
        QNLog(3, "%s fh is NULL", SELF);
        return -ECANCELED;
    }
    _KTL_OBJECT *object = FindObject(path);
    if (object == nullptr) {
        return -ECANCELED;
    }
    if (ConnectionOf(context, object, path) == nullptr) {
        QNLog(3, "%s afc_handle is NULL!", SELF);
        return 0;
    }
    bool failed = false;
    if (object->type == KTL_STAGED) {
        ret = ReadStaged(context, path, fi->flags, request.buf, request.size,
                         request.offset);
    } else {
        ret = readDevice(context, object, path, request, &failed);
    }
    if (!failed) {
        trackReadThrough(object, fi, request.offset, ret);
    }
    return ret;
}

} // namespace

int tarnifs_read(const char *path, char *buf, size_t size, off_t offset,
                 tarni_file_info *fi)
{
    const TarniLock lock;
    return readLocked(path, {buf, size, offset}, fi);
}
