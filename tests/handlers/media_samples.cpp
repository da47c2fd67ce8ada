#include "tests/handlers/media_samples.h"

#include <cstdlib>

#include <sqlite3.h>

const SampleGeneration IOS_8 = {"8.4", "ZGENERICASSET", 17, 24, 25, false};
const SampleGeneration IOS_9_CLOUD = {"9.3.5", "ZGENERICASSET", 15, 22, 23,
                                      true};
const SampleGeneration IOS_13 = {"13.7", "ZGENERICASSET", 26, 34, 35, false};
const SampleGeneration IOS_17 = {"17.6.1", "ZASSET", 29, 3, 3, false};

namespace
{

std::string number(int64_t value)
{
    return std::to_string(value);
}

std::string quoted(const std::string &text)
{
    std::string out = "'";
    for (const char c : text) {
        out += c;
        if (c == '\'') {
            out += c;
        }
    }
    return out + "'";
}

std::string orNull(const std::string &text)
{
    return text.empty() ? "NULL" : quoted(text);
}

std::string photoSchema(const SampleGeneration &generation)
{
    const std::string album = number(generation.albumEnt);
    const std::string asset = number(generation.assetEnt);
    const bool renamed = std::string(generation.assets) == "ZASSET";
    return std::string("CREATE TABLE ") + generation.assets +
           " (Z_PK INTEGER PRIMARY KEY, Z_ENT INTEGER, Z_OPT INTEGER,"
           " ZAVALANCHEPICKTYPE INTEGER, ZKIND INTEGER, ZKINDSUBTYPE INTEGER,"
           " ZTRASHEDSTATE INTEGER, ZVISIBILITYSTATE INTEGER,"
           " ZADDITIONALATTRIBUTES INTEGER, ZMOMENT INTEGER, ZMASTER INTEGER,"
           " ZDATECREATED TIMESTAMP, ZMODIFICATIONDATE TIMESTAMP,"
           " ZCLOUDASSETGUID VARCHAR, ZDIRECTORY VARCHAR, ZFILENAME VARCHAR,"
           " ZUUID VARCHAR);"
           "CREATE TABLE ZADDITIONALASSETATTRIBUTES (Z_PK INTEGER PRIMARY KEY,"
           " ZCAMERACAPTUREDEVICE INTEGER, ZORIGINALFILESIZE INTEGER,"
           " ZASSET INTEGER, ZCLOUDMASTER INTEGER, ZORIGINALFILENAME VARCHAR);"
           "CREATE TABLE ZMOMENT (Z_PK INTEGER PRIMARY KEY,"
           " ZREPRESENTATIVEDATE TIMESTAMP);"
           "INSERT INTO ZMOMENT VALUES (1, 600000000.5);"
           "CREATE TABLE ZGENERICALBUM (Z_PK INTEGER PRIMARY KEY,"
           " ZCACHEDCOUNT INTEGER, ZKIND INTEGER, ZTRASHEDSTATE INTEGER,"
           " ZTITLE VARCHAR);"
           "CREATE TABLE Z_" +
           album + "ASSETS (Z_" + album + "ALBUMS INTEGER, Z_" + asset +
           "ASSETS INTEGER, PRIMARY KEY (Z_" + album + "ALBUMS, Z_" + asset +
           "ASSETS));"
           "CREATE TABLE ZCLOUDMASTER (Z_PK INTEGER PRIMARY KEY,"
           " ZORIGINALFILENAME VARCHAR);"
           "CREATE TABLE ZCLOUDRESOURCE (Z_PK INTEGER PRIMARY KEY,"
           " ZFILESIZE INTEGER, ZISLOCALLYAVAILABLE INTEGER, ZTYPE INTEGER,"
           " ZCLOUDMASTER INTEGER, ZASSETUUID VARCHAR, ZFILEPATH VARCHAR);"
           "CREATE TABLE Z_PRIMARYKEY (Z_ENT INTEGER PRIMARY KEY,"
           " Z_NAME VARCHAR, Z_SUPER INTEGER, Z_MAX INTEGER);"
           "INSERT INTO Z_PRIMARYKEY VALUES"
           " (1, 'AdditionalAssetAttributes', 0, 0), (" +
           album + ", 'Album', 0, 0), (" + asset +
           (renamed ? ", 'Asset', 0, 0)" : ", 'GenericAsset', 0, 0)") +
           ", (60, 'Moment', 0, 0), (61, 'Keyword', 0, 0);";
}

std::string cloudRows(const SampleAsset &asset)
{
    const std::string key = number(asset.key);
    std::string sql = "INSERT INTO ZCLOUDMASTER VALUES (" + key + ", " +
                      orNull(asset.recorded) + ");";
    // The original and a thumbnail of it; only what is here is shown.
    for (const int type : {1, 5}) {
        sql += "INSERT INTO ZCLOUDRESOURCE VALUES (NULL, " +
               number(asset.size) + ", " + (asset.key == 3 ? "0" : "1") + ", " +
               number(type) + ", " + key + ", 'uuid-" + key +
               "', '/var/mobile/Media/DCIM/" + asset.file + "');";
    }
    return sql;
}

std::string assetRows(const SampleGeneration &generation,
                      const SampleAsset &asset)
{
    const std::string key = number(asset.key);
    const size_t slash = asset.file.rfind('/');
    std::string sql =
        std::string("INSERT INTO ") + generation.assets + " VALUES (" + key +
        ", " + number(generation.rowEnt) + ", 1, 0, " + number(asset.kind) +
        ", " + number(asset.subtype) + ", 0, 0, " + key + ", 1, " + key +
        ", 500000000, 500000100.25, NULL, " +
        quoted("DCIM/" + asset.file.substr(0, slash)) + ", " +
        quoted(asset.file.substr(slash + 1)) + ", 'uuid-" + key + "');";
    if (!asset.more.empty()) {
        sql += std::string("UPDATE ") + generation.assets + " SET " +
               asset.more + " WHERE Z_PK=" + key + ";";
    }
    sql += "INSERT INTO ZADDITIONALASSETATTRIBUTES VALUES (" + key + ", " +
           number(asset.camera) + ", " + number(asset.size) + ", " + key +
           ", " + key + ", " + orNull(asset.recorded) + ");";
    return sql + (generation.isCloud ? cloudRows(asset) : "");
}

std::string albumRows(const SampleGeneration &generation)
{
    const std::string join =
        "INSERT INTO Z_" + number(generation.albumEnt) + "ASSETS ";
    std::string sql = "INSERT INTO ZGENERICALBUM VALUES "
                      "(200, 9, 1000, 0, NULL), (201, 4, 2, 0, 'Trip'), "
                      "(202, 4, 2, 0, 'Trip'), (203, 0, 2, 0, 'Empty'), "
                      "(204, 1, 1500, 0, 'whatever'), (205, 1, 2, 0, 'A/B'), "
                      "(206, 1, 2, 0, 'My Panoramas'), "
                      "(207, 1, 2, 0, 'Work in Progress'), "
                      "(208, 1, 2, 1, 'Thrown away'), (209, 1, 2, 0, '..');";
    sql += join + "SELECT 200, Z_PK FROM " + generation.assets + ";";
    for (const char *each : {"201, 1", "201, 2", "201, 5", "201, 11", "205, 8",
                             "206, 8", "204, 9"}) {
        sql += join + "VALUES (" + each + ");";
    }
    return sql;
}

} // namespace

