// What every sample device has in its libraries, whatever else is asked for.
// README.md tells the same as a table of what the views show of it, and why.
//
// Only what differs from the ordinary case stands in an entry.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

namespace sim
{

// The file that a row of a database speaks of.
enum class Original {
    there,
    missing,
    empty, // 0 bytes, whatever is recorded
};

// `offBy` for a row whose recorded size is 0.
constexpr int kRecordedAsZero = INT32_MIN;

// ---- Photos.sqlite ---------------------------------------------------------

// Dates of a photo; see also photoCreated().
enum class PhotoDates {
    all,
    undatedMoment, // it has a moment, which has no date
    none,
};

struct SamplePhoto {
    // Key of the row, and the file: DCIM/900APPLE/IMG_9<number>.<extension>
    unsigned number = 0;
    const char *name = nullptr; // recorded when it was taken; null: none
    const char *extension = "JPG";
    int kind = 0; // 1: a film
    int subtype = 0;
    int pick = 0; // frames of a burst
    int camera = 0;
    int visibility = 0;
    bool trashed = false;
    bool hidden = false;
    bool wallpaper = false;
    bool shared = false;    // comes from somebody's shared album
    bool film = false;      // IMG_9<number>.MOV lies beside it
    bool uploaded = true;   // has a cloud master on a cloud device
    bool cloudOnly = false; // only on cloud devices, original not there
    bool preview = false;   // ... but a smaller version is
    bool latest = false;    // its row is in the write-ahead log alone
    unsigned since = 0;     // iOS version from which on devices have such; 1100
    Original original = Original::there;
    int offBy = 0; // recorded size less the real one
    PhotoDates dates = PhotoDates::all;
    const char *path = nullptr; // the file, where it is not the usual one
};

struct SampleAlbum {
    unsigned number = 0; // key of the row
    const char *title = nullptr;
    int kind = 2;
    bool trashed = false;
    bool latest = false;
    std::span<const unsigned> photos = {};
};

// Plain photos begin after this key.
constexpr unsigned kPlainPhotoKey = 100;
// Plain songs begin after this number.
constexpr unsigned kPlainSongNumber = 100;

std::span<const SamplePhoto> samplePhotos();
std::span<const SampleAlbum> sampleAlbums();

// ---- MediaLibrary.sqlitedb -------------------------------------------------

struct SampleTrack {
    unsigned number = 0;          // decides the order of rows and the times
    const char *artist = nullptr; // null: no row for the artist
    const char *title = "";
    int kind = 1;
    const char *folder = nullptr;   // null: no row for the location
    const char *location = nullptr; // the file in the folder
    Original original = Original::there;
    int offBy = 0;
    uint32_t bytes = 0; // 0: 4000 and 100 times the number
    bool latest = false;
};

std::span<const SampleTrack> sampleTracks();
uint32_t trackBytes(const SampleTrack &track);

// ---- Voice memos -----------------------------------------------------------

struct SampleMemo {
    unsigned number = 0;         // key of the row; decides the date
    const char *label = nullptr; // null: none
    unsigned file = 0;           // of which memo; 0: its own
    bool pathless = false;
    bool deleted = false; // in "Recently Deleted"
    Original original = Original::there;
    bool latest = false;
};

std::span<const SampleMemo> sampleMemos();

// ---- Times, in seconds since 1970 ------------------------------------------

// 2020-06-01 12:00 and as many hours as the key says; plain photos follow each
// other every ten minutes from 2021-01-01 on.
int64_t photoCreated(unsigned key);
// Moments are days: the midnight before.
int64_t photoMoment(unsigned key);
// A minute (and a quarter of a second) after it was taken.
double photoModified(unsigned key);
// The time of the file: 2021-03-01 12:00 and as many minutes.
int64_t trackTime(unsigned number);
// 2020-02-01 09:00 and as many hours.
int64_t memoTime(unsigned number);

} // namespace sim
