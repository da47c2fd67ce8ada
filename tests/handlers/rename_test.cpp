// Renaming: what each pair of places means, renames on the device, refusals.
#include "tarnifs/namespace/rename.h"

#include <fstream>

#include "tests/handlers/fixture.h"

namespace
{

const std::string READ_ONLY =
    "This folder is read only. You can not write or modify.\n";

class Rename : public MountTest
{
  protected:
    void SetUp() override { populate(); }
    void expectAllGone(const char *source, const std::string &target)
    {
        EXPECT_EQ(object(source), nullptr);
        EXPECT_NE(object(target), nullptr);
        expectAllShown();
        EXPECT_EQ(memoryWorld.houses(), 0);
    }
    bool isStaged(const std::string &name)
    {
        return std::ifstream(privateFolder() + "/" + name).good();
    }
};

TEST(RenameRules, TheFirstThatFitsDecides)
{
    using enum RenameAction;
    const struct {
        const char *from;
        const char *to;
        RenameAction action;
    } cases[] = {
        {"/Storage/a", "/Apps/A/x", MoveToApps},
        {"/Storage/a", "/Apps/x", ReadOnlyApps},
        {"/Storage/a", "/Media/x", ReadOnly},
        {"/Storage/a", "/Media", Refused},
        {"/Storage/a", "/Storage/b", DeviceRename},
        {"/Storagex", "/Storage/b", DeviceRename},
        {"/Storage/a", "/Storagex", Refused},
        {"/Storage/a", "/x", Refused},
        {"/Media/Music/x", "/Apps/A/x", MoveToApps},
        {"/Media/Music/x", "/Apps/x", ReadOnlyApps},
        {"/Media/Music/x", "/Storage/x", MoveToStorage},
        {"/Media/Music/x", "/Media/Music/y", Refused},
        {"/Media/Music/x", "/Media/Movies/x", ReadOnly},
        {"/Media/x", "/Storage", ReadOnly},
        {"/Media", "/x", Refused},
        {"/Apps", "/Storage/x", CopyApps},
        {"/Apps/A", "/Storage/x", MoveToStorage},
        {"/Apps/A/x", "/Storage/x", MoveToStorage},
        {"/Apps/A/x", "/Media", ReadOnly},
        {"/Apps/A/x", "/Mediax", ReadOnly},
        {"/Apps", "/Apps/B", RefusedApps},
        {"/Apps/A", "/Apps/B", RefusedApps},
        {"/Apps/A", "/Apps/B/x", RefusedApps},
        {"/Apps/A/x", "/Apps/B/x", MoveToApps},
        {"/Apps/A/x", "/Apps/x", ReadOnlyApps},
        {"/Apps/A/x", "/x", Refused},
        {"/Apps/A/x", "/Storage", Refused},
        {"/x", "/Storage/x", Refused},
        {"/", "/y", Refused},
    };
    for (const auto &each : cases) {
        EXPECT_EQ(DecideRename(each.from, each.to), each.action)
            << each.from << " to " << each.to;
    }
}

TEST_F(Rename, RefusalsNameThePlaceAndChangeNothing)
{
    const std::string create = "tarnifs_rename create not supported. path : ";
    const std::string rename_ =
        "tarnifs_rename rename not supported. path from : ";
    const std::string level = "tarnifs_rename rename not supported. ";
    const struct {
        const char *from;
        const char *to;
        std::string line;
        bool appLevel;
        std::string text;
    } cases[] = {
        {"/Storage/a.txt", "/Apps/x", create + "/Apps/x", true,
         READ_ONLY + "/Apps"},
        {"/Storage/a.txt", "/Media/100%s", create + "/Media/100%s", false,
         READ_ONLY + "/Media"},
        {"/Storage/dir", "/x", rename_ + "/Storage/dir, to : /x", false,
         "You can not rename this folder.\n/Storage/dir"},
        {"/Media/Music/x.mp3", "/Media/Music/y.mp3",
         rename_ + "/Media/Music/x.mp3, to : /Media/Music/y.mp3", false,
         "You can not rename this file.\n/Media/Music/x.mp3"},
        {"/Media/Music/x.mp3", "/Media/Movies/x.mp3",
         create + "/Media/Movies/x.mp3", false, READ_ONLY + "/Media/Movies"},
        {"/Media/Music/x.mp3", "/Apps/x", create + "/Apps/x", true,
         READ_ONLY + "/Apps"},
        {"/Media", "/x", rename_ + "/Media, to : /x", false,
         "You can not rename this folder.\n/Media"},
        {"/Apps/Notes/a.txt", "/Media/x", create + "/Media/x", false,
         READ_ONLY + "/Media"},
        {"/Apps/Notes", "/Apps/Other2",
         rename_ + "/Apps/Notes, to : /Apps/Other2", true,
         "You can not rename this folder.\n/Apps/Notes"},
        {"/Apps/Notes/a.txt", "/Apps/x", create + "/Apps/x", true,
         READ_ONLY + "/Apps"},
        {"/Apps/Notes/a.txt", "/x", rename_ + "/Apps/Notes/a.txt, to : /x",
         false, "You can not rename this file.\n/Apps/Notes/a.txt"},
        {"/unknown", "/Storage/x", rename_ + "/unknown, to : /Storage/x", false,
         "You can not rename this file.\n/unknown"},
    };
    for (const auto &each : cases) {
        SCOPED_TRACE(std::string(each.from) + " to " + each.to);
        forgetLog();
        EXPECT_EQ(rename(each.from, each.to), -ECANCELED);
        expectLogged(each.line);
        EXPECT_EQ(countLogged(level), each.appLevel ? 1 : 0);
        expectRefusal(each.text);
        EXPECT_EQ(object(each.to), nullptr);
    }
    EXPECT_EQ(memoryWorld.calls, Names());
    expectAllShown();
}

TEST_F(Rename, AFileTakesItsThingsAlong)
{
    object("/Storage/a.txt")->birth_time = 1000;
    tarni_opers.setxattr("/Storage/a.txt", "tag", "red", 3, 0, 0);
    EXPECT_EQ(rename("/Storage/a.txt", "/Storage/dir/new.txt"), 0);
    EXPECT_EQ(memoryWorld.calls,
              Names{"libiusb_afc_rename /general_storage/a.txt"});
    expectAllGone("/Storage/a.txt", "/Storage/dir/new.txt");
    const _KTL_OBJECT *now = object("/Storage/dir/new.txt");
    EXPECT_EQ(Value(now->size), 12U);
    EXPECT_EQ(Value(now->birth_time), 1000);
    EXPECT_NEAR(static_cast<double>(now->modify_time),
                static_cast<double>(time(nullptr)), 5);
    char value[8] = {};
    EXPECT_EQ(tarni_opers.getxattr("/Storage/dir/new.txt", "tag", value, 3, 0),
              3);
    EXPECT_STREQ(value, "red");
    EXPECT_EQ(list("/Storage/dir"), (Names{".", "..", "x", "sub", "new.txt"}));
    object("/Apps/Notes/a.txt")->birth_time = 1000;
    memoryWorld.forgetCalls();
    EXPECT_EQ(rename("/Apps/Notes/a.txt", "/Apps/Notes/dir/new.txt"), 0);
    EXPECT_EQ(memoryWorld.calls,
              (Names{"libiusb_housearrest_init",
                     "libiusb_housearrest_openapp com.example.notes",
                     "libiusb_afc_rename /Documents/a.txt",
                     "libiusb_housearrest_exit"}));
    now = object("/Apps/Notes/dir/new.txt");
    EXPECT_STREQ(now->app_id, "com.example.notes");
    EXPECT_EQ(Value(now->size), 17U);
    EXPECT_EQ(Value(now->birth_time), 1000);
    expectAllGone("/Apps/Notes/a.txt", "/Apps/Notes/dir/new.txt");
}

TEST_F(Rename, ATargetThatExistsIsReplaced)
{
    EXPECT_EQ(rename("/Storage/a.txt", "/Storage/b.txt"), 0);
    EXPECT_EQ(attributes("/Storage/b.txt").st_size, 12);
    EXPECT_EQ(media().find("/general_storage/b.txt")->data, "hello, world");
    EXPECT_EQ(rename("/Apps/Notes/a.txt", "/Apps/Notes/b.txt"), 0);
    EXPECT_EQ(sandbox().find("/Documents/b.txt")->data, "contents of a.txt");
    // A folder with what it holds, which the device has replaced.
    EXPECT_EQ(rename("/Storage/empty", "/Storage/dir"), 0);
    EXPECT_EQ(object("/Storage/dir/x"), nullptr);
    EXPECT_EQ(list("/Storage/dir").size(), 2U);
    // Below what it replaces.
    EXPECT_EQ(mkdir("/Storage/dir/in"), 0);
    EXPECT_EQ(rename("/Storage/dir/in", "/Storage/dir"), 0);
    expectAllShown();
    expectNothingRaised();
}

TEST_F(Rename, AFolderIsListedAgain)
{
    for (const std::string area : {"/Storage", "/Apps/Notes"}) {
        const std::string from = area + "/dir";
        const std::string to = area + "/dir2";
        EXPECT_EQ(rename(from, to), 0);
        EXPECT_EQ(object(from + "/x"), nullptr);
        EXPECT_NE(object(to + "/x"), nullptr);
        EXPECT_EQ(list(to)[2], "x");
        EXPECT_EQ(attributes(to).st_mode, 040777U);
        expectAllGone(from.c_str(), to);
    }
    EXPECT_STREQ(object("/Apps/Notes/dir2/x")->app_id, "com.example.notes");
}

TEST_F(Rename, AnOpenFileLeavesNoHandleBehind)
{
    tarni_file_info fi;
    ASSERT_EQ(open("/Apps/Notes/a.txt", &fi), 0);
    EXPECT_EQ(rename("/Apps/Notes/a.txt", "/Apps/Notes/new.txt"), 0);
    EXPECT_EQ(Value(object("/Apps/Notes")->open_count), 0U);
    // Opened again under its new name, as a host does for the program.
    ASSERT_EQ(open("/Apps/Notes/new.txt", &fi), 0);
    EXPECT_EQ(read("/Apps/Notes/new.txt", &fi, 8, 0), "contents");
    EXPECT_EQ(release("/Apps/Notes/new.txt", &fi), 0);
    EXPECT_EQ(memoryWorld.houses(), 0);
    ASSERT_EQ(open("/Storage/b.txt", &fi), 0);
    EXPECT_EQ(rename("/Storage/a.txt", "/Storage/b.txt"), 0);
    EXPECT_EQ(memoryWorld.open().find("file"), std::string::npos);
}

TEST_F(Rename, StagedDataGoesToTheDeviceFirst)
{
    for (const std::string place : {"/Storage", "/Apps/Notes"}) {
        SCOPED_TRACE(place);
        MemoryTree &tree = place == "/Storage" ? media() : sandbox();
        const std::string device =
            place == "/Storage" ? "/general_storage" : "/Documents";
        stage(place + "/a.txt.sb-1", "staged bytes");
        EXPECT_EQ(tree.find(device + "/a.txt.sb-1")->data, "");
        ASSERT_TRUE(isStaged("a.txt.sb-1"));
        EXPECT_EQ(rename(place + "/a.txt.sb-1", place + "/a.txt"), 0);
        EXPECT_EQ(tree.find(device + "/a.txt")->data, "staged bytes");
        EXPECT_EQ(attributes(place + "/a.txt").st_size, 12);
        EXPECT_EQ(Value(object(place + "/a.txt")->type), KTL_ORDINARY);
        EXPECT_FALSE(isStaged("a.txt.sb-1"));
    }
    expectAllShown();
    EXPECT_EQ(memoryWorld.houses(), 0);
}

TEST_F(Rename, AFullDeviceHasNoRoomInApps)
{
    object("/Apps/Notes/a.txt")->size = freeSpace();
    EXPECT_EQ(rename("/Apps/Notes/a.txt", "/Apps/Notes/c"), -ECANCELED);
    expectError("Not enough space on device.");
    EXPECT_EQ(memoryWorld.calls, Names());
    object("/Apps/Notes/a.txt")->size = freeSpace() - 1;
    EXPECT_EQ(rename("/Apps/Notes/a.txt", "/Apps/Notes/c"), 0);
    void *kept = testHost.privateData;
    testHost.privateData = nullptr;
    EXPECT_EQ(rename("/Storage/a.txt", "/Storage/c"), -ECANCELED);
    testHost.privateData = kept;
}

} // namespace
