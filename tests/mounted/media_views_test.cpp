// Every folder below "Media" of a sample device of every generation, against
// media_expected.txt.
#include <dirent.h>
#include <fcntl.h>
#include <fnmatch.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <ctime>
#include <map>
#include <sstream>

#include "tests/mounted/fixture.h"
#include "tests/mounted/media_expected.h"

namespace
{

struct Entry {
    std::string name;
    bool folder = false;
    int64_t size = 0;
    int64_t modified = 0;
    int64_t accessed = 0;
};

// In the order of the listing, each with its attributes.
std::vector<Entry> ListInOrder(const std::string &path)
{
    const Outcome outcome = Access([&](std::string *data) {
        DIR *folder = opendir(path.c_str());
        if (folder == nullptr) {
            return errno;
        }
        while (const dirent *entry = readdir(folder)) {
            const std::string name = entry->d_name;
            struct stat st {
            };
            if (name == "." || name == "..") {
                continue;
            }
            if (lstat((path + "/" + name).c_str(), &st) != 0) {
                return errno;
            }
            std::ostringstream line;
            line << (S_ISDIR(st.st_mode) ? 1 : 0) << ' ' << st.st_size << ' '
                 << st.st_mtime << ' ' << st.st_atime << ' ' << name << '\n';
            *data += line.str();
        }
        closedir(folder);
        return 0;
    });
    EXPECT_EQ(outcome.error, 0) << path;
    std::vector<Entry> entries;
    std::istringstream lines(outcome.data);
    Entry entry;
    while (lines >> entry.folder >> entry.size >> entry.modified >>
           entry.accessed) {
        lines.get();
        std::getline(lines, entry.name);
        entries.push_back(entry);
    }
    return entries;
}

std::vector<ExpectedEntry> Shown(const ExpectedFolder &folder)
{
    std::vector<ExpectedEntry> shown;
    std::copy_if(
        folder.entries.begin(), folder.entries.end(), std::back_inserter(shown),
        [](const ExpectedEntry &entry) { return !entry.name.empty(); });
    return shown;
}

template <typename T>
std::string Names(const std::vector<T> &entries)
{
    std::string names;
    for (const T &entry : entries) {
        names += entry.name + (entry.folder ? "/\n" : "\n");
    }
    return names;
}

template <typename T>
void SortByName(std::vector<T> *entries)
{
    std::sort(entries->begin(), entries->end(),
              [](const T &a, const T &b) { return a.name < b.name; });
}

std::string WithoutNumber(std::string name)
{
    const size_t at = name.find(" (2)");
    return at == std::string::npos ? name : name.erase(at, 4);
}

class MediaViewsTest : public MountedTest
{
  protected:
    void Begin(const Generation &generation)
    {
        Words options = {"--ios", generation.ios, "--photos",
                         "4",     "--songs",      "2"};
        if (generation.cloud) {
            options.emplace_back("--cloud");
        }
        MakeDevice(options);
        Serve();
        began = time(nullptr);
        Mount();
        volume->ExpectTrouble(); // the log is compared as a whole
    }

    std::string OnDevice(const std::string &file) const
    {
        return device->folder + "/Media/" + file;
    }

    // Where an album's order is open, so is which of two names gets the number.
    static void Arrange(std::vector<ExpectedEntry> *expected,
                        const std::vector<Entry> &found)
    {
        SortByName(expected);
        std::map<std::string, std::vector<ExpectedEntry>> groups;
        for (const ExpectedEntry &entry : *expected) {
            groups[WithoutNumber(entry.name)].push_back(entry);
        }
        for (ExpectedEntry &entry : *expected) {
            auto &group = groups[WithoutNumber(entry.name)];
            const auto listed =
                std::find_if(found.begin(), found.end(), [&](const Entry &e) {
                    return e.name == entry.name;
                });
            const auto meant =
                std::find_if(group.begin(), group.end(), [&](const auto &e) {
                    return listed != found.end() && e.time == listed->modified;
                });
            if (meant != group.end()) {
                entry.file = meant->file;
                entry.time = meant->time;
                group.erase(meant);
            }
        }
    }

    void ExpectTime(const ExpectedEntry &expected, const Entry &found,
                    const struct stat &original) const
    {
        if (expected.time == -1) {
            EXPECT_GE(found.modified, began);
            EXPECT_LE(found.modified, time(nullptr));
        } else {
            EXPECT_EQ(found.modified,
                      expected.time == -2 ? original.st_mtime : expected.time);
        }
        EXPECT_EQ(found.accessed, found.modified);
    }

    // Names, kinds, order, sizes and times.
    void ExpectListing(const ExpectedFolder &folder)
    {
        std::vector<ExpectedEntry> expected = Shown(folder);
        std::vector<Entry> found = ListInOrder(volume->Path(folder.path));
        if (folder.note == "any order") {
            SortByName(&found);
            Arrange(&expected, found);
        }
        ASSERT_EQ(Names(found), Names(expected));
        for (size_t i = 0; i < found.size(); ++i) {
            SCOPED_TRACE(found[i].name);
            if (expected[i].folder) {
                EXPECT_GE(found[i].modified, began);
                continue;
            }
            struct stat original {
            };
            ASSERT_EQ(stat(OnDevice(expected[i].file).c_str(), &original), 0);
            EXPECT_EQ(found[i].size, original.st_size);
            ExpectTime(expected[i], found[i], original);
            same.emplace_back(volume->Path(folder.path) + "/" + found[i].name,
                              OnDevice(expected[i].file));
        }
    }