std::string BuildDatabase(const std::string &sql)
{
    sqlite3 *database = nullptr;
    sqlite3_open(":memory:", &database);
    const std::string all = "PRAGMA page_size=512; " + sql;
    if (sqlite3_exec(database, all.c_str(), nullptr, nullptr, nullptr) !=
        SQLITE_OK) {
        fprintf(stderr, "%s in %s\n", sqlite3_errmsg(database), sql.c_str());
        abort();
    }
    sqlite3_int64 size = 0;
    unsigned char *bytes = sqlite3_serialize(database, "main", &size, 0);
    std::string file(reinterpret_cast<char *>(bytes),
                     static_cast<size_t>(size));
    sqlite3_free(bytes);
    sqlite3_close(database);
    return file;
}

const std::vector<SampleAsset> &SampleAssets()
{
    static const std::vector<SampleAsset> assets = {
        {1, "100APPLE/A001.JPG", "IMG_0001.JPG"},
        {2, "100APPLE/A002.MOV", "IMG_0002.MOV", 1},
        {3, "100APPLE/A003.JPG", "IMG_0003.JPG", 0, 1},
        {4, "100APPLE/A004.PNG", "IMG_0004.PNG", 0, 10},
        {5, "100APPLE/A005.JPG", "IMG_0005.JPG", 0, 2, "", 0, 100,
         "100APPLE/A005.MOV"},
        {6, "100APPLE/A006.MOV", "IMG_0006.MOV", 1, 101},
        {7, "100APPLE/A007.MOV", "IMG_0007.MOV", 1, 102},
        {8, "100APPLE/A008.JPG", "IMG_0008.JPG", 0, 0, "", 1},
        {9, "100APPLE/A009.JPG", "IMG_0009.JPG", 0, 0, "ZAVALANCHEPICKTYPE=52"},
        {10, "100APPLE/A010.JPG", "IMG_0010.JPG", 0, 0, "ZTRASHEDSTATE=1"},
        {11, "100APPLE/A011.JPG", "IMG_0011.JPG", 0, 0, "ZVISIBILITYSTATE=2"},
        {12, "100APPLE/A012.JPG", "IMG_0012.JPG", 0, 0, "ZVISIBILITYSTATE=1"},
        {13, "101APPLE/A013.JPG", "IMG_0001.JPG"},
        {14, "101APPLE/gone.JPG", "IMG_0014.JPG"},
        {15, "101APPLE/A015.JPG", "IMG_0015.JPG", 0, 0,
         "ZMOMENT=NULL, ZMODIFICATIONDATE=NULL"},
        {16, "101APPLE/A016.heic", "IMG_0016.HEIC", 0, 2, "", 0, 100,
         "101APPLE/A016.MOV"},
        {17, "101APPLE/A017.JPG", ""},
        {18, "../../etc/A018.JPG", "IMG_0018.JPG"},
        {19, "101APPLE/A019.JPG", "IMG_0019.JPG", 0, 0, "Z_ENT=77"},
        {20, "101APPLE/A020.png", "live.png", 0, 2},
        {21, "101APPLE/A021.JPG", "bad\xFF.JPG"},
    };
    return assets;
}

