// Voice memos.
#include <sqlite3.h>

#include "tarnifs/media/sql.h"
#include "tarnifs/media/views.h"
#include "tarnifs/names/device_path.h"
#include "util/log.h"

namespace
{

constexpr const char *SELF = "enumMedia";

// Where the device has its media file system, and the recordings in it. A path
// of the database begins so; one that is only a name means the same folder.
constexpr std::string_view MEDIA_ROOT = "/var/mobile/Media";
constexpr std::string_view RECORDINGS = "/var/mobile/Media/Recordings/";

struct MEMO_ROW {
    std::string name;
    std::string devicePath;
    int32_t date;
};

void logFailure(sqlite3 *database, int code)
{
    QNLog(3, "%s recorddb : %p, ret : %d, errormsg(%s)", SELF,
          static_cast<void *>(database), code, sqlite3_errmsg(database));
}

bool takeRow(const Statement &query, MEMO_ROW *row)
{
    if (query.isNull(0) || query.isNull(1)) {
        return false;
    }
    std::string path = query.text(1);
    if (path.empty() || path[0] != '/') {
        path.insert(0, RECORDINGS);
    }
    if (path.size() <= RECORDINGS.size()) {
        QNLog(3, "%s path is too short. path(%s)", SELF, path.c_str());
        return false;
    }
    row->name = query.text(0) + "_" + path.substr(RECORDINGS.size());
    row->devicePath = path.substr(MEDIA_ROOT.size());
    row->date = query.integer(2);
    return IsInside(SELF, row->devicePath);
}

// The entry that another row about the same recording made, or a new one. Two
// recordings of one name can only come from labels and file names that run
// together.
_KTL_OBJECT *entryOf(MEDIA_LISTING *listing, const std::string &name,
                     const std::string &devicePath)
{
    _KTL_OBJECT *known = FindObject(
        ChildPath(listing->path,
                  NumberedName(name, "", NUMBER_PLACE::BEFORE_EXTENSION))
            .c_str());
    if (known != nullptr && IsLinked(known) && known->device_path != nullptr &&
        devicePath == known->device_path) {
        return known;
    }
    const std::string path =
        listing->names.path(name, NUMBER_PLACE::BEFORE_EXTENSION, devicePath);
    return GetObjectWithFileName(path.c_str());
}

void makeEntry(MEDIA_LISTING *listing, const MEMO_ROW &row)
{
    libiusb_afc_file_info info{};
    const int ret = AskDevice(listing, row.devicePath, &info);
    if (ret != 0) {
        QNLog(3, "%s libiusb_afc_file_get_info failed. path(%s). ret : %d",
              SELF, row.devicePath.c_str(), ret);
        return;
    }
    std::string name;
    if (info.size == 0 || !CanonicalName(SELF, row.name, &name)) {
        return;
    }
    _KTL_OBJECT *object = entryOf(listing, name, row.devicePath);
    object->device_path =
        ReplaceString(object->device_path, row.devicePath.c_str());
    object->mode = KTL_MODE_FILE;
    object->birth_time = row.date;
    object->modify_time = row.date;
    object->access_time = row.date;
    object->size = info.size;
    Publish(*listing, object);
}

} // namespace

int ListVoiceMemos(MEDIA_LISTING *listing)
{
    sqlite3 *database = listing->context->record_db;
    BusySignal busy;
    {
        Statement count(SELF, database, SQL_COUNT_MEMOS);
        if (!count.ready()) {
            logFailure(database, count.code());
        } else if (CountOf(&count) >= BUSY_MEDIA_ROWS) {
            busy.begin();
        }
    }
    Statement rows(SELF, database, SQL_MEMOS);
    if (!rows.ready()) {
        logFailure(database, rows.code());
        return rows.code();
    }
    return ForEachRow<MEMO_ROW>(
        listing, &rows, takeRow,
        [](const MEMO_ROW &row, std::vector<const std::string *> *paths) {
            paths->push_back(&row.devicePath);
        },
        [&](const MEMO_ROW &row) {
            makeEntry(listing, row);
            return 0;
        });
}
