#include "simdevice/photo_schema.h"

#include <algorithm>
#include <charconv>
#include <iterator>

namespace sim
{

namespace
{

// Moments before 10 have no number that is known; nothing joins by it.
constexpr PhotoGeneration kGenerations[] = {
    {902, 3, 14, 22, 28, 0},      {903, 3, 14, 22, 28, 0},
    {1000, 3, 18, 26, 32, 0},     {1003, 3, 19, 27, 33, 0},
    {1200, 3, 22, 30, 38, 12310}, {1300, 3, 25, 34, 41, 13703},
    {1400, 2, 25, 3, 42, 14208},  {1500, 2, 26, 3, 44, 15323},
    {1600, 2, 27, 3, 46, 16320},  {1700, 2, 27, 3, 46, 17120},
    {1706, 2, 28, 3, 47, 17600},  {1800, 2, 29, 3, 53, 18600},
    {2600, 2, 32, 3, 58, 19320},
};

// Sub-entities of GenericAlbum, numbered from it on in this order; those of
// Album come first.
struct AlbumEntity {
    const char *name;
    const char *parent;
    unsigned since;
};

constexpr AlbumEntity kAlbumEntities[] = {
    {"Album", "GenericAlbum", 0},
    {"CloudSharedAlbum", "Album", 0},
    {"DuplicateAlbum", "Album", 1600},
    {"LegacyFaceAlbum", "Album", 0},
    {"PhotoStreamAlbum", "Album", 0},
    {"ProjectAlbum", "Album", 1300},
    {"Conversation", "GenericAlbum", 1500},
    {"FetchingAlbum", "GenericAlbum", 0},
    {"Folder", "GenericAlbum", 0},
    {"ImportSession", "GenericAlbum", 0},
};

} // namespace

const PhotoGeneration &photoGeneration(unsigned version)
{
    const auto *after = std::find_if(
        std::begin(kGenerations), std::end(kGenerations),
        [&](const PhotoGeneration &one) { return one.since > version; });
    return after == std::begin(kGenerations) ? *after : *(after - 1);
}

unsigned versionNumber(const std::string &version)
{
    unsigned major = 0;
    unsigned minor = 0;
    const char *end = version.data() + version.size();
    const auto [dot, error] = std::from_chars(version.data(), end, major);
    if (error == std::errc() && dot != end) {
        std::from_chars(dot + 1, end, minor);
    }
    return major * 100 + minor;
}

bool hasGenericAsset(const PhotoGeneration &generation)
{
    return generation.since < 1400;
}

std::string assetTable(const PhotoGeneration &generation)
{
    return hasGenericAsset(generation) ? "ZGENERICASSET" : "ZASSET";
}

unsigned photoEntity(const PhotoGeneration &generation)
{
    return generation.asset + (hasGenericAsset(generation) ? 1 : 0);
}

std::vector<Entity> entitiesOf(const PhotoGeneration &generation)
{
    std::vector<Entity> entities = {
        {"AdditionalAssetAttributes", 1, 0},
        {"AlbumList", generation.albumList, 0},
        {"CloudMaster", 9, 0},
        {"CloudResource", 11, 0},
        {"GenericAlbum", generation.genericAlbum, 0},
    };
    unsigned number = generation.genericAlbum;
    for (const AlbumEntity &entity : kAlbumEntities) {
        if (generation.since >= entity.since) {
            const bool top = std::string(entity.parent) == "GenericAlbum";
            entities.push_back({entity.name, ++number,
                                generation.genericAlbum + (top ? 0U : 1U)});
        }
    }
    if (hasGenericAsset(generation)) {
        entities.push_back({"GenericAsset", generation.asset, 0});
        entities.push_back({"Asset", generation.asset + 1, generation.asset});
        if (generation.since < 1300) {
            entities.push_back(
                {"WallpaperAsset", generation.asset + 2, generation.asset});
        }
    } else {
        entities.push_back({"Asset", generation.asset, 0});
    }
    if (hasInternalResources(generation)) {
        entities.push_back({"InternalResource", generation.moment - 5, 0});
    }
    entities.push_back({"Moment", generation.moment, 0});
    if (generation.since >= 1300) {
        entities.push_back({"CHANGE", 16001, 0});
        entities.push_back({"TRANSACTION", 16002, 0});
        entities.push_back({"TRANSACTIONSTRING", 16003, 0});
    }
    return entities;
}

unsigned entityOf(const PhotoGeneration &generation, const std::string &name)
{
    for (const Entity &entity : entitiesOf(generation)) {
        if (entity.name == name) {
            return entity.number;
        }
    }
    return 0;
}

AlbumJoin albumJoin(const PhotoGeneration &generation)
{
    const std::string album = std::to_string(generation.genericAlbum + 1);
    const std::string asset = std::to_string(generation.asset);
    return {"Z_" + album + "ASSETS", "Z_" + album + "ALBUMS",
            "Z_" + asset + "ASSETS", "Z_FOK_" + asset + "ASSETS"};
}

bool hasMasterInAsset(const PhotoGeneration &generation)
{
    return generation.since >= 903;
}

bool hasInternalResources(const PhotoGeneration &generation)
{
    return generation.since >= 1200;
}

bool hasCameraRollAlbum(const PhotoGeneration &generation)
{
    return generation.since < 1200;
}

} // namespace sim
