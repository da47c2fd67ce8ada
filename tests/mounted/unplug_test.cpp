// The cable is pulled in the middle of things: the call ends soon, the user is
// told, every later call ends at once, and the volume goes away cleanly.
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <functional>

#include "tests/mounted/fixture.h"

namespace
{

constexpr double SOON = 2; // seconds

const std::string LISTING = "Lost USB Connection.\nDirectory reading aborted.";

class UnplugTest : public MountedTest
{
  protected:
    void SetUp() override
    {
        MakeDevice();
        for (int i = 0; i < 2000; ++i) {
            device->Put("many/file" + std::to_string(i), "x");
        }
        device->Put("seen/file", "contents");
        device->Put("big", std::string(64 * 1024 * 1024, 'b'));
        Start();
        volume->ExpectTrouble();
        ASSERT_EQ(List(volume->Path("Storage")).error, 0);
        ASSERT_EQ(List(Storage("seen")).error, 0);
    }

    static void ExpectFailedWithin(const Outcome &outcome, double seconds)
    {
        EXPECT_TRUE(outcome.error == ECANCELED || outcome.error == EIO)
            << outcome.error;
        EXPECT_LT(outcome.seconds, seconds * SLOWNESS);
    }
};

struct Work {
    const char *name;
    const char *unplug;
    std::function<Outcome(const std::string &storage)> work;
    std::string text;
};

void PrintTo(const Work &work, std::ostream *out)
{
    *out << work.name;
}

class DuringTest : public UnplugTest, public ::testing::WithParamInterface<Work>
{
};

TEST_P(DuringTest, EndsSoon)
{
    simulator->Control(GetParam().unplug);
    ExpectFailedWithin(GetParam().work(Storage("")), SOON);
    EXPECT_TRUE(volume->WaitForDialog(GetParam().text));
    // What is known still shows; what needs the device fails at once.
    EXPECT_EQ(List(volume->Path()).data, "Apps\nMedia\nStorage\n");
    EXPECT_EQ(List(Storage("seen")).data, "file\n");
    for (const Outcome &outcome :
         {ReadFile(Storage("seen/file")), List(Storage("many")),
          Stat(Storage("many/file1")), Stat(Storage("seen/.dots")),
          WriteFile(Storage("seen/file"), O_WRONLY | O_TRUNC, "new")}) {
        ExpectFailedWithin(outcome, 1);
    }
    EXPECT_TRUE(volume->WaitForDialog(
        "Lost USB connection.\nOpening file(file) aborted."));
    // Many questions in a row are one failure to the user.
    usleep(300000);
    const size_t dialogs = volume->Dialogs().size();
    for (int i = 0; i < 20; ++i) {
        EXPECT_NE(Stat(Storage("many/other" + std::to_string(i))).error, 0);
    }
    usleep(300000);
    EXPECT_LE(volume->Dialogs().size(), dialogs + 2);
    const Dialog dialog = volume->Dialogs().front();
    EXPECT_EQ(dialog.title, "Quorvel Error!!");
    EXPECT_EQ(dialog.button, "Confirm");
    EXPECT_EQ(dialog.mask, "0022");
}

INSTANTIATE_TEST_SUITE_P(
    , DuringTest,
    ::testing::Values(
        Work{"Listing", "unplug after=500",
             [](const std::string &in) { return List(in + "many"); }, LISTING},
        Work{"Lookup", "unplug after=500",
             [](const std::string &in) {
                 return ReadFile(in + "many/file1999");
             },
             LISTING},
        Work{"Read", "unplug after-bytes=8000000",
             [](const std::string &in) { return ReadFile(in + "big"); },
             "Lost USB connection.\nReading aborted."},
        Work{"Write", "unplug after-bytes=8000000",
             [](const std::string &in) {
                 return WriteFile(in + "seen/file", O_WRONLY,
                                  std::string(32 * 1024 * 1024, 'n'));
             },
             "Lost USB connection.\nWriting aborted."}),
    [](const auto &each) { return std::string(each.param.name); });

// A dialog that nobody closes must not keep the volume from going away.
TEST_F(UnplugTest, UnmountEndsAnOpenDialog)
{
    Spill(work + "/dialog",
          "#!/bin/sh\necho $$ > '" + work + "/shown'\nexec sleep 600\n");
    simulator->Control("unplug");
    EXPECT_EQ(List(Storage("many")).error, ECANCELED);
    ASSERT_TRUE(Eventually([this] { return !Slurp(work + "/shown").empty(); }));
    const double begin = Now();
    volume->Unmount();
    EXPECT_LT(Now() - begin, 5);
    const std::string pid = Slurp(work + "/shown");
    EXPECT_NE(RunProgram({"kill", "-0", pid.substr(0, pid.find('\n'))}).status,
              0);
}

} // namespace
