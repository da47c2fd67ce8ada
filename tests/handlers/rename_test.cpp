// Renaming: what each pair of places means, renames on the device, refusals.
#include "tarnifs/namespace/rename.h"

#include <fstream>

#include "tarnifs/notify/tray_pipe.h"
#include "tests/handlers/fixture.h"

namespace
{

const std::string READ_ONLY =
    "This folder is read only. You can not write or modify.\n";
const std::string UNSUPPORTED =
    "Could not rename or move the contents.\nError Code : -215";

class Rename : public MountTest
{
  protected:
    void SetUp() override { prepare(); }
    void prepare()
    {
        ASSERT_TRUE(mount());
        media().addFile("/general_storage/a.txt", "12345");
        media().addFile("/general_storage/b.txt", "old");
        media().addFile("/general_storage/dir/x", "x");
        media().addFolder("/general_storage/dir/sub");
        fill("/");
        fill("/Storage");
        fill("/Storage/dir");
        addApp("Notes", "com.example.notes", {"a.txt", "b.txt"});
        addApp("Other", "com.example.other", {"a.txt"});
        addMediaItem("/Media/Music/x.mp3", "/iTunes_Control/x.mp3");
        {
            const TarniLock lock;
            GetObjectWithFileName("/Media/Music")->mode = KTL_MODE_FOLDER;
        }
        sandbox().addFile("/Documents/dir/x", "x");
        ASSERT_EQ(mkdir("/Apps/Notes/dir"), 0);
        fill("/Apps/Notes/dir");
        memoryWorld.forgetCalls();
    }
    MemoryTree &media() { return memoryWorld.devices[0].media; }
    MemoryTree &sandbox() { return memoryWorld.devices[0].apps[0].tree; }
    uint64_t freeSpace() { return context()->device_info.free_capacity; }
    void expectAllShown()
    {
        expectShown("/Storage", media(), "/general_storage");
        expectShown("/Apps/Notes", sandbox(), "/Documents");
    }

