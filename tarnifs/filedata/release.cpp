#include "tarnifs/catalogue/object.h"
#include "tarnifs/filedata/connection.h"
#include "tarnifs/filedata/filedata.h"
#include "tarnifs/mount/context.h"
#include "tarnifs/notify/tray_pipe.h"
#include "util/log.h"

namespace
{

constexpr const char *SELF = "tarnifs_release";

void lowerCount(_KTL_OBJECT *object)
{
    if (object->open_count > 0) {
        object->open_count -= 1;
    }
}

// One report per release; a file both read through and written is reported as
// read now, and its other mark waits for a later release.
void reportTransfer(_KTL_OBJECT *object, const char *path)
{
    if (object->reading == 0 && object->writing == 0) {
        return;
    }
    uint32_t kind = TRANSFER_WRITTEN;
    if (object->reading != 0) {
        object->reading = 0;
        kind = TRANSFER_READ;
    } else {
        object->writing = 0;
    }
    QNLog(3, "%s path %s / reading %d writing %d", SELF, path, object->reading,
          object->writing);
    QueueTransfer(kind, object->size, object->file_name);
}

int closeFile(libiusb_afc *connection, libiusb_file file, const char *path)
{
    const int ret = libiusb_afc_file_close(connection, file);
    if (ret != 0) {
        QNLog(3, "%s libiusb_afc_file_close failed. path(%s). ret : %d", SELF,
              path, ret);
    }
    return ret;
}

// An app's file, and with the last one the folder's connection. Returns the
// last device call's result, `ret` when none is made.
int closeInApp(const _KTL_OBJECT *object, const char *path, int ret)
{
    _KTL_OBJECT *folder = GetParentObject(path);
    if (folder == nullptr) {
        return ret;
    }
    lowerCount(folder);
    if (folder->hhandle == 0) {
        return ret;
    }
    ret = closeFile(HouseArrestOf(folder), object->file_handle, path);
    if (folder->open_count > 0) {
        return ret;
    }
    ret = CloseHouseArrest(folder);
    if (ret != 0) {
        QNLog(3, "%s libiusb_housearrest_exit failed. ret : %d", SELF, ret);
    }
    return ret;
}

int releaseLocked(const char *path, const tarni_file_info *fi)
{
    _CONTEXT *context = nullptr;
    int ret = getContext(&context);
    if (ret != 0 || fi->fh == 0) {
        return ret;
    }
    _KTL_OBJECT *object = FindObject(path);
    if (object == nullptr) {
        return ret;
    }
    lowerCount(object);
    reportTransfer(object, path);
    if (object->open_count != 0 || object->file_handle == 0) {
        return ret;
    }
    if (object->app_id != nullptr) {
        ret = closeInApp(object, path, ret);
    } else {
        ret = closeFile(context->afc_handle, object->file_handle, path);
    }
    if (object->type == KTL_TEMPORARY) {
        object->type = KTL_ORDINARY;
    }
    object->hhandle = 0;
    object->file_handle = 0;
    return ret;
}

} // namespace

int tarnifs_release(const char *path, tarni_file_info *fi)
{
    const TarniLock lock;
    return releaseLocked(path, fi);
}
