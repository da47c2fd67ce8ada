// Into an app: copies from the media views, moves from the storage area and from
// other apps, and renames within one app.
#include <cstring>

#include "tarnifs/listing/apps.h"
#include "tarnifs/names/device_path.h"
#include "tarnifs/namespace/move.h"
#include "tarnifs/namespace/rename.h"
#include "tarnifs/notify/busy_signal.h"
#include "tarnifs/notify/tray_pipe.h"
#include "util/log.h"

namespace
{

constexpr const char *SELF = "movetoapps";

// ---------------------------------------------------------------------------
// Folders of the storage area and of other apps

int failedList(const std::string &path, int ret)
{
    QNLog(3, "%s libiusb_afc_file_read_directory failed. from(%s). ret : %d",
          SELF, path.c_str(), ret);
    return ret;
}

// The names in a device folder, without those that begin with ".": they stay,
// and the folder with them. A long list is announced.
int readNames(libiusb_afc *afc, const std::string &path, BusySignal &busy,
              std::vector<std::string> *names)
{
    uint32_t count = 0;
    int ret =
        libiusb_afc_file_read_directory(afc, path.c_str(), nullptr, &count);
    if (ret != 0) {
        return failedList(path, ret);
    }
    if (count > BUSY_ENTRIES) {
        busy.begin();
    }
    char **list = nullptr;
    ret = libiusb_afc_file_read_directory(afc, path.c_str(), &list, &count);
    if (ret != 0) {
        return failedList(path, ret);
    }
    for (char **name = list; *name != nullptr; ++name) {
        if (**name != '.') {
            names->emplace_back(*name);
        }
    }
    libiusb_misc_free_strings_array(list);
    return 0;
}

// The folder and what is in it; the source folder is left empty, but for what
// stays.
int moveEntries(const MOVE &move, const FILE_COPY &copy, BusySignal &busy)
{
    int ret = NoteTarget(move, libiusb_afc_make_directory(
                                   copy.targetAfc, copy.targetPath.c_str()));
    if (ret != 0) {
        QNLog(3, "%s libiusb_afc_make_directory failed, path(%s), ret : %d",
              SELF, copy.targetPath.c_str(), ret);
        return ret;
    }
    LinkFolder(move);
    std::vector<std::string> names;
    ret = readNames(copy.sourceAfc, copy.sourcePath, busy, &names);
    return ret != 0 ? ret : MoveEntries(move, names, movetoapps);
}

// What is left to do once both ends of a file are open.
int finishFile(const MOVE &move, FILE_COPY &copy, _KTL_OBJECT *target)
{
    const int ret = CopyFile(copy);
    target->size = copy.info.size;
    if (ret == 0) {
        SetPresentTimes(target);
        return 0;
    }
    copy.source.close();
    NoteUnfinished(copy, move.folder, target);
    return ret;
}

// ---------------------------------------------------------------------------
// From the storage area

// The source first: what is at the target must not be emptied for nothing.
int copyFromStorage(const MOVE &move, FILE_COPY &copy)
{
    int ret = OpenSource(copy);
    if (ret == 0) {
        ret = NoteTarget(move, OpenTarget(copy));
    }
    if (ret != 0) {
        QNLog(3, "%s libiusb_afc_file_open failed, ret : %d", SELF, ret);
        return ret;
    }
    ret = finishFile(move, copy, LinkFile(move));
    copy.source.close();
    return ret;
}

int fileFromStorage(const MOVE &move, FILE_COPY &copy)
{
    const int ret = copyFromStorage(move, copy);
    if (ret != 0) {
        return ret;
    }
    const int removed =
        libiusb_afc_file_remove(copy.sourceAfc, copy.sourcePath.c_str());
    if (removed != 0) {
        QNLog(3, "%s libiusb_afc_file_remove failed, ret : %d", SELF, removed);
    }
    NoteRemoved(move, removed);
    return 0;
}

int folderFromStorage(const MOVE &move, const FILE_COPY &copy, BusySignal &busy)
{
    const int ret = moveEntries(move, copy, busy);
    if (ret != 0 || move.from == STORAGE_AREA) {
        return ret; // the area itself stays, empty
    }
    const int removed =
        libiusb_afc_file_remove(copy.sourceAfc, copy.sourcePath.c_str());
    if (removed != 0) {
        QNLog(3, "%s libiusb_afc_file_remove failed. from(%s), ret : %d", SELF,
              copy.sourcePath.c_str(), removed);
    }
    NoteRemoved(move, removed);
    return 0;
}

// Asks what the source is; whether that can replace what is there, and has room.
int askSource(const MOVE &move, FILE_COPY &copy, bool *isFolder)
{
    if (move.source->mode == KTL_MODE_FILE) {
        AnnounceSource(copy);
    }
    int ret = AskSource(copy);
    if (ret != 0) {
        return ret;
    }
    *isFolder = copy.info.file_type == LIBIUSB_FILE_FOLDER;
    return 0;
}

int checkSource(const MOVE &move, const FILE_COPY &copy, bool isFolder)
{
    const int ret = CheckTargetKind(move, isFolder);
    return ret != 0 || isFolder ? ret : CheckRoom(move, copy.info.size);
}

int fromStorage(const MOVE &move, FILE_COPY &copy, BusySignal &busy)
{
    int ret = UploadSource(move, copy.sourceAfc, copy.sourcePath);
    if (ret != 0) {
        return ret;
    }
    bool isFolder = false;
    ret = askSource(move, copy, &isFolder);
    if (ret != 0) {
        QNLog(3, "%s get file info failed. ret : %d", SELF, ret);
        return ret;
    }
    ret = checkSource(move, copy, isFolder);
    if (ret != 0) {
        return ret;
    }
    return isFolder ? folderFromStorage(move, copy, busy)
                    : fileFromStorage(move, copy);
}

// ---------------------------------------------------------------------------
// From another app

int openEnd(int (*open)(FILE_COPY &copy), FILE_COPY &copy,
            const std::string &path)
{
    const int ret = open(copy);
    if (ret != 0) {
        QNLog(3, "%s libiusb_afc_file_open failed. path(%s), error : %d", SELF,
              path.c_str(), ret);
    }
    return ret;
}

int fileFromApp(const MOVE &move, FILE_COPY &copy)
{
    int ret = openEnd(OpenSource, copy, copy.sourcePath);
    if (ret == 0) {
        ret = NoteTarget(move, openEnd(OpenTarget, copy, copy.targetPath));
    }
    if (ret == 0) {
        ret = finishFile(move, copy, LinkFile(move));
    }
    if (ret != 0) {
        return ret;
    }
    const int closed = copy.source.close();
    if (closed != 0) {
        QNLog(3, "%s from handle libiusb_afc_file_close failed. error : %d",
              SELF, closed);
    }
    const int removed =
        libiusb_afc_file_remove(copy.sourceAfc, copy.sourcePath.c_str());
    if (removed != 0) {
        QNLog(3, "%s libiusb_afc_file_remove failed. path(%s), error : %d",
              SELF, copy.sourcePath.c_str(), removed);
    }
    NoteRemoved(move, removed);
    return 0;
}

int folderFromApp(const MOVE &move, const FILE_COPY &copy, BusySignal &busy)
{
    const int ret = moveEntries(move, copy, busy);
    if (ret != 0) {
        return ret;
    }
    const int removed =
        libiusb_afc_file_remove(copy.sourceAfc, copy.sourcePath.c_str());
    if (removed != 0) {
        QNLog(3, "%s libiusb_afc_file_remove failed, path(%s), ret : %d", SELF,
              copy.sourcePath.c_str(), removed);
    }
    NoteRemoved(move, removed);
    return 0;
}

int fromOtherApp(const MOVE &move, FILE_COPY &copy, BusySignal &busy)
{
    int ret = UploadSource(move, copy.sourceAfc, copy.sourcePath);
    if (ret != 0) {
        return ret;
    }
    bool isFolder = false;
    ret = askSource(move, copy, &isFolder);
    if (ret != 0) {
        QNLog(3, "%s libiusb_afc_file_get_info failed. path(%s), error : %d",
              SELF, copy.sourcePath.c_str(), ret);
        return ret;
    }
    ret = checkSource(move, copy, isFolder);
    if (ret != 0) {
        return ret;
    }
    return isFolder ? folderFromApp(move, copy, busy) : fileFromApp(move, copy);
}

int moveFromOtherApp(const MOVE &move, libiusb_afc *target, BusySignal &busy)
{
    HouseClient client;
    int ret = client.open(move.context, move.source->app_id, SELF, ". error");
    if (ret != 0) {
        return ret;
    }
    FILE_COPY copy{SELF,
                   move.from,
                   move.to,
                   client.handle,
                   AppDevicePath(move.from),
                   target,
                   AppDevicePath(move.to)};
    ret = fromOtherApp(move, copy, busy);
    copy.announcement.giveUp(); // of what turned out to be a folder
    copy.source.close();
    copy.target.close();
    const int ended = ret == 0 ? client.close() : 0;
    if (ended != 0) {
        QNLog(3, "%s from libiusb_housearrest_exit failed. error : %d", SELF,
              ended);
    }
    return ret != 0 ? ret : ended;
}

// ---------------------------------------------------------------------------
// Within one app

int renameOnDevice(const MOVE &move, libiusb_afc *client)
{
    const std::string from = AppDevicePath(move.from);
    const std::string to = AppDevicePath(move.to);
    int ret = UploadSource(move, client, from);
    if (ret != 0) {
        return ret;
    }
    ret = libiusb_afc_rename(client, from.c_str(), to.c_str());
    if (ret != 0) {
        QNLog(3, "%s libiusb_afc_rename filed, from(%s), to(%s), ret : %d",
              SELF, from.c_str(), to.c_str(), ret);
        if (ret == LIBIUSB_ERROR_LOST_CONNECTION) {
            NoteDoubtful(move.from);
            NoteDoubtful(move.to);
        }
    }
    return ret;
}

bool isBelow(const char *path, const char *folder)
{
    const size_t length = strlen(folder);
    return strncmp(path, folder, length) == 0 && path[length] == '/';
}

int moveInApp(const MOVE &move, libiusb_afc *client)
{
    if (isBelow(move.to, move.from)) {
        return LIBIUSB_ERROR_AFC_INVALID_ARG;
    }
    const int ret = renameOnDevice(move, client);
    if (ret != 0) {
        return ret;
    }
    _KTL_OBJECT *target = NoteRenamed(move.from, move.to);
    _KTL_OBJECT *folder = GetParentObject(move.to);
    if (target->app_id == nullptr && folder != nullptr) {
        target->app_id = ReplaceString(nullptr, folder->app_id);
    }
    if (target->mode == KTL_MODE_FOLDER &&
        enumApps(move.context, move.to, nullptr, nullptr) != 0) {
        NoteListing(target, false);
    }
    return 0;
}

// Whatever the app's folder is called: a copy onto itself would cut its own
// source.
bool isSameApp(const MOVE &move)
{
    const char *source = move.source->app_id;
    const char *target = move.folder->app_id;
    return AppFolderName(move.from) == AppFolderName(move.to) ||
           (source != nullptr && target != nullptr &&
            strcmp(source, target) == 0);
}

int moveInto(const MOVE &move, libiusb_afc *client, BusySignal &busy)
{
    if (BeginsWith(move.from, MEDIA_AREA)) {
        return CopyMedia(move, client, AppDevicePath(move.to), {" ", '.'},
                         movetoapps);
    }
    if (BeginsWith(move.from, STORAGE_AREA)) {
        FILE_COPY copy{SELF,
                       move.from,
                       move.to,
                       move.context->afc_handle,
                       StorageDevicePath(move.from),
                       client,
                       AppDevicePath(move.to)};
        return fromStorage(move, copy, busy);
    }
    return isSameApp(move) ? moveInApp(move, client)
                           : moveFromOtherApp(move, client, busy);
}

} // namespace

int movetoapps(_CONTEXT *context, const char *from, const char *to)
{
    MOVE move{context, SELF, from, to};
    int ret = BeginMove(move);
    if (ret != 0) {
        return ret;
    }
    BusySignal busy; // ends after the connections
    HouseClient client;
    ret = client.open(context, move.folder->app_id, SELF, ", ret");
    return ret != 0 ? ret : moveInto(move, client.handle, busy);
}
