// Moves across the areas with the programs people use: what arrives, what stays,
// and that nothing is lost when the cable is pulled or the program is killed.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <random>

#include "tests/mounted/fixture.h"

namespace
{

namespace fs = std::filesystem;

const std::string READER = "/Apps/com.example.reader/Documents";
const std::string NOTES = "/Apps/com.example.notes/Documents";

// QUORVEL_MOVES_LONG makes the random rounds many and the large file 4 GiB.
bool IsLong()
{
    return getenv("QUORVEL_MOVES_LONG") !=
           nullptr; // NOLINT(concurrency-mt-unsafe)
}

std::string Text(size_t size, unsigned seed)
{
    std::string text(size, '\0');
    std::mt19937 random(seed);
    for (char &c : text) {
        c = static_cast<char>(random());
    }
    return text;
}

class MoveTest : public MountedTest
{
  protected:
    void SetUp() override
    {
        MakeDevice();
        for (unsigned i = 0; i < 40; ++i) {
            device->Put("tree/small/" + std::to_string(i), Text(20 << 10, i));
        }
        device->Put("tree/large", Text(3'000'000, 99));
        device->Put("tree/zero", "");
        device->Put("tree/Caf\xC3\xA9/de\xCC\x81", "decomposed");
        fs::create_directories(device->Storage("tree/empty/below"));
        plain = work + "/plain";
        fs::copy(device->Storage("tree"), plain, fs::copy_options::recursive);
    }
    std::string App(const std::string &path) const
    {
        return volume->Path("Apps/Caf\xC3\xA9 Reader/" + path);
    }
    std::string Other(const std::string &path) const
    {
        return volume->Path("Apps/Notes/" + path);
    }
    std::string OnDevice(const std::string &path) const
    {
        return device->folder + path;
    }
    static void Move(const std::string &from, const std::string &to)
    {
        const Finished mv = RunProgram({"mv", from, to}, {}, 120);
        EXPECT_EQ(mv.status, 0) << from << " to " << to << ": " << mv.out;
    }
    static void ExpectSame(const std::string &one, const std::string &other,
                           const std::string &without = "no such name")
    {
        const Finished diff =
            RunProgram({"diff", "-r", "-x", without, one, other}, {}, 120);
        EXPECT_EQ(diff.status, 0) << one << ", " << other << "\n" << diff.out;
    }
    // The volume shows what the device has; "." names are not listed.
    void ExpectShown()
    {
        ExpectSame(volume->Path("Storage"), device->Storage(""), ".*");
        ExpectSame(App(""), OnDevice(READER));
        ExpectSame(Other(""), OnDevice(NOTES));
    }
    void Remount()
    {
        volume.reset();
        Mount();
    }
    // Each file of the plain tree is whole below one of the folders.
    void ExpectNothingLost(const std::vector<std::string> &folders)
    {
        for (const auto &entry : fs::recursive_directory_iterator(plain)) {
            if (!entry.is_regular_file()) {
                continue;
            }
            const std::string name = fs::relative(entry.path(), plain);
            const std::string data = Slurp(entry.path());
            bool whole = false;
            for (const std::string &folder : folders) {
                const std::string path = folder + "/" + name;
                whole = whole || (fs::exists(path) && Slurp(path) == data);
            }
            EXPECT_TRUE(whole) << name << " is lost";
        }
    }

