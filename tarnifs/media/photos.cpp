#include "tarnifs/media/photos.h"

#include <string>

#include <sqlite3.h>

#include "tarnifs/media/library.h"
#include "tarnifs/media/photo_entry.h"
#include "tarnifs/media/sql.h"
#include "tarnifs/media/views.h"
#include "util/log.h"

namespace
{

constexpr int NOT_ASKED = -1;
constexpr int STOPPED = -2;
constexpr int32_t LIVE_PHOTO = 2;

struct SUBTYPE {
    int subtype;
    const char *folder;
};
constexpr SUBTYPE SUBTYPES[] = {
    {1, "Panoramas"},    {10, "Screenshots"}, {101, "Slo-mo"},
    {102, "Time-lapse"}, {2000, "Selfies"},   {2001, "Bursts"},
};

struct ENTITY {
    const char *name;
    uint32_t _PHOTOALBUMENT::*field;
};
constexpr ENTITY ENTITIES[] = {
    {"AdditionalAssetAttributes", &_PHOTOALBUMENT::additional_attributes_ent},
    {"Album", &_PHOTOALBUMENT::album_ent},
    {"GenericAsset", &_PHOTOALBUMENT::generic_asset_ent},
    {"Moment", &_PHOTOALBUMENT::moment_ent},
};

// False: no entity of that name is expected.
bool storeEntity(const std::string &name, uint32_t number, _PHOTOALBUMENT *out)
{
    for (const ENTITY &entity : ENTITIES) {
        if (name == entity.name) {
            out->*entity.field = number;
            return true;
        }
    }
    return false;
}

void logFailure(const char *self, sqlite3 *database, int code)
{
    QNLog(3, "%s photodb : %p, ret : %d, errormsg(%s)", self,
          static_cast<void *>(database), code, sqlite3_errmsg(database));
}

// Makes the entries of a row: the file, and for a live photo its film.
int makeEntries(MEDIA_LISTING *listing, const PHOTO_ROW &row, bool is_cloud,
                int *last_master)
{
    const int ret = GetPhotoFromDevice(listing, row, is_cloud, 0, last_master);
    if (ret != 0 || row.subtype != LIVE_PHOTO) {
        return ret;
    }
    return GetPhotoFromDevice(listing, row, is_cloud, LIVE_PHOTO, last_master);
}

void announceMany(const char *self, sqlite3 *database, const std::string &sql,
                  BusySignal *busy)
{
    Statement count(self, database, sql);
    if (!count.ready()) {
        logFailure(self, database, count.code());
    } else if (CountOf(&count) >= BUSY_PHOTO_ROWS) {
        busy->begin();
    }
}

int listRows(const char *self, MEDIA_LISTING *listing, const PHOTO_QUERY &query)
{
    sqlite3 *database = listing->context->photo_db;
    const bool is_cloud = query.family == PHOTO_FAMILY::CLOUD;
    BusySignal busy;
    announceMany(self, database, PhotoCountQuery(query), &busy);
    Statement rows(self, database, PhotoRowsQuery(query));
    if (!rows.ready()) {
        logFailure(self, database, rows.code());
        return NOT_ASKED;
    }
    int lastMaster = 0;
    return ForEachRow<PHOTO_ROW>(
        listing, &rows,
        [is_cloud](const Statement &statement, PHOTO_ROW *row) {
            return TakePhotoRow(statement, is_cloud, row);
        },
        [is_cloud](const PHOTO_ROW &row,
                   std::vector<const std::string *> *paths) {
            paths->push_back(&row.devicePath);
            // In the cloud family a film has a row of its own, whose master is
            // listed by then: it is not asked about twice.
            const bool isFilm = is_cloud && row.filmPath == row.devicePath;
            if (row.subtype == LIVE_PHOTO && !isFilm) {
                paths->push_back(&row.filmPath);
            }
        },
        [&](const PHOTO_ROW &row) {
            const int ret = makeEntries(listing, row, is_cloud,
                                        is_cloud ? &lastMaster : nullptr);
            return ret == STOPPED ? STOPPED : 0; // others cost their own entry
        });
}

// What the three families share; `query` comes with what they differ in.
int listContents(const char *self, _CONTEXT *context, const char *path,
                 PHOTO_QUERY query, tarni_filler filler, void *buffer)
{
    _KTL_OBJECT *folder = FindObject(path);
    if (folder == nullptr) {
        return STOPPED;
    }
    query.folder = &PhotoFolderOf(path);
    query.album = folder->sub_type;
    MEDIA_LISTING listing{context,         path, folder, buffer, filler,
                          FreeNames(path), {}};
    return listRows(self, &listing, query);
}

bool isCloudLibrary(sqlite3 *database)
{
    Statement query("enumMedia", database, SQL_IS_CLOUD_LIBRARY);
    return query.ready() && CountOf(&query) != 0;
}

} // namespace

