// The cable is pulled in the middle of things: the call ends soon, the user is
// told, every later call ends at once, and the volume goes away cleanly.
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

#include "tests/mounted/fixture.h"

namespace
{

constexpr double SOON = 2; // seconds

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

    void ExpectLost(const Outcome &outcome, const std::string &text)
    {
        EXPECT_TRUE(outcome.error == ECANCELED || outcome.error == EIO)
            << outcome.error;
        EXPECT_LT(outcome.seconds, SOON);
        EXPECT_TRUE(volume->WaitForDialog(text));
    }

    // What is known still shows; what needs the device fails at once.
    void ExpectLaterCallsEndAtOnce()
    {
        EXPECT_EQ(List(volume->Path()).data, "Apps\nMedia\nStorage\n");
        EXPECT_EQ(List(Storage("seen")).data, "file\n");
        for (const Outcome &outcome :
             {ReadFile(Storage("seen/file")), List(Storage("many")),
              Stat(Storage("many/file1")), Stat(Storage("seen/.dots")),
              WriteFile(Storage("seen/file"), O_WRONLY | O_TRUNC, "new")}) {
            EXPECT_TRUE(outcome.error == ECANCELED || outcome.error == EIO)
                << outcome.error;
            EXPECT_LT(outcome.seconds, 1);
        }
    }
};

TEST_F(UnplugTest, DuringListing)
{
    simulator->Control("unplug after=500");
    ExpectLost(List(Storage("many")),
               "Lost USB Connection.\nDirectory reading aborted.");
    ExpectLaterCallsEndAtOnce();
}

TEST_F(UnplugTest, DuringLookup)
{
    simulator->Control("unplug after=500");
    ExpectLost(ReadFile(Storage("many/file1999")),
               "Lost USB Connection.\nDirectory reading aborted.");
    // Many questions in a row are one failure to the user.
    EXPECT_TRUE(Eventually([this] { return !volume->Dialogs().empty(); }, 5));
    const size_t dialogs = volume->Dialogs().size();
    for (int i = 0; i < 20; ++i) {
        EXPECT_NE(Stat(Storage("many/other" + std::to_string(i))).error, 0);
    }
    usleep(300000);
    EXPECT_LE(volume->Dialogs().size(), dialogs + 2);
}

TEST_F(UnplugTest, DuringRead)
{
    simulator->Control("unplug after-bytes=8000000");
    ExpectLost(ReadFile(Storage("big")),
               "Lost USB connection.\nReading aborted.");
    ExpectLaterCallsEndAtOnce();
    EXPECT_TRUE(volume->WaitForDialog(
        "Lost USB connection.\nOpening file(file) aborted."));
}

TEST_F(UnplugTest, DuringWrite)
{
    simulator->Control("unplug after-bytes=8000000");
    ExpectLost(WriteFile(Storage("seen/file"), O_WRONLY,
                         std::string(32 * 1024 * 1024, 'n')),
               "Lost USB connection.\nWriting aborted.");
    ExpectLaterCallsEndAtOnce();
}

TEST_F(UnplugTest, DialogsCarryTitleAndButton)
{
    simulator->Control("unplug");
    EXPECT_EQ(List(Storage("many")).error, ECANCELED);
    ASSERT_TRUE(volume->WaitForDialog(
        "Lost USB Connection.\nDirectory reading aborted."));
    const Dialog dialog = volume->Dialogs().front();
    EXPECT_EQ(dialog.title, "Quorvel Error!!");
    EXPECT_EQ(dialog.button, "Confirm");
    EXPECT_EQ(dialog.mask, "0022");
}

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
