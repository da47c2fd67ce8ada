// Music, podcasts and movies: the same rows and rules, but for the naming.
#include <cstring>
#include <locale>
#include <string_view>

#include <boost/algorithm/string/trim.hpp>
#include <sqlite3.h>

#include "tarnifs/listing/entries.h"
#include "tarnifs/media/sql.h"
#include "tarnifs/media/views.h"
#include "tarnifs/names/encoding.h"
#include "util/log.h"

struct MEDIA_KIND {
    const char *path;
    std::string_view clause;
    const char *logName;  // in the line about a query that failed,
    const char *logComma; // where one of the three has a comma more
    bool isMusic;
    bool logsCuts;
};

namespace
{

constexpr const char *SELF = "enumMedia";

constexpr MEDIA_KIND KINDS[] = {
    {"/Media/Music", SQL_IS_MUSIC, "music", "", true, false},
    {"/Media/Podcast", SQL_IS_PODCAST, "Podcast", "", false, false},
    {"/Media/Movies", SQL_IS_MOVIE, "Movies", ",", false, true},
};

struct MEDIA_ROW {
    std::string stem; // artist and title
    std::string location;
    std::string devicePath;
    int64_t size;
};

void logFailure(const MEDIA_KIND &kind, sqlite3 *database, int code)
{
    QNLog(3, "%s for %s meidadb : %p, ret : %d%s errormsg(%s)", SELF,
          kind.logName, static_cast<void *>(database), code, kind.logComma,
          sqlite3_errmsg(database));
}

bool takeRow(const Statement &query, MEDIA_ROW *row)
{
    if (query.isNull(2) || query.isNull(3)) {
        return false; // lies nowhere
    }
    row->stem = query.isNull(0) ? "" : query.text(0) + "-";
    row->stem += query.text(1);
    row->location = query.text(2);
    row->devicePath = "/" + query.text(3) + "/" + row->location;
    row->size = query.integer64(4);
    return IsInside(SELF, row->devicePath);
}

// Songs that some programs put on devices carry a mark and a number behind the
// title.
void dropMark(std::string *stem)
{
    const size_t mark = stem->rfind("wlrtitdb");
    if (mark != std::string::npos) {
        stem->resize(mark);
    }
    boost::algorithm::trim_right(*stem, std::locale::classic());
}

// Cuts a stem of 133 bytes and more to between 127 and 132, where the kind's own
// test finds the beginning of a character.
void cutStem(const MEDIA_KIND &kind, std::string *stem)
{
    constexpr size_t LONGEST = 132;
    constexpr size_t FIRST_CUT = 127;
    if (stem->size() <= LONGEST) {
        return;
    }
    if (kind.logsCuts) {
        QNLog(3, "%s %s filename length is over %d.", SELF, stem->c_str(),
              static_cast<int>(stem->size()));
    }
    const unsigned mask = kind.isMusic ? 0x80U : 0xE0U;
    size_t cut = FIRST_CUT;
    while (cut < LONGEST &&
           (static_cast<unsigned char>((*stem)[cut]) & mask) != mask) {
        ++cut;
    }
    stem->resize(cut);
    DropBrokenTail(stem);
}

bool nameOf(const MEDIA_KIND &kind, const MEDIA_ROW &row, std::string *name)
{
    std::string stem = row.stem;
    if (kind.isMusic) {
        dropMark(&stem);
    }
    if (!CanonicalName(SELF, stem, name)) {
        return false;
    }
    cutStem(kind, name);
    const size_t dot = row.location.find('.');
    std::string extension;
    if (dot != std::string::npos &&
        !CanonicalName(SELF, row.location.substr(dot), &extension)) {
        return false;
    }
    *name += extension;
    return CanBeEntry(SELF, *name);
}

// A file whose size the library has wrong is being replaced, or is not the
// item's.
bool isAsRecorded(const MEDIA_ROW &row, uint64_t deviceSize)
{
    if (row.size == 0) {
        QNLog(3, "%s file : (%s) size 0", SELF, row.location.c_str());
        return false;
    }
    if (static_cast<uint64_t>(row.size) != deviceSize) {
        QNLog(
            3,
            "%s file : (%s), database file size : %lld, local file size : %lld",
            SELF, row.location.c_str(), static_cast<long long>(row.size),
            static_cast<long long>(deviceSize));
        return false;
    }
    return true;
}

void makeEntry(MEDIA_LISTING *listing, const MEDIA_KIND &kind,
               const MEDIA_ROW &row)
{
    libiusb_afc_file_info info{};
    std::string name;
    const int ret = AskDevice(listing, row.devicePath, &info);
    // The path of an item that is only in the cloud is a folder's.
    const bool isFolder = ret == LIBIUSB_ERROR_AFC_OBJECT_IS_DIR;
    if ((ret != 0 && !isFolder) || !isAsRecorded(row, info.size) || isFolder ||
        !nameOf(kind, row, &name)) {
        return;
    }
    const std::string path = listing->names.path(
        name, NUMBER_PLACE::BEFORE_EXTENSION, row.devicePath);
    _KTL_OBJECT *object = GetObjectWithFileName(path.c_str());
    object->device_path =
        ReplaceString(object->device_path, row.devicePath.c_str());
    object->mode = KTL_MODE_FILE;
    FillSizeAndTimes(object, info);
    Publish(*listing, object);
}

} // namespace

const MEDIA_KIND *MediaKindOf(const char *path)
{
    for (const MEDIA_KIND &kind : KINDS) {
        if (strcmp(path, kind.path) == 0) {
            return &kind;
        }
    }
    return nullptr;
}

int ListMediaLibrary(MEDIA_LISTING *listing, const MEDIA_KIND &kind)
{
    sqlite3 *database = listing->context->media_db;
    BusySignal busy;
    {
        Statement count(SELF, database, MediaCountQuery(kind.clause));
        if (!count.ready()) {
            logFailure(kind, database, count.code());
        } else if (CountOf(&count) >= BUSY_MEDIA_ROWS) {
            busy.begin();
        }
    }
    Statement rows(SELF, database, MediaRowsQuery(kind.clause));
    if (!rows.ready()) {
        logFailure(kind, database, rows.code());
        return rows.code();
    }
    return ForEachRow<MEDIA_ROW>(
        listing, &rows, takeRow,
        [](const MEDIA_ROW &row, std::vector<const std::string *> *paths) {
            paths->push_back(&row.devicePath);
        },
        [&](const MEDIA_ROW &row) {
            makeEntry(listing, kind, row);
            return 0;
        });
}
