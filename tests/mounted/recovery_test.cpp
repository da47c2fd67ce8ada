// After an answer that was late, cut or nonsense, and after the device was
// plugged in again, the next call on the volume works.
#include <unistd.h>

#include <cerrno>

#include "tests/mounted/fixture.h"

namespace
{

class RecoveryTest : public MountedTest
{
  protected:
    void SetUp() override
    {
        MakeDevice();
        for (int i = 0; i < 20; ++i) {
            device->Put("dir/file" + std::to_string(i), "x");
        }
        device->Put("f", "contents");
        Serve();
        Volume::Options options;
        options.environment["QUORVEL_TIMEOUT_MS"] = "1000";
        Mount(options);
        volume->ExpectTrouble();
        ASSERT_EQ(List(volume->Path("Storage")).error, 0);
    }

    static bool Failed(const Outcome &outcome)
    {
        return outcome.error == ECANCELED || outcome.error == EIO;
    }

    void ExpectAllIsWell()
    {
        const Outcome read = ReadFile(Storage("f"));
        EXPECT_EQ(read.error, 0);
        EXPECT_EQ(read.data, "contents");
        // Past what a failed lookup is remembered for.
        usleep(1100000);
        const std::string names = List(Storage("dir")).data;
        EXPECT_EQ(std::count(names.begin(), names.end(), '\n'), 20) << names;
    }
};

TEST_F(RecoveryTest, LateAndCutReplies)
{
    simulator->Control("truncate ReadDir 1 20");
    EXPECT_TRUE(Failed(List(Storage("dir"))));
    simulator->Control("stall FileRefRead 1");
    const Outcome late = ReadFile(Storage("f"));
    EXPECT_TRUE(Failed(late)) << late.error;
    EXPECT_LT(late.seconds, 10);
    simulator->Control("stall off");
    ExpectAllIsWell();
    simulator->Control("drop after=1");
    ReadFile(Storage("f"));
    ExpectAllIsWell();
}

TEST_F(RecoveryTest, Replug)
{
    simulator->Control("unplug");
    EXPECT_TRUE(Failed(List(Storage("dir"))));
    EXPECT_TRUE(Failed(ReadFile(Storage("f"))));
    simulator->Control("plug location=" + std::to_string(device->location + 7));
    ExpectAllIsWell();
}

// Half of a listing was there when it failed: the next one is complete.
TEST_F(RecoveryTest, ListingThatFailedHalfWayIsCompleteNextTime)
{
    simulator->Control("fail GetFileInfo 1 10 after=10");
    EXPECT_EQ(List(Storage("dir")).error, ECANCELED);
    EXPECT_TRUE(
        volume->WaitForDialog("Could not read directory.\nError Code : -210"));
    ExpectAllIsWell();
}

class NonsenseTest : public RecoveryTest,
                     public ::testing::WithParamInterface<const char *>
{
};

TEST_P(NonsenseTest, NextCallWorks)
{
    simulator->Control(std::string("corrupt GetFileInfo 1 ") + GetParam());
    const Outcome list = List(Storage("dir"));
    EXPECT_TRUE(list.error == 0 || Failed(list)) << list.error;
    EXPECT_LT(list.seconds, 10);
    EXPECT_TRUE(volume->Server().Running());
    ExpectAllIsWell();
}

// The device layer's own tests have the other kinds of nonsense.
INSTANTIATE_TEST_SUITE_P(Replies, NonsenseTest,
                         ::testing::Values("magic", "packetnum", "duplicate",
                                           "reorder"));

} // namespace
