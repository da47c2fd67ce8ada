// The first accesses after mounting, before anything was listed.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "tests/mounted/fixture.h"

namespace
{

class AccessTest : public MountedTest
{
};

TEST_F(AccessTest, FileOpensBeforeAnyListing)
{
    MakeDevice();
    device->Put("dir/sub/file", "hello\n");
    Start();
    const Outcome read = ReadFile(Storage("dir/sub/file"));
    EXPECT_EQ(read.error, 0);
    EXPECT_EQ(read.data, "hello\n");
    EXPECT_TRUE(volume->Dialogs().empty());
}

TEST_F(AccessTest, NamesThatCannotBeCostNothing)
{
    Start();
    simulator->Control("stats reset");
    for (const char *name : {"nosuch", ".Trashes", ".Trash-1000", "Appsx",
                             "Storagex", "autorun.inf/x"}) {
        EXPECT_EQ(Stat(volume->Path(name)).error, ENOENT) << name;
    }
    EXPECT_EQ(simulator->AllRequests(), 0U);
    EXPECT_TRUE(volume->Dialogs().empty());
}

TEST_F(AccessTest, MissIsAskedForOnce)
{
    MakeDevice();
    device->Put("dir/file", "x");
    Start();
    EXPECT_EQ(Stat(Storage("dir/nosuch")).error, ENOENT);
    simulator->Control("stats reset");
    EXPECT_EQ(Stat(Storage("dir/nosuch")).error, ENOENT);
    EXPECT_EQ(Stat(Storage("dir/other")).error, ENOENT);
    EXPECT_EQ(Stat(Storage("dir/file/below")).error, ENOTDIR);
    EXPECT_EQ(simulator->AllRequests(), 0U);
    EXPECT_TRUE(volume->Dialogs().empty());
}

TEST_F(AccessTest, DotNamesAreFoundButNotListed)
{
    MakeDevice();
    device->Put("dir/.config/inner", "deep");
    device->Put("dir/.profile", "dots");
    device->Put("dir/file", "x");
    Start();
    EXPECT_EQ(ReadFile(Storage("dir/.profile")).data, "dots");
    EXPECT_EQ(ReadFile(Storage("dir/.config/inner")).data, "deep");
    EXPECT_EQ(List(Storage("dir")).data, "file\n");
    EXPECT_EQ(List(Storage("dir")).data, "file\n");
    EXPECT_EQ(ReadFile(Storage("dir/.profile")).data, "dots");

    // The kernel tells of a close a little later.
    EXPECT_TRUE(
        Eventually([this] { return simulator->Number("open_files") == 0; }));
    simulator->Control("stats reset");
    EXPECT_EQ(Stat(Storage("dir/.nosuch")).error, ENOENT);
    EXPECT_EQ(Stat(Storage("dir/.nosuch")).error, ENOENT);
    EXPECT_EQ(simulator->AllRequests(), 1U);
    EXPECT_TRUE(volume->Dialogs().empty());
    volume->ExpectTrouble();
}

TEST_F(AccessTest, AreasListWhatIsThere)
{
    Start();
    EXPECT_EQ(List(volume->Path()).data, "Apps\nMedia\nStorage\n");
    const std::string media = List(volume->Path("Media")).data;
    for (const char *name : {"Movies\n", "Music\n", "Photo\n"}) {
        EXPECT_NE(media.find(name), std::string::npos) << media;
    }
    EXPECT_EQ(List(volume->Path("Media/Music")).error, 0);
    EXPECT_EQ(List(volume->Path("Apps")).error, 0);
    EXPECT_TRUE(volume->Dialogs().empty());
}

TEST_F(AccessTest, StorageFolderIsMadeWhereThereIsNone)
{
    MakeDevice();
    RunProgram({"rm", "-r", device->Storage("")});
    Start();
    volume->ExpectTrouble(); // the check that fails is logged
    const Outcome list = List(volume->Path("Storage"));
    EXPECT_EQ(list.error, 0);
    EXPECT_EQ(list.data, "");
    EXPECT_EQ(access(device->Storage("").c_str(), F_OK), 0);
}

TEST_F(AccessTest, TopLevelDotNamesAreRefusedQuietly)
{
    Start();
    const Outcome folder = Access([&](std::string *) {
        return mkdir(volume->Path(".Trash-1000").c_str(), 0700) == 0 ? 0
                                                                     : errno;
    });
    EXPECT_EQ(folder.error, EROFS);
    EXPECT_EQ(WriteFile(volume->Path(".hidden"), O_CREAT | O_WRONLY, "x").error,
              EROFS);
    EXPECT_TRUE(volume->Dialogs().empty());
}

} // namespace
