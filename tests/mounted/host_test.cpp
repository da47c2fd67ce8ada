// What the binding does without a mount: the private folder, dialogs, error
// numbers, places.
#include "tarnifs/mount/host.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <thread>

#include <gtest/gtest.h>

#include "tarnifs/mount/linux/attributes.h"
#include "tarnifs/mount/linux/hidden.h"
#include "tarnifs/mount/linux/places.h"
#include "tarnifs/mount/linux/results.h"
#include "util/log.h"

namespace
{

namespace fs = std::filesystem;

class HostTest : public ::testing::Test
{
  protected:
    HostTest()
    {
        work = (fs::temp_directory_path() / "quorvel-host.XXXXXX").string();
        if (mkdtemp(work.data()) == nullptr) {
            ADD_FAILURE() << "no temporary folder";
        }
        folder = work + "/private";
        QNLogUseFolder(work.c_str());
        QNLogInit();
    }
    ~HostTest() override
    {
        QNLogUseFolder(nullptr);
        fs::remove_all(work);
    }
    HostTest(const HostTest &) = delete;
    HostTest &operator=(const HostTest &) = delete;

    void Spill(const std::string &path, const std::string &text)
    {
        std::ofstream(path) << text;
        chmod(path.c_str(), 0755);
    }

    std::string Slurp(const std::string &path)
    {
        std::ifstream file(path);
        return {std::istreambuf_iterator<char>(file), {}};
    }

    mode_t ModeOf(const std::string &path)
    {
        struct stat st {
        };
        return lstat(path.c_str(), &st) == 0 ? st.st_mode & 07777 : 0;
    }

    std::string work;
    std::string folder;
};

TEST_F(HostTest, PrivateFolderIsTheOwnersAlone)
{
    ASSERT_TRUE(hostMakePrivateFolder(folder.c_str()));
    EXPECT_EQ(ModeOf(folder), 0700U);
    Spill(folder + "/left", "by an earlier run");
    EXPECT_TRUE(hostMakePrivateFolder(folder.c_str()));
    EXPECT_TRUE(fs::exists(folder + "/left"));

    // Others could write into it: what is in it can't be trusted.
    chmod(folder.c_str(), 0777);
    fs::create_symlink("/etc/passwd", folder + "/link");
    EXPECT_TRUE(hostMakePrivateFolder(folder.c_str()));
    EXPECT_EQ(ModeOf(folder), 0700U);
    EXPECT_TRUE(fs::is_empty(folder));
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
    std::string log;
    for (const auto &entry : fs::directory_iterator(work)) {
        if (entry.path().extension() == ".log") {
            log = Slurp(entry.path());
        }
    }
    EXPECT_NE(log.find("refused. path(" + folder + ") : it is a link"),
              std::string::npos)
        << log;
}

TEST_F(HostTest, RemovalFollowsNoLink)
{
    fs::create_directories(work + "/elsewhere/deep");
    Spill(work + "/elsewhere/deep/kept", "kept");
    ASSERT_TRUE(hostMakePrivateFolder(folder.c_str()));
    fs::create_directories(folder + "/a/b/c");
    Spill(folder + "/a/b/c/file", "x");
    fs::create_symlink(work + "/elsewhere", folder + "/a/link");
    hostRemoveFolder(folder.c_str());
    EXPECT_FALSE(fs::exists(folder));
    EXPECT_EQ(Slurp(work + "/elsewhere/deep/kept"), "kept");
}

class DialogTest : public HostTest
{
  protected:
    // The dialog program for the rest of this test.
    void UseProgram(const std::string &text)
    {
        Spill(work + "/dialog", "#!/bin/sh\n" + text);
        setenv("QUORVEL_DIALOG", (work + "/dialog").c_str(), 1);
    }
};

TEST_F(DialogTest, TextGoesOverAsItIs)
{
    UseProgram("printf '%s|' \"$@\" > '" + work + "/said'\n");
    const std::string text = "`id` $(id) \"quotes' 100%s %n\n<b>&\\t";
    hostShowDialog("Title!!", text.c_str(), "Confirm");
    EXPECT_EQ(Slurp(work + "/said"), "Title!!|" + text + "|Confirm|");
}

TEST_F(DialogTest, ProgramStartsWithACleanState)
{
    const int extra = open("/dev/null", O_RDONLY); // not close-on-exec
    const mode_t mask = umask(0);
    signal(SIGPIPE, SIG_IGN);
    sigset_t usr1;
    sigemptyset(&usr1);
    sigaddset(&usr1, SIGUSR1);
    pthread_sigmask(SIG_BLOCK, &usr1, nullptr);
    UseProgram("cd '" + work +
               "'\numask > mask\n"
               "grep -E 'SigBlk|SigIgn' /proc/self/status > signals\n"
               "ls /proc/$$/fd > fds\n");
    hostShowDialog("t", "x", "b");
    pthread_sigmask(SIG_UNBLOCK, &usr1, nullptr);
    signal(SIGPIPE, SIG_DFL);
    umask(mask);
    EXPECT_EQ(Slurp(work + "/mask"), "0022\n");
    EXPECT_EQ(Slurp(work + "/signals"),
              "SigBlk:\t0000000000000000\nSigIgn:\t0000000000000000\n");
    EXPECT_EQ(Slurp(work + "/fds").find(std::to_string(extra) + "\n"),
              std::string::npos);
    close(extra);
}

// Ends for good what is shown, so it has a process of its own.
TEST_F(DialogTest, EndingADialogEndsItsProgramAlone)
{
    const pid_t pid = fork();
    if (pid == 0) {
        UseProgram("trap '' TERM\ntouch '" + work +
                   "/up'\n"
                   "while :; do sleep 0.1; done\n");
        std::thread ending([this] {
            while (!fs::exists(work + "/up")) {
                usleep(10000);
            }
            hostEndDialog();
        });
        const auto begin = std::chrono::steady_clock::now();
        hostShowDialog("t", "x", "b");
        ending.join();
        fs::remove(work + "/up");
        hostShowDialog("t", "never shown", "b");
        const bool good =
            !fs::exists(work + "/up") &&
            std::chrono::steady_clock::now() - begin < std::chrono::seconds(10);
        _exit(good ? 0 : 1);
    }
    int status = -1;
    waitpid(pid, &status, 0);
    EXPECT_EQ(status, 0);
}

TEST_F(DialogTest, ProgramThatIsMissingHurtsNobody)
{
    setenv("QUORVEL_DIALOG", (work + "/no such program").c_str(), 1);
    hostShowDialog("t", "x", "b");
    UseProgram("exit 3\n");
    hostShowDialog("t", "x", "b");
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