int GetPhotoAlbumENT(sqlite3 *database, _PHOTOALBUMENT *out)
{
    constexpr const char *SELF = "GetPhotoAlbumENT";
    Statement query(SELF, database, SQL_ENTITIES);
    if (!query.ready()) {
        QNLog(3, "%s sql error. sql : %s, errmsg(%s)", SELF, SQL_ENTITIES,
              sqlite3_errmsg(database));
        return query.code();
    }
    while (query.next()) {
        const auto number = static_cast<uint32_t>(query.integer64(0));
        if (query.isNull(1) || number == 0) {
            continue;
        }
        if (!storeEntity(query.text(1), number, out)) {
            return -1;
        }
        if (out->generic_asset_ent != 0) {
            out->asset_ent = out->generic_asset_ent + 1;
        }
    }
    return 0;
}

const char *getFolderNamefromSubtype(int subtype)
{
    for (const SUBTYPE &each : SUBTYPES) {
        if (each.subtype == subtype) {
            return each.folder;
        }
    }
    return nullptr;
}

// NOLINTNEXTLINE(readability-function-size): the three are called alike
int EnumContentsForiOS_TEN(_CONTEXT *context, const char *path, int album_ent,
                           int generic_asset_ent, int asset_ent,
                           tarni_filler filler, void *buffer)
{
    return listContents("EnumContentsForiOS_TEN", context, path,
                        {PHOTO_FAMILY::TEN, nullptr, album_ent,
                         generic_asset_ent, asset_ent, 0, false},
                        filler, buffer);
}

int EnumNonCloudContents(_CONTEXT *context, const char *path, int album_ent,
                         int generic_asset_ent, tarni_filler filler,
                         void *buffer)
{
    return listContents("EnumNonCloudContents", context, path,
                        {PHOTO_FAMILY::NON_CLOUD, nullptr, album_ent,
                         generic_asset_ent, 0, 0, false},
                        filler, buffer);
}

int EnumCloudContents(_CONTEXT *context, const char *path, int album_ent,
                      int generic_asset_ent, tarni_filler filler, void *buffer)
{
    const bool masterOfAsset =
        checkiOSVersion(context->device_info.ios_version, 9, 3) == 0;
    return listContents("EnumCloudContents", context, path,
                        {PHOTO_FAMILY::CLOUD, nullptr, album_ent,
                         generic_asset_ent, 0, 0, masterOfAsset},
                        filler, buffer);
}

int ListPhotos(_CONTEXT *context, const char *path, tarni_filler filler,
               void *buffer)
{
    _PHOTOALBUMENT ent{};
    if (GetPhotoAlbumENT(context->photo_db, &ent) != 0) {
        ent = {};
    }
    const auto album = static_cast<int>(ent.album_ent);
    const auto asset = static_cast<int>(ent.generic_asset_ent);
    const bool isCloud = isCloudLibrary(context->photo_db);
    if (checkiOSVersion(context->device_info.ios_version, 10, 0) == 0) {
        return EnumContentsForiOS_TEN(context, path, album, asset,
                                      static_cast<int>(ent.asset_ent), filler,
                                      buffer);
    }
    return isCloud
               ? EnumCloudContents(context, path, album, asset, filler, buffer)
               : EnumNonCloudContents(context, path, album, asset, filler,
                                      buffer);
}
