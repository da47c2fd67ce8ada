// The first accesses after mounting, before anything was listed, and what they
// cost the device by its own count.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "tests/mounted/fixture.h"

namespace
{

class AccessTest : public MountedTest
{
  protected:
    void PutMany(const std::string &folder, int count)
    {
        for (int i = 0; i < count; ++i) {
            device->Put(folder + "/file " + std::to_string(i) + ".txt",
                        std::to_string(i));
        }
    }
};

TEST_F(AccessTest, NamesAreLookedUpBeforeAnyListing)
{
    MakeDevice();
    device->Put("dir/sub/file", "hello\n");
    Start();
    EXPECT_EQ(ReadFile(Storage("dir/sub/file")).data, "hello\n");
    EXPECT_EQ(Stat(Storage("dir/nosuch")).error, ENOENT);
    ExpectNothingOpen();
    // Names that cannot be, and misses in listed folders, cost nothing.
    simulator->Control("stats reset");
    EXPECT_EQ(Stat(Storage("dir/nosuch")).error, ENOENT);
    EXPECT_EQ(Stat(Storage("dir/other")).error, ENOENT);
    EXPECT_EQ(Stat(Storage("dir/sub/file/below")).error, ENOTDIR);
    for (const char *name : {"nosuch", ".Trashes", ".Trash-1000", "Appsx",
                             "Storagex", "autorun.inf/x"}) {
        EXPECT_EQ(Stat(volume->Path(name)).error, ENOENT) << name;
    }
    const std::string trash = volume->Path(".Trash-1000");
    EXPECT_EQ(Try([&] { return mkdir(trash.c_str(), 0700); }).error, EROFS);
    EXPECT_EQ(WriteFile(volume->Path(".hidden"), O_CREAT | O_WRONLY, "x").error,
              EROFS);
    EXPECT_EQ(simulator->AllRequests(), 0U);
    volume->ExpectTrouble(); // a device has not every database
    EXPECT_EQ(List(volume->Path()).data, "Apps\nMedia\nStorage\n");
    const std::string media = List(volume->Path("Media")).data;
    for (const char *name : {"Movies\n", "Music\n", "Photo\n"}) {
        EXPECT_NE(media.find(name), std::string::npos) << media;
    }
    EXPECT_EQ(List(volume->Path("Media/Music")).error, 0);
    EXPECT_TRUE(volume->Dialogs().empty());
}

TEST_F(AccessTest, DotNamesAreFoundButNotListed)
{
    MakeDevice();
    device->Put("dir/.config/inner", "deep");
    device->Put("dir/.profile", "dots");
    device->Put("dir/file", "x");
    Start();
    for (int i = 0; i < 2; ++i) {
        EXPECT_EQ(ReadFile(Storage("dir/.profile")).data, "dots");
        EXPECT_EQ(ReadFile(Storage("dir/.config/inner")).data, "deep");
        EXPECT_EQ(List(Storage("dir")).data, "file\n");
    }
    ExpectNothingOpen();
    simulator->Control("stats reset");
    EXPECT_EQ(Stat(Storage("dir/.nosuch")).error, ENOENT);
    EXPECT_EQ(Stat(Storage("dir/.nosuch")).error, ENOENT);
    EXPECT_EQ(simulator->AllRequests(), 1U);
    EXPECT_TRUE(volume->Dialogs().empty());
    volume->ExpectTrouble();
}

TEST_F(AccessTest, StorageFolderIsMadeWhereThereIsNone)
{
    MakeDevice();
    RunProgram({"rm", "-r", device->Storage("")});
    Start();
    volume->ExpectTrouble(); // the check that fails is logged
    EXPECT_EQ(List(volume->Path("Storage")).data, "");
    EXPECT_EQ(Stat(device->Storage("")).error, 0);
}

TEST_F(AccessTest, ColdAndWarmListing)
{
    MakeDevice();
    PutMany("many", 3000);
    device->Put("many/sub/inner/file", "x");
    Serve();
    Volume::Options options;
    options.words = {"-d"}; // tells every request of the kernel's
    Mount(options);
    ASSERT_EQ(List(volume->Path("Storage")).error, 0);
    simulator->Control("stats reset");
    const Finished cold = RunProgram({"ls", "-l", Storage("many")});
    EXPECT_EQ(cold.status, 0) << cold.out;
    EXPECT_EQ(simulator->Requests("ReadDir"), 1U);
    // One for each entry, one for the storage folder itself.
    EXPECT_GE(simulator->Requests("GetFileInfo"), 3001U);
    EXPECT_LE(simulator->Requests("GetFileInfo"), 3002U);
    EXPECT_LE(simulator->AllRequests(), 3003U);
    // The kernel gets the attributes with the names, and asks for no name on
    // its own but those of the folders on the way.
    const std::string requests = volume->Output();
    size_t lookups = 0;
    for (size_t at = requests.find("opcode: LOOKUP"); at != std::string::npos;
         at = requests.find("opcode: LOOKUP", at + 1)) {
        ++lookups;
    }
    EXPECT_NE(requests.find("opcode: READDIRPLUS"), std::string::npos);
    EXPECT_LE(lookups, 5U);

    volume->ExpectTrouble(); // a device has not every database
    ASSERT_EQ(RunProgram({"ls", "-lR", volume->Path()}).status, 0);
    sleep(2); // what the kernel remembers is gone
    simulator->Control("stats reset");
    const Finished warm = RunProgram({"ls", "-lR", volume->Path()});
    EXPECT_EQ(warm.status, 0);
    EXPECT_NE(warm.out.find("file 2999.txt"), std::string::npos);
    EXPECT_EQ(RunProgram({"find", volume->Path(), "-size", "+1k"}).status, 0);
    EXPECT_EQ(simulator->AllRequests(), 0U);
}

TEST_F(AccessTest, TransfersCostWhatIsTransferred)
{
    MakeDevice();
    const std::string data(64 * 1024 * 1024, 'r');
    device->Put("big", data);
    device->Put("f", "contents");
    Start();
    ASSERT_EQ(Stat(Storage("big")).error, 0);
    simulator->Control("stats reset");
    EXPECT_TRUE(ReadFile(Storage("big")).data == data);
    EXPECT_EQ(simulator->Requests("FileRefSeek"), 0U);
    EXPECT_EQ(simulator->Requests("FileRefOpen"), 1U);
    EXPECT_TRUE(Eventually(
        [this] { return simulator->Requests("FileRefClose") == 1; }));
    // It was noticed that the file was read through. On a busy machine the
    // kernel's reads may overtake each other, and that is no run in order.
    bool noticed = false;
    for (int reads = 1; reads <= 3 && !noticed; ++reads) {
        noticed = Eventually(
            [this] {
                return volume->CountInLog(
                           "tarnifs_release path /Storage/big / reading 0") > 0;
            },
            5);
        if (!noticed) {
            EXPECT_TRUE(ReadFile(Storage("big")).data == data);
        }
    }
    EXPECT_TRUE(noticed);
    // Two opens are one on the device.
    simulator->Control("stats reset");
    const std::string path = Storage("f");
    const Outcome outcome = Access([&](std::string *text) {
        const int one = open(path.c_str(), O_RDONLY);
        const int two = open(path.c_str(), O_RDONLY);
        char buffer[16] = {};
        if (one < 0 || two < 0 || close(one) != 0 ||
            read(two, buffer, sizeof(buffer)) < 0) {
            return errno;
        }
        *text = buffer;
        return close(two) == 0 ? 0 : errno;
    });
    EXPECT_EQ(outcome.data, "contents");
    EXPECT_EQ(simulator->Requests("FileRefOpen"), 1U);
    EXPECT_TRUE(
        Eventually([&] { return simulator->Requests("FileRefClose") == 1; }));
    simulator->Control("stats reset");
    ASSERT_EQ(WriteFile(path, O_WRONLY, data.substr(0, 16 << 20)).error, 0);
    EXPECT_EQ(simulator->Number("bytes_written"), 16 << 20);
    EXPECT_EQ(simulator->Requests("FileRefOpen"), 1U);
    EXPECT_LE(simulator->Requests("FileRefSeek"), 1U);
}

} // namespace
