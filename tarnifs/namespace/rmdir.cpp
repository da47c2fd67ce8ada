#include <cerrno>
#include <cstring>
#include <string>

#include "tarnifs/filedata/connection.h"
#include "tarnifs/names/device_path.h"
#include "tarnifs/namespace/make_remove.h"
#include "tarnifs/notify/dialogs.h"
#include "util/log.h"

namespace
{

constexpr const char *SELF = "tarnifs_rmdir";

int refuse(const char *path)
{
    return ReportRefusal(TEXT_REMOVE_FOLDER, path);
}

int reportFailure(const std::string &devicePath, int code)
{
    QNLog(3, "%s libiusb_afc_file_remove failed. path(%s). error : %d", SELF,
          devicePath.c_str(), code);
    return ReportDeviceFailure(FAILURE_REMOVE_DIRECTORY,
                               code == LIBIUSB_ERROR_LOST_CONNECTION, nullptr,
                               code);
}

int removeInStorage(const _CONTEXT *context, _KTL_OBJECT *object,
                    const char *path)
{
    const std::string devicePath = StorageDevicePath(path);
    const int ret =
        libiusb_afc_file_remove(context->afc_handle, devicePath.c_str());
    if (ret != 0) {
        return reportFailure(devicePath, ret);
    }
    DeleteObject(object, path);
    return 0;
}

// A connection that nothing else uses ends with a failure.
void endUnused(_KTL_OBJECT *parent)
{
    if (parent->open_count == 0) {
        CloseHouseArrest(parent);
    }
}

// The folder is gone on the device. Its record stays when the connection can't
// be ended at once: the caller is told of a failure then. The parent's next
// listing asks the device, so that the record does not stay for good.
int noteRemoved(_KTL_OBJECT *parent, _KTL_OBJECT *object, const char *path)
{
    const int ret = parent->open_count == 0 ? CloseHouseArrest(parent) : 0;
    if (ret != 0) {
        QNLog(3, "%s libiusb_housearrest_exit failed. error : %d", SELF, ret);
        NoteListing(parent, false);
        return ret;
    }
    DeleteObject(object, path);
    return 0;
}

int removeInApp(_CONTEXT *context, _KTL_OBJECT *object, const char *path)
{
    _KTL_OBJECT *parent = GetParentObject(path);
    if (parent == nullptr) {
        DeleteObject(object, path);
        return 0;
    }
    const HOUSE_RESULT house = OpenHouseArrest(context, parent, object->app_id);
    if (house.code != 0) {
        LogHouseFailure(SELF, house, object->app_id);
        endUnused(parent);
        return ReportHouseFailure(house, path);
    }
    const std::string devicePath = AppDevicePath(path);
    const int ret =
        libiusb_afc_file_remove(HouseArrestOf(parent), devicePath.c_str());
    if (ret == 0) {
        return noteRemoved(parent, object, path);
    }
    if (ret == LIBIUSB_ERROR_AFC_DIR_NOT_EMPTY) {
        QNLog(3, "%s not support dir. path : %s, error : %d", SELF, path, ret);
        return refuse(path);
    }
    endUnused(parent);
    return reportFailure(devicePath, ret);
}

bool isRemovable(const char *path)
{
    return BeginsWith(path, "/Storage/") || IsInsideApp(path);
}

int rmdirLocked(const char *path)
{
    if (strcmp(path, "/.Trashes") == 0 ||
        strcmp(path, "/.TemporaryItems") == 0) {
        return -ENOENT;
    }
    _CONTEXT *context = nullptr;
    const int ret = getContext(&context);
    if (ret != 0) {
        QNLog(3, "%s getContext failed", SELF);
        return ret;
    }
    if (!isRemovable(path)) {
        QNLog(3, "%s rmdir not supported. path : %s ", SELF, path);
        return refuse(path);
    }
    _KTL_OBJECT *object = FindObject(path);
    if (object == nullptr) {
        return 0;
    }
    if (HasChildren(object)) {
        return -ENOTEMPTY;
    }
    return BeginsWith(path, STORAGE_AREA)
               ? removeInStorage(context, object, path)
               : removeInApp(context, object, path);
}

} // namespace

int tarnifs_rmdir(const char *path)
{
    const TarniLock lock;
    return rmdirLocked(path);
}
