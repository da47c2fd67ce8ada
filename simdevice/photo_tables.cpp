// The tables of Photos.sqlite, generation by generation.

#include <cstdlib>

#include <plist/plist.h>

#include "simdevice/photo_schema.h"
#include "simdevice/plist.h"

namespace sim
{

namespace
{

// Columns by the first version with them and the first without.
struct Column {
    const char *name;
    unsigned since = 0;
    unsigned until = 9999;
};

constexpr Column kAssetColumns[] = {
    {"ZADJUSTMENTSSTATE INTEGER", 1800},
    {"ZAVALANCHEPICKTYPE INTEGER"},
    {"ZCLOUDDELETESTATE INTEGER", 1000},
    {"ZCLOUDDOWNLOADREQUESTS INTEGER", 1000},
    {"ZCLOUDLOCALSTATE INTEGER"},
    {"ZCLOUDPLACEHOLDERKIND INTEGER", 1000, 2600},
    {"ZCOMPLETE INTEGER"},
    {"ZCUSTOMRENDEREDVALUE INTEGER", 1003, 1500},
    {"ZDEPTHSTATES INTEGER", 1200, 1400},
    {"ZDEPTHTYPE INTEGER", 1400},
    {"ZDERIVEDCAMERACAPTUREDEVICE INTEGER", 1400},
    {"ZFAVORITE INTEGER"},
    {"ZHASADJUSTMENTS INTEGER", 0, 1800},
    {"ZHDRTYPE INTEGER", 1500},
    {"ZHEIGHT INTEGER"},
    {"ZHIDDEN INTEGER"},
    {"ZKIND INTEGER"},
    {"ZKINDSUBTYPE INTEGER"},
    {"ZORIENTATION INTEGER"},
    {"ZPLAYBACKSTYLE INTEGER", 1003},
    {"ZSAVEDASSETTYPE INTEGER"},
    {"ZTHUMBNAILINDEX INTEGER"},
    {"ZTRASHEDSTATE INTEGER"},
    {"ZVISIBILITYSTATE INTEGER"},
    {"ZWIDTH INTEGER"},
    {"ZADDITIONALATTRIBUTES INTEGER"},
    {"ZEXTENDEDATTRIBUTES INTEGER", 1300},
    {"ZMASTER INTEGER", 903},
    {"ZMOMENT INTEGER"},
    {"ZDATECREATED TIMESTAMP"},
    {"ZDURATION FLOAT"},
    {"ZLATITUDE FLOAT"},
    {"ZLONGITUDE FLOAT"},
    {"ZMODIFICATIONDATE TIMESTAMP"},
    {"ZTRASHEDDATE TIMESTAMP"},
    {"ZAVALANCHEUUID VARCHAR"},
    {"ZCLOUDASSETGUID VARCHAR"},
    {"ZDIRECTORY VARCHAR"},
    {"ZFILENAME VARCHAR"},
    {"ZUNIFORMTYPEIDENTIFIER VARCHAR"},
    {"ZUUID VARCHAR"},
    {"ZLOCATIONDATA BLOB"},
};

constexpr Column kAttributeColumns[] = {
    {"ZCAMERACAPTUREDEVICE INTEGER"},
    {"ZORIGINALFILESIZE INTEGER"},
    {"ZORIGINALHEIGHT INTEGER"},
    {"ZORIGINALWIDTH INTEGER"},
    {"ZASSET INTEGER"},
    {"ZCLOUDMASTER INTEGER", 0, 903},
    {"ZMASTERFINGERPRINT VARCHAR", 1000, 1800},
    {"ZORIGINALSTABLEHASH VARCHAR", 1800},
    {"ZORIGINALFILENAME VARCHAR"},
    {"ZTIMEZONENAME VARCHAR"},
    {"ZTITLE VARCHAR"},
};

constexpr Column kMomentColumns[] = {
    {"ZCACHEDCOUNT INTEGER"}, {"ZTRASHEDSTATE INTEGER"},
    {"ZENDDATE TIMESTAMP"},   {"ZREPRESENTATIVEDATE TIMESTAMP"},
    {"ZSTARTDATE TIMESTAMP"}, {"ZTITLE VARCHAR"},
    {"ZUUID VARCHAR"},
};

constexpr Column kAlbumColumns[] = {
    {"ZCACHEDCOUNT INTEGER"},  {"ZKIND INTEGER"},
    {"ZTRASHEDSTATE INTEGER"}, {"ZKEYASSET INTEGER", 0, 1800},
    {"ZPARENTFOLDER INTEGER"}, {"ZCREATIONDATE TIMESTAMP"},
    {"ZCLOUDGUID VARCHAR"},    {"ZTITLE VARCHAR"},
    {"ZUUID VARCHAR"},
};

constexpr Column kMasterColumns[] = {
    {"ZCLOUDLOCALSTATE INTEGER"},       {"ZCREATIONDATE TIMESTAMP"},
    {"ZCLOUDMASTERGUID VARCHAR"},       {"ZORIGINALFILENAME VARCHAR"},
    {"ZUNIFORMTYPEIDENTIFIER VARCHAR"},
};

constexpr Column kCloudResourceColumns[] = {
    {"ZFILESIZE INTEGER"},
    {"ZISAVAILABLE INTEGER"},
    {"ZISLOCALLYAVAILABLE INTEGER"},
    {"ZTYPE INTEGER"},
    {"ZASSET INTEGER"},
    {"ZCLOUDMASTER INTEGER"},
    {"ZDATECREATED TIMESTAMP"},
    {"ZASSETUUID VARCHAR"},
    {"ZFILEPATH VARCHAR"},
    {"ZITEMIDENTIFIER VARCHAR"},
    {"ZUNIFORMTYPEIDENTIFIER VARCHAR"},
};

constexpr Column kInternalResourceColumns[] = {
    {"ZDATASTORESUBTYPE INTEGER"},
    {"ZLOCALAVAILABILITY INTEGER"},
    {"ZREMOTEAVAILABILITY INTEGER"},
    {"ZRESOURCETYPE INTEGER"},
    {"ZASSET INTEGER"},
    {"ZDATALENGTH INTEGER"},
};

template <size_t N>
std::string table(const std::string &name, const Column (&columns)[N],
                  unsigned version, const std::string &more = {})
{
    std::string sql =
        "CREATE TABLE " + name +
        " (Z_PK INTEGER PRIMARY KEY, Z_ENT INTEGER, Z_OPT INTEGER";
    for (const Column &column : columns) {
        if (version >= column.since && version < column.until) {
            sql += ", " + std::string(column.name);
        }
    }
    return sql + (more.empty() ? "" : ", " + more) + ");";
}

std::string index(const std::string &name, const std::string &table,
                  const std::string &columns)
{
    return "CREATE INDEX " + name + " ON " + table + " (" + columns + ");";
}

std::string indexes(const PhotoGeneration &generation)
{
    const std::string assets = assetTable(generation);
    const std::string camel =
        hasGenericAsset(generation) ? "Z_GenericAsset_" : "Z_Asset_";
    const AlbumJoin join = albumJoin(generation);
    return index(assets + "_ZADDITIONALATTRIBUTES_INDEX", assets,
                 "ZADDITIONALATTRIBUTES") +
           index(assets + "_ZMOMENT_INDEX", assets, "ZMOMENT") +
           index(camel + "byKindIndex", assets, "ZKIND") +
           index(camel + "byVisibilityStateIndex", assets, "ZVISIBILITYSTATE") +
           "CREATE INDEX " + camel + "forKindSubtypeAlbums ON " + assets +
           " (ZKINDSUBTYPE, ZDATECREATED)"
           " WHERE ZTRASHEDSTATE=0 AND ZVISIBILITYSTATE=0 AND ZHIDDEN=0;" +
           index("ZADDITIONALASSETATTRIBUTES_ZASSET_INDEX",
                 "ZADDITIONALASSETATTRIBUTES", "ZASSET") +
           index("Z_AdditionalAssetAttributes_byCameraCaptureDeviceIndex",
                 "ZADDITIONALASSETATTRIBUTES", "ZCAMERACAPTUREDEVICE") +
           index("Z_GenericAlbum_byKindIndex", "ZGENERICALBUM", "ZKIND") +
           index(join.table + "_" + join.assets + "_INDEX", join.table,
                 join.assets + ", " + join.albums) +
           index("RADAR_10322662_INDEX", join.table,
                 join.albums + ", " + join.assets + ", " + join.position) +
           index("RADAR_22158684_INDEX", join.table,
                 join.albums + ", " + join.position + ", " + join.assets);
}

std::string binaryMetadata(unsigned model)
{
    const Plist list = newDict();
    setString(list.get(), "NSPersistenceFrameworkVersion", "1");
    setString(list.get(), "NSStoreType", "SQLite");
    if (model != 0) {
        setUint(list.get(), "PLModelVersion", model);
    }
    char *bytes = nullptr;
    uint32_t size = 0;
    plist_to_bin(list.get(), &bytes, &size);
    std::string text(bytes != nullptr ? bytes : "", size);
    free(bytes);
    return text;
}

void addEntities(Database &database, const PhotoGeneration &generation)
{
    Table names(database, "Z_PRIMARYKEY");
    for (const Entity &entity : entitiesOf(generation)) {
        names.add({{"Z_ENT", entity.number},
                   {"Z_NAME", entity.name},
                   {"Z_SUPER", entity.parent},
                   {"Z_MAX", 0}});
    }
    const std::string list = binaryMetadata(generation.model);
    Table metadata(database, "Z_METADATA");
    metadata.add({{"Z_VERSION", 1},
                  {"Z_UUID", "6D0F1C3A-77B2-4E0F-9C35-0A8F4B1E2D93"},
                  {"Z_PLIST", Value::blob(list)}});
}

} // namespace

void makePhotoTables(Database &database, const PhotoGeneration &generation)
{
    const unsigned version = generation.since;
    // Until 13 a reference to a photo had its entity beside it.
    const std::string number = std::to_string(generation.asset);
    const bool old = hasGenericAsset(generation);
    const AlbumJoin join = albumJoin(generation);
    std::string sql =
        "CREATE TABLE Z_PRIMARYKEY (Z_ENT INTEGER PRIMARY KEY, Z_NAME VARCHAR,"
        " Z_SUPER INTEGER, Z_MAX INTEGER);"
        "CREATE TABLE Z_METADATA (Z_VERSION INTEGER PRIMARY KEY,"
        " Z_UUID VARCHAR(255), Z_PLIST BLOB);"
        "CREATE TABLE Z_MODELCACHE (Z_CONTENT BLOB);";
    sql += table(assetTable(generation), kAssetColumns, version);
    sql += table("ZADDITIONALASSETATTRIBUTES", kAttributeColumns, version,
                 old ? "Z" + number + "_ASSET INTEGER" : "");
    sql += table("ZMOMENT", kMomentColumns, version);
    sql += table("ZGENERICALBUM", kAlbumColumns, version,
                 old ? "Z" + number + "_KEYASSET INTEGER" : "");
    sql += table("ZCLOUDMASTER", kMasterColumns, version);
    sql += table("ZCLOUDRESOURCE", kCloudResourceColumns, version);
    if (hasInternalResources(generation)) {
        sql += table("ZINTERNALRESOURCE", kInternalResourceColumns, version);
    }
    sql += "CREATE TABLE " + join.table + " (" + join.albums + " INTEGER, " +
           join.assets + " INTEGER, " + join.position +
           " INTEGER, PRIMARY KEY (" + join.albums + ", " + join.assets + "));";
    database.run(sql + indexes(generation));
    addEntities(database, generation);
}

} // namespace sim
