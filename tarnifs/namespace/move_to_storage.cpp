// Into the storage area: copies from the media views, moves out of apps.
#include "tarnifs/listing/apps.h"
#include "tarnifs/names/device_path.h"
#include "tarnifs/namespace/move.h"
#include "tarnifs/namespace/rename.h"
#include "util/log.h"

namespace
{

constexpr const char *SELF = "movetostorage";

// The copy is complete. What the removal says is only logged; the result is that
// of ending the connection.
int removeSource(const MOVE &move, HouseClient &client)
{
    const std::string path = AppDevicePath(move.from);
    const int ret = libiusb_afc_file_remove(client.handle, path.c_str());
    if (ret != 0) {
        QNLog(3,
              "%s  libiusb_afc_file_remove failed, ret : %d, hhandle : %p, "
              "path : %s",
              SELF, ret, static_cast<void *>(client.handle), path.c_str());
    }
    NoteRemoved(move, ret);
    return client.close();
}

// The source first: what is at the target must not be emptied for nothing.
int copyFile(const MOVE &move, FILE_COPY &copy)
{
    int ret = OpenSource(copy);
    if (ret != 0) {
        QNLog(3, "%s libiusb_afc_file_open failed, ret : %d", SELF, ret);
        return ret;
    }
    ret = NoteTarget(move, OpenTarget(copy));
    if (ret != 0) {
        QNLog(3, "%s  libiusb_afc_file_open failed, ret : %d", SELF, ret);
        return ret;
    }
    _KTL_OBJECT *target = LinkFile(move);
    ret = CopyFile(copy);
    target->size = copy.info.size;
    copy.source.close();
    if (ret != 0) {
        copy.target.close();
        NoteUnfinished(copy, move.folder, target);
        return ret;
    }
    SetPresentTimes(target);
    return 0;
}

int moveFile(const MOVE &move, HouseClient &client)
{
    FILE_COPY copy{SELF,
                   move.from,
                   move.to,
                   client.handle,
                   AppDevicePath(move.from),
                   move.context->afc_handle,
                   StorageDevicePath(move.to)};
    int ret = UploadSource(move, client.handle, copy.sourcePath);
    if (ret != 0) {
        return ret;
    }
    AnnounceSource(copy);
    ret = AskSource(copy);
    if (ret != 0) {
        QNLog(3, "%s get file info failed. ret : %d", SELF, ret);
        return ret;
    }
    ret = CheckRoom(move, copy.info.size);
    if (ret == 0) {
        ret = copyFile(move, copy);
    }
    return ret != 0 ? ret : removeSource(move, client);
}

// A listing that could not read the folder gives what it has; moving that and
// no more would look as if it were all.
int listFolder(const MOVE &move, HouseClient &client)
{
    if (HasChildren(move.source) && !IsListingUnfinished(move.source)) {
        return 0;
    }
    DropUnfinishedListing(move.from);
    NoteListing(move.source, true);
    int ret = enumApps(move.context, move.from, nullptr, nullptr);
    if (ret == 0 && !IsListingUnfinished(move.source)) {
        return 0;
    }
    NoteListing(move.source, false);
    libiusb_afc_file_info info{};
    if (ret == 0) {
        ret = libiusb_afc_file_get_info(
            client.handle, AppDevicePath(move.from).c_str(), &info);
    }
    return ret != 0 ? ret : LIBIUSB_ERROR_AFC_READ;
}

int moveFolder(const MOVE &move, HouseClient &client)
{
    int ret = listFolder(move, client);
    if (ret != 0) {
        return ret;
    }
    const std::string path = StorageDevicePath(move.to);
    ret = NoteTarget(move, libiusb_afc_make_directory(move.context->afc_handle,
                                                      path.c_str()));
    if (ret != 0) {
        QNLog(3, "%s libiusb_afc_make_directory failed. path(%s), ret : %d",
              SELF, path.c_str(), ret);
        return ret;
    }
    LinkFolder(move);
    ret = MoveEntries(move, ChildNames(move.source), movetostorage);
    return ret != 0 ? ret : removeSource(move, client);
}

int moveFromApp(const MOVE &move)
{
    HouseClient client;
    int ret = client.open(move.context, move.source->app_id, SELF, ", ret");
    const bool isFolder = move.source->mode == KTL_MODE_FOLDER;
    if (ret == 0) {
        ret = CheckTargetKind(move, isFolder);
    }
    if (ret != 0) {
        return ret;
    }
    return isFolder ? moveFolder(move, client) : moveFile(move, client);
}

} // namespace

int movetostorage(_CONTEXT *context, const char *from, const char *to)
{
    MOVE move{context, SELF, from, to};
    const int ret = BeginMove(move);
    if (ret != 0) {
        return ret;
    }
    if (BeginsWith(from, MEDIA_AREA)) {
        return CopyMedia(move, context->afc_handle, StorageDevicePath(to),
                         {"", ','}, movetostorage);
    }
    return moveFromApp(move);
}
