// Every SQL text of the media views, each written once. The texts are those
// that the devices' databases have answered for years, odd blanks included; a
// database with other tables is given views with the old names (generation.h)
// instead of other queries.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

// ---------------------------------------------------------------------------
// What "/Media" shows at all. The first column of the first row: not 0 for yes.
constexpr const char *SQL_HAS_PODCASTS =
    "select media_kind from item_extra where (media_kind like 4 "
    "or media_kind like 6) limit 1";
constexpr const char *SQL_HAS_MEMOS =
    "select count(Z_PK) from ZRECORDING where ZPATH is not NULL";

// ---------------------------------------------------------------------------
// The media library, by the final clause that tells the folders apart.
constexpr std::string_view SQL_IS_MUSIC = "media_kind=1";
constexpr std::string_view SQL_IS_PODCAST =
    "media_kind like 4 or media_kind like 6";
constexpr std::string_view SQL_IS_MOVIE = "media_kind>10";

std::string MediaCountQuery(std::string_view clause);
// Columns: artist, title, location, base path, file size, kind.
std::string MediaRowsQuery(std::string_view clause);

// ---------------------------------------------------------------------------
// Recordings
constexpr const char *SQL_COUNT_MEMOS = "select count(Z_PK) from ZRECORDING";
// Columns: label, path, date.
constexpr const char *SQL_MEMOS =
    "select ZCUSTOMLABEL, ZPATH, ZDATE+978307200 from ZRECORDING";

// ---------------------------------------------------------------------------
// The photo root
constexpr const char *SQL_CAMERA_ROLL_ALBUM =
    "select Z_PK from ZGENERICALBUM where ZKIND like 1000 and ZTRASHEDSTATE "
    "like 0";
// Columns: title, key, kind, cached count.
constexpr const char *SQL_ALBUMS =
    "select ZTITLE, Z_PK, ZKIND, ZCACHEDCOUNT from ZGENERICALBUM where ZTITLE "
    "is not NULL and ZTRASHEDSTATE like 0 and ZTITLE not like '%progress%'";
// Columns: subtype, kind.
constexpr const char *SQL_KINDS =
    "select ZKINDSUBTYPE, ZKIND from ZGENERICASSET where ZTRASHEDSTATE like 0 "
    "group by ZKINDSUBTYPE, ZKIND";
constexpr const char *SQL_HAS_SELFIES =
    "select ZADDITIONALASSETATTRIBUTES.ZCAMERACAPTUREDEVICE from "
    "ZADDITIONALASSETATTRIBUTES left outer join ZGENERICASSET on "
    "ZADDITIONALASSETATTRIBUTES.ZASSET like ZGENERICASSET.Z_PK where "
    "ZADDITIONALASSETATTRIBUTES.ZCAMERACAPTUREDEVICE is not 0 and "
    "ZGENERICASSET.ZTRASHEDSTATE like 0 limit 1";
constexpr const char *SQL_HAS_BURSTS =
    "select Z_PK from ZGENERICASSET where (ZAVALANCHEPICKTYPE like 52 or "
    "ZAVALANCHEPICKTYPE like 16 or ZAVALANCHEPICKTYPE like 20) and "
    "ZTRASHEDSTATE like 0 limit 1";

// ---------------------------------------------------------------------------
// Photo folders
constexpr const char *SQL_IS_CLOUD_LIBRARY =
    "select Z_PK from ZCLOUDMASTER limit 1";
// Columns: number, name.
constexpr const char *SQL_ENTITIES =
    "select Z_ENT, Z_NAME from Z_PRIMARYKEY where Z_NAME like "
    "'AdditionalAssetAttributes' or Z_NAME like 'Album' or Z_NAME like "
    "'GenericAsset' or Z_NAME like 'Moment'";

enum class PHOTO_FAMILY {
    TEN,       // 10.0 and later
    NON_CLOUD, // older, originals on the device
    CLOUD,     // older, originals synchronised with the cloud
};

// A folder that one query fills, and how its path is recognised.
struct PHOTO_FOLDER {
    const char *mark; // text that the path holds; null: a user's album
    int kind;         // 0 picture, 1 video
    int subtype;      // 0: not asked for
    const char *test; // further condition, or null
};

// The folder of a volume path; one that no kind's name occurs in is an album.
const PHOTO_FOLDER &PhotoFolderOf(std::string_view path);

// What the queries of one listing are made from.
struct PHOTO_QUERY {
    PHOTO_FAMILY family;
    const PHOTO_FOLDER *folder;
    int album_ent;         // entity numbers: the join table is named after
    int generic_asset_ent; // these two,
    int asset_ent;         // and TEN's rows must be of this one
    uint32_t album;        // key of a user's album
    bool masterOfAsset;    // CLOUD: the asset, not its attributes, knows its
                           // master (from 9.3 on)
};

std::string PhotoCountQuery(const PHOTO_QUERY &query);

// Columns of TEN and NON_CLOUD: directory, file name, the moment's date, date of
// the last change, size, date of creation, cloud id, recorded name, subtype.
// Columns of CLOUD: the file's full path, recorded name, the two dates, size,
// master, resource type, subtype (not for recorded videos).
std::string PhotoRowsQuery(const PHOTO_QUERY &query);

// ---------------------------------------------------------------------------
// Other generations of databases (generation.h)
std::string HasTableQuery(const std::string &table);
// Columns: number, name, ...
std::string ColumnsQuery(const std::string &table);

// A table under another name, with other columns.
std::string ViewText(const std::string &name, const std::string &columns,
                     const std::string &table);
// A table that is not there, without rows.
std::string EmptyViewText(const std::string &name, const std::string &columns);
// Entities, with the name that assets had.
constexpr const char *SQL_ENTITY_VIEW =
    "CREATE TEMP VIEW Z_PRIMARYKEY AS SELECT Z_ENT, CASE Z_NAME WHEN 'Asset' "
    "THEN 'GenericAsset' ELSE Z_NAME END AS Z_NAME, Z_SUPER, Z_MAX FROM "
    "main.Z_PRIMARYKEY";
// The newer table of recordings as the older; `title` and `date` are
// expressions. The older one's paths were full ones.
std::string RecordingViewText(const std::string &title, const std::string &date,
                              bool knowsEvicted);
