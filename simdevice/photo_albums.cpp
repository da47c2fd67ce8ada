#include "simdevice/photo_albums.h"

namespace sim
{

namespace
{

constexpr int kSavedPhotos = 1000;

unsigned cameraRollKey()
{
    for (const SampleAlbum &album : sampleAlbums()) {
        if (album.kind == kSavedPhotos) {
            return album.number;
        }
    }
    return 0;
}

const char *entityName(int kind)
{
    switch (kind) {
    case 1500:
        return "PhotoStreamAlbum";
    case 1505:
        return "CloudSharedAlbum";
    case 1506:
        return "ImportSession";
    case 3998:
    case 3999:
    case 4000:
        return "Folder";
    default:
        return kind > 1506 && kind < 1700 ? "FetchingAlbum" : "Album";
    }
}

} // namespace

PhotoAlbums::PhotoAlbums(Database &database, const PhotoGeneration &generation)
    : m_database(database), m_generation(generation),
      m_names(albumJoin(generation)), m_albums(database, "ZGENERICALBUM"),
      m_joins(database, m_names.table)
{
}

void PhotoAlbums::addAlbums(bool latest)
{
    for (const SampleAlbum &album : sampleAlbums()) {
        if (album.latest == latest &&
            (album.kind != kSavedPhotos || hasCameraRollAlbum(m_generation))) {
            addAlbum(album);
        }
    }
}

void PhotoAlbums::addAlbum(const SampleAlbum &album)
{
    char name[40];
    std::snprintf(name, sizeof name, "A1B0%04X-5A3C-4E1D-8B27-%012X",
                  album.number, album.number);
    const std::optional<unsigned> parent =
        album.title != nullptr ? std::optional(1U) : std::nullopt;
    m_albums.add({
        {"Z_PK", album.number},
        {"Z_ENT", entityOf(m_generation, entityName(album.kind))},
        {"Z_OPT", 1},
        {"ZCACHEDCOUNT", album.photos.size()},
        {"ZKIND", album.kind},
        {"ZTRASHEDSTATE", album.trashed ? 1 : 0},
        {"ZPARENTFOLDER", parent},
        {"ZTITLE", album.title},
        {"ZUUID", static_cast<const char *>(name)},
    });
    for (const unsigned photo : album.photos) {
        join(album.number, photo);
    }
}

// Positions in an album have gaps, so that photos can be moved in between;
// here they follow the keys, so that every way through the table gives one
// order.
void PhotoAlbums::join(unsigned album, unsigned photo)
{
    m_joins.add({{m_names.albums.c_str(), album},
                 {m_names.assets.c_str(), photo},
                 {m_names.position.c_str(), photo * 1024}});
}

void PhotoAlbums::addToCameraRoll(unsigned photo)
{
    static const unsigned key = cameraRollKey();
    if (hasCameraRollAlbum(m_generation)) {
        join(key, photo);
        m_cameraRoll++;
    }
}

void PhotoAlbums::finish()
{
    m_database.run("UPDATE ZGENERICALBUM SET ZCACHEDCOUNT=" +
                   std::to_string(m_cameraRoll) +
                   " WHERE ZKIND=" + std::to_string(kSavedPhotos));
    const std::pair<const char *, std::string> tables[] = {
        {"GenericAlbum", "ZGENERICALBUM"},
        {"AdditionalAssetAttributes", "ZADDITIONALASSETATTRIBUTES"},
        {"Moment", "ZMOMENT"},
        {hasGenericAsset(m_generation) ? "GenericAsset" : "Asset",
         assetTable(m_generation)},
    };
    for (const auto &[entity, table] : tables) {
        m_database.run("UPDATE Z_PRIMARYKEY SET Z_MAX=(SELECT max(Z_PK) FROM " +
                       table + ") WHERE Z_NAME='" + entity + "'");
    }
}

} // namespace sim
