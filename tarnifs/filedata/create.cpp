#include "tarnifs/filedata/create.h"

#include <cerrno>
#include <cstring>
#include <string>

#include "tarnifs/catalogue/object.h"
#include "tarnifs/filedata/connection.h"
#include "tarnifs/names/device_path.h"
#include "tarnifs/notify/dialogs.h"
#include "util/log.h"

namespace
{

constexpr const char *SELF = "tarnifs_create";
constexpr const char *HANDLE = "CreateFileHandle";

int refuse(const char *path)
{
    QNLog(3, "%s create not supported. path : %s", SELF, path);
    return ReportRefusal(TEXT_READ_ONLY, ParentFolderText(path).c_str());
}

// Opens the device file of a record that has none. *file stays 0 on failure.
int openInApp(_CONTEXT *context, _KTL_OBJECT *folder, const char *path,
              libiusb_file *file)
{
    const HOUSE_RESULT house = OpenHouseArrest(context, folder, folder->app_id);
    if (house.code != 0) {
        LogHouseFailure(HANDLE, house);
        return house.code;
    }
    const int ret = libiusb_afc_file_open(HouseArrestOf(folder),
                                          AppDevicePath(path).c_str(),
                                          LIBIUSB_MODE_UPDATE, file);
    if (ret != 0) {
        QNLog(3, "%s libiusb_afc_file_open failed. error : %d", HANDLE, ret);
    }
    return ret;
}

int openInStorage(const _CONTEXT *context, const char *path, libiusb_file *file)
{
    const std::string devicePath = StorageDevicePath(path);
    const int ret = libiusb_afc_file_open(
        context->afc_handle, devicePath.c_str(), LIBIUSB_MODE_UPDATE, file);
    if (ret != 0) {
        QNLog(3, "%s libiusb_afc_file_open failed. path(%s). ret : %d", HANDLE,
              devicePath.c_str(), ret);
    }
    return ret;
}

// The record of a file that has just been made: open once, of the present time.
// A folder's count is raised in both areas, although only an app's is lowered
// again.
void noteCreated(_KTL_OBJECT *folder, _KTL_OBJECT *object, tarni_file_info *fi)
{
    LinkChild(folder, object);
    folder->open_count += 1;
    object->mode = KTL_MODE_FILE;
    object->open_count += 1;
    SetPresentTimes(object);
    SetOpenObject(fi, object);
}

int createIn(const char *path, tarni_file_info *fi)
{
    _KTL_OBJECT *folder = GetParentObject(path);
    if (folder == nullptr) {
        return -ENOENT;
    }
    _KTL_OBJECT *object = GetObjectWithFileName(path);
    const int ret = CreateFileHandle(path);
    if (ret != 0) {
        return ReportDeviceFailure(FAILURE_CREATE_FILE,
                                   ret == LIBIUSB_ERROR_LOST_CONNECTION,
                                   nullptr, ret);
    }
    if (object->app_id == nullptr && folder->app_id != nullptr) {
        object->app_id = ReplaceString(nullptr, folder->app_id);
    }
    noteCreated(folder, object, fi);
    return 0;
}

int createLocked(const char *path, tarni_file_info *fi)
{
    _CONTEXT *context = nullptr;
    const int ret = getContext(&context);
    if (ret != 0) {
        return ret;
    }
    if (strstr(path, "Spotlight") != nullptr) {
        return 0;
    }
    if (BeginsWith(path, "/Apps/")) {
        if (PathDepth(path) > 2) {
            return createIn(path, fi);
        }
        QNLog(3, "%s create not supported. path : %s ", SELF, path);
        return refuse(path);
    }
    return BeginsWith(path, STORAGE_AREA) ? createIn(path, fi) : refuse(path);
}

} // namespace

int CreateFileHandle(const char *path)
{
    _KTL_OBJECT *object = GetObject(path);
    _KTL_OBJECT *folder = GetParentObject(path);
    _CONTEXT *context = nullptr;
    int ret = getContext(&context);
    if (ret != 0) {
        QNLog(3, "%s getContext failed. ret : %d", HANDLE, ret);
        return ret;
    }
    if (object->file_handle == 0) {
        libiusb_file file = 0;
        const bool inApp = folder != nullptr && folder->app_id != nullptr;
        if (inApp) {
            ret = openInApp(context, folder, path, &file);
        } else if (BeginsWith(path, STORAGE_AREA)) {
            ret = openInStorage(context, path, &file);
        }
        object->file_handle = file;
    }
    if (ret == 0 && object->file_handle == 0) {
        QNLog(3, "%s Invalid File handle!", HANDLE);
        return -ECANCELED;
    }
    return ret;
}

int tarnifs_create(const char *path, mode_t, tarni_file_info *fi)
{
    const TarniLock lock;
    return createLocked(path, fi);
}
