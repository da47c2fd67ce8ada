#include "tarnifs/namespace/move.h"

#include "tarnifs/filedata/create.h"
#include "tarnifs/names/device_path.h"
#include "tarnifs/namespace/rename.h"
#include "util/log.h"

namespace
{

// Folders within each other; beyond it a device is making them up.
constexpr size_t DEEPEST = 500;

_KTL_OBJECT *finishTarget(const MOVE &move, _KTL_OBJECT *target, uint16_t mode)
{
    target->mode = mode;
    if (target->app_id == nullptr) {
        target->app_id = ReplaceString(nullptr, move.folder->app_id);
    }
    SetPresentTimes(target);
    LinkChild(move.folder, target);
    return target;
}

// An entry of an app's folder that was never listed is the app's all the same.
void inheritApp(const MOVE &move)
{
    const _KTL_OBJECT *parent = GetParentObject(move.from);
    if (move.source->app_id == nullptr && parent != nullptr) {
        move.source->app_id = ReplaceString(nullptr, parent->app_id);
    }
}

} // namespace

int BeginMove(MOVE &move)
{
    move.folder = GetParentObject(move.to);
    move.source = GetObject(move.from);
    if (move.folder == nullptr) {
        return LIBIUSB_ERROR_AFC_OBJECT_NOT_FOUND;
    }
    inheritApp(move);
    // One that is there stays until the device has replaced what it shows.
    if (FindObject(move.to) == nullptr) {
        GetObjectWithFileName(move.to);
    }
    return move.source->mode == KTL_MODE_FILE
               ? CheckRoom(move, move.source->size)
               : 0;
}

int CheckRoom(const MOVE &move, uint64_t size)
{
    return size >= move.context->device_info.free_capacity
               ? LIBIUSB_ERROR_NO_SPACE
               : LIBIUSB_SUCCESS;
}

int CheckTargetKind(const MOVE &move, bool isFolder)
{
    const _KTL_OBJECT *existing = FindObject(move.to);
    if (existing == nullptr || !IsLinked(existing) ||
        (existing->mode == KTL_MODE_FOLDER) == isFolder) {
        return LIBIUSB_SUCCESS;
    }
    return isFolder ? LIBIUSB_ERROR_AFC_OBJECT_EXISTS
                    : LIBIUSB_ERROR_AFC_OBJECT_IS_DIR;
}

int NoteTarget(const MOVE &move, int result)
{
    if (result == LIBIUSB_ERROR_LOST_CONNECTION) {
        NoteDoubtful(move.to);
    }
    return result;
}

_KTL_OBJECT *LinkFile(const MOVE &move)
{
    return finishTarget(move, MakeTarget(move.to, move.source), KTL_MODE_FILE);
}

_KTL_OBJECT *LinkFolder(const MOVE &move)
{
    _KTL_OBJECT *existing = FindObject(move.to);
    const bool known = existing != nullptr && IsLinked(existing);
    const bool listed =
        known && (existing->enumerated != 0 || HasChildren(existing));
    _KTL_OBJECT *target = listed ? existing : MakeTarget(move.to, move.source);
    if (known && !listed) {
        NoteListing(target, false); // the device may have more in it
    }
    return finishTarget(move, target, KTL_MODE_FOLDER);
}

int MoveEntries(const MOVE &move, const std::vector<std::string> &names,
                MOVE_ENTRY moveEntry)
{
    if (PathDepth(move.from) > DEEPEST) {
        return LIBIUSB_ERROR_AFC_TOO_MUCH_DATA;
    }
    for (const std::string &name : names) {
        const std::string from = ChildPath(move.from, name);
        const std::string to = ChildPath(move.to, name);
        const int ret = moveEntry(move.context, from.c_str(), to.c_str());
        if (ret != 0) {
            QNLog(3, "%s  failed. ret : %d, from : %s, to : %s", move.self, ret,
                  from.c_str(), to.c_str());
            return ret;
        }
    }
    return 0;
}

std::vector<std::string> ChildNames(const _KTL_OBJECT *folder)
{
    std::vector<std::string> names;
    const _KTL_LIST *head = ChildList(folder);
    for (_KTL_LIST *at = head->next; at != head; at = at->next) {
        const char *name = ObjectOfSibling(at)->file_name;
        names.emplace_back(name == nullptr ? "" : name);
    }
    return names;
}

void NoteRemoved(const MOVE &move, int result)
{
    if (result == 0 || result == LIBIUSB_ERROR_AFC_OBJECT_NOT_FOUND) {
        DeleteChildObject(move.source, move.from);
        DeleteObject(move.source, move.from);
        return;
    }
    if (result == LIBIUSB_ERROR_LOST_CONNECTION) {
        NoteDoubtful(move.from);
    }
}

int UploadSource(const MOVE &move, libiusb_afc *afc,
                 const std::string &devicePath)
{
    return UploadAllStaged(move.context, move.source, move.from,
                           devicePath.c_str(), afc);
}
