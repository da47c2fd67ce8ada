// Items and folders of the media views, copied into another area.
#include <algorithm>
#include <cstring>

#include "tarnifs/media/library.h"
#include "tarnifs/names/device_path.h"
#include "tarnifs/namespace/move.h"
#include "util/log.h"

namespace
{

constexpr const char *PHOTO_ROOT = "/Media/Photo";

// The source first: what is at the target must not be emptied for nothing.
int openSource(const MOVE &move, FILE_COPY &copy, const MEDIA_LINES &lines)
{
    AnnounceSource(copy);
    int ret = AskSource(copy);
    if (ret != 0) {
        QNLog(3, "%s get file info failed. ret : %d", copy.self, ret);
        return ret;
    }
    ret = CheckRoom(move, copy.info.size);
    if (ret != 0) {
        return ret;
    }
    ret = OpenSource(copy);
    if (ret != 0) {
        QNLog(3, "%s %slibiusb_afc_file_open failed, ret : %d", copy.self,
              lines.openSource, ret);
    }
    return ret;
}

void lowerFreeCapacity(_CONTEXT *context, uint64_t size)
{
    const uint64_t capacity = context->device_info.free_capacity;
    context->device_info.free_capacity = capacity - std::min(size, capacity);
}

int copyItem(const MOVE &move, FILE_COPY &copy, const MEDIA_LINES &lines)
{
    copy.sourceStays = true;
    int ret = openSource(move, copy, lines);
    if (ret != 0) {
        return ret;
    }
    ret = NoteTarget(move, OpenTarget(copy));
    if (ret != 0) {
        QNLog(3, "%s libiusb_afc_file_open failed, ret : %d", copy.self, ret);
        return ret;
    }
    _KTL_OBJECT *target = LinkFile(move);
    ret = CopyFile(copy);
    target->size = copy.info.size;
    const int closed = copy.source.close();
    if (ret != 0) {
        copy.target.close();
        NoteUnfinished(copy, move.folder, target);
        return ret;
    }
    lowerFreeCapacity(move.context, move.source->size);
    SetPresentTimes(target);
    return closed;
}

// An item whose place on the device is not known, or is the target itself, must
// not cost what is there.
int copyFile(const MOVE &move, libiusb_afc *targetAfc,
             const std::string &targetPath, const MEDIA_LINES &lines)
{
    libiusb_afc *media = move.context->afc_handle;
    const char *path = move.source->device_path;
    if (path == nullptr) {
        const int ret = LIBIUSB_ERROR_AFC_OBJECT_NOT_FOUND;
        QNLog(3, "%s get file info failed. ret : %d", move.self, ret);
        return ret;
    }
    if (targetAfc == media && targetPath == path) {
        return LIBIUSB_ERROR_INVALID_ARG;
    }
    FILE_COPY copy{move.self, move.from, move.to,   media,
                   path,      targetAfc, targetPath};
    return copyItem(move, copy, lines);
}

// Albums are two levels deep, and all of them are wanted before the first is
// copied. One that can't be listed is tried again when its turn comes.
void listAlbums(const MOVE &move)
{
    for (const std::string &name : ChildNames(move.source)) {
        const std::string path = ChildPath(move.from, name);
        if (enumMedia(move.context, path.c_str(), nullptr, nullptr) != 0) {
            NoteListing(GetObject(path.c_str()), false);
        }
    }
}

int listFolder(const MOVE &move)
{
    if (HasChildren(move.source) && !IsListingUnfinished(move.source)) {
        return 0;
    }
    DropUnfinishedListing(move.from);
    NoteListing(move.source, true); // unless it says otherwise
    const int ret = enumMedia(move.context, move.from, nullptr, nullptr);
    if (ret != 0) {
        NoteListing(move.source, false);
        return ret;
    }
    if (strcmp(move.from, PHOTO_ROOT) == 0) {
        listAlbums(move);
    }
    return IsListingUnfinished(move.source) ? LIBIUSB_ERROR_LOST_CONNECTION : 0;
}

int copyFolder(const MOVE &move, libiusb_afc *targetAfc,
               const std::string &targetPath, const MEDIA_LINES &lines,
               MOVE_ENTRY moveEntry)
{
    int ret = NoteTarget(
        move, libiusb_afc_make_directory(targetAfc, targetPath.c_str()));
    if (ret != 0) {
        QNLog(3, "%s libiusb_afc_make_directory failed. to(%s)%c ret : %d",
              move.self, targetPath.c_str(), lines.afterFolder, ret);
        return ret;
    }
    LinkFolder(move);
    ret = listFolder(move);
    return ret != 0 ? ret
                    : MoveEntries(move, ChildNames(move.source), moveEntry);
}

} // namespace

int CopyMedia(const MOVE &move, libiusb_afc *targetAfc,
              const std::string &targetPath, const MEDIA_LINES &lines,
              MOVE_ENTRY moveEntry)
{
    const bool isFolder = move.source->mode == KTL_MODE_FOLDER;
    const int ret = CheckTargetKind(move, isFolder);
    if (ret != 0) {
        return ret;
    }
    return isFolder ? copyFolder(move, targetAfc, targetPath, lines, moveEntry)
                    : copyFile(move, targetAfc, targetPath, lines);
}
