#include "simdevice/media_library.h"

#include <cstdio>
#include <map>

#include "simdevice/media_bytes.h"
#include "simdevice/sample_media.h"
#include "simdevice/sql.h"

namespace sim
{

namespace
{

// The tables did not change in what matters here.
constexpr const char *kTables =
    "CREATE TABLE item (item_pid INTEGER PRIMARY KEY,"
    " media_type INTEGER NOT NULL DEFAULT 0,"
    " title_order INTEGER NOT NULL DEFAULT 0,"
    " item_artist_pid INTEGER NOT NULL DEFAULT 0,"
    " album_pid INTEGER NOT NULL DEFAULT 0,"
    " album_artist_pid INTEGER NOT NULL DEFAULT 0,"
    " composer_pid INTEGER NOT NULL DEFAULT 0,"
    " genre_id INTEGER NOT NULL DEFAULT 0,"
    " track_number INTEGER NOT NULL DEFAULT 0,"
    " base_location_id INTEGER NOT NULL DEFAULT 0,"
    " remote_location_id INTEGER NOT NULL DEFAULT 0,"
    " keep_local INTEGER NOT NULL DEFAULT 0,"
    " in_my_library INTEGER NOT NULL DEFAULT 0,"
    " date_added INTEGER NOT NULL DEFAULT 0);"
    "CREATE TABLE item_extra (item_pid INTEGER PRIMARY KEY,"
    " title TEXT NOT NULL DEFAULT '', sort_title TEXT NOT NULL DEFAULT '',"
    " total_time_ms INTEGER NOT NULL DEFAULT 0,"
    " year INTEGER NOT NULL DEFAULT 0,"
    " location TEXT NOT NULL DEFAULT '',"
    " file_size INTEGER NOT NULL DEFAULT 0, integrity BLOB,"
    " media_kind INTEGER NOT NULL DEFAULT 0,"
    " date_modified INTEGER NOT NULL DEFAULT 0,"
    " location_kind_id INTEGER NOT NULL DEFAULT 0);"
    "CREATE TABLE item_artist (item_artist_pid INTEGER PRIMARY KEY,"
    " item_artist TEXT NOT NULL DEFAULT '',"
    " sort_item_artist TEXT NOT NULL DEFAULT '',"
    " series_name TEXT NOT NULL DEFAULT '');"
    "CREATE TABLE base_location (base_location_id INTEGER PRIMARY KEY,"
    " path TEXT NOT NULL);"
    "CREATE TABLE item_store (item_pid INTEGER PRIMARY KEY,"
    " store_saga_id INTEGER NOT NULL DEFAULT 0,"
    " purchase_history_id INTEGER NOT NULL DEFAULT 0,"
    " sync_id INTEGER NOT NULL DEFAULT 0,"
    " is_protected INTEGER NOT NULL DEFAULT 0,"
    " cloud_status INTEGER NOT NULL DEFAULT 0);"
    "CREATE TABLE genre (genre_id INTEGER PRIMARY KEY,"
    " genre TEXT NOT NULL DEFAULT '');"
    "CREATE TABLE album (album_pid INTEGER PRIMARY KEY,"
    " album TEXT NOT NULL DEFAULT '',"
    " album_artist_pid INTEGER NOT NULL DEFAULT 0);"
    "CREATE TABLE album_artist (album_artist_pid INTEGER PRIMARY KEY,"
    " album_artist TEXT NOT NULL DEFAULT '');";

constexpr int kMusicFolders = 50;
constexpr int64_t kMusicLocation = 0xF00;   // F00; the next one is F01
constexpr int64_t kMissingLocation = 99999; // has no row
constexpr uint32_t kPlainSongs = 50;        // different ones

// The numbering of item.media_type, by that of item_extra.media_kind.
struct MediaType {
    int kind;
    int type;
};

constexpr MediaType kMediaTypes[] = {{1, 8},    {2, 2048},    {4, 256},
                                     {6, 256},  {8, 8},       {32, 1032},
                                     {64, 512}, {1024, 8192}, {0x4000, 8}};

int mediaType(int kind)
{
    for (const MediaType &entry : kMediaTypes) {
        if (entry.kind == kind) {
            return entry.type;
        }
    }
    return 0;
}

std::string musicFolder(int number)
{
    char path[40];
    std::snprintf(path, sizeof path, "iTunes_Control/Music/F%02d", number);
    return path;
}

// Keys are 64-bit numbers without a meaning, negative ones among them. These
// keep the order.
int64_t itemKey(unsigned number)
{
    return number > kPlainSongNumber
               ? 1'000'000'000'000'000'000 +
                     int64_t{number} * 80'000'000'000'007
               : -2'000'000'000'000'000'003 +
                     int64_t{number} * 50'000'000'000'000'021;
}

class MediaLibrary
{
  public:
    MediaLibrary(FileMaker &files, Database &database)
        : m_files(files), m_items(database, "item"),
          m_extras(database, "item_extra"), m_artists(database, "item_artist"),
          m_locations(database, "base_location"),
          m_stores(database, "item_store")
    {
    }

    void addLocations();
    void addFeatured(bool latest);
    void addPlain(uint32_t songs);

