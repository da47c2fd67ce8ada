// Removing everything below a folder. No operation calls it: hosts remove a
// tree entry by entry.
#include <string>

#include "tarnifs/filedata/connection.h"
#include "tarnifs/names/device_path.h"
#include "tarnifs/namespace/make_remove.h"
#include "util/log.h"

namespace
{

constexpr const char *SELF = "CleanupSubFiles";

int removeOnDevice(libiusb_afc *connection, const std::string &devicePath)
{
    const int ret = libiusb_afc_file_remove(connection, devicePath.c_str());
    if (ret != 0) {
        QNLog(3, "%s libiusb_afc_file_remove failed. path(%s). ret : %d", SELF,
              devicePath.c_str(), ret);
    }
    return ret;
}

// One child whose own children are gone. *stop: the failure ends everything at
// once, without the folder's own wind-up.
int removeChild(_CONTEXT *context, _KTL_OBJECT *folder, _KTL_OBJECT *child,
                const std::string &path, bool *stop)
{
    libiusb_afc *connection = context->afc_handle;
    std::string devicePath = StorageDevicePath(path);
    if (child->app_id != nullptr) {
        const HOUSE_RESULT house =
            OpenHouseArrest(context, folder, child->app_id);
        if (house.code != 0) {
            LogHouseFailure(SELF, house);
            *stop = true;
            return house.code;
        }
        connection = HouseArrestOf(folder);
        devicePath = AppDevicePath(path);
    }
    const int ret = removeOnDevice(connection, devicePath);
    if (ret == 0) {
        DeleteObject(child, path.c_str());
    }
    return ret;
}

} // namespace

int CleanupSubFiles(_CONTEXT *context, const char *path, _KTL_OBJECT *folder)
{
    int ret = 0;
    const _KTL_LIST *head = ChildList(folder);
    for (_KTL_LIST *at = head->next; at != head && ret == 0;) {
        _KTL_OBJECT *child = ObjectOfSibling(at);
        at = at->next;
        const std::string childPath = ChildPath(path, child->file_name);
        if (child->mode == KTL_MODE_FOLDER) {
            ret = CleanupSubFiles(context, childPath.c_str(), child);
            if (ret != 0) {
                return ret;
            }
        }
        bool stop = false;
        ret = removeChild(context, folder, child, childPath, &stop);
        if (stop) {
            return ret;
        }
    }
    if (folder->hhandle != 0) {
        const int ended = CloseHouseArrest(folder);
        if (ended != 0) {
            QNLog(3, "%s libiusb_housearrest_exit failed. path(%s). ret : %d",
                  SELF, path, ended);
        }
    }
    return ret;
}
