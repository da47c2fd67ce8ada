// What the binding does without a mount: the private folder, dialogs, error
// numbers, places.
#include "tarnifs/mount/host.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <thread>

#include <gtest/gtest.h>

#include "tarnifs/mount/linux/attributes.h"
#include "tarnifs/mount/linux/hidden.h"
#include "tarnifs/mount/common/places.h"
#include "tarnifs/mount/common/results.h"
#include "tests/support/child.h"
#include "util/log.h"

namespace
{

namespace fs = std::filesystem;

class HostTest : public ::testing::Test
{
  protected:
    HostTest()
    {
        QNLogUseFolder(work.c_str());
        QNLogInit();
    }
    ~HostTest() override { QNLogUseFolder(nullptr); }
    HostTest(const HostTest &) = delete;
    HostTest &operator=(const HostTest &) = delete;

    // The dialog program for the rest of this test.
    void UseProgram(const std::string &text)
    {
        Spill(work + "/dialog", "#!/bin/sh\ncd '" + work + "'\n" + text);
        chmod((work + "/dialog").c_str(), 0755);
        setenv("QUORVEL_DIALOG", (work + "/dialog").c_str(), 1);
    }

    TempFolder own;
    const std::string work = own.path;
    const std::string folder = work + "/private";
};

TEST_F(HostTest, PrivateFolderIsTheOwnersAlone)
{
    const auto mode = [this] {
        return fs::status(folder).permissions();
    };
    ASSERT_TRUE(hostMakePrivateFolder(folder.c_str()));
    EXPECT_EQ(mode(), fs::perms(0700));
    Spill(folder + "/left", "by an earlier run");
    EXPECT_TRUE(hostMakePrivateFolder(folder.c_str()));
    EXPECT_TRUE(fs::exists(folder + "/left"));
    // Others could write into it: what is in it can't be trusted.
    fs::permissions(folder, fs::perms(0777));
    fs::create_symlink("/etc/passwd", folder + "/link");
    EXPECT_TRUE(hostMakePrivateFolder(folder.c_str()));
    EXPECT_EQ(mode(), fs::perms(0700));
    EXPECT_TRUE(fs::is_empty(folder));
    // Its removal follows no link.
    fs::create_directories(work + "/elsewhere/deep");
    Spill(work + "/elsewhere/deep/kept", "kept");
    fs::create_directories(folder + "/a/b/c");
    Spill(folder + "/a/b/c/file", "x");
    fs::create_symlink(work + "/elsewhere", folder + "/a/link");
    hostRemoveFolder(folder.c_str());
    EXPECT_FALSE(fs::exists(folder));
    EXPECT_EQ(Slurp(work + "/elsewhere/deep/kept"), "kept");
}

TEST_F(HostTest, PrivateFolderIsNeverALinkOrAFile)
{
    fs::create_directory(work + "/elsewhere");
    fs::create_symlink(work + "/elsewhere", folder);
    EXPECT_FALSE(hostMakePrivateFolder(folder.c_str()));
    hostRemoveFolder(folder.c_str());
    EXPECT_TRUE(fs::is_symlink(folder));
    fs::remove(folder);
    Spill(folder, "file");
    EXPECT_FALSE(hostMakePrivateFolder(folder.c_str()));
    hostRemoveFolder(folder.c_str());
    EXPECT_EQ(Slurp(folder), "file");
    EXPECT_FALSE(hostMakePrivateFolder((work + "/no/where").c_str()));
    const std::string log =
        RunProgram({"sh", "-c", "cat '" + work + "'/*.log"}).out;
    EXPECT_NE(log.find("refused. path(" + folder + ") : it is a link"),
              std::string::npos)
        << log;
}

// An earlier volume of the same device ends late, or one is mounted twice.
TEST_F(HostTest, PrivateFolderStaysWhileAnotherVolumeUsesIt)
{
    ASSERT_TRUE(hostMakePrivateFolder(folder.c_str()));
    const Outcome other = Access([this](std::string *) {
        if (!hostMakePrivateFolder(folder.c_str())) {
            return EACCES;
        }
        hostRemoveFolder(folder.c_str());
        return fs::exists(folder) ? 0 : ENOENT;
    });
    EXPECT_EQ(other.error, 0);
    hostRemoveFolder(folder.c_str());
    EXPECT_FALSE(fs::exists(folder));
}

TEST_F(HostTest, DialogProgramsStartCleanWithTheTextAsItIs)
{
    const int extra = open("/dev/null", O_RDONLY); // not close-on-exec
    const mode_t mask = umask(0);
    signal(SIGPIPE, SIG_IGN);
    sigset_t usr1;
    sigemptyset(&usr1);
    sigaddset(&usr1, SIGUSR1);
    pthread_sigmask(SIG_BLOCK, &usr1, nullptr);
    UseProgram("printf '%s|' \"$@\" > said\numask > mask\n"
               "grep -E 'SigBlk|SigIgn' /proc/self/status > signals\n"
               "ls /proc/$$/fd > fds\n");
    const std::string text = "`id` $(id) \"quotes' 100%s %n\n<b>&\\t";
    hostShowDialog("Title!!", text.c_str(), "Confirm");
    pthread_sigmask(SIG_UNBLOCK, &usr1, nullptr);
    signal(SIGPIPE, SIG_DFL);
    umask(mask);
    EXPECT_EQ(Slurp(work + "/said"), "Title!!|" + text + "|Confirm|");
    EXPECT_EQ(Slurp(work + "/mask"), "0022\n");
    EXPECT_EQ(Slurp(work + "/signals"),
              "SigBlk:\t0000000000000000\nSigIgn:\t0000000000000000\n");
    EXPECT_EQ(Slurp(work + "/fds").find(std::to_string(extra) + "\n"),
              std::string::npos);
    close(extra);
    // One that is missing or fails hurts nobody.
    UseProgram("exit 3\n");
    hostShowDialog("t", "x", "b");
    setenv("QUORVEL_DIALOG", (work + "/no such program").c_str(), 1);
    hostShowDialog("t", "x", "b");
}

// Ends for good what is shown, so it has a process of its own.
TEST_F(HostTest, EndingADialogEndsItsProgramAlone)
{
    const Outcome outcome = Access(
        [this](std::string *) {
            const std::string up = work + "/up";
            UseProgram("trap '' TERM\ntouch up\nwhile :; do sleep 0.1; done\n");
            std::thread ending([&] {
                Eventually([&] { return fs::exists(up); });
                hostEndDialog();
            });
            hostShowDialog("t", "x", "b");
            ending.join();
            fs::remove(up);
            hostShowDialog("t", "never shown", "b");
            return fs::exists(up) ? EEXIST : 0;
        },
        10);
    EXPECT_EQ(outcome.error, 0);
}

TEST(ResultsTest, DeviceCodesStopHere)
{
    EXPECT_EQ(HostResult(4096), 4096);
    for (const int error :
         {ENOENT, ENOTEMPTY, ENOSYS, ECANCELED, ENODATA, ENOMEM}) {
        EXPECT_EQ(HostResult(-error), -error);
    }
    for (const int code :
         {-1, -14, -30, -32, -33, -44, -45, -62, -70, -207, -303, -332}) {
        EXPECT_EQ(HostResult(code), -EIO) << code;
    }
    EXPECT_EQ(WithoutEnosys(-ENOSYS), -EIO);
    EXPECT_EQ(WithoutEnosys(-EROFS), -EROFS);
}

TEST(PlacesTest, WhereFilesMayBeChanged)
{
    for (const char *path : {"/Storage/a", "/Storage/a/b", "/Apps/Notes/a"}) {
        EXPECT_TRUE(IsWritablePlace(path)) << path;
    }
    for (const char *path : {"/", "/Storage", "/Storagex/a", "/Apps",
                             "/Apps/Notes", "/Appsx/a/b", "/Media/Music/a"}) {
        EXPECT_FALSE(IsWritablePlace(path)) << path;
    }
    EXPECT_EQ(Moved("/Storage/a/b/c", "/Storage/a", "/Storage/x y"),
              "/Storage/x y/b/c");
    EXPECT_TRUE(IsWithin("/a/b", "/"));
    EXPECT_FALSE(IsWithin("/ab", "/a"));
}

TEST(HiddenTest, OnlyTheReplacementTakesAHiddenFileBack)
{
    const HiddenFile file = {"/Storage/b", "/Storage/.fuse_hidden1",
                             "/Storage/b", "/Storage/.fuse_hidden1"};
    NoteHidden(file);
    EXPECT_TRUE(TakeHidden("/Storage/b"));
    EXPECT_FALSE(TakeHidden("/Storage/b"));

    NoteHidden(file); // removed: somebody looks, then renames
    NoteLookup("/Storage/b");
    EXPECT_FALSE(TakeHidden("/Storage/b"));

    NoteHidden(file);
    bool other = true;
    std::thread([&] { other = TakeHidden("/Storage/b").has_value(); }).join();
    EXPECT_FALSE(other);

    NoteRestored(file);
    EXPECT_EQ(RestoredName("/Storage/.fuse_hidden1"), "/Storage/b");
    EXPECT_TRUE(ForgetRestored("/Storage/.fuse_hidden1"));
    EXPECT_FALSE(ForgetRestored("/Storage/.fuse_hidden1"));
    EXPECT_EQ(RestoredName("/Storage/.fuse_hidden1"), "/Storage/.fuse_hidden1");
}

} // namespace
