// What calls on the volume cost the device, by the device's own count.
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

#include "tests/mounted/fixture.h"

namespace
{

class RequestsTest : public MountedTest
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

TEST_F(RequestsTest, ColdAndWarmListing)
{
    MakeDevice();
    PutMany("many", 3000);
    device->Put("many/sub/inner/file", "x");
    Start();
    ASSERT_EQ(List(volume->Path("Storage")).error, 0);
    simulator->Control("stats reset");
    const Finished cold = RunProgram({"ls", "-l", Storage("many")});
    EXPECT_EQ(cold.status, 0) << cold.out;
    EXPECT_EQ(simulator->Requests("ReadDir"), 1U);
    // One for each entry, one for the storage folder itself.
    EXPECT_GE(simulator->Requests("GetFileInfo"), 3001U);
    EXPECT_LE(simulator->Requests("GetFileInfo"), 3002U);
    EXPECT_LE(simulator->AllRequests(), 3003U);

    ASSERT_EQ(RunProgram({"ls", "-lR", volume->Path()}).status, 0);
    sleep(2); // what the kernel remembers is gone
    simulator->Control("stats reset");
    const Finished warm = RunProgram({"ls", "-lR", volume->Path()});
    EXPECT_EQ(warm.status, 0);
    EXPECT_NE(warm.out.find("file 2999.txt"), std::string::npos);
    EXPECT_EQ(RunProgram({"find", volume->Path(), "-size", "+1k"}).status, 0);
    EXPECT_EQ(simulator->AllRequests(), 0U);
}

// The kernel gets the attributes with the names, and asks for no name on its
// own.
TEST_F(RequestsTest, ListingNeedsNoLookups)
{
    MakeDevice();
    PutMany("many", 1000);
    Serve();
    Volume::Options options;
    options.words = {"-d"}; // tells every request of the kernel's
    Mount(options);
    ASSERT_EQ(RunProgram({"ls", "-l", Storage("many")}).status, 0);
    const std::string requests = volume->Output();
    size_t lookups = 0;
    for (size_t at = requests.find("opcode: LOOKUP"); at != std::string::npos;
         at = requests.find("opcode: LOOKUP", at + 1)) {
        ++lookups;
    }
    EXPECT_NE(requests.find("opcode: READDIRPLUS"), std::string::npos);
    EXPECT_LE(lookups, 5U); // the folders on the way
}

TEST_F(RequestsTest, ReadingInOrderNeedsNoSeek)
{
    MakeDevice();
    const std::string data(64 * 1024 * 1024, 'r');
    device->Put("big", data);
    Start();
    ASSERT_EQ(Stat(Storage("big")).error, 0);
    simulator->Control("stats reset");
    const Outcome read = ReadFile(Storage("big"));
    EXPECT_EQ(read.error, 0);
    EXPECT_TRUE(read.data == data);
    EXPECT_EQ(simulator->Requests("FileRefSeek"), 0U);
    EXPECT_EQ(simulator->Requests("FileRefOpen"), 1U);
    EXPECT_TRUE(Eventually(
        [this] { return simulator->Requests("FileRefClose") == 1; }));
    // It was noticed that the file was read through.
    EXPECT_TRUE(Eventually([this] {
        return volume->CountInLog(
                   "tarnifs_release path /Storage/big / reading 0") == 1;
    }));
}

TEST_F(RequestsTest, TwoOpensAreOneOnTheDevice)
{
    MakeDevice();
    device->Put("f", "contents");
    Start();
    ASSERT_EQ(Stat(Storage("f")).error, 0);
    simulator->Control("stats reset");
    const std::string path = Storage("f");
    const Outcome outcome = Access([&](std::string *data) {
        const int one = open(path.c_str(), O_RDONLY);
        const int two = open(path.c_str(), O_RDONLY);
        char buffer[16] = {};
        if (one < 0 || two < 0 || close(one) != 0 ||
            read(two, buffer, sizeof(buffer)) < 0) {
            return errno;
        }
        *data = buffer;
        return close(two) == 0 ? 0 : errno;
    });
    EXPECT_EQ(outcome.error, 0);
    EXPECT_EQ(outcome.data, "contents");
    EXPECT_EQ(simulator->Requests("FileRefOpen"), 1U);
    EXPECT_TRUE(
        Eventually([&] { return simulator->Requests("FileRefClose") == 1; }));
}

TEST_F(RequestsTest, WritingCostsWhatIsWritten)
{
    MakeDevice();
    device->Put("f", "");
    Start();
    ASSERT_EQ(Stat(Storage("f")).error, 0);
    simulator->Control("stats reset");
    ASSERT_EQ(
        WriteFile(Storage("f"), O_WRONLY, std::string(16 * 1024 * 1024, 'w'))
            .error,
        0);
    EXPECT_EQ(simulator->Number("bytes_written"), 16 * 1024 * 1024);
    EXPECT_EQ(simulator->Requests("FileRefOpen"), 1U);
    EXPECT_LE(simulator->Requests("FileRefSeek"), 1U);
}

} // namespace