std::string PhotoDatabase(const SampleGeneration &generation)
{
    std::string sql = photoSchema(generation);
    for (const SampleAsset &asset : SampleAssets()) {
        sql += assetRows(generation, asset);
    }
    return BuildDatabase(sql + albumRows(generation));
}

std::string MediaDatabase(const std::vector<SampleSong> &songs)
{
    std::string sql =
        "CREATE TABLE item (item_pid INTEGER PRIMARY KEY, item_artist_pid"
        " INTEGER, base_location_id INTEGER);"
        "CREATE TABLE item_extra (item_pid INTEGER PRIMARY KEY, title TEXT,"
        " location TEXT, file_size INTEGER, media_kind INTEGER);"
        "CREATE TABLE item_artist (item_artist_pid INTEGER PRIMARY KEY,"
        " item_artist TEXT);"
        "CREATE TABLE base_location (base_location_id INTEGER PRIMARY KEY,"
        " path TEXT);";
    int64_t key = 0;
    const auto text = [](const char *value) {
        return value == nullptr ? "NULL" : quoted(value);
    };
    for (const SampleSong &song : songs) {
        const std::string id = number(++key);
        sql += "INSERT INTO item VALUES (" + id + ", " + id + ", " + id +
               "); INSERT INTO item_extra VALUES (" + id + ", " +
               text(song.title) + ", " + text(song.location) + ", " +
               number(song.size) + ", " + number(song.kind) + ");";
        if (song.artist != nullptr) {
            sql += "INSERT INTO item_artist VALUES (" + id + ", " +
                   text(song.artist) + ");";
        }
        if (song.base != nullptr) {
            sql += "INSERT INTO base_location VALUES (" + id + ", " +
                   text(song.base) + ");";
        }
    }
    return BuildDatabase(sql);
}

std::string RecordingsDatabase(const SampleMemos &memos)
{
    std::string sql = "CREATE TABLE ZRECORDING (Z_PK INTEGER PRIMARY KEY, ZDATE"
                      " TIMESTAMP, ZCUSTOMLABEL VARCHAR, ZPATH VARCHAR);";
    for (const auto &[label, path] : memos) {
        sql += "INSERT INTO ZRECORDING VALUES (NULL, 700000000, " +
               orNull(label) + ", " + orNull(path) + ");";
    }
    return BuildDatabase(sql);
}

std::string CloudRecordingsDatabase(const SampleMemos &memos)
{
    std::string sql =
        "CREATE TABLE ZRECORDING (Z_PK INTEGER PRIMARY KEY, ZPATH VARCHAR);"
        "CREATE TABLE ZCLOUDRECORDING (Z_PK INTEGER PRIMARY KEY, ZDATE"
        " TIMESTAMP, ZCUSTOMLABEL VARCHAR, ZENCRYPTEDTITLE VARCHAR, ZPATH"
        " VARCHAR, ZEVICTIONDATE TIMESTAMP);"
        "INSERT INTO ZCLOUDRECORDING VALUES (99, 1, 'x', 'Evicted',"
        " 'evicted.m4a', 5);";
    for (const auto &[label, path] : memos) {
        sql += "INSERT INTO ZCLOUDRECORDING VALUES (NULL, 700000000,"
               " '2019-04-16T00:01:01Z', " +
               orNull(label) + ", " + orNull(path) + ", NULL);";
    }
    return BuildDatabase(sql);
}