    std::string plain; // what is in the tree
};

TEST_F(MoveTest, ATreeGoesRoundAllPlaces)
{
    Start();
    Move(Storage("tree"), App("moved"));
    EXPECT_FALSE(fs::exists(device->Storage("tree")));
    ExpectSame(plain, OnDevice(READER + "/moved"));
    ExpectShown();
    Move(App("moved"), Other("moved"));
    EXPECT_FALSE(fs::exists(OnDevice(READER + "/moved")));
    ExpectSame(plain, OnDevice(NOTES + "/moved"));
    ExpectShown();
    // Never listed by anybody.
    Remount();
    Move(Other("moved/small"), Storage(""));
    Move(Other("moved"), Storage("tree"));
    Move(Storage("small"), Storage("tree/small"));
    ExpectSame(plain, device->Storage("tree"));
    // A file onto another, into a folder, and within an app.
    Move(Storage("tree/large"), App("Manual.epub"));
    EXPECT_EQ(Slurp(OnDevice(READER + "/Manual.epub")), Text(3'000'000, 99));
    Move(App("Manual.epub"), App("Covers/large"));
    Move(App("Covers/large"), Storage("tree"));
    ExpectSame(plain, device->Storage("tree"));
    ExpectShown();
    Remount();
    ExpectShown();
}

TEST_F(MoveTest, MediaIsCopied)
{
    Start();
    volume->ExpectTrouble(); // a library may lack a database
    const std::string photos = volume->Path("Media/Photo");
    const std::string music = volume->Path("Media/Music");
    const Finished before =
        RunProgram({"sh", "-c", "cp -r \"$1\" \"$2\"", "sh",
                    volume->Path("Media"), work + "/media"});
    ASSERT_EQ(before.status, 0) << before.out;
    Remount(); // nothing is listed yet
    volume->ExpectTrouble();
    Move(photos, Storage("Photo"));
    Move(music, App("Music"));
    ExpectSame(work + "/media/Photo", device->Storage("Photo"));
    ExpectSame(work + "/media/Music", OnDevice(READER + "/Music"));
    const std::string song =
        List(work + "/media/Music")
            .data.substr(0, List(work + "/media/Music").data.find('\n'));
    Move(music + "/" + song, Storage("song"));
    ExpectSame(work + "/media/Music/" + song, device->Storage("song"));
    ExpectSame(work + "/media", volume->Path("Media"));
    ExpectShown();
    Remount();
    ExpectShown();
}

TEST_F(MoveTest, WhatCannotBeReplacedStays)
{
    fs::create_directories(OnDevice(READER + "/full/sub"));
    Start();
    // As rename(2) has it.
    const auto rename_error = [](const std::string &from,
                                 const std::string &to) {
        return Access([&](std::string *) {
                   return ::rename(from.c_str(), to.c_str()) == 0 ? 0 : errno;
               })
            .error;
    };
    EXPECT_EQ(rename_error(Storage("tree"), App("full")), ENOTEMPTY);
    EXPECT_EQ(rename_error(Storage("tree"), App("Manual.epub")), ENOTDIR);
    EXPECT_EQ(rename_error(Storage("tree/large"), App("full")), EISDIR);
    EXPECT_EQ(rename_error(App("full"), App("full/sub/in")), EINVAL);
    EXPECT_EQ(rename_error(Storage("tree"), App("full/sub")), 0);
    ExpectSame(plain, OnDevice(READER + "/full/sub"));
    ExpectShown();
}

TEST_F(MoveTest, HiddenEntriesKeepTheirFolder)
{
    device->Put("tree/.hidden", "secret");
    Start();
    volume->ExpectTrouble();
    Move(Storage("tree"), App("moved"));
    ExpectSame(plain, OnDevice(READER + "/moved"));
    EXPECT_EQ(device->Get("tree/.hidden"), "secret");
    EXPECT_EQ(ReadFile(Storage("tree/.hidden")).data, "secret");
    ExpectShown();
}

TEST_F(MoveTest, OpenFilesGoOn)
{
    Start();
    const Outcome outcome = Access([&](std::string *data) {
        const int one = open(Storage("tree/zero").c_str(), O_RDWR);
        const int deep = open(Storage("tree/small/1").c_str(), O_RDWR);
        if (write(one, "before", 6) != 6 ||
            rename(Storage("tree/zero").c_str(), App("zero").c_str()) != 0 ||
            write(one, " after", 6) != 6 ||
            rename(App("zero").c_str(), Other("zero").c_str()) != 0 ||
            rename(Storage("tree").c_str(), Other("tree").c_str()) != 0 ||
            pwrite(deep, "deep", 4, 0) != 4) {
            return errno;
        }
        char text[64] = {};
        const ssize_t got = pread(one, text, sizeof(text), 0);
        data->assign(text, static_cast<size_t>(got < 0 ? 0 : got));
        return close(one) == 0 && close(deep) == 0 ? 0 : errno;
    });
    EXPECT_EQ(outcome.error, 0);
    EXPECT_EQ(outcome.data, "before after");
    EXPECT_EQ(Slurp(OnDevice(NOTES + "/zero")), "before after");
    EXPECT_EQ(Slurp(OnDevice(NOTES + "/tree/small/1")),
              "deep" + Text(20 << 10, 1).substr(4));
    ExpectShown();
}

TEST_F(MoveTest, AFullDeviceLosesNothing)
{
    Start();
    volume->ExpectTrouble();
    simulator->Control("space 1000000");
    const Finished mv = RunProgram({"mv", Storage("tree"), App("moved")});
    EXPECT_NE(mv.status, 0);
    EXPECT_TRUE(volume->WaitForDialog("Not enough space on device."));
    ExpectNothingLost({device->Storage("tree"), OnDevice(READER + "/moved")});
    ExpectShown();
    simulator->Control("space 1000000000");
}

// Wherever the cable is pulled: nothing is gone, and what the volume shows when
// the device is back is what the device has.
TEST_F(MoveTest, ThePulledCableLosesNothing)
{
    std::mt19937 random(std::random_device{}());
    Start();
    volume->ExpectTrouble();
    const int rounds = IsLong() ? 200 : 12;
    for (int i = 0; i < rounds; ++i) {
        const uint64_t after = random() % 330;
        SCOPED_TRACE("round " + std::to_string(i) + ", after " +
                     std::to_string(after));
        const bool there = fs::exists(device->Storage("tree"));
        const std::string from = there ? Storage("tree") : App("moved");
        const std::string to = there ? App("moved") : Storage("tree");
        simulator->Control("unplug after=" + std::to_string(after));
        RunProgram({"mv", "-T", from, to}, {}, 60);
        simulator->Control("faults clear");
        simulator->Control("plug");
        ExpectNothingLost(
            {device->Storage("tree"), OnDevice(READER + "/moved")});
        ExpectShown();
        if (HasFailure()) {
            break;
        }
        // Begins anew where both are there.
        fs::remove_all(device->Storage("tree"));
        fs::remove_all(OnDevice(READER + "/moved"));
        fs::copy(plain,
                 i % 2 == 0 ? OnDevice(READER + "/moved")
                            : device->Storage("tree"),
                 fs::copy_options::recursive);
        Remount();
        volume->ExpectTrouble();
    }
}

TEST_F(MoveTest, KilledAtAnyMomentLosesNothing)
{
    std::mt19937 random(std::random_device{}());
    Serve({"--rtt-us", "300"});
    const std::string mount_point = work + "/killed";
    fs::create_directories(mount_point);
    const std::string in_app = mount_point + "/Apps/Caf\xC3\xA9 Reader/moved";
    const std::string in_storage = mount_point + "/Storage/tree";
    const int rounds = IsLong() ? 200 : 20;
    for (int i = 0; i < rounds; ++i) {
        const auto delay = static_cast<useconds_t>(random() % 150000);
        SCOPED_TRACE("round " + std::to_string(i) + ", after " +
                     std::to_string(delay) + " us");
        Process server({Program("quorvelfs"), mount_point, "-f", "-devopt",
                        std::to_string(device->location)},
                       {{"USBMUXD_SOCKET_ADDRESS", "UNIX:" + simulator->socket},
                        {"XDG_STATE_HOME", work + "/state"}},
                       work + "/killed.log");
        ASSERT_TRUE(Eventually(
            [&] { return Stat(mount_point + "/Storage").error == 0; }));
        const bool there = i % 2 == 0;
        Process mv({"mv", "-T", there ? in_storage : in_app,
                    there ? in_app : in_storage},
                   {}, work + "/mv.log");
        usleep(delay);
        server.Signal(SIGKILL);
        mv.Wait(PATIENCE);
        server.Wait(PATIENCE);
        EXPECT_EQ(RunProgram({"fusermount3", "-uz", mount_point}).status, 0);
        // What was on its way still arrives.
        ASSERT_TRUE(Eventually([&] {
            return simulator->Number("device_connections") == 0 &&
                   simulator->Number("open_files") == 0;
        }));
        ExpectNothingLost(
            {device->Storage("tree"), OnDevice(READER + "/moved")});
        if (HasFailure()) {
            break;
        }
        fs::remove_all(device->Storage("tree"));
        fs::remove_all(OnDevice(READER + "/moved"));
        fs::copy(plain,
                 there ? OnDevice(READER + "/moved") : device->Storage("tree"),
                 fs::copy_options::recursive);
    }
    fs::remove_all("/tmp/" + std::to_string(device->location));
    Mount();
    ExpectShown();
}

TEST_F(MoveTest, ManyFilesAndALargeOne)
{
    const unsigned many = IsLong() ? 5000 : 1000;
    for (unsigned i = 0; i < many; ++i) {
        device->Put("many/" + std::to_string(i), std::to_string(i));
    }
    const uint64_t size = IsLong() ? uint64_t{4} << 30 : 100 << 20;
    device->Put("big", "begin");
    fs::resize_file(device->Storage("big"), size);
    {
        std::fstream big(device->Storage("big"),
                         std::ios::in | std::ios::out | std::ios::binary);
        big.seekp(static_cast<std::streamoff>(size) - 3);
        big << "end";
    }
    fs::copy(device->Storage("many"), work + "/many");
    Start();
    Move(Storage("many"), App("many"));
    ExpectSame(work + "/many", OnDevice(READER + "/many"));
    const Finished mv = RunProgram({"mv", Storage("big"), App("big")}, {}, 600);
    EXPECT_EQ(mv.status, 0) << mv.out;
    EXPECT_EQ(fs::file_size(OnDevice(READER + "/big")), size);
    EXPECT_EQ(RunProgram({"tail", "-c", "3", App("big")}).out, "end");
    EXPECT_EQ(RunProgram({"head", "-c", "5", App("big")}).out, "begin");
    EXPECT_FALSE(fs::exists(device->Storage("big")));
}

} // namespace
