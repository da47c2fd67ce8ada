#include "tarnifs/namespace/rename.h"

#include <new>
#include <string>

#include "tarnifs/catalogue/key.h"
#include "tarnifs/filedata/create.h"
#include "tarnifs/filedata/staging.h"
#include "tarnifs/listing/storage.h"
#include "tarnifs/names/device_path.h"
#include "tarnifs/namespace/move.h"
#include "tarnifs/notify/dialogs.h"
#include "tarnifs/notify/tray_pipe.h"
#include "util/log.h"

namespace
{

constexpr const char *SELF = "tarnifs_rename";
constexpr uint64_t LONG_MOVE = 3000000; // bytes; a larger file is announced

int refuseReadOnly(const char *to)
{
    QNLog(3, "%s create not supported. path : %s", SELF, to);
    return ReportRefusal(TEXT_READ_ONLY, ParentFolderText(to).c_str());
}

int refuseRename(const _KTL_OBJECT *source, const char *from, const char *to)
{
    QNLog(3, "%s rename not supported. path from : %s, to : %s", SELF, from,
          to);
    const bool folder = source->mode == KTL_MODE_FOLDER;
    return ReportRefusal(folder ? TEXT_RENAME_FOLDER : TEXT_RENAME_FILE, from);
}

void logAppLevel()
{
    QNLog(3, "%s rename not supported. ", SELF);
}

int report(int code)
{
    if (code == 0) {
        return 0;
    }
    if (code == LIBIUSB_ERROR_NO_SPACE) {
        return ReportError(TEXT_NO_SPACE, nullptr);
    }
    return ReportDeviceFailure(
        FAILURE_RENAME, code == LIBIUSB_ERROR_LOST_CONNECTION, nullptr, code);
}

int renameInStorage(_CONTEXT *context, _KTL_OBJECT *source, const char *from,
                    const char *to)
{
    const std::string deviceFrom = StorageDevicePath(from);
    const std::string deviceTo = StorageDevicePath(to);
    int ret = UploadAllStaged(context, source, from, deviceFrom.c_str(),
                              context->afc_handle);
    if (ret != 0) {
        return ret;
    }
    ret = libiusb_afc_rename(context->afc_handle, deviceFrom.c_str(),
                             deviceTo.c_str());
    if (ret != 0) {
        QNLog(3, "%s libiusb_afc_rename failed. from(%s) to(%s). error : %d",
              SELF, deviceFrom.c_str(), deviceTo.c_str(), ret);
        if (ret == LIBIUSB_ERROR_LOST_CONNECTION) {
            NoteDoubtful(from);
            NoteDoubtful(to);
        }
        return ret;
    }
    _KTL_OBJECT *target = NoteRenamed(from, to);
    if (target->mode == KTL_MODE_FOLDER) {
        NoteListing(target, enumStorage(context, to, nullptr, nullptr, 0) == 0);
    }
    return 0;
}

// A move that may take long is announced to the tray helper.
int moveBracketed(MOVE_ENTRY move, _CONTEXT *context, const _KTL_OBJECT *source,
                  const char *from, const char *to)
{
    const bool isLong =
        source->mode == KTL_MODE_FOLDER || source->size > LONG_MOVE;
    if (isLong) {
        sendPipeMsg(BUSY_ON);
    }
    const int ret = move(context, from, to);
    if (isLong) {
        sendPipeMsg(BUSY_OFF);
    }
    return report(ret);
}

int renameLocked(const char *from, const char *to)
{
    _KTL_OBJECT *source = GetObject(from);
    _CONTEXT *context = nullptr;
    const int ret = getContext(&context);
    if (ret != 0) {
        return report(ret);
    }
    switch (DecideRename(from, to)) {
    case RenameAction::DeviceRename:
        return report(renameInStorage(context, source, from, to));
    case RenameAction::MoveToStorage:
        return moveBracketed(movetostorage, context, source, from, to);
    case RenameAction::MoveToApps:
        return moveBracketed(movetoapps, context, source, from, to);
    case RenameAction::CopyApps:
        return moveBracketed(CopyApps, context, source, from, to);
    case RenameAction::ReadOnlyApps:
        logAppLevel();
        return refuseReadOnly(to);
    case RenameAction::ReadOnly:
        return refuseReadOnly(to);
    case RenameAction::RefusedApps:
        logAppLevel();
        return refuseRename(source, from, to);
    case RenameAction::Refused:
        break;
    }
    return refuseRename(source, from, to);
}

// What a replaced file took up is free again, on the device and here.
void dropReplaced(const _KTL_OBJECT *object, const char *path)
{
    _CONTEXT *context = nullptr;
    if (object->mode != KTL_MODE_FILE || getContext(&context) != 0) {
        return;
    }
    if (object->type == KTL_STAGED) {
        DropStaged(context, path);
    }
    context->device_info.free_capacity += object->size;
}

} // namespace

_KTL_OBJECT *MakeTarget(const char *to, const _KTL_OBJECT *source)
{
    _KTL_OBJECT *existing = FindObject(to);
    if (existing != nullptr && existing == source) {
        existing->file_name =
            ReplaceString(existing->file_name, LastComponent(to));
        return existing;
    }
    if (existing != nullptr) {
        dropReplaced(existing, to);
        DeleteChildObject(existing, to);
        DeleteObject(existing, to);
    }
    return GetObjectWithFileName(to);
}

_KTL_OBJECT *NoteRenamed(const char *from, const char *to)
{
    _KTL_OBJECT *target = MakeTarget(to, FindObject(from));
    // Looked up anew: it may have lain below what the target replaced.
    _KTL_OBJECT *source = GetObject(from);
    if (source->mode == KTL_MODE_FOLDER) {
        DeleteChildObject(source, from);
    }
    const int64_t birth = source->birth_time;
    SetPresentTimes(target);
    target->birth_time = birth;
    _KTL_OBJECT *folder = GetParentObject(to);
    if (folder != nullptr) {
        LinkChild(folder, target);
    }
    if (target != source) {
        target->size = source->size;
        target->mode = source->mode;
        target->xattr_list = source->xattr_list;
        source->xattr_list = nullptr;
        DeleteObject(source, from);
    }
    return target;
}

int tarnifs_rename(const char *from, const char *to)
{
    const TarniLock lock;
    try {
        return renameLocked(from, to);
    } catch (const std::bad_alloc &) {
        return report(LIBIUSB_ERROR_NO_MEMORY);
    }
}
