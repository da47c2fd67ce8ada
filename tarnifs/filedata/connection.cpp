#include "tarnifs/filedata/connection.h"

#include "tarnifs/names/device_path.h"
#include "tarnifs/notify/dialogs.h"
#include "util/log.h"

HOUSE_RESULT OpenHouseArrest(_CONTEXT *context, _KTL_OBJECT *folder,
                             const char *appId)
{
    if (folder->hhandle != 0) {
        return {0, HOUSE_OPENAPP};
    }
    libiusb_afc *house = nullptr;
    const int ret = libiusb_housearrest_init(context->device_handle, &house);
    if (ret != 0) {
        return {ret, HOUSE_INIT};
    }
    folder->hhandle = reinterpret_cast<uint64_t>(house);
    return {libiusb_housearrest_openapp(house, appId), HOUSE_OPENAPP};
}

void LogHouseFailure(const char *self, const HOUSE_RESULT &result)
{
    if (result.step == HOUSE_INIT) {
        QNLog(3, "%s libiusb_housearrest_init failed. error : %d", self,
              result.code);
    } else {
        QNLog(3, "%s libiusb_housearrest_openapp failed. error : %d", self,
              result.code);
    }
}

void LogHouseFailure(const char *self, const HOUSE_RESULT &result,
                     const char *appId)
{
    if (result.step == HOUSE_INIT) {
        LogHouseFailure(self, result);
        return;
    }
    QNLog(3, "%s libiusb_housearrest_openapp failed. error : %d, App ID : %s",
          self, result.code, appId == nullptr ? "" : appId);
}

int EndHouseArrest(_KTL_OBJECT *folder)
{
    if (folder->hhandle == 0) {
        return 0;
    }
    const int ret = libiusb_housearrest_exit(HouseArrestOf(folder));
    if (ret == 0) {
        folder->hhandle = 0;
    }
    return ret;
}

int ReportHouseFailure(const HOUSE_RESULT &result, const char *path)
{
    const bool lost = result.code == LIBIUSB_ERROR_LOST_CONNECTION;
    return ReportDeviceFailure(result.step == HOUSE_INIT ? FAILURE_OPEN_SERVICE
                                                         : FAILURE_OPEN_APP,
                               lost, AppFolderName(path).c_str(), result.code);
}

libiusb_afc *ConnectionOf(const _CONTEXT *context, const _KTL_OBJECT *object,
                          const char *path)
{
    if (object->app_id != nullptr) {
        const _KTL_OBJECT *folder = GetParentObject(path);
        if (folder != nullptr && folder->hhandle != 0) {
            return HouseArrestOf(folder);
        }
    }
    return context->afc_handle;
}
