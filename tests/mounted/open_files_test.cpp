// Files that are renamed, replaced or removed while programs have them open, and
// names that begin with a dot: what Linux programs take for granted.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <functional>

#include "tests/mounted/fixture.h"

namespace
{

class OpenFilesTest : public MountedTest
{
  protected:
    // What goes on while a file is open: writes one letter before and one after
    // `act`, then reads everything back.
    Outcome WhileOpen(const std::string &path, const std::function<int()> &act)
    {
        return Access([&](std::string *data) {
            const int fd = open(path.c_str(), O_RDWR);
            if (fd < 0 || pwrite(fd, "A", 1, 0) != 1) {
                return errno;
            }
            const int error = act();
            if (error != 0) {
                return error;
            }
            char text[64] = {};
            struct stat st {
            };
            if (pwrite(fd, "B", 1, 1) != 1 || fstat(fd, &st) != 0 ||
                pread(fd, text, sizeof(text), 0) != st.st_size) {
                return errno;
            }
            *data = text;
            return close(fd) == 0 ? 0 : errno;
        });
    }

    static int Rename(const std::string &from, const std::string &to)
    {
        return rename(from.c_str(), to.c_str()) == 0 ? 0 : errno;
    }
};

TEST_F(OpenFilesTest, RenamedWithItsFolders)
{
    MakeDevice();
    device->Put("a/b/file", "....");
    device->Put("a/b/.dots", "....");
    Start();
    for (const char *name : {"b/file", "b/.dots"}) {
        const Outcome outcome =
            WhileOpen(Storage(std::string("a/") + name),
                      [&] { return Rename(Storage("a"), Storage("c")); });
        EXPECT_EQ(outcome.error, 0) << name;
        EXPECT_EQ(outcome.data, "AB..") << name;
        EXPECT_EQ(device->Get(std::string("c/") + name), "AB..") << name;
        ASSERT_EQ(RunProgram({"mv", Storage("c"), Storage("a")}).status, 0);
    }
    ExpectNothingOpen();
    EXPECT_TRUE(volume->Dialogs().empty());
    EXPECT_EQ(List(Storage("a")).data, "b\n");
    ASSERT_EQ(WriteFile(Storage("a/b/.made"), O_CREAT | O_WRONLY, "m").error,
              0);
    ASSERT_EQ(RunProgram({"mv", Storage("a"), Storage("d")}).status, 0);
    EXPECT_EQ(List(Storage("d/b")).data, ".made\nfile\n");
}

TEST_F(OpenFilesTest, RemovedOrReplaced)
{
    MakeDevice();
    device->Put("dir/one", "....");
    device->Put("dir/two", "2222");
    Start();
    Outcome outcome = WhileOpen(Storage("dir/one"), [&] {
        return unlink(Storage("dir/one").c_str()) == 0 ? 0 : errno;
    });
    EXPECT_EQ(outcome.error, 0);
    EXPECT_EQ(outcome.data, "AB..");
    EXPECT_EQ(List(Storage("dir")).data, "two\n");
    ExpectNothingOpen();

    ASSERT_EQ(WriteFile(Storage("dir/three"), O_CREAT | O_WRONLY, "33").error,
              0);
    outcome = WhileOpen(Storage("dir/two"), [&] {
        return Rename(Storage("dir/three"), Storage("dir/two"));
    });
    EXPECT_EQ(outcome.error, 0);
    EXPECT_EQ(outcome.data, "AB22");
    EXPECT_EQ(device->Get("dir/two"), "33");
    ExpectNothingOpen();
    const std::filesystem::directory_iterator left(device->Storage("dir"));
    EXPECT_EQ(std::distance(begin(left), end(left)), 1);
}

// The file that was to be replaced had been put out of the way already.
TEST_F(OpenFilesTest, ReplacementThatFailsBringsTheTargetBack)
{
    MakeDevice();
    device->Put("dir/old", "....");
    device->Put("dir/new", "nnnn");
    Start();
    volume->ExpectTrouble();
    const Outcome outcome = WhileOpen(Storage("dir/old"), [&] {
        simulator->Control("fail RenamePath 1 10 after=1");
        return Rename(Storage("dir/new"), Storage("dir/old")) == ECANCELED
                   ? 0
                   : EINVAL;
    });
    EXPECT_EQ(outcome.error, 0);
    EXPECT_EQ(outcome.data, "AB..");
    EXPECT_EQ(List(Storage("dir")).data, "new\nold\n");
    EXPECT_EQ(ReadFile(Storage("dir/old")).data, "AB..");
    EXPECT_EQ(device->Get("dir/old"), "AB..");
    EXPECT_EQ(device->Get("dir/new"), "nnnn");
    ExpectNothingOpen();
}

// A dot name that is made in a folder which nobody has listed hides nothing.
TEST_F(OpenFilesTest, DotNamesInUnlistedFolders)
{
    MakeDevice();
    device->Put("one/file", "1");
    device->Put("two/file", "2");
    device->Put("three/.dots", "....");
    device->Put("three/file", "3");
    Start();
    EXPECT_EQ(WriteFile(Storage("one/.made"), O_CREAT | O_WRONLY, "m").error,
              0);
    EXPECT_EQ(RunProgram({"mkdir", Storage("two/.made")}).status, 0);
    const Outcome outcome = WhileOpen(Storage("three/.dots"), [&] {
        return unlink(Storage("three/.dots").c_str()) == 0 ? 0 : errno;
    });
    EXPECT_EQ(outcome.data, "AB..");
    EXPECT_EQ(List(Storage("one")).data, ".made\nfile\n");
    EXPECT_EQ(List(Storage("two")).data, ".made\nfile\n");
    EXPECT_EQ(List(Storage("three")).data, "file\n");
    EXPECT_EQ(Stat(Storage("three/.dots")).error, ENOENT);

    // What a mount that was killed left behind is not shown, but can be removed.
    const std::string left = "one/.fuse_hidden0000000100000001";
    device->Put(left, "left");
    EXPECT_EQ(List(Storage("one")).data, ".made\nfile\n");
    EXPECT_EQ(RunProgram({"rm", Storage(left)}).status, 0);
    EXPECT_FALSE(std::filesystem::exists(device->Storage(left)));
}

// A folder that looks empty and is not: nobody gets a dialog, and the second try
// shows why.
TEST_F(OpenFilesTest, FoldersWithNamesThatAreNotListed)
{
    MakeDevice();
    device->Put("one/.dots", "....");
    device->Put("two/.fuse_hidden0000000100000001", "left by a killed mount");
    Start();
    EXPECT_EQ(List(Storage("one")).data, "");
    const Finished refused = RunProgram({"rm", "-r", Storage("one")});
    EXPECT_NE(refused.out.find("Directory not empty"), std::string::npos)
        << refused.out;
    EXPECT_EQ(List(Storage("one")).data, ".dots\n");
    EXPECT_EQ(RunProgram({"rm", "-r", Storage("one")}).out, "");
    EXPECT_FALSE(std::filesystem::exists(device->Storage("one")));
    EXPECT_EQ(RunProgram({"rmdir", Storage("two")}).out, "");
    EXPECT_FALSE(std::filesystem::exists(device->Storage("two")));
    EXPECT_TRUE(volume->Dialogs().empty());
}

TEST_F(OpenFilesTest, FileThatAppearedOnTheDevice)
{
    MakeDevice();
    device->Put("dir/file", "x");
    Start();
    ASSERT_EQ(List(Storage("dir")).data, "file\n");
    const std::string text = "longer than what is written";
    for (const char *name : {"cut", "kept", "exclusive"}) {
        device->Put(std::string("dir/") + name, text);
    }
    EXPECT_EQ(WriteFile(Storage("dir/cut"), O_CREAT | O_TRUNC | O_WRONLY, "new")
                  .error,
              0);
    EXPECT_EQ(
        WriteFile(Storage("dir/kept"), O_CREAT | O_APPEND | O_WRONLY, "").error,
        0);
    EXPECT_EQ(
        WriteFile(Storage("dir/exclusive"), O_CREAT | O_EXCL | O_WRONLY, "n")
            .error,
        EEXIST);
    EXPECT_EQ(ReadFile(Storage("dir/cut")).data, "new");
    EXPECT_EQ(ReadFile(Storage("dir/kept")).data, text);
    EXPECT_EQ(device->Get("dir/cut"), "new");
    EXPECT_EQ(device->Get("dir/kept"), text);
    EXPECT_EQ(device->Get("dir/exclusive"), text);
}

TEST_F(OpenFilesTest, InsideAnApp)
{
    Start();
    volume->ExpectTrouble();
    const std::string app = volume->Path("Apps/Notes/");
    ASSERT_EQ(WriteFile(app + "file", O_CREAT | O_WRONLY, "....").error, 0);
    Outcome outcome = WhileOpen(
        app + "file", [&] { return Rename(app + "file", app + "f2"); });
    EXPECT_EQ(outcome.error, 0);
    EXPECT_EQ(outcome.data, "AB..");
    EXPECT_EQ(ReadFile(app + "f2").data, "AB..");
    ExpectNothingOpen();
    outcome = WhileOpen(app + "f2", [&] {
        return unlink((app + "f2").c_str()) == 0 ? 0 : errno;
    });
    EXPECT_EQ(outcome.error, 0);
    EXPECT_EQ(outcome.data, "AB..");
    EXPECT_EQ(Stat(app + "f2").error, ENOENT);
    ExpectNothingOpen();
    EXPECT_EQ(List(app).data, "Diary.txt\nLists\n");
    EXPECT_TRUE(volume->Dialogs().empty());
}

} // namespace
