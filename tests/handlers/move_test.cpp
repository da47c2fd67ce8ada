// Moves across the areas: what is copied, what goes, what stays.
#include <fstream>

#include "tests/handlers/move_fixture.h"

namespace
{

TEST_F(Move, EveryKindArrivesWhole)
{
    unmount();
    for (const Kind &each : KINDS) {
        SCOPED_TRACE(each.from + " to " + each.to);
        freshDevice();
        prepare();
        TrayReader tray(trayPipePath);
        look(each);
        const bool isFolder = Value(object(each.from)->mode) == KTL_MODE_FOLDER;
        std::map<std::string, std::string> before = onDevice(each.from);
        if (each.from == "/Media/Music/Album") {
            before = {{"/", ""}, {"/zero.mp3", ""}, {"/two.mp3", SONG}};
        }
        // What is replaced gives its room back.
        const MemoryNode *replaced = nodeAt(each.to);
        const uint64_t space =
            freeSpace() + (replaced != nullptr ? replaced->data.size() : 0);
        ASSERT_EQ(rename(each.from, each.to), 0);
        expectNothingRaised();
        EXPECT_EQ(log(), std::vector<std::string>());
        EXPECT_EQ(onDevice(each.to), before);
        EXPECT_EQ(exists(each.from), each.stays);
        EXPECT_EQ(space - freeSpace(), each.free);
        EXPECT_EQ(tray.read(), isFolder ? "-neon-neoff" : "");
        EXPECT_NEAR(static_cast<double>(Value(object(each.to)->modify_time)),
                    static_cast<double>(time(nullptr)), 5);
        const bool inApp = each.to.rfind("/Apps", 0) == 0;
        EXPECT_EQ(inApp, object(each.to)->app_id != nullptr);
        EXPECT_EQ(memoryWorld.houses(), 0);
        expectAllAgree();
        // What the volume shows is also there to be read.
        if (!isFolder) {
            tarni_file_info fi;
            ASSERT_EQ(open(each.to, &fi), 0);
            EXPECT_EQ(read(each.to, &fi, 1 << 20, 0), before[""]);
            EXPECT_EQ(release(each.to, &fi), 0);
        }
        unmount();
        EXPECT_EQ(memoryWorld.open(), "");
    }
    ASSERT_TRUE(mount());
}

TEST_F(Move, TheDeviceSeesTheStepsInOrder)
{
    struct Case {
        const char *from;
        const char *to;
        std::vector<std::string> calls;
    };
    const std::string open = "libiusb_afc_file_open ";
    const std::string info = "libiusb_afc_file_get_info ";
    const std::string init = "libiusb_housearrest_init";
    const std::string app = "libiusb_housearrest_openapp com.example.";
    const std::string exit = "libiusb_housearrest_exit";
    const std::string remove = "libiusb_afc_file_remove ";
    const std::string read = "libiusb_afc_file_read";
    const std::string write = "libiusb_afc_file_write";
    const std::string drain = "libiusb_afc_file_drain";
    const std::string close = "libiusb_afc_file_close";
    const Case cases[] = {
        {"/Media/Music/Album/zero.mp3",
         "/Storage/new",
         {info + "/iTunes_Control/zero.mp3",
          open + "/iTunes_Control/zero.mp3:1", open + "/general_storage/new:3",
          drain, close, close}},
        {"/Storage/doc.txt",
         "/Apps/Notes/new",
         {init, app + "notes", info + "/general_storage/doc.txt",
          open + "/general_storage/doc.txt:1", open + "/Documents/new:3", read,
          write, drain, close, close, remove + "/general_storage/doc.txt",
          exit}},
        {"/Apps/Notes/note.txt",
         "/Storage/new",
         {init, app + "notes", info + "/Documents/note.txt",
          open + "/Documents/note.txt:1", open + "/general_storage/new:3", read,
          write, drain, close, close, remove + "/Documents/note.txt", exit}},
        {"/Apps/Notes/old.txt",
         "/Apps/Other/new",
         {init, app + "other", init, app + "notes", info + "/Documents/old.txt",
          open + "/Documents/old.txt:1", open + "/Documents/new:3", read, write,
          drain, close, close, remove + "/Documents/old.txt", exit, exit}},
    };
    for (const Case &each : cases) {
        memoryWorld.forgetCalls();
        EXPECT_EQ(rename(each.from, each.to), 0);
        EXPECT_EQ(memoryWorld.calls, each.calls) << each.from;
    }
    memoryWorld.forgetCalls();
    EXPECT_EQ(rename("/Media/Music/song.mp3", "/Apps/Notes/song"), 0);
    EXPECT_EQ(memoryWorld.count(read), static_cast<int>(PIECES));
    EXPECT_EQ(memoryWorld.count(write), static_cast<int>(PIECES));
}

TEST_F(Move, RoomIsAskedForFileByFile)
{
    struct Case {
        const char *from;
        const char *to;
    };
    for (const Case &each :
         {Case{"/Media/Music/song.mp3", "/Storage/old.txt"},
          Case{"/Media/Music/song.mp3", "/Apps/Notes/old.txt"},
          Case{"/Storage/doc.txt", "/Apps/Notes/old.txt"},
          Case{"/Apps/Notes/note.txt", "/Storage/old.txt"}}) {
        context()->device_info.free_capacity = object(each.from)->size;
        EXPECT_EQ(rename(each.from, each.to), -ECANCELED) << each.from;
        expectError(FULL);
    }
    EXPECT_EQ(memoryWorld.calls, std::vector<std::string>());
    expectAllAgree();
    // The small ones of a folder go; the one that is too large stays.
    context()->device_info.free_capacity = SONG.size();
    EXPECT_EQ(rename("/Storage/dir", "/Apps/Notes/new"), -ECANCELED);
    expectError(FULL);
    EXPECT_EQ(sandbox(0).find("/Documents/new/a")->data, "in a");
    EXPECT_EQ(media().find("/general_storage/dir/sub/b")->data, SONG);
    expectAllAgree();
    context()->device_info.free_capacity = SONG.size() + 1;
    EXPECT_EQ(rename("/Media/Music/song.mp3", "/Storage/new"), 0);
    EXPECT_EQ(freeSpace(), 1U);
}

TEST_F(Move, NothingIsCutThatIsNotToBeReplaced)
{
    struct Case {
        const char *from;
        const char *to;
        const char *text;
    };
    const char *other = "Could not rename or move the contents.\nError Code : ";
    fill("/Storage/dir");
    addSong("/Media/Music/itself", "/general_storage/doc.txt");
    _KTL_OBJECT *nowhere = addMediaItem("/Media/Music/nowhere", "");
    nowhere->device_path = ReplaceString(nowhere->device_path, nullptr);
    for (const Case &each : {
             Case{"/Media/Music/itself", "/Storage/doc.txt", "-301"},
             Case{"/Media/Music/nowhere", "/Storage/old.txt", "-70"},
             Case{"/Media/Music/song.mp3", "/Storage/dir", "-209"},
             Case{"/Media/Music/Album", "/Storage/old.txt", "-216"},
             Case{"/Apps/Notes/dir", "/Storage/old.txt", "-216"},
             Case{"/Storage/doc.txt", "/Apps/Notes/dir", "-209"},
             Case{"/Apps/Notes/dir", "/Apps/Other/other.txt", "-216"},
             Case{"/Apps/Notes/dir", "/Apps/Notes/dir/in", "-207"},
             Case{"/Storage/doc.txt", "/Apps/Unknown/x", "-70"},
         }) {
        SCOPED_TRACE(std::string(each.from) + " to " + each.to);
        EXPECT_EQ(rename(each.from, each.to), -ECANCELED);
        expectError(std::string(other) + each.text);
        EXPECT_EQ(memoryWorld.houses(), 0);
    }
    EXPECT_EQ(media().find("/general_storage/old.txt")->data, "what was there");
    expectAllAgree();
    // Another spelling of the app's folder is the same app.
    fill("/Apps/Notes/dir");
    {
        const TarniLock lock;
        GetObject("/Apps/Same")->app_id =
            ReplaceString(nullptr, "com.example.notes");
    }
    EXPECT_EQ(rename("/Apps/Notes/note.txt", "/Apps/Same/note.txt"), 0);
    EXPECT_EQ(sandbox(0).find("/Documents/note.txt")->data,
              "contents of note.txt");
}

TEST_F(Move, AFolderThatIsThereKeepsWhatItHolds)
{
    for (const char *to : {"/Storage/dir", "/Apps/Notes/dir"}) {
        EXPECT_EQ(rename("/Media/Music/Album", to), 0);
        EXPECT_NE(nodeAt(std::string(to) + "/a"), nullptr);
    }
    expectAllAgree();
    expectNothingRaised();
}

TEST_F(Move, HiddenEntriesStayAndTheirFolderWithThem)
{
    media().addFile("/general_storage/dir/.secret", "hidden");
    sandbox(0).addFile("/Documents/dir/.secret", "hidden");
    EXPECT_EQ(rename("/Storage/dir", "/Apps/Notes/new"), 0);
    expectLogged("movetoapps libiusb_afc_file_remove failed. "
                 "from(/general_storage/dir), ret : -33");
    EXPECT_EQ(rename("/Apps/Notes/dir", "/Apps/Other/new"), 0);
    expectLogged("movetoapps libiusb_afc_file_remove failed, "
                 "path(/Documents/dir), ret : -33");
    EXPECT_EQ(onDevice("/Storage/dir"),
              (std::map<std::string, std::string>{{"/", ""},
                                                  {"/.secret", "hidden"}}));
    EXPECT_EQ(sandbox(0).find("/Documents/dir/.secret")->data, "hidden");
    EXPECT_TRUE(exists("/Storage/dir"));
    expectAllAgree();
    expectNothingRaised();
}

TEST_F(Move, ASourceThatChangesIsNotLost)
{
    for (const auto &[from, to] :
         {std::pair{"/Storage/doc.txt", "/Apps/Notes/new"},
          std::pair{"/Apps/Notes/note.txt", "/Storage/new"},
          std::pair{"/Apps/Other/other.txt", "/Apps/Notes/new2"}}) {
        MemoryNode *node = nodeAt(from);
        node->promised = 99999;
        EXPECT_EQ(rename(from, to), -ECANCELED);
        expectError("Could not rename or move the contents.\nError Code : "
                    "-214");
        EXPECT_NE(nodeAt(from), nullptr);
        // Grown since it was asked about, beyond a whole piece.
        node->promised = 65530;
        node->data = SONG;
        EXPECT_EQ(rename(from, to), 0);
        EXPECT_EQ(nodeAt(from), nullptr);
        EXPECT_EQ(nodeAt(to)->data, SONG);
    }
    expectAllAgree();
}

TEST_F(Move, StagedDataGoesAlong)
{
    tarni_file_info fi;
    const std::string targets[] = {"/Apps/Other/x", "/Storage/x"};
    for (const std::string &to : targets) {
        const bool fromApp = to == "/Storage/x";
        const std::string from =
            fromApp ? "/Apps/Notes/old.txt.sb-1" : "/Storage/old.txt.sb-1";
        ASSERT_EQ(create(from, &fi), 0);
        ASSERT_EQ(write(from, &fi, "staged bytes", 0), 12);
        ASSERT_EQ(release(from, &fi), 0);
        // An upload that fails keeps what it was to bring.
        memoryWorld.failNamed("libiusb_afc_file_write", 1, -62);
        EXPECT_EQ(rename(from, to), -ECANCELED);
        EXPECT_EQ(Value(object(from)->type), KTL_STAGED);
        expectError(FULL);
        memoryWorld.failNamed("libiusb_afc_file_drain", 1, -62);
        EXPECT_EQ(rename(from, to), -ECANCELED);
        expectError(FULL);
        EXPECT_EQ(nodeAt(from)->data, "staged bytes");
        EXPECT_EQ(rename(from, to), 0);
        EXPECT_EQ(nodeAt(to)->data, "staged bytes");
        EXPECT_FALSE(std::ifstream(privateFolder() + "/old.txt.sb-1").good());
        EXPECT_FALSE(exists(from));
    }
    expectAllAgree();
}

TEST_F(Move, LongFoldersAreAnnouncedOnceMore)
{
    TrayReader tray(trayPipePath);
    for (int i = 0; i <= 30000; ++i) {
        media().addFile("/general_storage/many/." + std::to_string(i));
    }
    media().addFile("/general_storage/many/last", "last");
    addFolder("/Storage/many");
    EXPECT_EQ(rename("/Storage/many", "/Apps/Notes/many"), 0);
    EXPECT_EQ(tray.read(), "-neon-neon-neoff-neoff");
    EXPECT_EQ(sandbox(0).find("/Documents/many/last")->data, "last");
    const struct {
        uint64_t size;
        const char *said;
    } files[] = {{3000000, ""}, {3000001, "-neon-neoff"}};
    for (const auto &each : files) {
        object("/Media/Music/song.mp3")->size = each.size;
        EXPECT_EQ(rename("/Media/Music/song.mp3", "/Storage/long"), 0);
        EXPECT_EQ(tray.read(), each.said);
    }
}

TEST_F(Move, TheAppsAreaBecomesAFolder)
{
    memoryWorld.failNamed("libiusb_afc_make_directory", 1, -62);
    EXPECT_EQ(rename("/Apps", "/Storage/all"), -ECANCELED);
    expectLogged("tarnifs_rename make directory failed. to : /Storage/all");
    expectError(FULL);
    // What an app can't let go of stays where it is.
    sandbox(1).addFile("/Documents/.keep", "kept");
    EXPECT_EQ(rename("/Apps", "/Storage/all"), 0);
    EXPECT_EQ(onDevice("/Storage/all"),
              (std::map<std::string, std::string>{
                  {"/", ""},
                  {"/Notes/", ""},
                  {"/Notes/note.txt", "contents of note.txt"},
                  {"/Notes/old.txt", "contents of old.txt"},
                  {"/Notes/dir/", ""},
                  {"/Notes/dir/a", "app a"},
                  {"/Notes/dir/sub/", ""},
                  {"/Notes/dir/sub/b", SONG},
                  {"/Other/", ""},
                  {"/Other/other.txt", "contents of other.txt"}}));
    EXPECT_EQ(sandbox(1).find("/Documents/.keep")->data, "kept");
    expectAgree("/Storage");
}

} // namespace
