#include "tarnifs/filedata/device_file.h"

#include <string>

#include "tarnifs/filedata/connection.h"
#include "tarnifs/names/device_path.h"
#include "tarnifs/notify/dialogs.h"
#include "util/log.h"

namespace
{

constexpr const char *SELF = "tarnifs_open";

// Where a file lies on the device and how it is opened there.
struct PLACE {
    libiusb_afc *connection = nullptr;
    _KTL_OBJECT *folder = nullptr; // app's file: whose connection is used
    std::string path;
    int mode = LIBIUSB_MODE_UPDATE;
};

int reportUnexpected(const char *path)
{
    QNLog(3, "%s Unexpected file! path(%s)", SELF, path);
    return ReportError(TEXT_UNEXPECTED_FILE, path);
}

// An app's file: through the connection of the folder that holds it.
int placeInApp(_CONTEXT *context, const char *path, PLACE *place)
{
    _KTL_OBJECT *folder = GetParentObject(path);
    if (folder == nullptr) {
        return reportUnexpected(path);
    }
    const HOUSE_RESULT result =
        OpenHouseArrest(context, folder, folder->app_id);
    if (result.code != 0) {
        LogHouseFailure(SELF, result, folder->app_id);
        CloseHouseArrest(folder);
        return ReportHouseFailure(result, path);
    }
    place->folder = folder;
    place->connection = HouseArrestOf(folder);
    place->path = AppDevicePath(path);
    return 0;
}

// A file of the media file system. What the media views show is only read: a
// mode that can write would make an empty file where one has vanished, and the
// device refuses it for pictures it shares between folders.
int placeOnMedia(_CONTEXT *context, const _KTL_OBJECT *object, const char *path,
                 PLACE *place)
{
    const char *devicePath = object->device_path;
    if (devicePath != nullptr && *devicePath != '\0') {
        place->path = devicePath;
        place->mode = LIBIUSB_MODE_READ;
    } else if (BeginsWith(path, STORAGE_AREA)) {
        place->path = StorageDevicePath(path);
    } else {
        return reportUnexpected(path);
    }
    place->connection = context->afc_handle;
    return 0;
}

// A device file whose connection was lost is of no more use; one that other
// programs still hold would make every new open fail as well. A read of nothing
// tells, and asks the device nothing.
void dropDeadFile(_KTL_OBJECT *object, libiusb_afc *connection)
{
    char nothing = 0;
    uint32_t count = 0;
    if (object->file_handle != 0 &&
        libiusb_afc_file_read(connection, object->file_handle, &nothing, 0, 0,
                              &count) != 0) {
        libiusb_afc_file_close(connection, object->file_handle);
        object->file_handle = 0;
    }
}

// Opens the device file unless it is open. A failure ends the folder's
// connection, also one that an earlier open had made.
int openFile(_KTL_OBJECT *object, const PLACE &place)
{
    dropDeadFile(object, place.connection);
    if (object->file_handle != 0) {
        return 0;
    }
    libiusb_file file = 0;
    const int ret = libiusb_afc_file_open(place.connection, place.path.c_str(),
                                          place.mode, &file);
    if (ret == 0) {
        object->file_handle = file;
        return 0;
    }
    QNLog(3, "%s libiusb_afc_file_open failed. path(%s) ret : %d", SELF,
          place.path.c_str(), ret);
    if (place.folder != nullptr) {
        CloseHouseArrest(place.folder);
    }
    return ReportDeviceFailure(FAILURE_OPEN_FILE, IsTransferLost(ret),
                               object->file_name, ret);
}

// *folder: whose connection is used, null for a file of the media file system.
int openPlace(_CONTEXT *context, _KTL_OBJECT *object, const char *path,
              _KTL_OBJECT **folder)
{
    PLACE place;
    int ret = object->app_id != nullptr
                  ? placeInApp(context, path, &place)
                  : placeOnMedia(context, object, path, &place);
    if (ret == 0) {
        ret = openFile(object, place);
    }
    *folder = place.folder;
    return ret;
}

} // namespace

int OpenDeviceFile(_CONTEXT *context, _KTL_OBJECT *object, const char *path)
{
    _KTL_OBJECT *folder = nullptr;
    const int ret = openPlace(context, object, path, &folder);
    if (ret == 0 && folder != nullptr) {
        folder->open_count += 1;
    }
    return ret;
}

int ReviveDeviceFile(_CONTEXT *context, _KTL_OBJECT *object, const char *path)
{
    if (object->app_id == nullptr || object->file_handle == 0) {
        return 0;
    }
    _KTL_OBJECT *folder = GetParentObject(path);
    if (folder == nullptr || folder->hhandle != 0) {
        return 0;
    }
    const libiusb_file gone = object->file_handle;
    object->file_handle = 0;
    const int ret = openPlace(context, object, path, &folder);
    if (ret != 0) {
        object->file_handle = gone; // for the next try, and for release
    }
    return ret;
}
