// How Photos.sqlite looked from version to version: which table holds the
// photos, the numbers of its entities (the tables that join albums and photos
// are named after them), and the columns that came and went.
#pragma once

#include <string>
#include <vector>

#include "simdevice/sql.h"

namespace sim
{

struct PhotoGeneration {
    unsigned since; // iOS version, 1706 for 17.6
    unsigned albumList;
    unsigned genericAlbum;
    unsigned asset; // root entity of the photos; joins are named after it
    unsigned moment;
    unsigned model; // PLModelVersion; 0: not known
};

// The generation of an iOS version (1706 for 17.6): the last that is not newer,
// or the first.
const PhotoGeneration &photoGeneration(unsigned version);

// 1706 for "17.6.1".
unsigned versionNumber(const std::string &version);

// From 14.0 on photos are in ZASSET and are plain Assets; before, they are in
// ZGENERICASSET, and those that are no wallpapers are of the entity after it.
bool hasGenericAsset(const PhotoGeneration &generation);
std::string assetTable(const PhotoGeneration &generation);
unsigned photoEntity(const PhotoGeneration &generation);

// What Z_PRIMARYKEY lists.
struct Entity {
    std::string name;
    unsigned number;
    unsigned parent; // 0: none
};
std::vector<Entity> entitiesOf(const PhotoGeneration &generation);

// The number of an entity by its name ("Album", "Folder" ...).
unsigned entityOf(const PhotoGeneration &generation, const std::string &name);

// Z_<album>ASSETS and its columns.
struct AlbumJoin {
    std::string table;
    std::string albums;
    std::string assets;
    std::string position; // Z_FOK_...
};
AlbumJoin albumJoin(const PhotoGeneration &generation);

// What only some generations have.
bool hasMasterInAsset(const PhotoGeneration &generation); // else: attributes
bool hasInternalResources(const PhotoGeneration &generation);
bool hasCameraRollAlbum(const PhotoGeneration &generation);

// Makes the tables and indexes, and what Core Data keeps of itself.
void makePhotoTables(Database &database, const PhotoGeneration &generation);

} // namespace sim
