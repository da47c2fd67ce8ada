#include "simdevice/sample_maker.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <charconv>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>

#include "simdevice/jpeg.h"
#include "simdevice/keys.h"

namespace sim
{

namespace
{

namespace fs = std::filesystem;

// 2024-03-01 12:00:00 UTC; every file is a minute younger than the one before.
constexpr int64_t kFirstTime = 1709294400;

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

// What else a media file system has. PhotoData and iTunes_Control/iTunes are
// where the databases of pictures and music belong.
constexpr const char *kMediaFolders[] = {
    "Books",
    "DCIM/100APPLE",
    "Downloads",
    "Photos",
    "PhotoData",
    "Podcasts",
    "Purchases",
    "Recordings",
    "iTunes_Control/Music",
    "iTunes_Control/iTunes",
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

// Bytes that depend on nothing but the seed and do not compress.
std::string noise(uint64_t seed, uint64_t size)
{
    std::string bytes;
    bytes.reserve(size + 8);
    uint64_t state = seed;
    while (bytes.size() < size) {
        state += 0x9E3779B97F4A7C15;
        uint64_t word = state;
        word = (word ^ (word >> 30)) * 0xBF58476D1CE4E5B9;
        word = (word ^ (word >> 27)) * 0x94D049BB133111EB;
        word ^= word >> 31;
        for (int i = 0; i < 64; i += 8) {
            bytes.push_back(static_cast<char>(word >> i & 0xFF));
        }
    }
    bytes.resize(size);
    return bytes;
}

// Writes the files of a sample; remembers the first failure.
class Maker
{
  public:
    explicit Maker(std::string folder) : m_folder(std::move(folder)) {}

    void folder(const std::string &path)
    {
        std::error_code error;
        fs::create_directories(m_folder + "/" + path, error);
        note(path, error);
    }

    void file(const std::string &path, const std::string &bytes)
    {
        const size_t slash = path.rfind('/');
        if (slash != std::string::npos) {
            folder(path.substr(0, slash));
        }
        std::ofstream out(m_folder + "/" + path, std::ios::binary);
        out << bytes;
        out.close();
        if (!out) {
            note(path, std::error_code(errno, std::generic_category()));
        }
        setTime(path);
    }

    void sample(const std::string &place, const SampleFile &entry)
    {
        m_seed++;
        file(place + "/" + entry.path, entry.text != nullptr
                                           ? std::string(entry.text)
                                           : noise(m_seed, entry.size));
    }

    // Folders get their times last, when nothing is put into them any more.
    void finishFolders()
    {
        std::vector<std::string> folders;
        std::error_code error;
        for (fs::recursive_directory_iterator it(m_folder, error), end;
             !error && it != end; it.increment(error)) {
            if (it->is_directory(error)) {
                folders.push_back(it->path().string());
            }
        }
        for (const std::string &path : folders) {
            m_time = kFirstTime;
            setTime(path.substr(m_folder.size() + 1));
        }
    }

    const std::string &problem() const { return m_problem; }

  private:
    void note(const std::string &path, const std::error_code &error)
    {
        if (error && m_problem.empty()) {
            m_problem = m_folder + "/" + path + ": " + error.message();
        }
    }

    void setTime(const std::string &path)
    {
        const timespec times[2] = {{m_time, 0}, {m_time, 0}};
        if (utimensat(AT_FDCWD, (m_folder + "/" + path).c_str(), times, 0) !=
            0) {
            note(path, std::error_code(errno, std::generic_category()));
        }
        m_time += 60;
    }

    std::string m_folder;
    std::string m_problem;
    int64_t m_time = kFirstTime;
    uint64_t m_seed = 0;
};

void makeMedia(Maker &maker, uint32_t photos)
{
    for (const char *folder : kMediaFolders) {
        maker.folder(std::string("Media/") + folder);
    }
    for (const char *folder : kStorageFolders) {
        maker.folder(std::string("Media/general_storage/") + folder);
    }
    for (const SampleFile &file : kStorageFiles) {
        maker.sample("Media/general_storage", file);
    }
    // As a camera numbers them: 999 pictures to a folder.
    for (uint32_t i = 0; i < photos; i++) {
        char name[64];
        std::snprintf(name, sizeof name, "Media/DCIM/%uAPPLE/IMG_%04u.JPG",
                      100 + i / 999, i + 1);
        maker.file(name, makeJpeg(i + 1));
    }
}

App makeSampleApp(Maker &maker, uint32_t index)
{
    App app;
    if (index < std::size(kApps)) {
        const SampleApp &sample = kApps[index];
        app = {sample.bundleId, sample.name, "1.2.3", true, sample.sharing};
        for (const SampleFile &file : sample.files) {
            if (file.path != nullptr) {
                maker.sample("Apps/" + app.bundleId + "/Documents", file);
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
    Maker maker(folder);
    maker.folder("Apps");
    makeMedia(maker, options.photos);
    Identity &identity = options.identity;
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
