#include "simdevice/sample_maker.h"

#include <charconv>
#include <filesystem>

#include "simdevice/file_maker.h"
#include "simdevice/keys.h"
#include "simdevice/media_bytes.h"
#include "simdevice/media_library.h"
#include "simdevice/photo_library.h"
#include "simdevice/photo_schema.h"
#include "simdevice/recordings.h"

namespace sim
{

namespace
{

namespace fs = std::filesystem;

struct SampleFile {
    const char *path;
    const char *text;  // the content, or null:
    uint64_t size = 0; // that many bytes of noise
};

// The user's own storage, below Media/general_storage. Names: composed and
// decomposed letters, blanks, a leading dot, more than one script.
constexpr SampleFile kStorageFiles[] = {
    {"Welcome.txt", "Hello from the sample device.\n"},
    {"Shopping list.txt", "milk\nbread\napples\n"},
    {"Empty.txt", ""},
    {".hidden", "a name with a leading dot\n"},
    {"Caf\xC3\xA9 menu.txt", "composed name\n"},
    {"U\xCC\x88"
     "bersicht.txt",
     "decomposed name\n"},
    {"\xE5\x86\x99\xE7\x9C\x9F.txt", "two ideographs\n"},
    {"Projects/Plan.md", "# Plan\n\n1. Mount\n2. Read\n3. Write\n"},
    {"Projects/2024/Budget.csv", "month,amount\nJanuary,120\nFebruary,95\n"},
    {"Projects/2024/Notes/Ideas.txt", "deeply nested\n"},
    {"Projects/Backup/archive.bin", nullptr, 300000},
    {"Videos/holiday.mov", nullptr, 3 * 1024 * 1024 + 17},
};

constexpr const char *kStorageFolders[] = {"Empty folder"};

// What else a media file system has, beside what its libraries bring.
constexpr const char *kMediaFolders[] = {
    "Books",     "DCIM/100APPLE",        "Downloads", "Photos", "Podcasts",
    "Purchases", "iTunes_Control/Music",
};

struct SampleApp {
    const char *bundleId;
    const char *name;
    bool sharing;
    SampleFile files[3];
};

constexpr SampleApp kApps[] = {
    {"com.example.notes",
     "Notes",
     true,
     {{"Diary.txt", "Monday: sunny.\n"},
      {"Lists/Groceries.txt", "eggs\n"},
      {"Lists/Books.txt", "one\ntwo\n"}}},
    {"org.example.quicknotes",
     "Notes",
     true,
     {{"Inbox.txt", "the other app of this name\n"}, {}, {}}},
    {"com.example.bank",
     "Bank",
     false,
     {{"Statement.pdf", nullptr, 5000}, {}, {}}},
    {"com.example.reader",
     "Caf\xC3\xA9 Reader",
     true,
     {{"Manual.epub", nullptr, 60000}, {"Covers/1.dat", nullptr, 900}, {}}},
};

// Apps of the system, which have no folder here.
constexpr const char *kSystemApps[][2] = {
    {"com.apple.mobilesafari", "Safari"},
    {"com.apple.Preferences", "Settings"},
};

void addSample(FileMaker &maker, const std::string &place,
               const SampleFile &entry, uint64_t seed)
{
    maker.file(place + "/" + entry.path, entry.text != nullptr
                                             ? std::string(entry.text)
                                             : noise(seed, entry.size));
}

void makeMedia(FileMaker &maker, const LibraryOptions &options)
{
    for (const char *folder : kMediaFolders) {
        maker.folder(std::string("Media/") + folder);
    }
    for (const char *folder : kStorageFolders) {
        maker.folder(std::string("Media/general_storage/") + folder);
    }
    uint64_t seed = 0;
    for (const SampleFile &file : kStorageFiles) {
        addSample(maker, "Media/general_storage", file, ++seed);
    }
    makePhotoLibrary(maker, options);
    makeMediaLibrary(maker, options);
    makeRecordings(maker, options);
}

App makeSampleApp(FileMaker &maker, uint32_t index)
{
    App app;
    if (index < std::size(kApps)) {
        const SampleApp &sample = kApps[index];
        app = {sample.bundleId, sample.name, "1.2.3", true, sample.sharing};
        uint64_t seed = uint64_t{100} * (index + 1);
        for (const SampleFile &file : sample.files) {
            if (file.path != nullptr) {
                addSample(maker, "Apps/" + app.bundleId + "/Documents", file,
                          ++seed);
            }
        }
    } else {
        const std::string number = std::to_string(index + 1);
        app = {"com.example.app" + number, "Sample App " + number, "1.0", true,
               true};
        maker.file("Apps/" + app.bundleId + "/Documents/Readme.txt",
                   "Documents of sample app " + number + ".\n");
    }
    return app;
}

std::string checkTarget(const std::string &folder)
{
    std::error_code error;
    if (!fs::exists(folder, error)) {
        return {};
    }
    if (!fs::is_directory(folder, error)) {
        return folder + ": exists and is not a folder";
    }
    const bool empty = fs::is_empty(folder, error);
    if (error) {
        return folder + ": " + error.message();
    }
    return empty ? std::string() : folder + ": exists and is not empty";
}

} // namespace

bool setIosVersion(Identity &identity, const std::string &version)
{
    unsigned major = 0;
    unsigned minor = 0;
    const char *end = version.data() + version.size();
    const auto first = std::from_chars(version.data(), end, major);
    if (first.ec != std::errc() || first.ptr == end || *first.ptr != '.') {
        return false;
    }
    const auto second = std::from_chars(first.ptr + 1, end, minor);
    if (second.ec != std::errc() || (second.ptr != end && *second.ptr != '.') ||
        major < 5 || major > 99 || version.size() > 15) {
        return false;
    }
    // Build numbers begin with a number that is 4 ahead of the version.
    identity.iosVersion = version;
    identity.buildVersion = std::to_string(major + 4) +
                            static_cast<char>('A' + minor % 26) +
                            std::to_string(90 + minor);
    return true;
}

std::string makeSample(const std::string &folder, SampleOptions options)
{
    std::string problem = checkTarget(folder);
    if (!problem.empty()) {
        return problem;
    }
    FileMaker maker(folder);
    Identity &identity = options.identity;
    maker.folder("Apps");
    makeMedia(maker, {versionNumber(identity.iosVersion), options.cloud,
                      options.photos, options.songs});
    identity.apps.clear();
    for (uint32_t i = 0; i < options.apps; i++) {
        identity.apps.push_back(makeSampleApp(maker, i));
    }
    for (const auto &[bundleId, name] : kSystemApps) {
        identity.apps.push_back({bundleId, name, "1.0", false, false});
    }
    maker.finishFolders();
    if (!maker.problem().empty()) {
        return maker.problem();
    }
    identity.privateKey = makeDeviceKey(identity.udid);
    identity.contentBytes = measureContent(folder, identity.blockSize);
    return writeIdentity(folder, identity);
}

} // namespace sim
