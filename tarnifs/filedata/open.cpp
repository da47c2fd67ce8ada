#include <cerrno>

#include "tarnifs/catalogue/object.h"
#include "tarnifs/filedata/connection.h"
#include "tarnifs/filedata/device_file.h"
#include "tarnifs/filedata/filedata.h"
#include "tarnifs/mount/context.h"
#include "util/log.h"

namespace
{

constexpr const char *SELF = "tarnifs_open";

// Staged and temporary files have nothing to open on the device.
bool isOnDevice(const _KTL_OBJECT *object)
{
    return object->type != KTL_TEMPORARY && object->type != KTL_STAGED;
}

} // namespace

int tarnifs_open(const char *path, tarni_file_info *fi)
{
    const TarniLock lock;
    _CONTEXT *context = nullptr;
    int ret = getContext(&context);
    if (ret != 0) {
        return ret;
    }
    _KTL_OBJECT *object = FindObject(path);
    if (object == nullptr) {
        QNLog(3, "%s path(%s) object not EXIST", SELF, path);
        return -ENOENT;
    }
    fi->fh = 0;
    if (isOnDevice(object)) {
        ret = OpenDeviceFile(context, object, path);
    }
    if (ret == 0) {
        object->open_count += 1;
        SetOpenObject(fi, object);
    }
    return ret;
}
