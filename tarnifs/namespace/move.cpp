// The moves behind a rename across places. Within one app the device renames;
// everything else is not supported at present.
#include <string>

#include "tarnifs/filedata/connection.h"
#include "tarnifs/filedata/create.h"
#include "tarnifs/listing/apps.h"
#include "tarnifs/names/device_path.h"
#include "tarnifs/namespace/rename.h"
#include "util/log.h"

namespace
{

constexpr const char *SELF = "movetoapps";

// A house-arrest client of one move; ended with it, a second time when the first
// fails.
class Client
{
  public:
    Client() = default;
    ~Client()
    {
        if (handle != nullptr && libiusb_housearrest_exit(handle) != 0) {
            libiusb_housearrest_exit(handle);
        }
    }
    Client(const Client &) = delete;
    Client &operator=(const Client &) = delete;

    int open(const _CONTEXT *context, const char *appId)
    {
        int ret = libiusb_housearrest_init(context->device_handle, &handle);
        if (ret != 0) {
            QNLog(3, "%s libiusb_housearrest_init failed, ret : %d", SELF, ret);
            return ret;
        }
        ret = libiusb_housearrest_openapp(handle, appId);
        if (ret != 0) {
            QNLog(3, "%s libiusb_housearrest_openapp failed, ret : %d", SELF,
                  ret);
        }
        return ret;
    }

    libiusb_afc *handle = nullptr;
};

int renameInApp(const _CONTEXT *context, libiusb_afc *client,
                _KTL_OBJECT *source, const char *from, const char *to)
{
    const std::string deviceFrom = AppDevicePath(from);
    const std::string deviceTo = AppDevicePath(to);
    if (source->type == KTL_STAGED) {
        const int ret =
            UploadStaged(context, source, from, deviceFrom.c_str(), client);
        if (ret != 0) {
            return ret;
        }
    }
    const int ret =
        libiusb_afc_rename(client, deviceFrom.c_str(), deviceTo.c_str());
    if (ret != 0) {
        QNLog(3, "%s libiusb_afc_rename filed, from(%s), to(%s), ret : %d",
              SELF, deviceFrom.c_str(), deviceTo.c_str(), ret);
    }
    return ret;
}

} // namespace

int movetostorage(_CONTEXT *, const char *, const char *)
{
    return LIBIUSB_ERROR_AFC_OP_NOT_SUPPORTED;
}

int movetoapps(_CONTEXT *context, const char *from, const char *to)
{
    const bool sameApp =
        BeginsWith(from, "/Apps/") && AppFolderName(from) == AppFolderName(to);
    _KTL_OBJECT *folder = GetParentObject(to);
    if (!sameApp || folder == nullptr) {
        return LIBIUSB_ERROR_AFC_OP_NOT_SUPPORTED;
    }
    _KTL_OBJECT *source = GetObject(from);
    if (source->mode == KTL_MODE_FILE &&
        source->size >= context->device_info.free_capacity) {
        return LIBIUSB_ERROR_NO_SPACE;
    }
    Client client;
    int ret = client.open(context, folder->app_id);
    if (ret == 0) {
        ret = renameInApp(context, client.handle, source, from, to);
    }
    if (ret != 0) {
        return ret;
    }
    _KTL_OBJECT *target = NoteRenamed(from, to);
    if (target->app_id == nullptr) {
        target->app_id = ReplaceString(nullptr, folder->app_id);
    }
    if (target->mode == KTL_MODE_FOLDER &&
        enumApps(context, to, nullptr, nullptr) != 0) {
        NoteListing(target, false);
    }
    return 0;
}
