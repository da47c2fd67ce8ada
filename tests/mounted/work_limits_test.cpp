// Where a device ends: full, out of file handles, out of connections to apps,
// apps of one name, apps that let nobody in.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include <nlohmann/json.hpp>

#include "tests/mounted/fixture.h"

namespace
{

constexpr const char *CAFE = "Apps/Caf\xC3\xA9 Reader";
constexpr int MAKE = O_CREAT | O_WRONLY;

class WorkLimitsTest : public MountedTest
{
  protected:
    // The device's side of both places that can be worked in.
    std::string OnDevice(const std::string &place) const
    {
        return device->folder + "/" +
               (place == CAFE ? "Apps/com.example.reader/Documents"
                              : "Media/general_storage");
    }

    // How often an app was asked to let somebody in.
    int Vended() const
    {
        return simulator->Statistics()["house_arrest"].value("VendDocuments",
                                                             0);
    }
};

std::string Numbered(const std::string &folder, size_t number)
{
    return folder + "/file " + std::to_string(number);
}

// Makes and keeps open file after file; how many there were and what stopped
// it. Each gets text before that and more after.
Outcome OpenUntilRefused(const std::vector<std::string> &paths)
{
    return Access([&](std::string *data) {
        std::vector<int> files;
        int refusal = 0;
        for (const std::string &path : paths) {
            const int fd = open(path.c_str(), O_CREAT | O_RDWR, 0666);
            if (fd < 0) {
                refusal = errno;
                break;
            }
            files.push_back(fd);
            if (write(fd, "begun ", 6) != 6) {
                return errno;
            }
        }
        for (const int fd : files) {
            if (write(fd, "done", 4) != 4 || close(fd) != 0) {
                return errno;
            }
        }
        *data = std::to_string(files.size()) +
                (refusal == ECANCELED ? " and a refusal" : "");
        return 0;
    });
}

TEST_F(WorkLimitsTest, MoreFilesOpenThanTheDeviceHasHandles)
{
    MakeDevice();
    Serve({"--max-files", "20"});
    Mount();
    volume->ExpectTrouble();
    for (const std::string place : {"Storage", CAFE}) {
        std::vector<std::string> paths;
        for (size_t i = 0; i < 40; ++i) {
            paths.push_back(Numbered(volume->Path(place), i));
        }
        EXPECT_EQ(OpenUntilRefused(paths).data, "20 and a refusal") << place;
        ExpectNothingOpen();
        for (size_t i = 0; i < 20; ++i) {
            EXPECT_EQ(Slurp(Numbered(OnDevice(place), i)), "begun done");
        }
        // The refused one is not there, and can be made now.
        EXPECT_EQ(Stat(paths[20]).error, ENOENT);
        EXPECT_EQ(WriteFile(paths[20], MAKE | O_EXCL, "now").error, 0);
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
        SCOPED_TRACE(place);
        const std::string path = volume->Path(place) + "/log";
        simulator->Control("space 1000000");
        const Outcome outcome = Access([&](std::string *data) {
            const int fd = open(path.c_str(), O_CREAT | O_WRONLY, 0666);
            ssize_t n = 0;
            for (char c = 'a'; c <= 'z' && n >= 0; ++c) {
                const std::string piece(100000, c);
                n = write(fd, piece.data(), piece.size());
                data->append(piece, 0, static_cast<size_t>(n > 0 ? n : 0));
            }
            const int refusal = n < 0 ? errno : 0;
            close(fd);
            return refusal;
        });
        EXPECT_EQ(outcome.error, ECANCELED);
        const std::string &confirmed = outcome.data;
        EXPECT_GE(confirmed.size(), 900000U);
        const std::string there = Slurp(OnDevice(place) + "/log");
        EXPECT_TRUE(there.starts_with(confirmed));
        ExpectNothingOpen();
        // The volume shows the size that the device has.
        EXPECT_EQ(ReadFile(path).data.size(), there.size());
        // Room again: work goes on where it was refused.
        EXPECT_EQ(RunProgram({"rm", path}).status, 0);
        simulator->Control("space 100000000");
        EXPECT_EQ(WriteFile(path, MAKE, "again").error, 0);
        EXPECT_EQ(Slurp(OnDevice(place) + "/log"), "again");
    }
    EXPECT_TRUE(
        volume->WaitForDialog("Could not write a file.\nError Code : -62"));
}

TEST_F(WorkLimitsTest, FreeSpaceFollowsWork)
{
    MakeDevice({"--capacity", "64000000000", "--free", "32000000000"});
    Start();
    const double before = Free();
    for (const std::string place : {"Storage", CAFE}) {
        const std::string file = volume->Path(place) + "/big";
        ASSERT_EQ(WriteFile(file, MAKE, std::string(60000000, 'd')).error, 0);
        // Shown with about two decimal digits of a gigabyte.
        EXPECT_NEAR(before - Free(), 60e6, 15e6) << place;
        ASSERT_EQ(RunProgram({"mv", file, file + "2"}).status, 0);
        ASSERT_EQ(RunProgram({"rm", file + "2"}).status, 0);
        EXPECT_NEAR(Free(), before, 15e6) << place;
    }
}

TEST_F(WorkLimitsTest, TwoAppsOfOneName)
{
    Start();
    std::string listed;
    for (const char *folder : {"Apps/Notes", "Apps/Notes (2)"}) {
        const std::string mine = volume->Path(folder) + "/mine";
        ASSERT_EQ(WriteFile(mine, MAKE, folder).error, 0);
        const std::string names = List(volume->Path(folder)).data;
        const bool first = names == "Diary.txt\nLists\nmine\n";
        EXPECT_TRUE(first || names == "Inbox.txt\nmine\n") << names;
        EXPECT_NE(names, listed);
        listed = names;
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
        for (size_t i = 0; i < 200; ++i) {
            if (stat(Numbered(shut, i).c_str(), &st) == 0) {
                return EEXIST;
            }
        }
        return errno;
    });
    EXPECT_EQ(tries.error, ENOENT);
    EXPECT_GE(Vended(), 1); // the tries did reach the app
    EXPECT_LE(Vended(), 3 + static_cast<int>(tries.seconds));
    EXPECT_NE(WriteFile(shut + "/new", MAKE, "x").error, 0);