    // A safe-save temporary of a file that exists: its data is staged.
    void stage(const std::string &path, const std::string &data)
    {
        tarni_file_info fi;
        ASSERT_EQ(create(path, &fi), 0);
        ASSERT_EQ(write(path, &fi, data, 0), static_cast<int>(data.size()));
        ASSERT_EQ(release(path, &fi), 0);
        ASSERT_EQ(Value(object(path)->type), KTL_STAGED);
        memoryWorld.forgetCalls();
    }
    // What the device has of a file; empty for a folder or nothing.
    std::string contents(const std::string &path)
    {
        const bool inApp = path.starts_with("/Apps/Notes");
        const auto *node =
            inApp ? sandbox().find("/Documents" + path.substr(11))
                  : media().find("/general_storage" + path.substr(8));
        return node != nullptr ? node->data : "";
    }
    bool isStaged(const std::string &name)
    {
        return std::ifstream(privateFolder() + "/" + name).good();
    }
};

TEST(RenameRules, TheFirstThatFitsDecides)
{
    struct Case {
        const char *from;
        const char *to;
        RenameAction action;
    };
    using enum RenameAction;
    const Case cases[] = {
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
    for (const Case &each : cases) {
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
    struct Case {
        const char *from;
        const char *to;
        std::string line;
        bool appLevel;
        std::string text;
    };
    const Case cases[] = {
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
    for (const Case &each : cases) {
        SCOPED_TRACE(std::string(each.from) + " to " + each.to);
        forgetLog();
        EXPECT_EQ(rename(each.from, each.to), -ECANCELED);
        expectLogged(each.line);
        EXPECT_EQ(countLogged(level), each.appLevel ? 1 : 0);
        expectRefusal(each.text);
        EXPECT_EQ(object(each.to), nullptr);
    }
    EXPECT_EQ(memoryWorld.calls, std::vector<std::string>());
    expectAllShown();
}

TEST_F(Rename, AFileInStorageTakesItsThingsAlong)
{
    object("/Storage/a.txt")->birth_time = 1000;
    tarni_opers.setxattr("/Storage/a.txt", "tag", "red", 3, 0, 0);
    EXPECT_EQ(rename("/Storage/a.txt", "/Storage/dir/new.txt"), 0);
    EXPECT_EQ(
        memoryWorld.calls,
        std::vector<std::string>{"libiusb_afc_rename /general_storage/a.txt"});
    EXPECT_EQ(object("/Storage/a.txt"), nullptr);
    const _KTL_OBJECT *now = object("/Storage/dir/new.txt");
    EXPECT_EQ(Value(now->size), 5U);
    EXPECT_EQ(Value(now->birth_time), 1000);
    EXPECT_NEAR(static_cast<double>(now->modify_time),
                static_cast<double>(time(nullptr)), 5);
    char value[8] = {};
    EXPECT_EQ(tarni_opers.getxattr("/Storage/dir/new.txt", "tag", value, 3, 0),
              3);
    EXPECT_STREQ(value, "red");
    EXPECT_EQ(list("/Storage/dir"),
              (std::vector<std::string>{".", "..", "x", "sub", "new.txt"}));
    expectAllShown();
}

TEST_F(Rename, ATargetThatExistsIsReplaced)
{
    const _KTL_OBJECT *before = object("/Storage/b.txt");
    ASSERT_NE(before, nullptr);
    EXPECT_EQ(rename("/Storage/a.txt", "/Storage/b.txt"), 0);
    EXPECT_EQ(attributes("/Storage/b.txt").st_size, 5);
    EXPECT_EQ(media().find("/general_storage/b.txt")->data, "12345");
    EXPECT_EQ(rename("/Apps/Notes/a.txt", "/Apps/Notes/b.txt"), 0);
    EXPECT_EQ(sandbox().find("/Documents/b.txt")->data, "contents of a.txt");
    // A folder with what it holds, which the device has replaced.
    media().addFolder("/general_storage/empty");
    EXPECT_EQ(mkdir("/Storage/empty"), 0);
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
    EXPECT_EQ(rename("/Storage/dir", "/Storage/dir2"), 0);
    EXPECT_EQ(object("/Storage/dir/x"), nullptr);
    EXPECT_NE(object("/Storage/dir2/x"), nullptr);
    EXPECT_EQ(list("/Storage/dir2"),
              (std::vector<std::string>{".", "..", "x", "sub"}));
    EXPECT_EQ(attributes("/Storage/dir2").st_mode, 040777U);
    EXPECT_EQ(rename("/Apps/Notes/dir", "/Apps/Notes/dir2"), 0);
    EXPECT_EQ(object("/Apps/Notes/dir/x"), nullptr);
    EXPECT_STREQ(object("/Apps/Notes/dir2/x")->app_id, "com.example.notes");
    expectAllShown();
    EXPECT_EQ(memoryWorld.houses(), 0);
}

TEST_F(Rename, WithinAnAppTheDeviceRenames)
{
    object("/Apps/Notes/a.txt")->birth_time = 1000;
    EXPECT_EQ(rename("/Apps/Notes/a.txt", "/Apps/Notes/dir/new.txt"), 0);
    EXPECT_EQ(memoryWorld.calls,
              (std::vector<std::string>{
                  "libiusb_housearrest_init",
                  "libiusb_housearrest_openapp com.example.notes",
                  "libiusb_afc_rename /Documents/a.txt",
                  "libiusb_housearrest_exit"}));
    const _KTL_OBJECT *now = object("/Apps/Notes/dir/new.txt");
    ASSERT_NE(now, nullptr);
    EXPECT_STREQ(now->app_id, "com.example.notes");
    EXPECT_EQ(Value(now->size), 17U);
    EXPECT_EQ(Value(now->birth_time), 1000);
    EXPECT_EQ(object("/Apps/Notes/a.txt"), nullptr);
    expectAllShown();
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
        EXPECT_EQ(tree.find(device + "/a.txt.sb-1"), nullptr);
        EXPECT_EQ(attributes(place + "/a.txt").st_size, 12);
        EXPECT_EQ(Value(object(place + "/a.txt")->type), KTL_ORDINARY);
        EXPECT_FALSE(isStaged("a.txt.sb-1"));
    }
    expectAllShown();
    EXPECT_EQ(memoryWorld.houses(), 0);
}

TEST_F(Rename, LongMovesAreAnnounced)
{
    TrayReader tray(trayPipePath);
    struct Case {
        const char *from;
        uint64_t size;
        const char *said;
    };
    for (const Case &each :
         {Case{"/Storage/a.txt", 3000000, ""},
          Case{"/Storage/a.txt", 3000001, "-neon-neoff"},
          Case{"/Storage/dir", 0, "-neon-neoff"},
          Case{"/Media/Music/x.mp3", 3000001, "-neon-neoff"}}) {
        object(each.from)->size = each.size;
        EXPECT_EQ(rename(each.from, "/Apps/Notes/new"), -ECANCELED);
        expectError(UNSUPPORTED);
        EXPECT_EQ(tray.read(), each.said) << each.from << each.size;
    }
    object("/Storage/a.txt")->size = 3000001;
    EXPECT_EQ(rename("/Storage/a.txt", "/Storage/c.txt"), 0);
    EXPECT_EQ(tray.read(), "");
    expectNothingRaised();
}

TEST_F(Rename, MovesThatCannotBeDoneChangeNothing)
{
    for (const char *from :
         {"/Apps/Other/a.txt", "/Storage/a.txt", "/Media/Music/x.mp3"}) {
        EXPECT_EQ(rename(from, "/Apps/Notes/a.txt"), -ECANCELED);
        expectError(UNSUPPORTED);
        EXPECT_NE(object(from), nullptr);
        EXPECT_EQ(attributes("/Apps/Notes/a.txt").st_size, 17);
    }
    EXPECT_EQ(rename("/Apps/Notes/a.txt", "/Storage/new"), -ECANCELED);
    expectError(UNSUPPORTED);
    expectAllShown();
    EXPECT_EQ(sandbox().find("/Documents/a.txt")->data, "contents of a.txt");
}

TEST_F(Rename, TheAppsAreaBecomesAFolder)
{
    memoryWorld.failNamed("libiusb_afc_make_directory", 1, -62);
    EXPECT_EQ(rename("/Apps", "/Storage/dir"), -ECANCELED);
    expectLogged("tarnifs_rename make directory failed. to : /Storage/dir");
    expectError("Not enough space on device.");
    EXPECT_NE(object("/Storage/dir/x"), nullptr);
    EXPECT_EQ(rename("/Apps", "/Storage/Apps"), -ECANCELED);
    expectError(UNSUPPORTED);
    EXPECT_EQ(attributes("/Storage/Apps").st_mode, 040777U);
    expectAllShown();
}

TEST_F(Rename, FailuresTellWhatHappened)
{
    struct Case {
        const char *from;
        const char *to;
        const char *call;
        int code;
        const char *line;
        const char *text;
    };
    const char *other = "Could not rename or move the contents.\nError Code : "
                        "-212";
    const Case cases[] = {
        {"/Storage/a.txt", "/Storage/b.txt", "libiusb_afc_rename", -32,
         "tarnifs_rename libiusb_afc_rename failed. "
         "from(/general_storage/a.txt) to(/general_storage/b.txt). error : -32",
         "Lost USB connection.\nRenaming or moving aborted."},
        {"/Storage/a.txt", "/Storage/b.txt", "libiusb_afc_rename", -62,
         "tarnifs_rename libiusb_afc_rename failed. "
         "from(/general_storage/a.txt) to(/general_storage/b.txt). error : -62",
         "Not enough space on device."},
        {"/Apps/Notes/a.txt", "/Apps/Notes/b.txt", "libiusb_housearrest_init",
         -212, "movetoapps libiusb_housearrest_init failed, ret : -212", other},
        {"/Apps/Notes/a.txt", "/Apps/Notes/b.txt",
         "libiusb_housearrest_openapp", -212,
         "movetoapps libiusb_housearrest_openapp failed, ret : -212", other},
        {"/Apps/Notes/a.txt", "/Apps/Notes/b.txt", "libiusb_afc_rename", -212,
         "movetoapps libiusb_afc_rename filed, from(/Documents/a.txt), "
         "to(/Documents/b.txt), ret : -212",
         other},
    };
    for (const Case &each : cases) {
        SCOPED_TRACE(each.line);
        const _KTL_OBJECT *source = object(each.from);
        const _KTL_OBJECT *target = object(each.to);
        memoryWorld.failNamed(each.call, 1, each.code);
        EXPECT_EQ(rename(each.from, each.to), -ECANCELED);
        expectLogged(each.line);
        expectError(each.text);
        EXPECT_EQ(object(each.from), source);
        EXPECT_EQ(object(each.to), target);
        EXPECT_EQ(memoryWorld.houses(), 0);
    }
    expectAllShown();
    void *kept = testHost.privateData;
    testHost.privateData = nullptr;
    EXPECT_EQ(rename("/Storage/a.txt", "/Storage/c"), -ECANCELED);
    testHost.privateData = kept;
}

TEST_F(Rename, AFullDeviceHasNoRoomInApps)
{
    object("/Apps/Notes/a.txt")->size = freeSpace();
    EXPECT_EQ(rename("/Apps/Notes/a.txt", "/Apps/Notes/c"), -ECANCELED);
    expectError("Not enough space on device.");
    EXPECT_EQ(memoryWorld.calls, std::vector<std::string>());
    object("/Apps/Notes/a.txt")->size = freeSpace() - 1;
    EXPECT_EQ(rename("/Apps/Notes/a.txt", "/Apps/Notes/c"), 0);
}

TEST_F(Rename, EveryFailingCallLeavesAVolumeThatWorks)
{
    struct Case {
        std::string from;
        std::string to;
        bool staged;
    };
    const Case cases[] = {
        {"/Storage/a.txt", "/Storage/b.txt", false},
        {"/Storage/dir", "/Storage/new", false},
        {"/Storage/b.txt.sb-1", "/Storage/b.txt", true},
        {"/Apps/Notes/a.txt", "/Apps/Notes/b.txt", false},
        {"/Apps/Notes/dir", "/Apps/Notes/new", false},
        {"/Apps/Notes/b.txt.sb-1", "/Apps/Notes/b.txt", true},
    };
    unmount();
    for (const Case &each : cases) {
        SCOPED_TRACE(each.from + " to " + each.to);
        forEachDeviceFailure(
            FAILURE_CODES,
            [this, &each] {
                prepare();
                if (each.staged) {
                    stage(each.from, "staged");
                }
            },
            [this, &each](int code) {
                const std::string old = contents(each.to);
                int ret = rename(each.from, each.to);
                expectTold(ret, code);
                memoryWorld.heal();
                // The file that is saved over is whole, before and after.
                if (each.staged) {
                    EXPECT_EQ(contents(each.to), ret == 0 ? "staged" : old);
                }
                // An upload closes its file once more after a failure.
                if (each.staged) {
                    memoryWorld.violations.clear();
                }
                expectAllShown();
                // One name or the other.
                EXPECT_EQ(object(each.from) == nullptr, ret == 0);
                if (ret != 0) {
                    ret = rename(each.from, each.to);
                }
                EXPECT_EQ(ret, 0);
                EXPECT_EQ(object(each.from), nullptr);
                EXPECT_NE(object(each.to), nullptr);
                expectAllShown();
                if (each.staged) {
                    EXPECT_EQ(contents(each.to), "staged");
                }
                if (attributes(each.to).st_mode == 040777U) {
                    EXPECT_EQ(list(each.to)[2], "x");
                }
                EXPECT_EQ(memoryWorld.houses(), 0);
                expectNothingRaised();
            });
    }
}

} // namespace
