#include "tarnifs/filedata/connection.h"

#include <unordered_set>

#include "tarnifs/names/device_path.h"
#include "tarnifs/notify/dialogs.h"
#include "util/log.h"

namespace
{

// Connections on folders that stand for no app, because opening it failed.
// Every connection on a folder passes through OpenHouseArrest, so an address
// that comes up again for another connection is judged anew.
std::unordered_set<uint64_t> withoutApp;

HOUSE_RESULT openApp(uint64_t house, const char *appId)
{
    const int ret = libiusb_housearrest_openapp(
        reinterpret_cast<libiusb_afc *>(house), appId);
    if (ret == 0) {
        withoutApp.erase(house);
    } else {
        withoutApp.insert(house);
    }
    return {ret, HOUSE_OPENAPP};
}

} // namespace

HOUSE_RESULT OpenHouseArrest(_CONTEXT *context, _KTL_OBJECT *folder,
                             const char *appId)
{
    const uint64_t known = folder->hhandle;
    if (known != 0) {
        // Used as it is; without an app nothing in the folder would ever work.
        return withoutApp.contains(known) ? openApp(known, appId)
                                          : HOUSE_RESULT{0, HOUSE_OPENAPP};
    }
    libiusb_afc *house = nullptr;
    const int ret = libiusb_housearrest_init(context->device_handle, &house);
    if (ret != 0) {
        return {ret, HOUSE_INIT};
    }
    folder->hhandle = reinterpret_cast<uint64_t>(house);
    return openApp(folder->hhandle, appId);
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
