// The media views when the cable is pulled, the disk is full, two devices are
// there, or somebody wants to write to them.
#include <fcntl.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <functional>

#include "tests/mounted/fixture.h"
#include "tests/mounted/media_expected.h"

namespace
{

constexpr double SOON = 3 * SLOWNESS; // seconds
constexpr Generation OLD = {"9.3", false};
constexpr Generation NEW = {"17.6", false};

Words SampleOptions(const Generation &generation)
{
    return {"--ios", generation.ios, "--photos", "4", "--songs", "2"};
}

// What a folder shows, sorted, one name per line.
std::string ExpectedNames(const std::string &folder,
                          const Generation &generation)
{
    std::vector<std::string> names;
    for (const ExpectedFolder &expected :
         ReadExpectedMedia(generation).folders) {
        for (const ExpectedEntry &entry : expected.entries) {
            if (expected.path == folder && expected.note != "again" &&
                !entry.name.empty()) {
                names.push_back(entry.name);
            }
        }
    }
    std::sort(names.begin(), names.end());
    std::string text;
    for (const std::string &name : names) {
        text += name + "\n";
    }
    return text;
}

class MediaTroubleTest : public MountedTest
{
  protected:
    void Begin(const Generation &generation = NEW)
    {
        MakeDevice(SampleOptions(generation));
        Start();
        volume->ExpectTrouble();
    }

    void Remount()
    {
        volume.reset();
        Mount();
        volume->ExpectTrouble();
    }

    int64_t SizeOnDevice(const std::string &file) const
    {
        struct stat st {
        };
        stat((device->folder + "/Media/" + file).c_str(), &st);
        return st.st_size;
    }

    void ExpectFolder(const std::string &folder)
    {
        EXPECT_EQ(List(volume->Path(folder)).data, ExpectedNames(folder, NEW))
            << folder;
    }

    // What a call may say that needs the device or what was got from it.
    static void ExpectRefusedSoon(const Outcome &outcome)
    {
        EXPECT_TRUE(outcome.error == ECANCELED || outcome.error == EIO)
            << outcome.error << "\n"
            << outcome.data;
        EXPECT_LT(outcome.seconds, SOON);
    }

    void UnplugWhileFetching(int64_t after)
    {
        simulator->Control("unplug after-bytes=" + std::to_string(after));
        const Outcome lost = List(volume->Path("Media"));
        EXPECT_EQ(lost.error, 0);
        EXPECT_LT(lost.seconds, SOON);
        for (const char *name : {"Movies\n", "Music\n", "Photo\n"}) {
            EXPECT_NE(lost.data.find(name), std::string::npos);
        }
        EXPECT_EQ(List(volume->Path("Media/Photo")).data, "Camera Roll\n");
        ExpectRefusedSoon(List(volume->Path("Media/Photo/Camera Roll")));
        EXPECT_EQ(
            volume->CountInLog("downloadfile libiusb_afc_file_read failed."),
            1U);
        simulator->Control("plug");
    }

