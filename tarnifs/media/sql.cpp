#include "tarnifs/media/sql.h"

#include <vector>

#include "tarnifs/names/encoding.h"

namespace
{

// ---------------------------------------------------------------------------
// The media library

constexpr std::string_view FROM_ITEM =
    " from item left outer join item_artist on "
    "item.item_artist_pid=item_artist.item_artist_pid left outer join "
    "item_extra on item.item_pid=item_extra.item_pid left outer join "
    "base_location on item.base_location_id=base_location.base_location_id "
    "where ";

std::string mediaQuery(std::string_view list, std::string_view clause)
{
    std::string text(list);
    text += FROM_ITEM;
    text += clause;
    return text;
}

// ---------------------------------------------------------------------------
// Photo folders

constexpr const char *IS_SELFIE =
    "ZADDITIONALASSETATTRIBUTES.ZCAMERACAPTUREDEVICE like 1";
constexpr const char *IS_KEY_OF_BURST =
    "(ZGENERICASSET.ZAVALANCHEPICKTYPE like 52 or "
    "ZGENERICASSET.ZAVALANCHEPICKTYPE like 16 or "
    "ZGENERICASSET.ZAVALANCHEPICKTYPE like 20)";

// In the order in which a path is tested. Only the first two are looked for as
// the beginning of a name: an album "My Panoramas" shows the panoramas.
constexpr PHOTO_FOLDER FOLDERS[] = {
    {"/Camera Roll", 0, 0, nullptr}, {"/Recorded Videos", 1, 0, nullptr},
    {"Panoramas", 0, 1, nullptr},    {"Screenshots", 0, 10, nullptr},
    {"Slo-mo", 1, 101, nullptr},     {"Time-lapse", 1, 102, nullptr},
    {"Selfies", 0, 0, IS_SELFIE},    {"Bursts", 0, 0, IS_KEY_OF_BURST},
};
constexpr const PHOTO_FOLDER &CAMERA_ROLL = FOLDERS[0];
constexpr const PHOTO_FOLDER &RECORDED_VIDEOS = FOLDERS[1];
constexpr const PHOTO_FOLDER &SCREENSHOTS = FOLDERS[3];
constexpr PHOTO_FOLDER USER_ALBUM = {nullptr, 0, 0, nullptr};

constexpr std::string_view COUNT = "select count(ZGENERICASSET.Z_PK)";

constexpr std::string_view LIST =
    "select ZDIRECTORY, ZFILENAME, ZMOMENT.ZREPRESENTATIVEDATE+978307200, "
    "ZGENERICASSET.ZMODIFICATIONDATE+978307200, "
    "ZADDITIONALASSETATTRIBUTES.ZORIGINALFILESIZE, "
    "ZGENERICASSET.ZDATECREATED+978307200, ZGENERICASSET.ZCLOUDASSETGUID, "
    "ZADDITIONALASSETATTRIBUTES.ZORIGINALFILENAME, ZGENERICASSET.ZKINDSUBTYPE";

constexpr std::string_view CLOUD_LIST =
    "select ZCLOUDRESOURCE.ZFILEPATH, ZCLOUDMASTER.ZORIGINALFILENAME, "
    "ZMOMENT.ZREPRESENTATIVEDATE+978307200, "
    "ZGENERICASSET.ZMODIFICATIONDATE+978307200, ZCLOUDRESOURCE.ZFILESIZE, "
    "ZCLOUDRESOURCE.ZCLOUDMASTER, ZCLOUDRESOURCE.ZTYPE";
constexpr std::string_view CLOUD_LIST_SUBTYPE = ", ZGENERICASSET.ZKINDSUBTYPE";

constexpr const char *JOIN_DETAILS =
    " left outer join ZMOMENT on ZGENERICASSET.ZMOMENT=ZMOMENT.Z_PK left outer "
    "join ZADDITIONALASSETATTRIBUTES on ZGENERICASSET.ZADDITIONALATTRIBUTES="
    "ZADDITIONALASSETATTRIBUTES.Z_PK";

// "@" and "#" stand for the entity numbers of album and asset, after which the
// database names the table between the two.
constexpr const char *FROM_ALBUM =
    " from ZGENERICALBUM left outer join Z_@ASSETS on "
    "ZGENERICALBUM.Z_PK=Z_@ASSETS.Z_@ALBUMS left outer join ZGENERICASSET on "
    "Z_@ASSETS.Z_#ASSETS=ZGENERICASSET.Z_PK";

constexpr const char *IN_CAMERA_ROLL_ALBUM = "ZGENERICALBUM.ZKIND like 1000";

bool isUserAlbum(const PHOTO_QUERY &query)
{
    return query.folder->mark == nullptr;
}

bool isCameraRoll(const PHOTO_QUERY &query)
{
    return query.folder == &CAMERA_ROLL;
}

std::string fromClause(const PHOTO_QUERY &query)
{
    if (query.family == PHOTO_FAMILY::TEN && !isUserAlbum(query)) {
        return std::string(" from ZGENERICASSET") + JOIN_DETAILS;
    }
    std::string from =
        replaceAll(FROM_ALBUM, "@", std::to_string(query.album_ent));
    from = replaceAll(from, "#", std::to_string(query.generic_asset_ent));
    from += JOIN_DETAILS;
    if (query.family == PHOTO_FAMILY::CLOUD) {
        from += " left outer join ZCLOUDMASTER on ";
        from += query.masterOfAsset ? "ZGENERICASSET.ZMASTER"
                                    : "ZADDITIONALASSETATTRIBUTES.ZCLOUDMASTER";
        from += "=ZCLOUDMASTER.Z_PK left outer join ZCLOUDRESOURCE on "
                "ZCLOUDRESOURCE.ZASSETUUID like ZGENERICASSET.ZUUID";
    }
    return from;
}

std::string like(const char *column, int value)
{
    return column + (" like " + std::to_string(value));
}

std::string kindOf(const PHOTO_QUERY &query)
{
    return like("ZGENERICASSET.ZKIND", query.folder->kind);
}

// What stands before all other conditions, if anything.
std::string leadingCondition(const PHOTO_QUERY &query)
{
    if (isUserAlbum(query)) {
        return "ZGENERICALBUM.Z_PK=" + std::to_string(query.album);
    }
    if (isCameraRoll(query) && query.family != PHOTO_FAMILY::CLOUD) {
        return kindOf(query);
    }
    return isCameraRoll(query) ? IN_CAMERA_ROLL_ALBUM : "";
}

// What the folder is about, where that does not lead already.
void addFolderConditions(const PHOTO_QUERY &query,
                         std::vector<std::string> *all)
{
    if (isUserAlbum(query)) {
        return;
    }
    if (!isCameraRoll(query) || query.family == PHOTO_FAMILY::CLOUD) {
        all->push_back(kindOf(query));
    }
    if (query.folder->subtype != 0) {
        all->push_back(
            like("ZGENERICASSET.ZKINDSUBTYPE", query.folder->subtype));
    }
    if (query.folder->test != nullptr) {
        all->emplace_back(query.folder->test);
    }
}

std::string trailingCondition(const PHOTO_QUERY &query)
{
    if (query.family == PHOTO_FAMILY::CLOUD) {
        return "ZCLOUDRESOURCE.ZCLOUDMASTER is not NULL order by "
               "ZCLOUDRESOURCE.ZCLOUDMASTER, ZCLOUDRESOURCE.ZTYPE";
    }
    if (isUserAlbum(query)) {
        return "";
    }
    return query.family == PHOTO_FAMILY::TEN
               ? like("ZGENERICASSET.Z_ENT", query.asset_ent)
               : IN_CAMERA_ROLL_ALBUM;
}

std::string whereClause(const PHOTO_QUERY &query)
{
    const bool strict =
        query.family == PHOTO_FAMILY::TEN && !isUserAlbum(query);
    std::vector<std::string> all = {
        leadingCondition(query),
        "ZGENERICASSET.ZTRASHEDSTATE like 0",
        strict ? "ZGENERICASSET.ZVISIBILITYSTATE like 0"
               : "ZGENERICASSET.ZVISIBILITYSTATE is not 1",
    };
    if (query.family == PHOTO_FAMILY::CLOUD) {
        all.emplace_back(query.folder == &SCREENSHOTS
                             ? "ZCLOUDRESOURCE.ZISLOCALLYAVAILABLE like 1 "
                             : "ZCLOUDRESOURCE.ZISLOCALLYAVAILABLE like 1");
    }
    addFolderConditions(query, &all);
    all.push_back(trailingCondition(query));
    std::string text;
    for (const std::string &condition : all) {
        if (!condition.empty()) {
            text += text.empty() ? " where " : " and ";
            text += condition;
        }
    }
    return text;
}

} // namespace

