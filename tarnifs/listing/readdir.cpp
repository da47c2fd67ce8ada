#include "tarnifs/listing/readdir.h"

#include <cstring>

#include <sqlite3.h>

#include "device/libiusb.h"
#include "tarnifs/catalogue/object.h"
#include "tarnifs/listing/apps.h"
#include "tarnifs/listing/storage.h"
#include "tarnifs/media/databases.h"
#include "tarnifs/media/library.h"
#include "tarnifs/media/sql.h"
#include "tarnifs/media/statement.h"
#include "tarnifs/mount/context.h"
#include "tarnifs/names/device_path.h"
#include "tarnifs/notify/dialogs.h"
#include "util/check.h"
#include "util/log.h"

namespace
{

constexpr const char *SELF = "tarnifs_readdir";

// Where a listing goes. Without a filler it is filled into the catalogue only.
struct TARGET {
    void *buffer;
    tarni_filler filler;

    void emit(const char *name) const
    {
        if (filler != nullptr) {
            filler(buffer, name, nullptr, 0);
        }
    }
};

// A fixed folder of the layout, as a child of `parent`.
void makeFolder(_KTL_OBJECT *parent, const char *path)
{
    _KTL_OBJECT *folder = GetObjectWithFileName(path);
    folder->mode = KTL_MODE_FOLDER;
    SetPresentTimes(folder);
    LinkChild(parent, folder);
}

// The connection that the file operations keep on an app folder ends at the
// next listing, unless files in the folder are still open.
void endIdleHouseArrest(_KTL_OBJECT *folder, const char *path)
{
    if (folder->hhandle == 0 || folder->open_count != 0) {
        return;
    }
    const int ret = CloseHouseArrest(folder);
    if (ret != 0) {
        QNLog(3, "%s libiusb_housearrest_exit failed. path(%s). ret : %d", SELF,
              path, ret);
    }
}

int listCatalogue(_KTL_OBJECT *folder, const char *path, const TARGET &target)
{
    const _KTL_LIST *head = ChildList(folder);
    for (_KTL_LIST *at = head->next; at != head; at = at->next) {
        const char *name = ObjectOfSibling(at)->file_name;
        QN_CHECK(name != nullptr, "pObject->file_name");
        target.emit(name);
    }
    folder->enumerated = 1;
    endIdleHouseArrest(folder, path);
    return 0;
}

int listRoot(_KTL_OBJECT *root, const TARGET &target)
{
    root->mode = KTL_MODE_FOLDER;
    SetPresentTimes(root);
    makeFolder(root, "/Media");
    makeFolder(root, "/Apps");
    makeFolder(root, "/Storage");
    target.emit("Media");
    target.emit("Apps");
    target.emit("Storage");
    root->enumerated = 1;
    return 0;
}

// Whether the first row of a query begins with a number other than 0. A query
// that can't be asked counts as no; the log shows the media database whichever
// was asked.
bool yields(const _CONTEXT *context, sqlite3 *database, const char *query)
{
    Statement statement(SELF, database, query);
    if (!statement.ready()) {
        QNLog(3, "%s for meidadb : %p, ret : %d errormsg(%s)", SELF,
              static_cast<void *>(context->media_db), statement.code(),
              sqlite3_errmsg(context->media_db));
        return false;
    }
    return statement.next() && statement.integer(0) != 0;
}

bool hasPodcasts(const _CONTEXT *context)
{
    return yields(context, context->media_db, SQL_HAS_PODCASTS);
}

bool hasVoiceMemos(const _CONTEXT *context)
{
    return yields(context, context->record_db, SQL_HAS_MEMOS);
}

int listMedia(_CONTEXT *context, _KTL_OBJECT *media, const TARGET &target)
{
    NoteListing(media, true); // unless the databases can't be had for now
    if (context->media_db == nullptr && context->photo_db == nullptr) {
        DownloadDBandOpen(context);
    } else if (!FetchLostDatabases(context)) {
        NoteListing(media, false);
    }
    makeFolder(media, "/Media/Music");
    makeFolder(media, "/Media/Movies");
    makeFolder(media, "/Media/Photo");
    if (hasPodcasts(context)) {
        makeFolder(media, "/Media/Podcast");
        target.emit("Podcast");
    }
    if (hasVoiceMemos(context)) {
        makeFolder(media, "/Media/Voice Memos");
        target.emit("Voice Memos");
    }
    target.emit("Music");
    target.emit("Movies");
    target.emit("Photo");
    media->enumerated = 1;
    return 0;
}

// What listing an area came to: the device's code, and who said so.
struct AREA_RESULT {
    const char *lister; // null: no area owns the path
    int code;
};

AREA_RESULT listArea(_CONTEXT *context, const char *path, const TARGET &target,
                     off_t offset)
{
    if (BeginsWith(path, APPS_AREA)) {
        return {"enumApps",
                enumApps(context, path, target.buffer, target.filler)};
    }
    if (BeginsWith(path, STORAGE_AREA)) {
        return {"enumStorage", enumStorage(context, path, target.buffer,
                                           target.filler, offset)};
    }
    if (BeginsWith(path, MEDIA_AREA)) {
        return {"enumMedia",
                enumMedia(context, path, target.buffer, target.filler)};
    }
    return {nullptr, 0};
}

int listDevice(_CONTEXT *context, _KTL_OBJECT *folder, const char *path,
               const TARGET &target, off_t offset)
{
    NoteListing(folder,
                true); // unless the area, or its failure, says otherwise
    const AREA_RESULT result = listArea(context, path, target, offset);
    if (result.lister == nullptr) {
        QNLog(3, "%s Unexpected path(%s)", SELF, path);
        return ReportError(TEXT_UNEXPECTED_PATH, path);
    }
    if (result.code != 0) {
        NoteListing(folder, false);
        QNLog(3, "%s %s failed. error : %d", SELF, result.lister, result.code);
        return ReportDeviceFailure(FAILURE_READ_DIRECTORY,
                                   result.code == LIBIUSB_ERROR_LOST_CONNECTION,
                                   nullptr, result.code);
    }
    folder->enumerated = 1;
    return 0;
}

int readdirLocked(const char *path, const TARGET &target, off_t offset)
{
    _CONTEXT *context = nullptr;
    const int ret = getContext(&context);
    if (ret != 0) {
        return ret;
    }
    target.emit(".");
    target.emit("..");
    DropUnfinishedListing(path);
    _KTL_OBJECT *folder = GetObject(path);
    const bool unfinished = IsListingUnfinished(folder);
    if (HasChildren(folder) && !unfinished) {
        return listCatalogue(folder, path, target);
    }
    if (folder->enumerated == 1 && !unfinished) {
        return 0;
    }
    if (strcmp(path, "/") == 0) {
        return listRoot(folder, target);
    }
    if (strcmp(path, "/Media") == 0) {
        return listMedia(context, folder, target);
    }
    return listDevice(context, folder, path, target, offset);
}

} // namespace

int tarnifs_readdir(const char *path, void *buffer, tarni_filler filler,
                    off_t offset, tarni_file_info *)
{
    const TarniLock lock;
    return readdirLocked(path, {buffer, filler}, offset);
}
