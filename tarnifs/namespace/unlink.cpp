#include <string>

#include "tarnifs/filedata/connection.h"
#include "tarnifs/filedata/staging.h"
#include "tarnifs/names/device_path.h"
#include "tarnifs/namespace/make_remove.h"
#include "tarnifs/notify/dialogs.h"
#include "util/log.h"

namespace
{

constexpr const char *SELF = "tarnifs_unlink";
constexpr int NOT_INSIDE_APP = 1;

// Removes a file on the device and then its record; its bytes are free again.
int removeFile(_CONTEXT *context, libiusb_afc *connection, _KTL_OBJECT *object,
               const char *path, const std::string &devicePath,
               const char *self)
{
    const int ret = libiusb_afc_file_remove(connection, devicePath.c_str());
    if (ret == LIBIUSB_ERROR_AFC_OBJECT_NOT_FOUND) {
        QNLog(
            3,
            "%s libiusb_afc_file_remove return LIBIUSB_ERROR_AFC_OBJECT_NOT_FOUND",
            self);
    } else if (ret != 0) {
        QNLog(3, "%s libiusb_afc_file_remove failed. path(%s). ret : %d", self,
              devicePath.c_str(), ret);
        return ret;
    }
    context->device_info.free_capacity += object->size;
    if (object->type == KTL_STAGED) {
        DropStaged(context, path);
    }
    DeleteObject(object, path);
    return 0;
}

int refuse(const char *path)
{
    QNLog(3, "%s unlink not supported. path : %s", SELF, path);
    return ReportRefusal(TEXT_REMOVE_FILE, path);
}

} // namespace

int UnlinkStorageContents(_CONTEXT *context, const char *path)
{
    constexpr const char *self = "UnlinkStorageContents";
    _KTL_OBJECT *object = FindObject(path);
    if (object == nullptr) {
        QNLog(3, "%s Target not exitst! path(%s)", self, path);
        return 0;
    }
    return removeFile(context, context->afc_handle, object, path,
                      StorageDevicePath(path), self);
}

int UnlinkAppsContents(_CONTEXT *context, const char *path)
{
    constexpr const char *self = "UnlinkAppsContents";
    if (!IsInsideApp(path)) {
        QNLog(3, "%s unlink not supported. path : %s ", self, path);
        return NOT_INSIDE_APP;
    }
    _KTL_OBJECT *object = FindObject(path);
    if (object == nullptr) {
        QNLog(3, "%s Target not exitst! path(%s)", self, path);
        return 0;
    }
    _KTL_OBJECT *parent = GetParentObject(path);
    if (parent == nullptr) {
        QNLog(3, "%s parent object not exitst! path(%s)", self, path);
        return 0;
    }
    const HOUSE_RESULT house = OpenHouseArrest(context, parent, parent->app_id);
    if (house.code != 0) {
        LogHouseFailure(self, house, parent->app_id);
        return house.code;
    }
    return removeFile(context, HouseArrestOf(parent), object, path,
                      AppDevicePath(path), self);
}

int tarnifs_unlink(const char *path)
{
    const TarniLock lock;
    _CONTEXT *context = nullptr;
    int ret = getContext(&context);
    if (ret != 0) {
        return ret;
    }
    if (BeginsWith(path, "/Storage/")) {
        ret = UnlinkStorageContents(context, path);
    } else if (BeginsWith(path, "/Apps/")) {
        ret = UnlinkAppsContents(context, path);
    } else {
        ret = NOT_INSIDE_APP;
    }
    if (ret == 0) {
        return 0;
    }
    if (ret == NOT_INSIDE_APP) {
        return refuse(path);
    }
    return ReportDeviceFailure(FAILURE_REMOVE_FILE,
                               ret == LIBIUSB_ERROR_LOST_CONNECTION, nullptr,
                               ret);
}