std::string MediaCountQuery(std::string_view clause)
{
    return mediaQuery("select count(item_extra.item_pid)", clause);
}

std::string MediaRowsQuery(std::string_view clause)
{
    return mediaQuery("select item_artist.item_artist, item_extra.title, "
                      "item_extra.location, base_location.path, "
                      "item_extra.file_size, item_extra.media_kind",
                      clause);
}

const PHOTO_FOLDER &PhotoFolderOf(std::string_view path)
{
    for (const PHOTO_FOLDER &folder : FOLDERS) {
        if (path.find(folder.mark) != std::string_view::npos) {
            return folder;
        }
    }
    return USER_ALBUM;
}

std::string PhotoCountQuery(const PHOTO_QUERY &query)
{
    std::string text(COUNT);
    if (isCameraRoll(query) && query.family == PHOTO_FAMILY::NON_CLOUD) {
        text += ' ';
    }
    return text + fromClause(query) + whereClause(query);
}

std::string PhotoRowsQuery(const PHOTO_QUERY &query)
{
    std::string text(query.family == PHOTO_FAMILY::CLOUD ? CLOUD_LIST : LIST);
    if (query.family == PHOTO_FAMILY::CLOUD &&
        query.folder != &RECORDED_VIDEOS) {
        text += CLOUD_LIST_SUBTYPE;
    }
    return text + fromClause(query) + whereClause(query);
}

std::string HasTableQuery(const std::string &table)
{
    return "select 1 from main.sqlite_master where type='table' and name='" +
           table + "'";
}

std::string ColumnsQuery(const std::string &table)
{
    return "pragma main.table_info(" + table + ")";
}

std::string ViewText(const std::string &name, const std::string &columns,
                     const std::string &table)
{
    return "CREATE TEMP VIEW " + name + " AS SELECT " + columns +
           " FROM main." + table;
}

std::string EmptyViewText(const std::string &name, const std::string &columns)
{
    return "CREATE TEMP VIEW " + name + " AS SELECT " + columns + " WHERE 0";
}

std::string RecordingViewText(const std::string &title, const std::string &date,
                              bool knowsEvicted)
{
    std::string text =
        ViewText("ZRECORDING",
                 "Z_PK, " + title +
                     " AS ZCUSTOMLABEL, CASE WHEN ZPATH LIKE '/%' THEN ZPATH "
                     "ELSE '/var/mobile/Media/Recordings/' || ZPATH END AS "
                     "ZPATH, " +
                     date + " AS ZDATE",
                 "ZCLOUDRECORDING");
    return knowsEvicted ? text + " WHERE ZEVICTIONDATE IS NULL" : text;
}