    void ExpectComplete()
    {
        for (const char *folder :
             {"Media", "Media/Music", "Media/Photo", "Media/Photo/Trip",
              "Media/Photo/Camera Roll"}) {
            ExpectFolder(folder);
        }
    }
};

TEST_F(MediaTroubleTest, UnpluggedWhileTheFirstDatabaseIsFetched)
{
    Begin();
    UnplugWhileFetching(
        SizeOnDevice("iTunes_Control/iTunes/MediaLibrary.sqlitedb") / 2);
    ExpectComplete();
}

// What was got stays, and the rest is fetched when it can be.
TEST_F(MediaTroubleTest, UnpluggedWhileTheSecondDatabaseIsFetched)
{
    Begin();
    const std::string first = "iTunes_Control/iTunes/MediaLibrary.sqlitedb";
    UnplugWhileFetching(SizeOnDevice(first) + SizeOnDevice(first + "-shm") +
                        SizeOnDevice(first + "-wal") +
                        SizeOnDevice("PhotoData/Photos.sqlite") / 2);
    ExpectFolder("Media/Music");
    ExpectFolder("Media/Podcast");
    ExpectComplete();
}

// Half a folder must not pass for all of it.
TEST_F(MediaTroubleTest, UnpluggedWhileAFolderIsListed)
{
    Begin();
    ExpectFolder("Media/Photo");
    for (const char *folder :
         {"Media/Photo/Camera Roll", "Media/Photo/Trip", "Media/Music"}) {
        SCOPED_TRACE(folder);
        simulator->Control("unplug after=3");
        ExpectRefusedSoon(List(volume->Path(folder)));
        ExpectRefusedSoon(List(volume->Path(folder)));
        EXPECT_TRUE(volume->WaitForDialog(
            "Lost USB Connection.\nDirectory reading aborted."));
        simulator->Control("plug");
        ExpectFolder(folder);
    }
}

// Also when only the last row of a folder is missing.
TEST_F(MediaTroubleTest, UnpluggedBeforeTheLastRow)
{
    Begin();
    for (const ExpectedFolder &folder : ReadExpectedMedia(NEW).folders) {
        if (folder.entries.size() < 2 || folder.entries[0].folder) {
            continue;
        }
        SCOPED_TRACE(folder.path);
        ASSERT_EQ(Stat(volume->Path(folder.path)).error, 0);
        simulator->Control("unplug after=" +
                           std::to_string(folder.entries.size() - 1));
        const Outcome lost = List(volume->Path(folder.path));
        if (lost.error == 0) {
            EXPECT_EQ(lost.data, ExpectedNames(folder.path, NEW));
        }
        simulator->Control("plug");
        ExpectFolder(folder.path);
    }
}

TEST_F(MediaTroubleTest, NoRoomForTheDatabases)
{
    Begin();
    const std::string folder = volume->PrivateFolder();
    const bool filled =
        mount("tmpfs", folder.c_str(), "tmpfs", 0, "size=16k,mode=700") == 0;
    if (!filled) { // not everybody may
        mkdir((folder + "/MediaLibrary.sqlitedb").c_str(), 0700);
        mkdir((folder + "/Photos.sqlite").c_str(), 0700);
    }
    const Outcome list = List(volume->Path("Media"));
    EXPECT_EQ(list.error, 0);
    EXPECT_EQ(list.data, "Movies\nMusic\nPhoto\n");
    EXPECT_EQ(List(volume->Path("Media/Music")).data, "");
    EXPECT_EQ(List(volume->Path("Media/Photo")).data, "Camera Roll\n");
    ExpectRefusedSoon(List(volume->Path("Media/Photo/Camera Roll")));
    EXPECT_GE(volume->CountInLog("downloadfile topath"), 2U);
    EXPECT_EQ(List(volume->Path("Storage")).error, 0);
    if (filled) {
        EXPECT_GE(volume->CountInLog("errno : 28"), 2U);
        EXPECT_EQ(umount2(folder.c_str(), MNT_DETACH), 0);
    } else {
        rmdir((folder + "/MediaLibrary.sqlitedb").c_str());
        rmdir((folder + "/Photos.sqlite").c_str());
    }
    Remount();
    ExpectComplete();
}

TEST_F(MediaTroubleTest, TwoDevicesAtOnce)
{
    MakeDevice(SampleOptions(NEW));
    Words options = SampleOptions(OLD);
    options.insert(options.end(), {"--udid", "00008030-00AAAABBBBCCCCDD"});
    const SampleDevice other(work, options);
    simulator = std::make_unique<Simulator>(
        work, std::vector<std::string>{device->folder, other.folder});
    Mount();
    volume->ExpectTrouble();
    Volume second(work, simulator->socket, other.location);
    second.ExpectTrouble();
    const Finished both = RunProgram(
        {"sh", "-c",
         "ls -RU '" + volume->Path("Media") + "' > /dev/null & ls -RU '" +
             second.Path("Media") + "' > /dev/null & wait"});
    EXPECT_EQ(both.status, 0) << both.out;
    ExpectComplete();
    for (const char *folder : {"Media", "Media/Photo/Camera Roll"}) {
        EXPECT_EQ(List(second.Path(folder)).data, ExpectedNames(folder, OLD));
    }
}

TEST_F(MediaTroubleTest, NothingCanBeChanged)
{
    Begin();
    const std::string song = volume->Path("Media/Music/Field Recording.m4a");
    const std::string photo =
        volume->Path("Media/Photo/Camera Roll/Harbour.JPG");
    const Words before = {"find", device->folder, "-printf",
                          "%p %s %T@ %m %y\\n"};
    const std::string device_before = RunProgram(before).out;
    const Words look = {"ls", "-Rs", volume->Path("Media")};
    const std::string shown = RunProgram(look).out;
    const std::string content = ReadFile(song).data;
    const auto refused = [](const char *what, const std::string &path,
                            const std::function<int()> &act) {
        const Outcome outcome =
            Access([&](std::string *) { return act() >= 0 ? 0 : errno; });
        EXPECT_TRUE(outcome.error == EROFS || outcome.error == ECANCELED ||
                    outcome.error == EPERM || outcome.error == EACCES ||
                    outcome.error == ENOSYS || outcome.error == ENOTSUP)
            << what << " " << path << ": " << outcome.error;
    };
    for (const std::string &file : {song, photo}) {
        const std::string target = volume->Path("Storage/Welcome.txt");
        refused("unlink", file, [&] { return unlink(file.c_str()); });
        refused("truncate", file, [&] { return truncate(file.c_str(), 0); });
        refused("rename", file,
                [&] { return rename(file.c_str(), (file + "2").c_str()); });
        refused("replace", file,
                [&] { return rename(target.c_str(), file.c_str()); });
        refused("write", file, [&] {
            const int fd = open(file.c_str(), O_WRONLY);
            return fd < 0 || write(fd, "x", 1) < 0 ? -1 : close(fd);
        });
        refused("cut", file,
                [&] { return open(file.c_str(), O_WRONLY | O_TRUNC); });
        refused("link", file,
                [&] { return link(file.c_str(), (file + "3").c_str()); });
    }
    for (const char *name :
         {"Media", "Media/Music", "Media/Photo", "Media/Photo/Trip"}) {
        const std::string folder = volume->Path(name);
        const std::string made = folder + "/new";
        refused("create", folder, [&] {
            return open(made.c_str(), O_WRONLY | O_CREAT | O_EXCL, 0666);
        });
        refused("mkdir", folder, [&] { return mkdir(made.c_str(), 0777); });
        refused("rmdir", folder, [&] { return rmdir(folder.c_str()); });
        refused("rename", folder,
                [&] { return rename(folder.c_str(), (folder + "2").c_str()); });
        refused("symlink", folder, [&] { return symlink("x", made.c_str()); });
    }
    EXPECT_EQ(RunProgram(before).out, device_before);
    EXPECT_EQ(RunProgram(look).out, shown);
    EXPECT_EQ(ReadFile(song).data, content);
}

} // namespace
