// The apps area as a folder in the storage area, with a folder for each app.
#include "tarnifs/listing/apps.h"
#include "tarnifs/names/device_path.h"
#include "tarnifs/namespace/move.h"
#include "tarnifs/namespace/rename.h"
#include "util/log.h"

int CopyApps(_CONTEXT *context, const char *from, const char *to)
{
    constexpr const char *self = "tarnifs_rename";
    MOVE move{context, self, from, to};
    int ret = BeginMove(move);
    if (ret == 0) {
        ret = CheckTargetKind(move, true);
    }
    if (ret == 0 && !HasChildren(move.source)) {
        ret = enumApps(context, from, nullptr, nullptr);
    }
    if (ret != 0) {
        return ret;
    }
    ret = NoteTarget(move,
                     libiusb_afc_make_directory(context->afc_handle,
                                                StorageDevicePath(to).c_str()));
    if (ret != 0) {
        QNLog(3, "%s make directory failed. to : %s", self, to);
        return ret;
    }
    LinkFolder(move);
    for (const std::string &name : ChildNames(move.source)) {
        ret = movetostorage(context, ChildPath(from, name).c_str(),
                            ChildPath(to, name).c_str());
        if (ret != 0) {
            return ret;
        }
    }
    return 0;
}
