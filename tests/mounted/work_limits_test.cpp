// Where a device ends: full, out of file handles, out of connections to apps,
// apps of one name, apps that let nobody in.
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>

#include "tests/mounted/fixture.h"

namespace
{

constexpr const char *CAFE = "Apps/Caf\xC3\xA9 Reader";
constexpr const char *CAFE_ON_DEVICE = "Apps/com.example.reader/Documents";

class WorkLimitsTest : public MountedTest
{
  protected:
    // The device's side of both places that can be worked in.
    std::string OnDevice(const std::string &place) const
    {
        return device->folder + "/" +
               (place == CAFE ? CAFE_ON_DEVICE : "Media/general_storage");
    }

    double Free() const
    {
        const Outcome outcome = Access([&](std::string *data) {
            struct statvfs st {
            };
            if (statvfs(volume->Path("Storage").c_str(), &st) != 0) {
                return errno;
            }
            *data = std::to_string(st.f_bavail * st.f_frsize);
            return 0;
        });
        return outcome.error == 0 ? std::stod(outcome.data) : -1;
    }

    // How often an app was asked to let somebody in.
    int Vended() const
    {
        const std::string stats = simulator->Control("stats");
        const std::string key = "\"VendDocuments\":";
        const size_t at = stats.find(key);
        return at == std::string::npos
                   ? 0
                   : std::stoi(stats.substr(at + key.size()));
    }