    // One for each row that has a file, and nothing else.
    void ExpectRequests(const ExpectedFolder &folder)
    {
        const auto rows = std::count_if(
            folder.entries.begin(), folder.entries.end(),
            [](const ExpectedEntry &entry) { return !entry.folder; });
        EXPECT_EQ(simulator->Requests("GetFileInfo"),
                  static_cast<uint64_t>(rows));
        EXPECT_EQ(simulator->AllRequests(), static_cast<uint64_t>(rows));
    }

    void ExpectDatabasesFetchedOnce()
    {
        uint64_t files = 0;
        int64_t bytes = 0;
        for (const char *name :
             {"iTunes_Control/iTunes/MediaLibrary.sqlitedb",
              "PhotoData/Photos.sqlite", "Recordings/Recordings.db",
              "Recordings/CloudRecordings.db"}) {
            for (const char *suffix : {"", "-shm", "-wal"}) {
                struct stat st {
                };
                if (stat((OnDevice(name) + suffix).c_str(), &st) == 0) {
                    ++files;
                    bytes += st.st_size;
                }
            }
        }
        EXPECT_EQ(simulator->Requests("FileRefOpen"), files);
        EXPECT_EQ(simulator->Number("bytes_read"), bytes);
    }

    void ExpectLog(const std::vector<ExpectedLine> &expected)
    {
        std::vector<int> seen(expected.size());
        for (const std::string &line : volume->Log()) {
            const auto at = std::find_if(
                expected.begin(), expected.end(), [&](const auto &pattern) {
                    return fnmatch(pattern.pattern.c_str(), line.c_str(), 0) ==
                           0;
                });
            if (at != expected.end()) {
                ++seen[static_cast<size_t>(at - expected.begin())];
                continue;
            }
            for (const char *word :
                 {"enumMedia", "GetPhotoFromDevice", "EnumContents", "EnumNon",
                  "EnumCloud", "GetPhotoAlbumENT", "DownloadDBandOpen",
                  "downloadfile", "opendb", "fail", "Unexpected"}) {
                // The tray helper's pipe is not there.
                EXPECT_TRUE(line.starts_with("sendPipe") ||
                            line.starts_with("sendData") ||
                            line.find(word) == std::string::npos)
                    << "not expected: " << line;
            }
        }
        for (size_t i = 0; i < seen.size(); ++i) {
            EXPECT_TRUE(expected[i].count < 0 || seen[i] == expected[i].count)
                << seen[i] << " times: " << expected[i].pattern;
        }
    }

    time_t began = 0;
    // Files on the volume, each with what it must be the same as.
    std::vector<std::pair<std::string, std::string>> same;
};

class MediaGenerationTest : public MediaViewsTest,
                            public ::testing::WithParamInterface<Generation>
{
};

TEST_P(MediaGenerationTest, ShowsWhatIsExpected)
{
    Begin(GetParam());
    const ExpectedMedia expected = ReadExpectedMedia(GetParam());
    for (const ExpectedFolder &folder : expected.folders) {
        SCOPED_TRACE(folder.path + " " + folder.note);
        simulator->Control("stats reset");
        ExpectListing(folder);
        if (folder.note == "first") {
            ExpectDatabasesFetchedOnce();
        } else {
            ExpectRequests(folder);
        }
    }

    const auto files = same;
    simulator->Control("stats reset");
    for (const ExpectedFolder &folder : expected.folders) {
        SCOPED_TRACE(folder.path + " once more");
        if (folder.note != "first") {
            ExpectListing(folder);
        }
    }
    EXPECT_EQ(simulator->AllRequests(), 0U);

    const Outcome differ = Access([&](std::string *data) {
        for (const auto &[shown, original] : files) {
            if (Slurp(shown) != Slurp(original)) {
                *data += shown + "\n";
            }
        }
        return 0;
    });
    EXPECT_EQ(differ.error, 0);
    EXPECT_EQ(differ.data, "");
    ExpectLog(expected.log);
    EXPECT_TRUE(volume->Dialogs().empty());
}

INSTANTIATE_TEST_SUITE_P(
    Ios, MediaGenerationTest,
    ::testing::Values(Generation{"9.2", false}, Generation{"9.2", true},
                      Generation{"9.3", false}, Generation{"9.3", true},
                      Generation{"10.3", false}, Generation{"12.4", false},
                      Generation{"14.8", false}, Generation{"15.7", false},
                      Generation{"16.7", false}, Generation{"17.6", false},
                      Generation{"17.6", true}, Generation{"18.3", false}),
    [](const auto &test) {
        std::string name = test.param.ios;
        std::replace(name.begin(), name.end(), '.', '_');
        return name + (test.param.cloud ? "_cloud" : "");
    });

} // namespace
