#include "simdevice/sample_media.h"

namespace sim
{

// Letters beyond ASCII are composed where they stand as they are; decomposed
// ones are spelled out.
#define TEN_TIMES(text) text text text text text text text text text text

// clang-format off

namespace
{

constexpr SamplePhoto kPhotos[] = {
    // Names.
    {.number = 1, .name = "Harbour.JPG"},
    {.number = 2, .name = "Garden.JPG"},
    {.number = 3, .name = "Café.JPG"},
    {.number = 4, .name = "Cafe\xCC\x81.JPG"},
    {.number = 5, .name = "A\xCC\x88pfel.JPG"},
    {.number = 6, .name = "写真.JPG"},
    {.number = 7, .name = "Twin.JPG"},
    {.number = 8, .name = "Twin.JPG"},
    {.number = 9, .name = "Twin.JPG"},
    {.number = 10, .name = "Before/After.JPG"},
    {.number = 11, .name = "Scan"},
    {.number = 12, .name = "Scan"},
    {.number = 13, .name = TEN_TIMES("写写写写写写写写写") ".JPG"},
    {.number = 14, .name = "Old camera.JPG",
     .path = "PhotoData/CPLAssets/group101/9B1DEB4D-3B7D-4BAD-9BDD-2B0D7B3DCB6D.JPG"},

    // Dates and sizes.
    {.number = 15, .name = "Undated moment.JPG", .dates = PhotoDates::undatedMoment},
    {.number = 16, .name = "No dates.JPG", .dates = PhotoDates::none},
    {.number = 17, .name = "Stale size.JPG", .offBy = 10},
    {.number = 18, .name = "Size zero.JPG", .offBy = kRecordedAsZero},
    {.number = 19, .name = "Empty file.JPG", .original = Original::empty, .offBy = 512},
    {.number = 20, .name = "Missing.JPG", .original = Original::missing},
    {.number = 21, .name = nullptr},

    // Shown or not.
    {.number = 22, .name = "Hidden.JPG", .hidden = true},
    {.number = 23, .name = "Trashed.JPG", .trashed = true},
    {.number = 24, .name = "Visibility 1.JPG", .visibility = 1},
    {.number = 25, .name = "Visibility 2.JPG", .visibility = 2},
    {.number = 26, .name = "Wallpaper.JPG", .wallpaper = true},
    {.number = 27, .name = "Not uploaded.JPG", .uploaded = false},

    // Live photos, and the format of today.
    {.number = 30, .name = "Live.JPG", .subtype = 2, .film = true},
    {.number = 31, .name = "Live still only.JPG", .subtype = 2},
    {.number = 32, .name = "JPG of a JPG.JPG", .subtype = 2, .film = true},
    {.number = 33, .name = "Sparkler.HEIC", .extension = "HEIC", .subtype = 2, .film = true, .since = 1100},
    {.number = 34, .name = "Meadow.HEIC", .extension = "HEIC", .since = 1100},

    // Frames of bursts: 2 not chosen, 4 the device's choice, 8 the user's, 16
    // the one on top, 20 and 52 the top one with further bits.
    {.number = 40, .name = "Burst pick 2.JPG", .pick = 2, .visibility = 2},
    {.number = 41, .name = "Burst pick 4.JPG", .pick = 4},
    {.number = 42, .name = "Burst pick 8.JPG", .pick = 8},
    {.number = 43, .name = "Burst pick 16.JPG", .pick = 16},
    {.number = 44, .name = "Burst pick 20.JPG", .pick = 20},
    {.number = 45, .name = "Burst pick 52.JPG", .pick = 52},

    // The other kinds.
    {.number = 50, .name = "Selfie.JPG", .camera = 1},
    {.number = 51, .name = "Live selfie.JPG", .subtype = 2, .camera = 1, .film = true},
    {.number = 52, .name = "Front video.MOV", .extension = "MOV", .kind = 1, .camera = 1},
    {.number = 53, .name = "Screenshot.PNG", .extension = "PNG", .subtype = 10},
    {.number = 54, .name = "Skyline.JPG", .subtype = 1},
    {.number = 55, .name = "Fountain.MOV", .extension = "MOV", .kind = 1, .subtype = 101},
    {.number = 56, .name = "Clouds.MOV", .extension = "MOV", .kind = 1, .subtype = 102},
    {.number = 57, .name = "Parade.MOV", .extension = "MOV", .kind = 1},
    {.number = 58, .name = "RPReplay_Final1600000000.MP4", .extension = "MP4", .kind = 1, .subtype = 103, .since = 1100},
    {.number = 59, .name = "Trashed.MOV", .extension = "MOV", .kind = 1, .trashed = true},

    // Somebody else's.
    {.number = 60, .name = "Shared.JPG", .visibility = 2, .shared = true,
     .path = "PhotoData/PhotoCloudSharingData/1098765432/5D1C0F7A-0B1E-4C55-8D5C-6A2D9E3F4B10/100CLOUD/IMG_0001.JPG"},
    {.number = 61, .name = "Shared unknown size.JPG", .visibility = 2, .shared = true, .offBy = kRecordedAsZero,
     .path = "PhotoData/PhotoCloudSharingData/1098765432/5D1C0F7A-0B1E-4C55-8D5C-6A2D9E3F4B10/100CLOUD/IMG_0002.JPG"},

    // On cloud devices.
    {.number = 70, .name = "Cloud only.JPG", .cloudOnly = true, .original = Original::missing},
    {.number = 71, .name = "Cloud preview.JPG", .cloudOnly = true, .preview = true, .original = Original::missing},

    // Taken a moment ago.
    {.number = 80, .name = "Today.JPG", .latest = true},
    {.number = 81, .name = "Today live.JPG", .subtype = 2, .film = true, .latest = true},
    {.number = 82, .name = "Today panorama.JPG", .subtype = 1, .latest = true},
    {.number = 83, .name = "Today.MOV", .extension = "MOV", .kind = 1, .latest = true},
};

constexpr unsigned kTrip[] = {1, 2, 24, 25, 30, 57};
constexpr unsigned kOtherTrip[] = {2, 55};
constexpr unsigned kEmptied[] = {23};
constexpr unsigned kMyPanoramas[] = {1, 2};
constexpr unsigned kStream[] = {1, 3};
constexpr unsigned kFamily[] = {7, 8, 50};
constexpr unsigned kHangul[] = {6};
constexpr unsigned kProgress[] = {1, 2};
constexpr unsigned kOld[] = {1};
constexpr unsigned kShared[] = {60, 61};
constexpr unsigned kSummer[] = {5, 10, 11, 12};
constexpr unsigned kNew[] = {80, 81, 83};

constexpr SampleAlbum kAlbums[] = {
    // What the device has of itself: folders, a mark of synchronisation, the
    // album of everything that was taken here (not on every version; it holds
    // all photos but wallpapers and shared ones), a smart album, an import.
    {.number = 1, .kind = 3999},
    {.number = 2, .kind = 3998},
    {.number = 3, .title = "progress-sync", .kind = 3571},
    {.number = 4, .kind = 1000},
    {.number = 5, .kind = 1612},
    {.number = 6, .kind = 1506},

    // What the user has.
    {.number = 10, .title = "Trip", .photos = kTrip},
    {.number = 11, .title = "Trip", .photos = kOtherTrip},
    {.number = 12, .title = "Empty"},
    {.number = 13, .title = "Emptied", .photos = kEmptied},
    {.number = 14, .title = "My Panoramas", .photos = kMyPanoramas},
    {.number = 15, .title = "Stream", .kind = 1500, .photos = kStream},
    {.number = 16, .title = "Family/Friends", .photos = kFamily},
    {.number = 17, .title = TEN_TIMES("한글앨범"), .photos = kHangul},
    {.number = 18, .title = "Work in progress", .photos = kProgress},
    {.number = 19, .title = "Holidays", .kind = 4000},
    {.number = 20, .title = "Old album", .trashed = true, .photos = kOld},
    {.number = 21, .title = "Shared with Anna", .kind = 1505, .photos = kShared},
    {.number = 22, .title = "Été 2020", .photos = kSummer},

    // Made a moment ago.
    {.number = 30, .title = "New this week", .latest = true, .photos = kNew},
};

#define F00 "iTunes_Control/Music/F00"
#define F01 "iTunes_Control/Music/F01"
#define F02 "iTunes_Control/Music/F02"
#define RINGTONES "iTunes_Control/Ringtones"
#define PODCASTS "Podcasts"

constexpr SampleTrack kTracks[] = {
    // Songs: names.
    {.number = 1, .artist = "The Harbour Lights", .title = "Morning Tide", .folder = F00, .location = "AAAA.mp3"},
    {.number = 2, .artist = "The Harbour Lights", .title = "Morning Tide", .folder = F01, .location = "AAAB.mp3"},
    {.number = 3, .title = "Field Recording", .folder = F00, .location = "AAAC.m4a"},
    {.number = 4, .artist = "", .title = "Static", .folder = F00, .location = "AAAD.mp3"},
    {.number = 5, .artist = "Anna B.", .title = "", .folder = F00, .location = "AAAE.mp3"},
    {.number = 6, .title = TEN_TIMES("abcdefghijklmnopqrst"), .folder = F00, .location = "AAAF.mp3"},
    {.number = 7, .artist = "Li", .title = TEN_TIMES("歌歌歌歌歌歌"), .folder = F00, .location = "AAAG.mp3"},
    {.number = 8, .artist = "Left/Right", .title = "Up/Down", .folder = F00, .location = "AAAH.mp3"},
    {.number = 9, .artist = "Two Dots", .title = "Split", .folder = F00, .location = "AAAI.b.mp3"},
    {.number = 10, .title = "My Songwlrtitdb 1 ", .folder = F00, .location = "AAAJ.mp3"},
    {.number = 11, .artist = "Trailing", .title = "Blanks \t ", .folder = F00, .location = "AAAK.mp3"},
    {.number = 12, .artist = "Loop", .title = "Untyped", .folder = F00, .location = "AAAL"},
    {.number = 13, .artist = "Loop", .title = "Untyped", .folder = F00, .location = "AAAM"},
    {.number = 14, .artist = "Café Trio", .title = "Encore", .folder = F01, .location = "AAAN.mp3"},
    {.number = 15, .artist = "Cafe\xCC\x81 Trio", .title = "Encore", .folder = F01, .location = "AAAO.mp3"},
    {.number = 16, .artist = "Store Band", .title = "Bought", .folder = F01, .location = "-6176109735475747593.m4a"},

    // Songs: not shown.
    {.number = 17, .artist = "Stale", .title = "Off by one", .folder = F01, .location = "AAAQ.mp3", .offBy = 1},
    {.number = 18, .artist = "Stale", .title = "Size zero", .folder = F01, .location = "AAAR.mp3", .offBy = kRecordedAsZero},
    {.number = 19, .artist = "Cloud", .title = "Elsewhere", .folder = "", .location = "", .original = Original::missing},
    {.number = 20, .artist = "Lost", .title = "Missing", .folder = F01, .location = "AAAT.mp3", .original = Original::missing},
    {.number = 21, .artist = "Lost", .title = "No location", .location = "AAAU.mp3", .original = Original::missing},
    {.number = 22, .artist = "Reader", .title = "Audiobook", .kind = 8, .folder = F01, .location = "AAAV.m4b"},

    // Films: home videos, an episode, a film that was bought, a music video, a
    // ringtone.
    {.number = 31, .title = "Birthday", .kind = 1024, .folder = F02, .location = "ABAA.mp4", .bytes = 300000},
    {.number = 32, .title = "Birthday", .kind = 1024, .folder = F02, .location = "ABAB.mp4"},
    {.number = 33, .title = "Pilot", .kind = 64, .folder = F02, .location = "ABAC.m4v"},
    {.number = 34, .title = "The Feature", .kind = 2, .folder = F02, .location = "ABAD.m4v"},
    {.number = 35, .artist = "The Harbour Lights", .title = "Morning Tide", .kind = 32, .folder = F02, .location = "ABAE.m4v"},
    {.number = 36, .title = "Marimba", .kind = 0x4000, .folder = RINGTONES, .location = "ABAF.m4r"},
    {.number = 37, .title = TEN_TIMES("ABCDEFGHIJKLMNOPQRST"), .kind = 1024, .folder = F02, .location = "ABAG.mp4"},
    {.number = 38, .title = TEN_TIMES("映映映映映映"), .kind = 1024, .folder = F02, .location = "ABAH.mp4"},

    // Podcasts, heard and seen.
    {.number = 41, .artist = "Weekly News", .title = "Episode 1", .kind = 4, .folder = PODCASTS, .location = "ACAA.mp3"},
    {.number = 42, .artist = "Weekly News", .title = "Episode 2", .kind = 6, .folder = PODCASTS, .location = "ACAB.m4v"},

    // Bought a moment ago.
    {.number = 51, .artist = "The Harbour Lights", .title = "Evening Tide", .folder = F01, .location = "ADAA.mp3", .latest = true},
    {.number = 52, .title = "Graduation", .kind = 1024, .folder = F02, .location = "ADAB.mp4", .latest = true},
};

constexpr SampleMemo kMemos[] = {
    {.number = 1, .label = "Talk"},
    {.number = 2, .label = "Idea"},
    {.number = 3, .label = "Idea"},
    {.number = 4, .label = "Interview/Anna"},
    {.number = 5, .label = "한국어 메모"},
    {.number = 6, .label = "Twice"},
    {.number = 7, .label = "Twice", .file = 6},
    {.number = 8, .label = nullptr},
    {.number = 9, .label = "No path", .pathless = true},
    {.number = 10, .label = "Missing", .original = Original::missing},
    {.number = 11, .label = "Silent", .original = Original::empty},
    {.number = 12, .label = "Deleted", .deleted = true},
    {.number = 13, .label = "Just now", .latest = true},
};

// clang-format on

constexpr int64_t kDay = 86400;

} // namespace

std::span<const SamplePhoto> samplePhotos()
{
    return kPhotos;
}

std::span<const SampleAlbum> sampleAlbums()
{
    return kAlbums;
}

std::span<const SampleTrack> sampleTracks()
{
    return kTracks;
}

std::span<const SampleMemo> sampleMemos()
{
    return kMemos;
}

uint32_t trackBytes(const SampleTrack &track)
{
    return track.bytes != 0 ? track.bytes : 4000 + 100 * track.number;
}

int64_t photoCreated(unsigned key)
{
    if (key > kPlainPhotoKey) {
        return 1609459200 + int64_t{600} * (key - kPlainPhotoKey - 1);
    }
    return 1591012800 + int64_t{3600} * key;
}

int64_t photoMoment(unsigned key)
{
    const int64_t created = photoCreated(key);
    return created - created % kDay;
}

double photoModified(unsigned key)
{
    return static_cast<double>(photoCreated(key)) + 60.25;
}

int64_t trackTime(unsigned number)
{
    return 1614600000 + int64_t{60} * number;
}

int64_t memoTime(unsigned number)
{
    return 1580547600 + int64_t{3600} * number;
}

} // namespace sim