  private:
    int64_t artistKey(const char *artist);
    void addTrack(const SampleTrack &track, const std::string &bytes);
    void addRows(const SampleTrack &track, int64_t size);

    FileMaker &m_files;
    Table m_items;
    Table m_extras;
    Table m_artists;
    Table m_locations;
    Table m_stores;
    std::map<std::string, int64_t> m_artistKeys;
    std::map<std::string, int64_t> m_locationKeys;
};

void MediaLibrary::addLocations()
{
    m_locationKeys = {{"", 0},
                      {"iTunes_Control/Ringtones", 3900},
                      {"Podcasts", 5100},
                      {"Purchases", 5200}};
    for (int i = 0; i < kMusicFolders; i++) {
        m_locationKeys[musicFolder(i)] = kMusicLocation + i;
    }
    for (const auto &[path, key] : m_locationKeys) {
        m_locations.add({{"base_location_id", key}, {"path", path}});
    }
}

// 0, which has no row, for items without an artist.
int64_t MediaLibrary::artistKey(const char *artist)
{
    if (artist == nullptr) {
        return 0;
    }
    const auto next = static_cast<int64_t>(m_artistKeys.size() + 1);
    const auto [entry, added] =
        m_artistKeys.try_emplace(artist, next * 7'000'000'000'000'001);
    if (added) {
        m_artists.add({{"item_artist_pid", entry->second},
                       {"item_artist", artist},
                       {"sort_item_artist", artist}});
    }
    return entry->second;
}

void MediaLibrary::addTrack(const SampleTrack &track, const std::string &bytes)
{
    if (track.original == Original::there) {
        m_files.file(std::string("Media/") + track.folder + "/" +
                         track.location,
                     bytes, trackTime(track.number));
    }
    const auto size = static_cast<int64_t>(bytes.size());
    addRows(track, track.offBy == kRecordedAsZero ? 0 : size + track.offBy);
}

void MediaLibrary::addRows(const SampleTrack &track, int64_t size)
{
    const int64_t key = itemKey(track.number);
    const bool cloud = track.folder != nullptr && *track.folder == '\0';
    const int64_t location = track.folder != nullptr
                                 ? m_locationKeys.at(track.folder)
                                 : kMissingLocation;
    m_items.add({{"item_pid", key},
                 {"media_type", mediaType(track.kind)},
                 {"item_artist_pid", artistKey(track.artist)},
                 {"base_location_id", location},
                 {"remote_location_id", cloud ? 100 : 0},
                 {"keep_local", cloud ? 0 : 1},
                 {"in_my_library", 1},
                 {"date_added", trackTime(track.number) - 978307200}});
    m_extras.add({{"item_pid", key},
                  {"title", track.title},
                  {"sort_title", track.title},
                  {"total_time_ms", 5000},
                  {"year", 2021},
                  {"location", track.location},
                  {"file_size", size},
                  {"media_kind", track.kind},
                  {"location_kind_id", 42}});
    m_stores.add({{"item_pid", key}, {"cloud_status", cloud ? 1 : 0}});
}

void MediaLibrary::addFeatured(bool latest)
{
    for (const SampleTrack &track : sampleTracks()) {
        if (track.latest == latest) {
            const std::string location = track.location;
            const size_t dot = location.rfind('.');
            addTrack(track, mediaBytes(dot != std::string::npos
                                           ? location.substr(dot + 1)
                                           : std::string(),
                                       track.number, trackBytes(track)));
        }
    }
}

// Twenty to an artist, one after the other in the folders from F02 on, with
// names of four capitals.
void MediaLibrary::addPlain(uint32_t songs)
{
    std::string contents[kPlainSongs];
    for (uint32_t i = 0; i < kPlainSongs; i++) {
        contents[i] = mediaBytes("mp3", kPlainSongNumber + 1 + i, 1400 + 8 * i);
    }
    for (uint32_t i = 0; i < songs; i++) {
        char artist[24];
        char title[24];
        std::string location = "AAAA.mp3";
        std::snprintf(artist, sizeof artist, "Artist %04u", 1 + i / 20);
        std::snprintf(title, sizeof title, "Song %05u", 1 + i);
        uint32_t rest = i + 26 * 26 * 26; // A... is for the featured
        for (size_t place = 4; place-- > 0; rest /= 26) {
            location[place] = static_cast<char>('A' + rest % 26);
        }
        const std::string folder = musicFolder(2 + static_cast<int>(i % 48));
        addTrack({.number = kPlainSongNumber + 1 + i,
                  .artist = artist,
                  .title = title,
                  .folder = folder.c_str(),
                  .location = location.c_str()},
                 contents[i % kPlainSongs]);
    }
}

} // namespace

void makeMediaLibrary(FileMaker &maker, const LibraryOptions &options)
{
    const std::string path =
        "Media/iTunes_Control/iTunes/MediaLibrary.sqlitedb";
    Database database(maker.place(path));
    database.run(kTables);
    {
        MediaLibrary library(maker, database);
        library.addLocations();
        library.addFeatured(false);
        library.addPlain(options.songs);
        database.logFromHere();
        library.addFeatured(true);
    }
    maker.written(path, database.close());
}

} // namespace sim
