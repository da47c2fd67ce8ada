// The folders of "/Media/Photo": the camera roll, the user's albums, and a
// folder for each kind of picture that is there.
#include <cstdint>
#include <string>

#include <sqlite3.h>

#include "tarnifs/media/library.h"
#include "tarnifs/media/photos.h"
#include "tarnifs/media/sql.h"
#include "tarnifs/media/views.h"
#include "util/log.h"

namespace
{

constexpr const char *SELF = "enumMedia";
constexpr int32_t KIND_VIDEO = 1;
constexpr int32_t ALBUM_PHOTO_STREAM = 1500;

// What became of the queries so far. A database of an unknown generation may
// answer some; only one that answers none has no folders to show.
struct ROOT {
    MEDIA_LISTING *listing;
    sqlite3 *database;
    bool answered = false;
    int failure = 0; // code of the first query that could not be asked

    std::string path(const char *name) const
    {
        return std::string(listing->path) + "/" + name;
    }
};

bool isAsked(ROOT *root, const Statement &query)
{
    if (query.ready()) {
        root->answered = true;
        return true;
    }
    if (root->failure == 0) {
        root->failure = query.code();
    }
    return false;
}

void logFailure(const ROOT &root, int code)
{
    QNLog(3, "%s photodb : %p, ret : %d, errormsg(%s)", SELF,
          static_cast<void *>(root.database), code,
          sqlite3_errmsg(root.database));
}

void listCameraRoll(ROOT *root)
{
    _KTL_OBJECT *cameraRoll =
        PublishFolder(*root->listing, root->path("Camera Roll"));
    Statement query(SELF, root->database, SQL_CAMERA_ROLL_ALBUM);
    if (!isAsked(root, query)) {
        logFailure(*root, query.code());
        return;
    }
    while (query.next()) {
        const auto key = static_cast<uint32_t>(query.integer64(0));
        if (key != 0) {
            cameraRoll->sub_type = key;
        }
    }
}

void listAlbum(ROOT *root, const Statement &row)
{
    std::string name = "My Photo Stream";
    if (row.isNull(0) || row.integer64(3) == 0) {
        return;
    }
    if (row.integer(2) != ALBUM_PHOTO_STREAM &&
        (!AlbumName(SELF, row.text(0), &name) || !CanBeEntry(SELF, name))) {
        return;
    }
    const std::string path =
        root->listing->names.path(name, NUMBER_PLACE::AT_END);
    _KTL_OBJECT *album = PublishFolder(*root->listing, path);
    album->sub_type = static_cast<uint32_t>(row.integer64(1));
}

void listAlbums(ROOT *root)
{
    Statement query(SELF, root->database, SQL_ALBUMS);
    if (!isAsked(root, query)) {
        logFailure(*root, query.code());
        return;
    }
    while (query.next()) {
        listAlbum(root, query);
    }
}

// An album that was given the name of one of these before stands for it.
void listKinds(ROOT *root)
{
    Statement query(SELF, root->database, SQL_KINDS);
    if (!isAsked(root, query)) {
        logFailure(*root, query.code());
        return;
    }
    while (query.next()) {
        if (query.integer(1) == KIND_VIDEO) {
            PublishFolder(*root->listing, root->path("Recorded Videos"));
        }
        const char *folder = getFolderNamefromSubtype(query.integer(0));
        if (folder != nullptr) {
            PublishFolder(*root->listing, root->path(folder));
        }
    }
}

// A folder that is there when a query has a row that is not 0.
void probe(ROOT *root, const char *name, const char *sql)
{
    Statement query(SELF, root->database, sql);
    if (!isAsked(root, query)) {
        QNLog(3, "%s photodb : %p, ret : %d, errormsg(%s), iOS version : %s",
              SELF, static_cast<void *>(root->database), query.code(),
              sqlite3_errmsg(root->database),
              root->listing->context->device_info.ios_version);
        return;
    }
    while (query.next()) {
        if (query.integer64(0) != 0) {
            PublishFolder(*root->listing, root->path(name));
        }
    }
}

} // namespace

int ListPhotoRoot(MEDIA_LISTING *listing)
{
    ROOT root{listing, listing->context->photo_db};
    listCameraRoll(&root);
    listAlbums(&root);
    listKinds(&root);
    if (checkiOSVersion(listing->context->device_info.ios_version, 9, 0) == 0) {
        probe(&root, "Selfies", SQL_HAS_SELFIES);
        probe(&root, "Bursts", SQL_HAS_BURSTS);
    }
    return root.answered ? 0 : root.failure;
}