    simulator->Control("faults clear");
    sleep(2); // what is remembered of failures is forgotten
    EXPECT_EQ(List(shut).data, "Covers\nManual.epub\n");
    EXPECT_EQ(WriteFile(shut + "/new", MAKE, "x").error, 0);
    EXPECT_EQ(Slurp(OnDevice(CAFE) + "/new"), "x");
}

TEST_F(WorkLimitsTest, ConnectionsToAppsAreFew)
{
    MakeDevice({"--apps", "10"});
    Start();
    volume->ExpectTrouble();
    std::vector<std::string> paths;
    for (int i = 5; i <= 10; ++i) {
        paths.push_back(volume->Path("Apps/Sample App " + std::to_string(i)) +
                        "/x");
    }
    for (int round = 0; round < 2; ++round) {
        for (const std::string &path : paths) {
            ASSERT_EQ(WriteFile(path, MAKE, path).error, 0);
            EXPECT_EQ(ReadFile(path).data, path);
            EXPECT_LE(simulator->Number("house_arrest_connections"), 4);
        }
    }
    // A copy from app to app, a file open in another one.
    const Outcome outcome = Access([&](std::string *) {
        const int fd = open(paths[3].c_str(), O_WRONLY | O_APPEND);
        for (size_t i = 4; i < paths.size(); ++i) {
            if (RunProgram({"cp", paths[i], paths[i - 4] + "copy"}).status !=
                0) {
                return EIO;
            }
        }
        return write(fd, "!", 1) == 1 && close(fd) == 0 ? 0 : errno;
    });
    EXPECT_EQ(outcome.error, 0);
    EXPECT_EQ(ReadFile(paths[3]).data, paths[3] + "!");
    EXPECT_LE(simulator->Number("house_arrest_connections"), 4);
    // Files open in as many apps as there are connections: one more app cannot
    // be worked in, and can again afterwards.
    EXPECT_EQ(RunProgram({"rm", paths[0], paths[1], paths[2], paths[3]}).status,
              0);
    EXPECT_EQ(OpenUntilRefused(paths).data, "4 and a refusal");
    for (size_t i = 0; i < paths.size(); ++i) {
        const std::string now = i < 4 ? "begun done" : paths[i];
        EXPECT_EQ(ReadFile(paths[i]).data, now);
        EXPECT_EQ(WriteFile(paths[i] + "y", MAKE, "y").error, 0);
    }
    ExpectNothingOpen();
    volume->Unmount();
}

} // namespace
