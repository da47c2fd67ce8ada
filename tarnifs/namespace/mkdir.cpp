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

constexpr const char *SELF = "tarnifs_mkdir";

bool isHousekeeping(const char *path)
{
    return strcmp(path, "/.Trashes") == 0 ||
           strcmp(path, "/.TemporaryItems") == 0 ||
           strcmp(path, "/.fseventsd") == 0;
}

int refuse(const char *path)
{
    QNLog(3, "%s make directory not supported. path : %s", SELF, path);
    return ReportRefusal(TEXT_READ_ONLY, ParentFolderText(path).c_str());
}

int reportFailure(int code)
{
    return ReportDeviceFailure(FAILURE_MAKE_DIRECTORY,
                               code == LIBIUSB_ERROR_LOST_CONNECTION, nullptr,
                               code);
}

// The record of a folder that the device has just made.
_KTL_OBJECT *noteMade(_KTL_OBJECT *parent, const char *path)
{
    _KTL_OBJECT *object = GetObjectWithFileName(path);
    object->mode = KTL_MODE_FOLDER;
    if (object->app_id == nullptr && parent->app_id != nullptr) {
        object->app_id = ReplaceString(nullptr, parent->app_id);
    }
    SetPresentTimes(object);
    LinkChild(parent, object);
    return object;
}

int makeInStorage(const _CONTEXT *context, const char *path)
{
    _KTL_OBJECT *parent = GetParentObject(path);
    if (parent == nullptr) {
        return -ENOENT;
    }
    const std::string devicePath = StorageDevicePath(path);
    const int ret =
        libiusb_afc_make_directory(context->afc_handle, devicePath.c_str());
    if (ret != 0) {
        QNLog(3, "%s libiusb_afc_make_directory failed. path(%s), error : %d",
              SELF, devicePath.c_str(), ret);
        return reportFailure(ret);
    }
    noteMade(parent, path);
    return 0;
}

int makeInApp(_CONTEXT *context, const char *path)
{
    _KTL_OBJECT *parent = GetParentObject(path);
    if (parent == nullptr) {
        return -ENOENT;
    }
    const HOUSE_RESULT house = OpenHouseArrest(context, parent, parent->app_id);
    if (house.code != 0) {
        LogHouseFailure(SELF, house, parent->app_id);
        return ReportHouseFailure(house, path);
    }
    const std::string devicePath = AppDevicePath(path);
    int ret =
        libiusb_afc_make_directory(HouseArrestOf(parent), devicePath.c_str());
    if (ret != 0) {
        QNLog(3, "%s libiusb_afc_make_directory failed. path(%s). error : %d",
              SELF, devicePath.c_str(), ret);
        return reportFailure(ret);
    }
    noteMade(parent, path);
    if (parent->open_count != 0) {
        return 0;
    }
    ret = EndHouseArrest(parent);
    if (ret != 0) {
        QNLog(3, "%s libiusb_housearrest_exit failed. error : %d", SELF, ret);
    }
    return ret;
}

} // namespace

bool IsInsideApp(const char *path)
{
    return BeginsWith(path, APPS_AREA) && PathDepth(path) >= 3;
}

int tarnifs_mkdir(const char *path, mode_t)
{
    const TarniLock lock;
    if (isHousekeeping(path)) {
        return -ENOENT;
    }
    _CONTEXT *context = nullptr;
    const int ret = getContext(&context);
    if (ret != 0) {
        QNLog(3, "%s getContext failed", SELF);
        return ret;
    }
    if (BeginsWith(path, STORAGE_AREA)) {
        return makeInStorage(context, path);
    }
    return IsInsideApp(path) ? makeInApp(context, path) : refuse(path);
}