    void ExpectNothingOpen()
    {
        EXPECT_TRUE(Eventually(
            [this] { return simulator->Number("open_files") == 0; }, 5));
    }
};

std::string Numbered(const std::string &folder, int number)
{
    return folder + "/file " + std::to_string(number);
}

// Makes and keeps open file after file; tells how many there were and what
// stopped it. Each gets its name before that and more after.
int OpenUntilRefused(const std::string &folder, int most, std::string *data)
{
    std::vector<int> files;
    int refusal = 0;
    while (refusal == 0 && static_cast<int>(files.size()) < most) {
        const std::string path =
            Numbered(folder, static_cast<int>(files.size()));
        const int fd = open(path.c_str(), O_CREAT | O_EXCL | O_RDWR, 0666);
        if (fd < 0) {
            refusal = errno;
        } else if (write(fd, "begun ", 6) != 6) {
            return errno;
        } else {
            files.push_back(fd);
        }
    }
    for (const int fd : files) {
        if (write(fd, "done", 4) != 4 || close(fd) != 0) {
            return errno;
        }
    }
    *data = std::to_string(files.size()) + " " + std::to_string(refusal);
    return 0;
}

TEST_F(WorkLimitsTest, MoreFilesOpenThanTheDeviceHasHandles)
{
    MakeDevice();
    Serve({"--max-files", "20"});
    Mount();
    volume->ExpectTrouble();
    for (const std::string place : {"Storage", CAFE}) {
        const std::string folder = volume->Path(place);
        const Outcome outcome = Access([&](std::string *data) {
            return OpenUntilRefused(folder, 40, data);
        });
        EXPECT_EQ(outcome.error, 0) << place;
        EXPECT_EQ(outcome.data, "20 " + std::to_string(ECANCELED)) << place;
        ExpectNothingOpen();
        for (int i = 0; i < 20; ++i) {
            EXPECT_EQ(Slurp(Numbered(OnDevice(place), i)), "begun done");
        }
        // The refused one is not there, and can be made now.
        const std::string next = Numbered(folder, 20);
        EXPECT_EQ(Stat(next).error, ENOENT);
        EXPECT_EQ(WriteFile(next, O_CREAT | O_EXCL | O_WRONLY, "now").error, 0);
        EXPECT_EQ(Slurp(Numbered(OnDevice(place), 20)), "now");
    }
}

// Writes pieces until one is refused. The file then has what was confirmed, and
// nothing of it is changed.
TEST_F(WorkLimitsTest, FullInTheMiddle)
{
    MakeDevice();
    Start();
    volume->ExpectTrouble();
    for (const std::string place : {"Storage", CAFE}) {
        const std::string path = volume->Path(place) + "/log";
        simulator->Control("space 1000000");
        const Outcome outcome = Access([&](std::string *data) {
            const int fd = open(path.c_str(), O_CREAT | O_WRONLY, 0666);
            size_t confirmed = 0;
            ssize_t n = 0;
            for (char c = 'a'; c <= 'z' && n >= 0; ++c) {
                const std::string piece(100000, c);
                n = write(fd, piece.data(), piece.size());
                confirmed += n > 0 ? static_cast<size_t>(n) : 0;
            }
            *data = std::to_string(confirmed);
            const int refusal = n < 0 ? errno : 0;
            close(fd);
            return refusal;
        });
        EXPECT_EQ(outcome.error, ECANCELED) << place;
        ASSERT_FALSE(outcome.data.empty());
        const size_t confirmed = std::stoul(outcome.data);
        EXPECT_GE(confirmed, 900000U);
        const std::string there = Slurp(OnDevice(place) + "/log");
        ASSERT_GE(there.size(), confirmed);
        for (size_t at = 0; at < confirmed; at += 50000) {
            EXPECT_EQ(there[at], 'a' + static_cast<char>(at / 100000));
        }
        ExpectNothingOpen();
        // The volume shows the size that the device has.
        EXPECT_EQ(ReadFile(path).data.size(), there.size()) << place;

        // Room again: work goes on where it was refused.
        EXPECT_EQ(RunProgram({"rm", path}).status, 0);
        simulator->Control("space 100000000");
        EXPECT_EQ(WriteFile(path, O_CREAT | O_WRONLY, "again").error, 0);
        EXPECT_EQ(Slurp(OnDevice(place) + "/log"), "again");
    }
    EXPECT_TRUE(
        volume->WaitForDialog("Could not write a file.\nError Code : -62"));
}

// A file that cannot be replaced for lack of room keeps its old contents when
// the new ones go to a file of their own.
TEST_F(WorkLimitsTest, FullUnderAnEditor)
{
    MakeDevice();
    const std::string old(50000, 'o');
    device->Put("text", old);
    Start();
    volume->ExpectTrouble();
    Spill(work + "/new", std::string(300000, 'n'));
    simulator->Control("space 100000");
    const Finished run = RunProgram({"sh", "-ec",
                                     "cd '" + Storage("") + "'; cp '" + work +
                                         "/new' t.tmp && mv t.tmp text"});
    EXPECT_NE(run.status, 0);
    EXPECT_EQ(device->Get("text"), old);
    EXPECT_EQ(ReadFile(Storage("text")).data, old);
    EXPECT_EQ(RunProgram({"rm", Storage("t.tmp")}).status, 0);
}

TEST_F(WorkLimitsTest, FreeSpaceFollowsWork)
{
    MakeDevice({"--capacity", "64000000000", "--free", "32000000000"});
    Start();
    const double before = Free();
    const std::string data(60000000, 'd');
    for (const std::string place : {"Storage", CAFE}) {
        const std::string file = volume->Path(place) + "/big";
        ASSERT_EQ(WriteFile(file, O_CREAT | O_WRONLY, data).error, 0);
        // Shown with about two decimal digits of a gigabyte.
        EXPECT_NEAR(before - Free(), 60e6, 15e6) << place;
        const Finished df =
            RunProgram({"df", "-B1", "--output=avail", volume->Path(place)});
        EXPECT_NEAR(std::stod(df.out.substr(df.out.find('\n'))), Free(), 1e6);
        ASSERT_EQ(RunProgram({"mv", file, file + "2"}).status, 0);
        ASSERT_EQ(RunProgram({"rm", file + "2"}).status, 0);
        EXPECT_NEAR(Free(), before, 15e6) << place;
    }
}

TEST_F(WorkLimitsTest, TwoAppsOfOneName)
{
    Start();
    const std::string names = List(volume->Path("Apps")).data;
    EXPECT_NE(names.find("Notes\nNotes (2)\n"), std::string::npos) << names;
    const char *const folders[] = {"Apps/Notes/", "Apps/Notes (2)/"};
    for (const char *folder : folders) {
        ASSERT_EQ(
            WriteFile(volume->Path(folder) + "mine", O_CREAT | O_WRONLY, folder)
                .error,
            0);
    }
    for (const char *folder : folders) {
        const std::string listed = List(volume->Path(folder)).data;
        const bool first = listed == "Diary.txt\nLists\nmine\n";
        EXPECT_TRUE(first || listed == "Inbox.txt\nmine\n") << listed;
        const std::string id =
            first ? "com.example.notes" : "org.example.quicknotes";
        EXPECT_EQ(Slurp(device->folder + "/Apps/" + id + "/Documents/mine"),
                  folder);
    }
}

// It is asked again now and then, but not for every name that somebody tries.
TEST_F(WorkLimitsTest, AppThatLetsNobodyIn)
{
    Start();
    volume->ExpectTrouble();
    simulator->Control("fail VendDocuments 1000 InstallationLookupFailed");
    const std::string shut = volume->Path(CAFE);
    EXPECT_EQ(List(shut).error, 0);
    EXPECT_EQ(List(shut).data, "");
    simulator->Control("stats reset");
    const Outcome tries = Access([&](std::string *) {
        struct stat st {
        };
        for (int i = 0; i < 200; ++i) {
            if (stat(Numbered(shut, i).c_str(), &st) == 0) {
                return EEXIST;
            }
        }
        return errno;
    });
    EXPECT_EQ(tries.error, ENOENT);
    EXPECT_GE(Vended(), 1); // the tries did reach the app
    EXPECT_LE(Vended(), 3 + static_cast<int>(tries.seconds));
    EXPECT_NE(WriteFile(shut + "/new", O_CREAT | O_WRONLY, "x").error, 0);
    EXPECT_EQ(List(volume->Path("Apps/Notes")).data, "");

    simulator->Control("faults clear");
    sleep(2); // what is remembered of failures is forgotten
    EXPECT_EQ(List(shut).data, "Covers\nManual.epub\n");
    EXPECT_EQ(WriteFile(shut + "/new", O_CREAT | O_WRONLY, "x").error, 0);
    EXPECT_EQ(Slurp(OnDevice(CAFE) + "/new"), "x");
}

TEST_F(WorkLimitsTest, ConnectionsToAppsAreFew)
{
    MakeDevice({"--apps", "10"});
    Start();
    std::vector<std::string> folders = {volume->Path("Apps/Notes"),
                                        volume->Path("Apps/Notes (2)"),
                                        volume->Path(CAFE)};
    for (int i = 5; i <= 10; ++i) {
        folders.push_back(volume->Path("Apps/Sample App " + std::to_string(i)));
    }
    const auto expect_few = [&] {
        EXPECT_LE(simulator->Number("house_arrest_connections"), 4);
    };
    for (int round = 0; round < 2; ++round) {
        for (const std::string &folder : folders) {
            ASSERT_EQ(List(folder).error, 0) << folder;
            ASSERT_EQ(
                WriteFile(folder + "/x", O_CREAT | O_WRONLY, folder).error, 0)
                << folder;
            expect_few();
        }
    }
    for (const std::string &folder : folders) {
        EXPECT_EQ(ReadFile(folder + "/x").data, folder);
        expect_few();
    }
    // A whole copy from app to app and back, a file open in another one.
    const std::string open_file = folders[3] + "/x";
    const Outcome outcome = Access([&](std::string *) {
        const int fd = open(open_file.c_str(), O_WRONLY | O_APPEND);
        for (size_t i = 4; i < folders.size(); ++i) {
            const Finished copy =
                RunProgram({"cp", folders[i] + "/x", folders[i - 4] + "/copy"});
            if (copy.status != 0) {
                return EIO;
            }
        }
        return write(fd, "!", 1) == 1 && close(fd) == 0 ? 0 : errno;
    });
    EXPECT_EQ(outcome.error, 0);
    EXPECT_EQ(ReadFile(open_file).data, folders[3] + "!");
    expect_few();
    ExpectNothingOpen();
    volume->Unmount();
    EXPECT_TRUE(Eventually(
        [&] { return simulator->Number("house_arrest_connections") == 0; }, 5));
}

// Files open in as many apps as there are connections: one more app cannot be
// worked in, and can again afterwards.
TEST_F(WorkLimitsTest, FilesOpenInEveryApp)
{
    MakeDevice({"--apps", "10"});
    Start();
    volume->ExpectTrouble();
    const Outcome outcome = Access([&](std::string *data) {
        std::vector<int> files;
        int refusal = 0;
        for (int i = 5; i <= 10 && refusal == 0; ++i) {
            const std::string path =
                volume->Path("Apps/Sample App " + std::to_string(i)) + "/x";
            const int fd = open(path.c_str(), O_CREAT | O_RDWR, 0666);
            refusal = fd < 0 ? errno : 0;
            files.push_back(fd);
        }
        if (refusal != 0) {
            files.pop_back();
        }
        *data = std::to_string(files.size()) + " " + std::to_string(refusal);
        for (const int fd : files) {
            if (write(fd, "text", 4) != 4 || close(fd) != 0) {
                return errno;
            }
        }
        return 0;
    });
    EXPECT_EQ(outcome.error, 0);
    EXPECT_EQ(outcome.data, "4 " + std::to_string(ECANCELED));
    for (int i = 5; i <= 10; ++i) {
        const std::string app =
            volume->Path("Apps/Sample App " + std::to_string(i));
        EXPECT_EQ(List(app).data.substr(0, 10), "Readme.txt") << i;
        EXPECT_EQ(WriteFile(app + "/y", O_CREAT | O_WRONLY, "y").error, 0) << i;
        if (i < 9) {
            EXPECT_EQ(ReadFile(app + "/x").data, "text") << i;
        }
    }
}

} // namespace
