// A mount whose device has media databases.
#pragma once

#include "tests/handlers/fixture.h"
#include "tests/handlers/media_samples.h"

constexpr const char *PHOTOS = "/PhotoData/Photos.sqlite";
constexpr const char *LIBRARY = "/iTunes_Control/iTunes/MediaLibrary.sqlitedb";
constexpr const char *RECORDINGS = "/Recordings/Recordings.db";
constexpr const char *CLOUD_RECORDINGS = "/Recordings/CloudRecordings.db";

using Names = std::vector<std::string>;

class MediaTest : public MountTest
{
  protected:
    MemoryTree &media() { return memoryWorld.devices[0].media; }

    void setVersion(const char *version)
    {
        snprintf(memoryWorld.devices[0].info.ios_version, 16, "%s", version);
    }

    // The photo database of a generation, and its files.
    void addPhotos(const SampleGeneration &generation)
    {
        setVersion(generation.version);
        media().addFile(PHOTOS, PhotoDatabase(generation));
        for (const SampleAsset &asset : SampleAssets()) {
            if (asset.file.find("gone") != std::string::npos) {
                continue;
            }
            media().addFile("/DCIM/" + asset.file,
                            std::string(asset.key == 15 ? 99 : 100, 'x'));
            if (!asset.film.empty()) {
                media().addFile("/DCIM/" + asset.film, "film");
            }
        }
    }

    void addSongs(const std::vector<SampleSong> &songs)
    {
        media().addFile(LIBRARY, MediaDatabase(songs));
        for (const SampleSong &song : songs) {
            if (song.base != nullptr && song.location != nullptr &&
                *song.location != '\0') {
                MemoryNode &file = media().addFile(
                    std::string("/") + song.base + "/" + song.location,
                    "music");
                file.birth = 1500000000999999999;
                file.modify = 1600000000999999999;
            }
        }
    }

    // A folder's names without "." and "..".
    Names shown(const std::string &path, int *ret = nullptr)
    {
        Names names = list(path, ret);
        names.erase(names.begin(), names.begin() + 2);
        return names;
    }

    // Mounts and lists down to the folder.
    Names shownAfterMount(const std::string &path)
    {
        EXPECT_TRUE(mount());
        list("/");
        list("/Media");
        return shown(path);
    }
};
