// Renames and moves of which nobody can be sure: an answer is lost, the target
// has appeared meanwhile, the source is not what it was.
#include <fcntl.h>
#include <linux/fs.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <filesystem>

#include "tests/mounted/fixture.h"

namespace
{

namespace fs = std::filesystem;

class DoubtTest : public MountedTest
{
  protected:
    void SetUp() override
    {
        MakeDevice();
        device->Put("a", "contents of a");
        device->Put("b", "contents of b");
    }
    void StartListed()
    {
        Start();
        volume->ExpectTrouble();
        EXPECT_EQ(List(Storage("")).error, 0);
    }
    int Rename(const std::string &from, const std::string &to,
               unsigned flags = 0)
    {
        return Try([&] {
                   return renameat2(AT_FDCWD, from.c_str(), AT_FDCWD,
                                    to.c_str(), flags);
               })
            .error;
    }
    std::string OnDevice(const std::string &name)
    {
        return Slurp(device->Storage(name));
    }
};

TEST_F(DoubtTest, WhatAppearedIsNotReplacedUnasked)
{
    StartListed();
    device->Put("appeared", "precious");
    EXPECT_EQ(Rename(Storage("a"), Storage("appeared"), RENAME_NOREPLACE),
              EEXIST);
    EXPECT_EQ(OnDevice("appeared"), "precious");
    const std::string app =
        device->folder + "/Apps/com.example.notes/Documents";
    EXPECT_EQ(List(volume->Path("Apps/Notes")).error, 0);
    Spill(app + "/appeared", "precious");
    EXPECT_EQ(Rename(Storage("a"), volume->Path("Apps/Notes/appeared"),
                     RENAME_NOREPLACE),
              EEXIST);
    EXPECT_EQ(Slurp(app + "/appeared"), "precious");
    // Asked for, it is replaced; a folder with something in it is not.
    EXPECT_EQ(Rename(Storage("a"), Storage("appeared")), 0);
    EXPECT_EQ(OnDevice("appeared"), "contents of a");
    device->Put("folder/in it", "precious");
    fs::create_directory(device->Storage("another"));
    EXPECT_EQ(Stat(Storage("Projects")).error, 0);
    EXPECT_EQ(Rename(Storage("Projects"), Storage("folder")), ENOTEMPTY);
    EXPECT_EQ(OnDevice("folder/in it"), "precious");
}

// The device has done it; only its answer is lost.
TEST_F(DoubtTest, TheAnswerToARenameIsLost)
{
    StartListed();
    EXPECT_EQ(simulator->Control("corrupt RenamePath 1 magic"), "ok");
    EXPECT_EQ(Rename(Storage("a"), Storage("c")), ECANCELED);
    EXPECT_EQ(OnDevice("c"), "contents of a");
    EXPECT_EQ(ReadFile(Storage("a")).error, ENOENT);
    EXPECT_EQ(ReadFile(Storage("c")).data, "contents of a");
    EXPECT_FALSE(fs::exists(device->Storage("a")));

    // And with a target that is open, which was put out of the way first.
    const int held = open(Storage("b").c_str(), O_RDONLY | O_CLOEXEC);
    ASSERT_GE(held, 0);
    EXPECT_EQ(simulator->Control("corrupt RenamePath 1 magic after=1"), "ok");
    EXPECT_EQ(Rename(Storage("c"), Storage("b")), ECANCELED);
    EXPECT_EQ(OnDevice("b"), "contents of a");
    close(held);
    // The kernel goes on believing in the old file for a second.
    EXPECT_TRUE(Eventually(
        [&] { return ReadFile(Storage("b")).data == "contents of a"; }));
    EXPECT_EQ(ReadFile(Storage("c")).error, ENOENT);
}

TEST_F(DoubtTest, TheAnswerToARemovalIsLost)
{
    StartListed();
    EXPECT_EQ(simulator->Control("corrupt RemovePath 1 magic"), "ok");
    const std::string target = volume->Path("Apps/Notes/a");
    EXPECT_EQ(Rename(Storage("a"), target), 0);
    EXPECT_EQ(ReadFile(Storage("a")).error, ENOENT);
    EXPECT_NE(Rename(Storage("a"), target), 0);
    EXPECT_EQ(ReadFile(target).data, "contents of a");
}

// A target that is open, and that can't be brought back at once, comes back
// before its last user's close would have removed it.
TEST_F(DoubtTest, AnOpenTargetOfAFailedRenameComesBack)
{
    StartListed();
    const int held = open(Storage("b").c_str(), O_RDONLY | O_CLOEXEC);
    ASSERT_GE(held, 0);
    EXPECT_EQ(simulator->Control("fail RenamePath 2 10 after=1"), "ok");
    EXPECT_EQ(Rename(Storage("a"), Storage("b")), ECANCELED);
    EXPECT_EQ(OnDevice("a"), "contents of a");
    close(held);
    EXPECT_TRUE(Eventually([&] { return OnDevice("b") == "contents of b"; }));
}

TEST_F(DoubtTest, ASourceThatCannotBeReadCostsNoTarget)
{
    StartListed();
    const std::string roll = volume->Path("Media/Photo/Camera Roll");
    EXPECT_EQ(Stat(roll + "/Harbour.JPG").error, 0);
    fs::remove(device->folder + "/Media/DCIM/900APPLE/IMG_9001.JPG");
    EXPECT_EQ(Rename(roll + "/Harbour.JPG", Storage("b")), ECANCELED);
    EXPECT_EQ(OnDevice("b"), "contents of b");
}

TEST_F(DoubtTest, AStagedFileMovesWithItsFolder)
{
    device->Put("t/doc.txt", "old");
    StartListed();
    EXPECT_EQ(ReadFile(Storage("t/doc.txt")).data, "old");
    EXPECT_EQ(
        WriteFile(Storage("t/doc.txt.sb-1"), O_CREAT | O_WRONLY, "new").error,
        0);
    EXPECT_EQ(Rename(Storage("t"), Storage("t2")), 0);
    EXPECT_EQ(Rename(Storage("t2/doc.txt.sb-1"), Storage("t2/doc.txt")), 0);
    EXPECT_EQ(OnDevice("t2/doc.txt"), "new");
}

} // namespace
