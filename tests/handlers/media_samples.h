// Databases as devices keep them, small: for the tests of the media views and
// as a fuzzer's first inputs.
#pragma once

#include <string>
#include <vector>

// The bytes of a database in which the statements were executed.
std::string BuildDatabase(const std::string &sql);

// A generation of the photo database.
struct SampleGeneration {
    const char *version;
    const char *assets; // table
    int albumEnt;
    int assetEnt; // in the name of the join table
    int rowEnt;   // of the rows
    bool isCloud;
};
extern const SampleGeneration IOS_8;
extern const SampleGeneration IOS_9_CLOUD;
extern const SampleGeneration IOS_13;
extern const SampleGeneration IOS_17;

struct SampleAsset {
    int key = 0;
    std::string file = {};     // below /DCIM
    std::string recorded = {}; // "": none
    int kind = 0;
    int subtype = 0;
    std::string more = {}; // "ZTRASHEDSTATE=1, ..." for the asset's row
    int camera = 0;
    int64_t size = 100;
    std::string film = {}; // file of a live photo
};
// One of everything; keys from 1 on.
const std::vector<SampleAsset> &SampleAssets();
// SampleAssets, and albums: "Trip" twice (with 1, 2, 5, 11), an empty one, the
// stream, "A/B", "My Panoramas", "Work in progress".
std::string PhotoDatabase(const SampleGeneration &generation);

struct SampleSong {
    const char *artist; // null: none
    const char *title;
    const char *location;
    const char *base = "iTunes_Control/Music/F00";
    int64_t size = 5;
    int kind = 1;
};
std::string MediaDatabase(const std::vector<SampleSong> &songs);

// Label and path of each recording; the older and the newer kind of table.
using SampleMemos = std::vector<std::pair<std::string, std::string>>;
std::string RecordingsDatabase(const SampleMemos &memos);
std::string CloudRecordingsDatabase(const SampleMemos &memos);
